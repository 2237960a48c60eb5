#include "UserDefaults.h"

#include "Util/Log.h"

#include <QSettings>

namespace {
QSettings store()
{
    return QSettings(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("dorvik"), QStringLiteral("dorvik"));
}

// An empty key names no value (QSettings would read it as the whole store).
bool usableKey(const QString &key)
{
    if (key.isEmpty()) {
        DVLOG() << "preference key is empty, ignored";
        return false;
    }
    return true;
}
} // namespace

void UserDefaults::saveConf(bool value, const QString &key)
{
    saveValue(QVariant(value), key);
}

bool UserDefaults::getConf(const QString &key)
{
    const QVariant v = loadValueForKey(key);
    return v.isValid() && v.toBool();
}

void UserDefaults::saveValue(const QVariant &value, const QString &key)
{
    if (!usableKey(key))
        return;
    QSettings s = store();
    if (value.isValid())
        s.setValue(key, value);
    else
        s.remove(key);
    s.sync();
    if (s.status() != QSettings::NoError)
        DVLOG() << "preferences could not be written to " << s.fileName();
}

QVariant UserDefaults::loadValueForKey(const QString &key)
{
    if (!usableKey(key))
        return {};
    return store().value(key);
}

bool UserDefaults::showWelcome()
{
    if (loadValueForKey(PrefKey::time).isValid())
        return false;
    saveValue(QStringLiteral("sd"), PrefKey::time);
    return true;
}
