#include "SMSVerify.h"

#include "Conf/Conf.h"
#include "Net/RunLoop.h"
#include "SideChannel.h"
#include "Util/DVUtils.h"
#include "Util/Log.h"

#include <QXmlStreamReader>
#include <QXmlStreamWriter>

using namespace DVNotification;

SMSVerify::SMSVerify(const QString &username)
    : _username(username)
{
    if (const Conf *conf = Conf::shared()) {
        if (const auto address = conf->sms.getHost()) {
            const auto split = SideChannel::splitHostAndPort(*address);
            _host = split.host;
            _port = split.port;
        }
        _key = conf->sms.getShareKey();
        _timeoutSeconds = conf->sms.getTimeOutSeconds().value_or(0);
    }
}

SMSVerify::SMSVerify(std::optional<QString> host, qint64 port, QString username, std::optional<QString> shareKey,
                     quint64 timeoutSeconds)
    : _host(std::move(host))
    , _port(port)
    , _username(std::move(username))
    , _key(std::move(shareKey))
    , _timeoutSeconds(timeoutSeconds)
{}

SMSVerify::~SMSVerify()
{
    if (_observer)
        DVNotificationCenter::defaultCenter().removeObserver(*_observer);
}

void SMSVerify::setWaits(qint64 transportWaitMs, std::optional<qint64> userWaitMs)
{
    _transportWaitMs = transportWaitMs;
    _userWaitMs = userWaitMs;
}

std::optional<SMSVerify::Result> SMSVerify::result() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _result;
}

std::optional<QString> SMSVerify::code() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _code;
}

bool SMSVerify::checkProperties() const
{
    // A missing host gets the key's message on purpose: both mean "not configured".
    if (!_key || !_host) {
        DVLOG() << "sms verify error, key is nil";
        return false;
    }
    if (_key->isEmpty() || _host->isEmpty())
        return false;
    if (_port == 0) {
        DVLOG() << "sms verify error, port is 0";
        return false;
    }
    // A port the socket layer cannot take comes from a bad configuration file, not from us.
    if (!SideChannel::isUsablePort(_port)) {
        DVLOG() << "sms verify error, port is out of range: " << _port;
        return false;
    }
    return true;
}

QString SMSVerify::getCheckCodeWithName(const QString &name) const
{
    return DVUtils::md5OfString(name + _key.value_or(QString()));
}

namespace {

QByteArray makeOp(const QString &child, const std::vector<std::pair<QString, QString>> &attributes)
{
    QByteArray out;
    QXmlStreamWriter writer(&out);
    writer.writeStartDocument();
    writer.writeStartElement(QStringLiteral("op"));
    writer.writeEmptyElement(child);
    for (const auto &[name, value] : attributes)
        writer.writeAttribute(name, value);
    writer.writeEndElement();
    writer.writeEndDocument();
    return out;
}

} // namespace

QByteArray SMSVerify::makeRequestParam() const
{
    return makeOp(QStringLiteral("accountInfo"), {{QStringLiteral("login"), _username},
                                                  {QStringLiteral("checkCode"), getCheckCodeWithName(_username)},
                                                  {QStringLiteral("id"), QString::number(_clock->secsSinceEpoch())}});
}

QByteArray SMSVerify::makeVerifyParam() const
{
    return makeOp(QStringLiteral("validateAccount"),
                  {{QStringLiteral("login"), _username},
                   {QStringLiteral("checkCode"), getCheckCodeWithName(_username)},
                   {QStringLiteral("validateCode"), code().value_or(QString())},
                   {QStringLiteral("id"), QString::number(_clock->secsSinceEpoch())}});
}

std::optional<SMSVerify::Result> SMSVerify::parseReply(const QByteArray &xml)
{
    std::optional<Result> result;
    QXmlStreamReader reader(xml);
    const auto attribute = [&reader](const QString &name) -> std::optional<QString> {
        const auto attributes = reader.attributes();
        if (!attributes.hasAttribute(name))
            return std::nullopt;
        return attributes.value(name).toString();
    };
    while (!reader.atEnd()) {
        if (reader.readNext() != QXmlStreamReader::StartElement)
            continue;
        if (reader.name() == QLatin1String("op")) {
            result = Result{};
        } else if (reader.name() == QLatin1String("returnInfo") && result) {
            result->isBind = attribute(QStringLiteral("isBind"));
            result->resCode = attribute(QStringLiteral("resCode"));
            result->titleMsg = attribute(QStringLiteral("titleMsg"));
            result->resMsg = attribute(QStringLiteral("resMsg"));
            result->sendSuccess = attribute(QStringLiteral("sendSuccess"));
        }
    }
    if (reader.hasError())
        DVLOG() << QStringLiteral("解析xml出错:%1").arg(reader.errorString());
    return result;
}

void SMSVerify::main()
{
    runMain();
    // The echo belongs to this thread's event loop: close it here, not wherever the last
    // owner of the operation happens to let it go.
    _echo.reset();
}

void SMSVerify::runMain()
{
    if (!checkProperties())
        return;

    const std::weak_ptr<Operation> weak = weak_from_this();
    _observer = DVNotificationCenter::defaultCenter().addObserverForName(
        DVNotificationNameSMSVerifyFromUI, nullptr, [weak](const DVNotificationMessage &message) {
            if (const auto self = weak.lock())
                static_cast<SMSVerify *>(self.get())->onNotification(message);
        });

    _echo = std::make_unique<UDPEcho>();
    _echo->setDelegate(this);
    _echo->startConnectedToHostName(*_host, static_cast<uint>(_port));
    // Returns once the name has resolved (the request goes out then) or the time ran out.
    if (RunLoop::runFor(_transportWaitMs, true) == RunLoopResult::TimedOut) {
        DVLOG() << "短信验证请求超时";
        return;
    }
    if (!isCancelled()) {
        // Normally ended by the reply.
        if (RunLoop::runFor(_transportWaitMs, true) == RunLoopResult::TimedOut)
            DVLOG() << "短信验证请求超时";
    }

    {
        std::lock_guard<std::mutex> lock(_mutex);
        if (!_semaphore)
            return;
    }
    if (isCancelled())
        return;
    const qint64 userWaitMs =
        _userWaitMs.value_or(static_cast<qint64>(qMin<quint64>(_timeoutSeconds, 1u << 30)) * 1000);
    const bool answered = waitSemaphore(userWaitMs);
    if (isCancelled())
        return;
    if (!answered) {
        notifyWithError(DVError(ErrorDomain, 1, QStringLiteral("短信验证超时,客户端断开连接")));
        return;
    }
    const auto typed = code();
    if (typed && !typed->isEmpty()) {
        _echo->sendData(makeVerifyParam());
        // Ended by the reply's notification, not by the first event.
        if (RunLoop::runFor(_transportWaitMs, false) == RunLoopResult::TimedOut)
            DVLOG() << "短信验证请求超时";
    } else {
        notifyWithError(DVError(ErrorDomain, 2, QStringLiteral("短信验证失败,客户端断开连接")));
    }
}

void SMSVerify::onNotification(const DVNotificationMessage &message)
{
    const auto *info = message.payload<SMSVerifyFromUINotificationInfo>(NotificationInfoKeySMSVerifyFromUI);
    if (!info)
        return;
    bool signal = false;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _code = info->code;
        signal = _semaphore;
    }
    if (signal)
        signalSemaphore();
}

void SMSVerify::notifyWithError(const std::optional<DVError> &error)
{
    RunLoop::stop();
    SMSVerifyToUINotificationInfo info;
    info.err = error;
    info.timeoutSeconds = _timeoutSeconds;
    DVNotificationCenter::defaultCenter().postNotificationName(DVNotificationNameSMSVerifyToUI,
                                                               {{NotificationInfoKeySMSVerifyToUI, info}});
}

void SMSVerify::echoDidReceiveData(UDPEcho *, const QByteArray &data, const QByteArray &)
{
    const auto parsed = parseReply(data);
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _result = parsed;
    }
    const Result r = parsed.value_or(Result{});
    if (r.isBind == QStringLiteral("Y") && r.resCode == QStringLiteral("OK") && r.sendSuccess == QStringLiteral("Y")) {
        {
            std::lock_guard<std::mutex> lock(_mutex);
            _semaphore = true;
        }
        notifyWithError(DVError(ErrorDomain, 0, r.resMsg.value_or(QString())));
    } else if (r.resCode == QStringLiteral("ERROR007")) {
        notifyWithError(DVError(ErrorDomain, 7, r.resMsg.value_or(QStringLiteral("验证码错误"))));
    } else {
        // Any other answer, or none we could read, lets the connection stay: the server is
        // the one to insist on a code.
        notifyWithError(std::nullopt);
    }
}

void SMSVerify::echoDidReceiveError(UDPEcho *, const DVError &error)
{
    DVLOG() << error.description();
    DVLOG() << SideChannel::userInfoText(error.userInfo);
    // Ends a wait of the main thread, not this operation's own: this one runs on to its
    // limit. Kept as it is on purpose.
    RunLoop::stopMain();
}

void SMSVerify::echoDidFailToSendData(UDPEcho *, const QByteArray &, const QByteArray &, const DVError &error)
{
    DVLOG() << error.description();
    DVLOG() << SideChannel::userInfoText(error.userInfo);
}

void SMSVerify::echoDidStartWithAddress(UDPEcho *echo, const QByteArray &)
{
    echo->sendData(makeRequestParam());
}

void SMSVerify::echoDidStopWithError(UDPEcho *, const DVError &error)
{
    DVLOG() << "error: " << error.description();
    DVLOG() << SideChannel::userInfoText(error.userInfo);
}
