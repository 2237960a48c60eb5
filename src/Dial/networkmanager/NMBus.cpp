#include "NMBus.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMetaType>
#include <QDBusReply>
#include <QDBusVariant>

namespace NMBus {

void registerTypes()
{
    static const bool done = [] {
        qDBusRegisterMetaType<NMSettingsMap>();
        qDBusRegisterMetaType<QList<QVariantMap>>();
        return true;
    }();
    (void)done;
}

QString Reply::errorText() const
{
    if (ok())
        return {};
    return message.errorName() + QStringLiteral(": ") + message.errorMessage();
}

Reply call(const QString &path, const QString &interface, const QString &method, const QList<QVariant> &args,
           int timeoutMs)
{
    registerTypes();
    QDBusMessage m = QDBusMessage::createMethodCall(Service, path, interface, method);
    m.setArguments(args);
    return Reply{QDBusConnection::systemBus().call(m, QDBus::Block, timeoutMs)};
}

std::optional<QVariant> property(const QString &path, const QString &interface, const QString &name)
{
    const Reply r =
        call(path, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"), {interface, name}, 5000);
    if (!r.ok())
        return std::nullopt;
    return r.first().value<QDBusVariant>().variant();
}

QVariantMap properties(const QString &path, const QString &interface)
{
    const Reply r =
        call(path, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("GetAll"), {interface}, 5000);
    if (!r.ok())
        return {};
    const QVariant v = r.first();
    if (v.canConvert<QDBusArgument>()) {
        QVariantMap out;
        v.value<QDBusArgument>() >> out;
        return out;
    }
    return v.toMap();
}

bool reachable(QString *why)
{
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.isConnected()) {
        if (why)
            *why = QStringLiteral("the system D-Bus cannot be reached (%1)").arg(bus.lastError().message());
        return false;
    }
    const QDBusReply<bool> owned = bus.interface()->isServiceRegistered(Service);
    if (!owned.isValid() || !owned.value()) {
        if (why)
            *why = QStringLiteral("NetworkManager is not running (%1 has no owner on the system bus)").arg(Service);
        return false;
    }
    return true;
}

NMSettingsMap toSettings(const QVariant &v)
{
    NMSettingsMap out;
    if (v.canConvert<QDBusArgument>())
        v.value<QDBusArgument>() >> out;
    return out;
}

QList<QVariantMap> toMapList(const QVariant &v)
{
    QList<QVariantMap> out;
    if (v.canConvert<QDBusArgument>())
        v.value<QDBusArgument>() >> out;
    return out;
}

QList<QDBusObjectPath> toPathList(const QVariant &v)
{
    if (v.canConvert<QDBusArgument>()) {
        QList<QDBusObjectPath> out;
        v.value<QDBusArgument>() >> out;
        return out;
    }
    return v.value<QList<QDBusObjectPath>>();
}

QString toPath(const QVariant &v)
{
    return v.value<QDBusObjectPath>().path();
}

QString activeReasonText(uint reason)
{
    static const char *const texts[] = {
        "unknown",
        "no reason given",
        "disconnected by the user",
        "the device was disconnected (the PPP session failed or ended)",
        "the service providing the connection stopped",
        "the IP configuration was invalid",
        "timed out while connecting",
        "timed out while starting the service",
        "the service failed to start",
        "no secrets (dial name or password) were provided",
        "the log-in was refused",
        "the profile was removed",
        "a dependency of the connection failed",
        "the device could not be created",
        "the device disappeared",
    };
    if (reason < sizeof(texts) / sizeof(texts[0]))
        return QString::fromLatin1(texts[reason]);
    return QStringLiteral("reason %1").arg(reason);
}

} // namespace NMBus
