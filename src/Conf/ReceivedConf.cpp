#include "ReceivedConf.h"

#include "Conf.h"

#include "Util/Log.h"
#include "Util/UserDefaults.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <mutex>

namespace {

// The configuration request and the registration report may answer at the same time on
// different threads; a read-modify-write of the area's object must not lose either.
std::mutex &storeMutex()
{
    static std::mutex m;
    return m;
}

// The preference key of the current area, or empty when no area can be used. Area codes are
// pieces of digits joined by ":"; a separator of the store's key syntax would silently
// nest the entry, so such a code is refused as well.
QString areaKey(const char *purpose)
{
    const QString area = Conf::area();
    if (area.isEmpty()) {
        if (purpose)
            DVLOG() << "no area chosen, " << purpose << " dropped";
        return {};
    }
    if (area.contains(QLatin1Char('/')) || area.contains(QLatin1Char('\\'))) {
        DVLOG() << "area code " << area << " cannot be a preference key, received configuration not used";
        return {};
    }
    return area;
}

QVariantMap loadObject(const QString &key)
{
    const QVariant stored = UserDefaults::loadValueForKey(key);
    if (!stored.isValid())
        return {};
    if (stored.typeId() != QMetaType::QVariantMap) {
        DVLOG() << "received configuration of area " << key << " is not an object, ignored";
        return {};
    }
    return stored.toMap();
}

} // namespace

ReceivedConf &ReceivedConf::shared()
{
    static ReceivedConf instance;
    return instance;
}

QVariantMap ReceivedConf::areaObject() const
{
    const QString key = areaKey(nullptr);
    if (key.isEmpty())
        return {};
    std::lock_guard<std::mutex> lock(storeMutex());
    return loadObject(key);
}

QVariant ReceivedConf::getValueOfKey(const QString &key) const
{
    return areaObject().value(key);
}

void ReceivedConf::saveValue(const QVariant &value, const QString &key)
{
    if (!value.isValid() || key.isEmpty())
        return;
    const QString area = areaKey("received value");
    if (area.isEmpty())
        return;
    std::lock_guard<std::mutex> lock(storeMutex());
    QVariantMap object = loadObject(area);
    object.insert(key, value);
    UserDefaults::saveValue(object, area);
}

bool ReceivedConf::saveAreaObject(const QVariantMap &object)
{
    const QString area = areaKey("received configuration");
    if (area.isEmpty())
        return false;
    std::lock_guard<std::mutex> lock(storeMutex());
    UserDefaults::saveValue(object, area);
    return true;
}

bool ReceivedConf::saveAreaObjectJson(const nlohmann::ordered_json &object)
{
    if (!object.is_object()) {
        DVLOG() << "received configuration is not an object, not stored";
        return false;
    }
    // The tree's depth is bounded by its reader; texts that are not UTF-8 are replaced.
    const QByteArray text =
        QByteArray::fromStdString(object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
    return saveAreaObject(QJsonDocument::fromJson(text).object().toVariantMap());
}

std::optional<QString> ReceivedConf::textOf(const QString &key) const
{
    const QVariant v = getValueOfKey(key);
    switch (v.typeId()) {
    case QMetaType::QString:
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
        return v.toString();
    default:
        return std::nullopt;
    }
}

void ReceivedConf::setText(const std::optional<QString> &value, const QString &key)
{
    if (value)
        saveValue(*value, key);
}

std::optional<QString> ReceivedConf::getHeartServerAddress() const
{
    return textOf(HeartServerAddressKey);
}

void ReceivedConf::setHeartServerAddress(const std::optional<QString> &address)
{
    setText(address, HeartServerAddressKey);
}

std::optional<QString> ReceivedConf::getUpdateServerAddress() const
{
    return textOf(UpdateServerAddressKey);
}

void ReceivedConf::setUpdateServerAddress(const std::optional<QString> &address)
{
    setText(address, UpdateServerAddressKey);
}

std::optional<QString> ReceivedConf::getTabHost() const
{
    return textOf(TabHostKey);
}

void ReceivedConf::setTabHost(const std::optional<QString> &address)
{
    setText(address, TabHostKey);
}
