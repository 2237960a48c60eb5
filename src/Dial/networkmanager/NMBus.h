#pragma once

#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QMap>
#include <QMetaType>
#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <optional>

// NetworkManager's settings dictionary: setting name -> property -> value (a{sa{sv}}).
using NMSettingsMap = QMap<QString, QVariantMap>;
Q_DECLARE_METATYPE(NMSettingsMap)

// Small helpers for NetworkManager's D-Bus API on the system bus (DBUS_SYSTEM_BUS_ADDRESS is
// honoured). Every call is synchronous and bounded by a timeout.
namespace NMBus {

inline const QString Service = QStringLiteral("org.freedesktop.NetworkManager");
inline const QString Path = QStringLiteral("/org/freedesktop/NetworkManager");
inline const QString Interface = QStringLiteral("org.freedesktop.NetworkManager");
inline const QString SettingsPath = QStringLiteral("/org/freedesktop/NetworkManager/Settings");
inline const QString SettingsInterface = QStringLiteral("org.freedesktop.NetworkManager.Settings");
inline const QString ConnectionInterface = QStringLiteral("org.freedesktop.NetworkManager.Settings.Connection");
inline const QString ActiveInterface = QStringLiteral("org.freedesktop.NetworkManager.Connection.Active");
inline const QString DeviceInterface = QStringLiteral("org.freedesktop.NetworkManager.Device");
inline const QString WiredInterface = QStringLiteral("org.freedesktop.NetworkManager.Device.Wired");
inline const QString WirelessInterface = QStringLiteral("org.freedesktop.NetworkManager.Device.Wireless");
inline const QString IP4ConfigInterface = QStringLiteral("org.freedesktop.NetworkManager.IP4Config");
inline const QString AgentManagerPath = QStringLiteral("/org/freedesktop/NetworkManager/AgentManager");
inline const QString AgentManagerInterface = QStringLiteral("org.freedesktop.NetworkManager.AgentManager");

// Device types.
enum : uint { DeviceTypeEthernet = 1, DeviceTypeWifi = 2, DeviceTypeVeth = 20 };
// Device states.
enum : uint { DeviceStateUnmanaged = 10 };
// Active connection states.
enum : uint {
    ActiveUnknown = 0,
    ActiveActivating = 1,
    ActiveActivated = 2,
    ActiveDeactivating = 3,
    ActiveDeactivated = 4,
};
// Flags of AddConnection2 and Update2: keep the profile in memory only; don't start it.
enum : uint { SettingsFlagInMemory = 0x2, SettingsFlagBlockAutoconnect = 0x20 };
// pppoe.password-flags: the system never stores the secret and asks an agent every time.
enum : uint { SecretFlagNotSaved = 0x2 };

// Registers the D-Bus types used here (idempotent).
void registerTypes();

// The outcome of one call: the reply, or the error's name and text.
struct Reply
{
    QDBusMessage message;
    bool ok() const { return message.type() == QDBusMessage::ReplyMessage; }
    QString errorName() const { return message.errorName(); }
    // "<name>: <text>" of an error reply.
    QString errorText() const;
    QVariant first() const { return message.arguments().value(0); }
};

Reply call(const QString &path, const QString &interface, const QString &method, const QList<QVariant> &args = {},
           int timeoutMs = 15000);
// One property; nullopt when it cannot be read.
std::optional<QVariant> property(const QString &path, const QString &interface, const QString &name);
// All properties of one interface; empty when they cannot be read.
QVariantMap properties(const QString &path, const QString &interface);

// Whether NetworkManager can be reached; `why` says what is missing when not.
bool reachable(QString *why);

// Unpacking of nested values that come back as QDBusArgument.
NMSettingsMap toSettings(const QVariant &v);
QList<QVariantMap> toMapList(const QVariant &v);
QList<QDBusObjectPath> toPathList(const QVariant &v);
QString toPath(const QVariant &v);

// Text for an active connection's state reason (NMActiveConnectionStateReason).
QString activeReasonText(uint reason);

} // namespace NMBus
