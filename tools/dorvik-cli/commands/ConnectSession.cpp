#include "ConnectSession.h"

#include "CliCommand.h"
#include "UnixSignals.h"

#include "App/ConnectionSetup.h"
#include "App/LoginInput.h"
#include "Bcom/BcomData.h"
#include "Business/BubbleCenter.h"
#include "Conf/Conf.h"
#include "Conf/UIConf.h"
#include "Dial/PPPoEPlatformFactory.h"
#include "Dial/simulated/SimulatedPlatform.h"
#include "Util/DVNotification.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QTimer>

#include <nlohmann/json.hpp>

#include <atomic>
#include <csignal>
#include <iostream>
#include <string>
#include <thread>

namespace {
using json = nlohmann::ordered_json;

void emitLine(const json &line)
{
    Cli::out(QString::fromStdString(line.dump()));
}

json errorJson(const DVError &error)
{
    return {{"domain", error.domain.toStdString()},
            {"code", error.code},
            {"description", error.localizedDescription.toStdString()},
            {"reason", error.localizedFailureReason.toStdString()}};
}

QString readLine()
{
    std::string line;
    if (!std::getline(std::cin, line))
        return {};
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return QString::fromStdString(line);
}
} // namespace

ConnectSession::ConnectSession(Settings settings)
    : _settings(std::move(settings))
{}

void ConnectSession::addOptions(QCommandLineParser &parser)
{
    parser.addOption(
        {QStringLiteral("interface"), QStringLiteral("kernel name of the interface"), QStringLiteral("name")});
    parser.addOption({QStringLiteral("area"), QStringLiteral("area code"), QStringLiteral("code")});
    parser.addOption({QStringLiteral("config"), QStringLiteral("configuration file to try"), QStringLiteral("file")});
    parser.addOption({QStringLiteral("backend"), QStringLiteral("networkmanager | simulated"), QStringLiteral("name")});
    parser.addOption({QStringLiteral("ac"), QStringLiteral("simulated access concentrator (simulated back-end)"),
                      QStringLiteral("url"), QStringLiteral("http://127.0.0.1:18087/pppoe/auth")});
    parser.addOption({QStringLiteral("heartbeat-scale"),
                      QStringLiteral("divide heartbeat pauses by this factor (demos and tests)"), QStringLiteral("n")});
}

std::optional<ConnectSession::Settings> ConnectSession::settingsFrom(const QCommandLineParser &parser, QString *error)
{
    Settings settings;
    settings.interfaceName = parser.value(QStringLiteral("interface"));
    settings.area = parser.value(QStringLiteral("area"));
    settings.configPath = parser.value(QStringLiteral("config"));
    settings.backend = parser.value(QStringLiteral("backend"));
    settings.accessConcentrator = QUrl(parser.value(QStringLiteral("ac")));
    if (parser.isSet(QStringLiteral("heartbeat-scale"))) {
        bool ok = false;
        settings.heartbeatScale = parser.value(QStringLiteral("heartbeat-scale")).toInt(&ok);
        if (!ok || settings.heartbeatScale < 1) {
            *error = QStringLiteral("--heartbeat-scale wants a whole number of at least 1");
            return std::nullopt;
        }
    }
    return settings;
}

ConnectSession::~ConnectSession()
{
    // A reader thread still waiting for the SMS code must not deliver into this object.
    if (_smsReader) {
        std::lock_guard<std::mutex> lock(_smsReader->mutex);
        _smsReader->receiver = nullptr;
    }
    if (_smsToken)
        DVNotificationCenter::defaultCenter().removeObserver(_smsToken);
}

bool ConnectSession::loadConfiguration()
{
    if (!_settings.configPath.isEmpty()) {
        QString error;
        auto conf = Conf::fromFile(_settings.configPath, &error);
        if (!conf) {
            Cli::err(QStringLiteral("dorvik-cli connect: %1: %2").arg(_settings.configPath, error));
            return false;
        }
        Conf::setShared(std::move(conf));
    }
    if (!Conf::shared()) {
        Cli::err(
            QStringLiteral("dorvik-cli connect: the configuration %1 could not be read").arg(Conf::systemConfigPath()));
        return false;
    }
    if (_settings.area.isEmpty())
        Conf::restoreArea();
    else
        UIConf::shared().setArea(_settings.area);
    return true;
}

std::optional<quint64> ConnectSession::chooseInterface()
{
    const auto interfaces = _app->pppoe()->getInterfaceList();
    if (interfaces.empty()) {
        Cli::err(QStringLiteral("dorvik-cli connect: no wired or wireless interface to dial on"));
        return std::nullopt;
    }
    if (!_settings.interfaceName.isEmpty()) {
        for (size_t i = 0; i < interfaces.size(); ++i)
            if (interfaces[i]._bsdName == _settings.interfaceName)
                return i;
        QStringList names;
        for (const auto &info : interfaces)
            names.append(info._bsdName);
        Cli::err(QStringLiteral("dorvik-cli connect: no interface %1 (have: %2)")
                     .arg(_settings.interfaceName, names.join(QStringLiteral(", "))));
        return std::nullopt;
    }
    const quint64 remembered = _app->getLastInterfaceIndex();
    if (remembered != DVApp::NotFound)
        return remembered;
    return 0; // active interfaces come first
}

int ConnectSession::run()
{
    // The password comes from stdin only and lives in memory only.
    const auto password = std::make_shared<const QString>(_settings.password ? *_settings.password : readLine());
    // The log-in window's checks, with its texts, before anything is dialled.
    if (const auto refusal = checkLoginInput(_settings.user, *password)) {
        emitLine({{"event", "error"}, {"error", {{"description", refusal->toStdString()}}}});
        Cli::err(QStringLiteral("dorvik-cli connect: ") + *refusal);
        return 2;
    }
    if (!loadConfiguration())
        return 1;

    auto platform = _settings.makePlatform ? _settings.makePlatform() : PPPoEPlatformFactory::create(_settings.backend);
    if (!platform) {
        Cli::err(QStringLiteral("dorvik-cli connect: unknown back-end '%1' (have: %2)")
                     .arg(_settings.backend, PPPoEPlatformFactory::availableNames().join(QStringLiteral(", "))));
        return 2;
    }
    if (auto *simulated = dynamic_cast<SimulatedPlatform *>(platform.get())) {
        // The simulated link asks the simulated access concentrator, as pppd would ask the
        // provider's access server.
        simulated->setAuthHook(
            ConnectionSetup::accessConcentratorHook(_settings.accessConcentrator, [this] { return _dialMac; }));
    }

    DVApp::Options options;
    options.onHeartbeatExchange = [](const BcomExchange &x) {
        json line = {{"event", "heartbeat"},
                     {"sent", x.sent.type.toStdString()},
                     {"request_sequence", x.sent.request_sequence},
                     {"url", x.url.toString().toStdString()},
                     {"httpStatus", x.httpStatus}};
        if (x.reply)
            line["reply"] = x.reply->type.toStdString();
        if (!x.error.isEmpty())
            line["error"] = x.error.toStdString();
        line["continues"] = x.continues;
        emitLine(line);
    };
    if (_settings.heartbeatScale > 1) {
        const int scale = _settings.heartbeatScale;
        options.heartbeatWaits = [scale](qint32 seconds) { return qint64(seconds) * 1000 / scale; };
    }
    _app = std::make_unique<DVApp>(std::make_unique<PPPoE>(std::move(platform)), options);
    connect(_app.get(), &DVApp::dialStateChanged, this, &ConnectSession::onState);
    connect(_app->bubbleCenter(), &BubbleCenter::presenting, this, [](const UserNotification &n) {
        json line = {{"event", "bubble"},
                     {"title", n.title.toStdString()},
                     {"text", n.informativeText.toStdString()},
                     {"delay", n.deliveryDelaySeconds}};
        const QString url = n.userInfo.value(QStringLiteral("url")).toString();
        if (!url.isEmpty())
            line["url"] = url.toStdString();
        emitLine(line);
    });

    _smsToken = DVNotificationCenter::defaultCenter().addObserverForName(
        DVNotification::DVNotificationNameSMSVerifyToUI, OperationQueue::mainQueue(),
        [this](const DVNotificationMessage &message) {
            const auto *info =
                message.payload<SMSVerifyToUINotificationInfo>(DVNotification::NotificationInfoKeySMSVerifyToUI);
            if (!info)
                return;
            json line = {{"event", "sms"}, {"timeoutSeconds", info->timeoutSeconds}};
            if (info->err)
                line["error"] = errorJson(*info->err);
            emitLine(line);
            // Code 0: a code was sent, ask for it. Any other error: the verification failed and
            // the client hangs up, as the online view does.
            if (info->err && info->err->code == 0)
                askForSmsCode(info->timeoutSeconds);
            else if (info->err) {
                _failed = true;
                hangUp();
            }
        });

    const auto index = chooseInterface();
    if (!index)
        return 1;
    if (const auto chosen = _app->pppoe()->interfaceAtIndex(*index))
        _dialMac = chosen->_macAddress;

    UnixSignals signals({SIGINT, SIGTERM});
    connect(&signals, &UnixSignals::received, this, [this] { hangUp(); });

    DVError error;
    const bool started = _app->dialWithUserName(_settings.user, password, *index, &error);
    if (!started || !error.domain.isEmpty()) {
        // A start that failed and was cleaned up answers true with the error filled in; one
        // that failed after the link had begun to come up leaves that link to hang up.
        emitLine({{"event", "error"}, {"error", errorJson(error)}});
        _failed = true;
        if (!_app->stopConn())
            return finish(1);
        _hangingUp = true;
        emitLine({{"event", "hangup"}});
        QTimer::singleShot(kHangUpWaitMs, this, [] { QCoreApplication::quit(); });
        QCoreApplication::exec();
        return finish(1);
    }
    emitLine({{"event", "dial"},
              {"user", _settings.user.toStdString()},
              {"dialName", _app->pin().toStdString()},
              {"time", _app->dialTime()},
              {"interface", _app->dialInterface() ? _app->dialInterface()->_bsdName.toStdString() : std::string()},
              {"area", Conf::area().toStdString()}});

    // A link that neither comes up nor ends is given up on: the client never waits forever.
    QTimer::singleShot(_settings.connectTimeoutMs, this, [this] {
        if (_everConnected || _hangingUp)
            return;
        emitLine({{"event", "error"},
                  {"error",
                   {{"description", QStringLiteral("连接超时").toStdString()},
                    {"reason", "the link did not come up in time"}}}});
        _failed = true;
        hangUp();
    });
    QCoreApplication::exec();
    return finish(_exitCode);
}

int ConnectSession::finish(int exitCode)
{
    _app.reset(); // cancels and waits for the connection's tasks
    return exitCode;
}

void ConnectSession::onState(qint64 state)
{
    json line = {{"event", "state"}, {"dialState", state}};
    if (state == DVDialStateConnected) {
        _everConnected = true;
        line["ip"] = _app->pppoe()->getIP().value_or(QString()).toStdString();
    }
    emitLine(line);
    if (state == DVDialStateDisconnected) {
        // Hung up on request: a clean end. Dropped, refused, failed start or failed
        // verification: a failure.
        _exitCode = _hangingUp && !_failed ? 0 : 1;
        QCoreApplication::quit();
    }
}

void ConnectSession::hangUp()
{
    if (_hangingUp)
        return;
    _hangingUp = true;
    emitLine({{"event", "hangup"}});
    if (!_app->stopConn()) {
        QCoreApplication::quit();
        return;
    }
    // If the link never reports its end, do not hang on.
    QTimer::singleShot(kHangUpWaitMs, this, [] { QCoreApplication::quit(); });
}

void ConnectSession::askForSmsCode(quint64 timeoutSeconds)
{
    // A countdown on the terminal while the user reads the message on the phone.
    auto *countdown = new QTimer(this);
    auto remaining = std::make_shared<qint64>(static_cast<qint64>(timeoutSeconds));
    auto answered = std::make_shared<std::atomic<bool>>(false);
    Cli::err(QStringLiteral("Enter the SMS verification code (%1 s left):").arg(*remaining));
    connect(countdown, &QTimer::timeout, this, [countdown, remaining, answered] {
        if (answered->load() || --*remaining <= 0) {
            countdown->deleteLater();
            return;
        }
        if (*remaining % 10 == 0 || *remaining <= 5)
            Cli::err(QStringLiteral("%1 s left").arg(*remaining));
    });
    countdown->start(1000);
    // Reading the terminal blocks: do it on a thread of its own so the link and the heartbeat
    // go on meanwhile. The thread only ever reaches this session through the shared mailbox,
    // under its lock, and the session empties the mailbox when it goes away: a code typed
    // after that (or stdin closing at exit) is dropped instead of delivered into a destroyed
    // object.
    if (!_smsReader) {
        _smsReader = std::make_shared<SmsReader>();
        _smsReader->receiver = this;
    }
    std::thread([reader = _smsReader, answered] {
        const QString code = readLine().trimmed();
        answered->store(true);
        std::lock_guard<std::mutex> lock(reader->mutex);
        if (!reader->receiver)
            return;
        QMetaObject::invokeMethod(
            reader->receiver,
            [code] {
                SMSVerifyFromUINotificationInfo reply;
                reply.code = code;
                DVNotificationCenter::defaultCenter().postNotificationName(
                    DVNotification::DVNotificationNameSMSVerifyFromUI,
                    {{DVNotification::NotificationInfoKeySMSVerifyFromUI, reply}});
            },
            Qt::QueuedConnection);
    }).detach();
}
