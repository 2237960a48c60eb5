#pragma once

#include <QString>
#include <QVariant>

// The preference store. Every call opens the store afresh and every write is synchronised
// to disk at once, so a value written by one process is seen by the next.
// Linux: ~/.config/dorvik/dorvik.conf (XDG_CONFIG_HOME is honoured).
class UserDefaults
{
public:
    static void saveConf(bool value, const QString &key);
    // The stored boolean; false when absent.
    static bool getConf(const QString &key);
    // Stores any value; an invalid (absent) value removes the key. An empty key is refused.
    static void saveValue(const QVariant &value, const QString &key);
    // The stored value; invalid when absent.
    static QVariant loadValueForKey(const QString &key);
    // True exactly once per installation.
    static bool showWelcome();
};

// Preference keys.
namespace PrefKey {
inline const QString isconnected = QStringLiteral("isconnected");
inline const QString ifRememberInterface = QStringLiteral("ifRememberInterface");
inline const QString defaultInterface = QStringLiteral("defaultInterface");
inline const QString remenberpass = QStringLiteral("remenberpass");
inline const QString autolog = QStringLiteral("autolog");
inline const QString lastDialType = QStringLiteral("lastDialType");
inline const QString areacode = QStringLiteral("areacode");
inline const QString lastUpDate = QStringLiteral("lastUpDate");
inline const QString lastDownDate = QStringLiteral("lastDownDate");
inline const QString lastUpLong = QStringLiteral("lastUpLong");
inline const QString time = QStringLiteral("time");
} // namespace PrefKey
