#include "DynamicPassword.h"

#include "Conf/Conf.h"
#include "Net/RunLoop.h"
#include "SideChannel.h"
#include "Util/DVNotification.h"
#include "Util/DVUtils.h"
#include "Util/Log.h"

#include <QStringDecoder>
#include <QUuid>
#include <QtEndian>

using namespace DVNotification;

namespace {

const QString kServerError = QStringLiteral("获取动态密时服务器返回错误");

} // namespace

DynamicPassword::DynamicPassword(const QString &username)
    : _username(username)
{
    if (const Conf *conf = Conf::shared()) {
        if (const auto address = conf->dynmicpwd.getHost()) {
            const auto split = SideChannel::splitHostAndPort(*address);
            _host = split.host;
            _port = split.port;
        }
        _decodeKey = conf->dynmicpwd.getDecodeKey().value_or(QString());
        _encodeKey = conf->dynmicpwd.getEncodeKey().value_or(QString());
    }
}

DynamicPassword::DynamicPassword(std::optional<QString> host, qint64 port, QString username, QString decodeKey,
                                 QString encodeKey)
    : _host(std::move(host))
    , _port(port)
    , _username(std::move(username))
    , _decodeKey(std::move(decodeKey))
    , _encodeKey(std::move(encodeKey))
{}

DynamicPassword::~DynamicPassword() = default;

QByteArray DynamicPassword::makeRequestDatagram(const QString &username, const QString &seq, const QString &encodeKey)
{
    const QString text = QStringLiteral("TEL=%1&SEQ=%2").arg(username, seq);
    const QByteArray cipher = DVUtils::aesEcbEncode(text.toUtf8(), encodeKey).value_or(QByteArray());
    // The header is the length written as a 64-bit big-endian number, cut to its first four
    // bytes: the high half, zero for any real datagram. The server expects exactly that.
    const quint64 length = qToBigEndian<quint64>(static_cast<quint64>(cipher.size()));
    QByteArray datagram(reinterpret_cast<const char *>(&length), 4);
    datagram += cipher;
    return datagram;
}

std::optional<DVError> DynamicPassword::classifyReply(const QByteArray &datagram, const QString &decodeKey)
{
    // A reply too short for its header cannot be read, like one that does not decrypt.
    std::optional<QString> text;
    if (datagram.size() >= 4) {
        if (const auto plain = DVUtils::aesEcbDecode(datagram.mid(4), decodeKey)) {
            QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
            QString decoded = decoder.decode(*plain);
            if (!decoder.hasError())
                text = std::move(decoded);
        }
    }
    if (!text)
        return DVError(ErrorDomain, 1, QStringLiteral("%1,%2").arg(kServerError, QStringLiteral("(null)")));
    if (*text == QStringLiteral("RESULT=SUCCESS"))
        return std::nullopt;
    if (!text->contains(QStringLiteral("RESULT=ERROR"))) {
        // Only an explicit error is a failure.
        return std::nullopt;
    }
    const qsizetype info = text->indexOf(QStringLiteral("INFO="));
    if (info < 0)
        return DVError(ErrorDomain, 1, kServerError);
    const QString reason = text->mid(info);
    DVLOG() << kServerError << ", " << reason;
    return DVError(ErrorDomain, 1, QStringLiteral("%1,%2").arg(kServerError, reason));
}

void DynamicPassword::main()
{
    if (!_host) {
        DVLOG() << "Dynamic password request failed, host is nil";
        return;
    }
    // A configured host without a usable port: the socket layer would treat it as our own
    // bug, but it is the configuration file's. Refuse like a missing host.
    if (!SideChannel::isUsablePort(_port)) {
        DVLOG() << "Dynamic password request failed, port is " << _port;
        return;
    }
    _echo = std::make_unique<UDPEcho>();
    _echo->setDelegate(this);
    _echo->startConnectedToHostName(*_host, static_cast<uint>(_port));
    if (RunLoop::runFor(_replyWaitMs) == RunLoopResult::TimedOut)
        notifyWithError(DVError(ErrorDomain, 1, QStringLiteral("动态密码发送超时")));
    _echo.reset();
}

void DynamicPassword::notifyWithError(const std::optional<DVError> &error)
{
    RunLoop::stop();
    DyPwdCheckNotificationInfo info;
    info.err = error;
    DVNotificationCenter::defaultCenter().postNotificationName(DVNotificationNameDyPwd,
                                                               {{NotificationInfoKeyDyPwdCheck, info}});
}

void DynamicPassword::echoDidStartWithAddress(UDPEcho *echo, const QByteArray &)
{
    const QString seq = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    echo->sendData(makeRequestDatagram(_username, seq, _encodeKey));
}

void DynamicPassword::echoDidReceiveData(UDPEcho *, const QByteArray &data, const QByteArray &)
{
    notifyWithError(classifyReply(data, _decodeKey));
}

void DynamicPassword::echoDidReceiveError(UDPEcho *, const DVError &error)
{
    DVLOG() << error.description();
    DVLOG() << SideChannel::userInfoText(error.userInfo);
    notifyWithError(error);
}

void DynamicPassword::echoDidFailToSendData(UDPEcho *, const QByteArray &, const QByteArray &, const DVError &error)
{
    DVLOG() << error.description();
    DVLOG() << SideChannel::userInfoText(error.userInfo);
    notifyWithError(error);
}

void DynamicPassword::echoDidStopWithError(UDPEcho *, const DVError &error)
{
    // Resolution or socket set-up failed: the request ends by its time-out.
    DVLOG() << "error: " << error.description();
    DVLOG() << SideChannel::userInfoText(error.userInfo);
}
