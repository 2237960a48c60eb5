#include "ConnectSession.h"

#include "CliCommand.h"
#include "UnixSignals.h"

#include "App/ClockGuard.h"
#include "App/ConnectionSetup.h"
#include "App/DorvikBus.h"
#include "App/LoginInput.h"
#include "Bcom/BcomData.h"
#include "Business/BubbleCenter.h"
#include "Conf/Conf.h"
#include "Conf/UIConf.h"
#include "Util/DVNotification.h"
#include "Util/Log.h"
#include "Util/ThreadHandoff.h"

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
    ConnectionSetup::addOptions(parser);
    parser.addOption(
        {QStringLiteral("interface"), QStringLiteral("kernel name of the interface"), QStringLiteral("name")});
    parser.addOption(
        {QStringLiteral("redial"), QStringLiteral("dial again, with a fresh dial name, when the link drops")});
}

std::optional<ConnectSession::Settings> ConnectSession::settingsFrom(const QCommandLineParser &parser, QString *error)
{
    const auto common = ConnectionSetup::settingsFrom(parser, error);
    if (!common)
        return std::nullopt;
    Settings settings;
    static_cast<ConnectionSetup::Settings &>(settings) = *common;
    settings.interfaceName = parser.value(QStringLiteral("interface"));
    settings.redial = parser.isSet(QStringLiteral("redial"));
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
    QString setupError;
    if (!ConnectionSetup::loadConfiguration(_settings, &setupError)) {
        Cli::err(QStringLiteral("dorvik-cli connect: ") + setupError);
        return 1;
    }

    DVApp::Options options;
    options.onRedial = [this](const RedialSupervisor::Report &report) { onRedial(report); };
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
    _app = ConnectionSetup::makeApp(_settings, options, &setupError,
                                    _settings.makePlatform ? _settings.makePlatform() : nullptr);
    if (!_app) {
        Cli::err(QStringLiteral("dorvik-cli connect: ") + setupError);
        return 2;
    }
    _app->setRedialEnabled(_settings.redial);
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
    if (const auto chosen = _app->pppoe()->interfaceAtIndex(*index); chosen && interfaceHeldElsewhere(chosen->_bsdName))
        return kExitInterfaceHeld;
    publishOnBus();
    checkClock();

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
    emitDialLine();

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

bool ConnectSession::interfaceHeldElsewhere(const QString &bsdName)
{
    // The windowed program answers at once; no answer in time means it holds nothing we know.
    if (!DorvikBus::isRunning(DorvikBusService::AppName))
        return false;
    QString error;
    const auto held = DorvikBus::call(DorvikBusService::AppName, QStringLiteral("HeldInterface"), 3000, &error);
    if (!held) {
        DVLOG() << "cannot ask the windowed program which interface it holds: " << error;
        return false;
    }
    if (*held != bsdName)
        return false;
    const QString text =
        QStringLiteral("窗口程序 dorvik 正在 %1 上保持连接，不能在同一网卡上再次拨号。请先在窗口中断开连接。")
            .arg(bsdName);
    emitLine({{"event", "error"},
              {"error", {{"description", text.toStdString()}, {"reason", "interface held by the windowed program"}}}});
    Cli::err(QStringLiteral("dorvik-cli connect: ") + text);
    return true;
}

void ConnectSession::publishOnBus()
{
    DorvikBusService::Handlers handlers;
    handlers.status = [this](std::function<void(const QString &)> reply) {
        reply(QString::fromStdString(_app->diagnostics().dump()));
    };
    handlers.token = [this](std::function<void(const QString &)> reply) {
        _app->requestToken([reply](const json &answer) { reply(QString::fromStdString(answer.dump())); });
    };
    handlers.heldInterface = [this](std::function<void(const QString &)> reply) { reply(_app->heldInterface()); };
    _bus = std::make_unique<DorvikBusService>(handlers);
    QString error;
    const QString name = DorvikBusService::CliPrefix + QStringLiteral("p%1").arg(QCoreApplication::applicationPid());
    if (!_bus->publish(name, &error)) {
        DVLOG() << "dorvik-cli status will not reach this connection: " << error;
        _bus.reset();
    }
}

void ConnectSession::checkClock()
{
    const ClockCheck check =
        ClockGuard::checkBlocking(ClockGuard::providerUrls(), Clock::system(), DVApp::timeBasedRule(), 2000);
    _app->setClockCheck(check.toJson());
    json line = check.toJson();
    line["event"] = "clock";
    emitLine(line);
    if (check.warn)
        Cli::err(QStringLiteral("dorvik-cli connect: ") + check.message);
}

void ConnectSession::onRedial(const RedialSupervisor::Report &report)
{
    json line = {{"event", "redial"}, {"action", report.event.toStdString()}, {"attempt", report.attempt}};
    if (report.delayMs)
        line["delayMs"] = report.delayMs;
    if (!report.cause.isEmpty())
        line["cause"] = report.cause.toStdString();
    if (!report.message.isEmpty())
        line["message"] = report.message.toStdString();
    emitLine(line);
    if (report.event == QLatin1String("dialed"))
        emitDialLine();
    if (report.event == QLatin1String("stopped")) {
        Cli::err(QStringLiteral("dorvik-cli connect: ") + report.message);
        _failed = true;
        QCoreApplication::quit();
        _exitCode = 1;
    }
}

void ConnectSession::emitDialLine()
{
    emitLine({{"event", "dial"},
              {"user", _settings.user.toStdString()},
              {"dialName", _app->pin().toStdString()},
              {"time", _app->dialTime()},
              {"interface", _app->dialInterface() ? _app->dialInterface()->_bsdName.toStdString() : std::string()},
              {"area", Conf::area().toStdString()}});
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
    const json end = state == DVDialStateDisconnected ? _app->diagnostics()["lastLinkEnd"] : json();
    if (!end.is_null())
        line["cause"] = end["cause"];
    emitLine(line);
    if (state == DVDialStateDisconnected) {
        if (end["cause"] == "refused" && DVApp::timeBasedRule())
            emitLine({{"event", "hint"}, {"text", ClockGuard::refusalHint().toStdString()}});
        // The supervisor dials again: the session goes on.
        if (!_hangingUp && _app->redial().nextAttemptAtMs())
            return;
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
        ThreadHandoff::post(reader->receiver, [code] {
            SMSVerifyFromUINotificationInfo reply;
            reply.code = code;
            DVNotificationCenter::defaultCenter().postNotificationName(
                DVNotification::DVNotificationNameSMSVerifyFromUI,
                {{DVNotification::NotificationInfoKeySMSVerifyFromUI, reply}});
        });
    }).detach();
}
