#pragma once

#include "App/ConnectionSetup.h"
#include "App/DVApp.h"

#include <QObject>
#include <QUrl>

#include <functional>
#include <memory>
#include <mutex>

class QCommandLineParser;
class PPPoEPlatform;
class UnixSignals;

// One headless connection: loads the configuration, dials through the controller, reports
// every state change and heartbeat exchange as a JSON line on stdout, and hangs up on a signal.
class ConnectSession : public QObject
{
    Q_OBJECT
public:
    // The options every program that dials shares, plus those of a headless connection.
    struct Settings : ConnectionSetup::Settings
    {
        QString user;
        QString interfaceName; // empty: the remembered interface, else the first active one
        bool redial = false;   // dial again after a drop (--redial)
        // Given by another log-in (a QR-code scan); otherwise the first line of stdin.
        std::optional<QString> password;
        // How long a dial may take to come up before the client gives up and hangs up.
        int connectTimeoutMs = 90000;
        // Tests give their own dialing back-end; empty means the one `backend` names.
        std::function<std::unique_ptr<PPPoEPlatform>()> makePlatform;
    };

    // The connection options shared by the commands that dial ("connect", "qr"): those of
    // ConnectionSetup, --interface and --redial.
    static void addOptions(QCommandLineParser &parser);
    // Settings from parsed options; nullopt with `error` set when a value is unusable.
    static std::optional<Settings> settingsFrom(const QCommandLineParser &parser, QString *error);

    explicit ConnectSession(Settings settings);
    ~ConnectSession() override;

    // Runs until the link is down again; the process exit code.
    int run();

    // Exit code when the windowed program holds a connection on the chosen interface.
    static constexpr int kExitInterfaceHeld = 3;

private:
    std::optional<quint64> chooseInterface();
    bool interfaceHeldElsewhere(const QString &bsdName);
    void publishOnBus();
    void checkClock();
    void onRedial(const RedialSupervisor::Report &report);
    void emitDialLine();
    void onState(qint64 state);
    void hangUp();
    void askForSmsCode(quint64 timeoutSeconds);
    int finish(int exitCode);

    static constexpr int kHangUpWaitMs = 10000;

    // Where the SMS-code reader thread delivers; emptied when the session goes away.
    struct SmsReader
    {
        std::mutex mutex;
        QObject *receiver = nullptr;
    };

    Settings _settings;
    std::unique_ptr<DVApp> _app;
    bool _everConnected = false;
    bool _hangingUp = false;
    bool _failed = false; // the session ends because a check failed
    int _exitCode = 0;
    quint64 _smsToken = 0;
    std::shared_ptr<SmsReader> _smsReader;
    std::unique_ptr<class DorvikBusService> _bus;
};
