#pragma once

#include <QDBusContext>
#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

// The session-bus face of a running client, interface "net.dorvik.Dorvik" at path
// "/net/dorvik/Dorvik":
//
//   Activate()            bring the window to the front (the windowed program; a second start
//                         calls it and ends)
//   Status() -> s         the diagnostics report as JSON (no password, SMS code, dial name, key)
//   Token() -> s          asks the provider's token service; the parsed answer as JSON
//   HeldInterface() -> s  the interface a connection holds (dialling or up); "" when none
//
// The windowed program owns the name "net.dorvik.Dorvik" (which makes it the one instance of
// the session). Each `dorvik-cli connect` owns "net.dorvik.Dorvik.Cli.p<pid>", so several can
// run side by side and `dorvik-cli status` finds them.
class DorvikBusService : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "net.dorvik.Dorvik")
public:
    static const QString AppName;    // net.dorvik.Dorvik
    static const QString ObjectPath; // /net/dorvik/Dorvik
    static const QString Interface;  // net.dorvik.Dorvik
    static const QString CliPrefix;  // net.dorvik.Dorvik.Cli.

    // Each answers through `reply`, now or later, on the service's thread.
    using Answer = std::function<void(std::function<void(const QString &)> reply)>;
    struct Handlers
    {
        std::function<void()> activate;
        Answer status;
        Answer token;
        Answer heldInterface;
    };

    explicit DorvikBusService(Handlers handlers, QObject *parent = nullptr);
    ~DorvikBusService() override;

    // Puts the object on the session bus and takes `busName` (never queued behind another
    // owner). False with `error` set when there is no session bus or the name is taken
    // (`*taken` then true).
    bool publish(const QString &busName, QString *error, bool *taken = nullptr);

public Q_SLOTS:
    void Activate();
    QString Status();
    QString Token();
    QString HeldInterface();

private:
    QString answerLater(const Answer &answer);

    Handlers _handlers;
    QString _busName;
};

// The client side, for other programs of the session.
namespace DorvikBus {
// Whether a running program owns `busName`.
bool isRunning(const QString &busName);
// Every `dorvik-cli connect` on the bus.
QStringList cliServices();
// The service a status or token request goes to: the windowed program, else the only (or
// first) `dorvik-cli connect`; nullopt when none runs.
std::optional<QString> findService();
// Calls `method` (no arguments, string answer) on `busName`; nullopt with `error` set on failure.
std::optional<QString> call(const QString &busName, const QString &method, int timeoutMs, QString *error);
} // namespace DorvikBus
