#include "Conf.h"

#include "Util/UserDefaults.h"

std::optional<QString> UserConf::getDefaultInterface() const
{
    const QVariant v = UserDefaults::loadValueForKey(PrefKey::defaultInterface);
    if (!v.isValid() || v.typeId() != QMetaType::QString)
        return std::nullopt;
    return v.toString();
}

void UserConf::setDefaultInterface(const std::optional<QString> &bsdName) const
{
    UserDefaults::saveValue(bsdName ? QVariant(*bsdName) : QVariant(), PrefKey::defaultInterface);
}
