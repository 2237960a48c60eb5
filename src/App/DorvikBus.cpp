#include "DorvikBus.h"

#include "Util/Log.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QFileInfo>

namespace {
// A session bus that is there: named in the environment, or at the usual place of a user
// session. Without one, connecting would make libdbus autolaunch a bus of its own (through
// X11), which then outlives this program: better to run alone.
bool sessionBusAvailable()
{
    if (!qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"))
        return true;
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    return !runtime.isEmpty() && QFileInfo::exists(runtime + QStringLiteral("/bus"));
}
} // namespace

const QString DorvikBusService::AppName = QStringLiteral("net.dorvik.Dorvik");
const QString DorvikBusService::ObjectPath = QStringLiteral("/net/dorvik/Dorvik");
const QString DorvikBusService::Interface = QStringLiteral("net.dorvik.Dorvik");
const QString DorvikBusService::CliPrefix = QStringLiteral("net.dorvik.Dorvik.Cli.");

DorvikBusService::DorvikBusService(Handlers handlers, QObject *parent)
    : QObject(parent)
    , _handlers(std::move(handlers))
{}

DorvikBusService::~DorvikBusService()
{
    if (_busName.isEmpty())
        return;
    QDBusConnection bus = QDBusConnection::sessionBus();
    bus.unregisterObject(ObjectPath);
    bus.unregisterService(_busName);
}

bool DorvikBusService::publish(const QString &busName, QString *error, bool *taken)
{
    if (taken)
        *taken = false;
    if (!sessionBusAvailable()) {
        *error = QStringLiteral("no session bus");
        return false;
    }
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        *error = QStringLiteral("no session bus: ") + bus.lastError().message();
        return false;
    }
    // The object first, so that a call made the moment the name is ours finds it.
    if (!bus.registerObject(ObjectPath, this, QDBusConnection::ExportAllSlots)) {
        *error = QStringLiteral("cannot export %1: %2").arg(ObjectPath, bus.lastError().message());
        return false;
    }
    const QDBusReply<QDBusConnectionInterface::RegisterServiceReply> reply = bus.interface()->registerService(
        busName, QDBusConnectionInterface::DontQueueService, QDBusConnectionInterface::DontAllowReplacement);
    if (!reply.isValid() || reply.value() != QDBusConnectionInterface::ServiceRegistered) {
        bus.unregisterObject(ObjectPath);
        if (taken)
            *taken = reply.isValid();
        *error = reply.isValid() ? QStringLiteral("%1 is owned by another program").arg(busName)
                                 : QStringLiteral("cannot own %1: %2").arg(busName, reply.error().message());
        return false;
    }
    _busName = busName;
    return true;
}

QString DorvikBusService::answerLater(const Answer &answer)
{
    if (!answer)
        return QStringLiteral("{}");
    setDelayedReply(true);
    const QDBusMessage request = message();
    QDBusConnection bus = connection();
    answer([request, bus](const QString &text) mutable { bus.send(request.createReply(text)); });
    return {};
}

void DorvikBusService::Activate()
{
    DVLOG() << "another start asked to bring the window to the front";
    if (_handlers.activate)
        _handlers.activate();
}

QString DorvikBusService::Status()
{
    return answerLater(_handlers.status);
}

QString DorvikBusService::Token()
{
    return answerLater(_handlers.token);
}

QString DorvikBusService::HeldInterface()
{
    return answerLater(_handlers.heldInterface);
}

namespace DorvikBus {

bool isRunning(const QString &busName)
{
    if (!sessionBusAvailable())
        return false;
    QDBusConnection bus = QDBusConnection::sessionBus();
    return bus.isConnected() && bus.interface()->isServiceRegistered(busName).value();
}

QStringList cliServices()
{
    if (!sessionBusAvailable())
        return {};
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return {};
    QStringList out;
    for (const QString &name : bus.interface()->registeredServiceNames().value())
        if (name.startsWith(DorvikBusService::CliPrefix))
            out.append(name);
    out.sort();
    return out;
}

std::optional<QString> findService()
{
    if (isRunning(DorvikBusService::AppName))
        return DorvikBusService::AppName;
    const QStringList cli = cliServices();
    if (cli.isEmpty())
        return std::nullopt;
    return cli.first();
}

std::optional<QString> call(const QString &busName, const QString &method, int timeoutMs, QString *error)
{
    QDBusConnection bus = sessionBusAvailable() ? QDBusConnection::sessionBus() : QDBusConnection(QString());
    if (!bus.isConnected()) {
        *error = QStringLiteral("no session bus");
        return std::nullopt;
    }
    const QDBusMessage request =
        QDBusMessage::createMethodCall(busName, DorvikBusService::ObjectPath, DorvikBusService::Interface, method);
    const QDBusMessage reply = bus.call(request, QDBus::Block, timeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        *error = reply.errorMessage().isEmpty() ? reply.errorName() : reply.errorMessage();
        return std::nullopt;
    }
    if (reply.arguments().isEmpty())
        return QString();
    return reply.arguments().constFirst().toString();
}

} // namespace DorvikBus
