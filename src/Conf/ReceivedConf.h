#pragma once

#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <nlohmann/json.hpp>

#include <optional>

// What the servers sent back for the current area, kept in the preferences as one object per
// area code so that it outlives the process and stays separate per area.
//
// With no area chosen there is no object to use: reads give absent values and writes are
// dropped with a log line. Storing under an empty key would make the values of "no area"
// bleed into whatever the preference store does with such a key, and they would be read back
// for an area they were never received for.
class ReceivedConf
{
public:
    static ReceivedConf &shared();

    // A member of the current area's object; invalid (absent) when there is no area, no object
    // or no such member.
    QVariant getValueOfKey(const QString &key) const;
    // Sets one member of the current area's object, keeping the others. Ignored when the value
    // is invalid or the key empty.
    void saveValue(const QVariant &value, const QString &key);

    // The current area's whole object (empty when there is none).
    QVariantMap areaObject() const;
    // Replaces the current area's whole object, as a registration answer does; false when no
    // area is chosen (the object is then dropped with a log line).
    bool saveAreaObject(const QVariantMap &object);
    // The same from a JSON object (the server's "infos"); false, with a log line, when the
    // value is not an object or no area is chosen.
    bool saveAreaObjectJson(const nlohmann::ordered_json &object);

    // The three members the client knows. The getters give a text member as it is, a number
    // or boolean as text, and absent otherwise. The setters ignore an absent value.
    std::optional<QString> getHeartServerAddress() const;
    void setHeartServerAddress(const std::optional<QString> &address);
    std::optional<QString> getUpdateServerAddress() const;
    void setUpdateServerAddress(const std::optional<QString> &address);
    std::optional<QString> getTabHost() const;
    void setTabHost(const std::optional<QString> &address);

    static inline const QString HeartServerAddressKey = QStringLiteral("HeartServerAddress");
    static inline const QString UpdateServerAddressKey = QStringLiteral("UpdateServerAddress");
    static inline const QString TabHostKey = QStringLiteral("hiturl");

private:
    ReceivedConf() = default;
    std::optional<QString> textOf(const QString &key) const;
    void setText(const std::optional<QString> &value, const QString &key);
};
