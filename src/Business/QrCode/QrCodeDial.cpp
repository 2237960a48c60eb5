#include "QrCodeDial.h"

#include "Business/BusinessHttp.h"
#include "Conf/Conf.h"
#include "QrCodeError.h"
#include "QrCodeModels.h"
#include "Util/DVEnv.h"
#include "Util/DVNotification.h"
#include "Util/DVUtils.h"
#include "Util/Log.h"
#include "Util/ThreadHandoff.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QStringDecoder>
#include <QThread>

namespace {

const int kRequestTimeoutMs = 5000;

bool missing(const std::optional<QString> &v)
{
    return !v || v->isEmpty();
}

void postGet(std::optional<DVError> err, QString content)
{
    QrCodeGetNotificationInfo info;
    info.err = std::move(err);
    info.qrCodeContent = std::move(content);
    DVNotificationCenter::defaultCenter().postNotificationName(DVNotification::DVNotificationNameQRcode,
                                                               {{DVNotification::NotificationInfoKeyQrCodeGet, info}});
}

void postCheck(const QrCodeCheckNotificationInfo &info)
{
    DVNotificationCenter::defaultCenter().postNotificationName(
        DVNotification::DVNotificationNameQRcode, {{DVNotification::NotificationInfoKeyQrCodeCheck, info}});
}

void logModelError(const DVError &e)
{
    DVLOG() << e.domain << " " << e.localizedDescription << ", " << e.userInfo;
}

// Base64 that skips characters outside the alphabet, then insists on the padded form.
std::optional<QByteArray> lenientBase64(const QString &text)
{
    QByteArray kept;
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        if ((u >= 'A' && u <= 'Z') || (u >= 'a' && u <= 'z') || (u >= '0' && u <= '9') || u == '+' || u == '/'
            || u == '=')
            kept.append(static_cast<char>(u));
    }
    if (kept.isEmpty() || kept.size() % 4 != 0)
        return std::nullopt;
    const qsizetype firstPad = kept.indexOf('=');
    if (firstPad >= 0 && (firstPad < kept.size() - 2 || kept.mid(firstPad).count('=') != kept.size() - firstPad))
        return std::nullopt;
    auto decoded = QByteArray::fromBase64Encoding(kept, QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded)
        return std::nullopt;
    return *decoded;
}

} // namespace

std::unique_ptr<QrCodeDial> QrCodeDial::initFromConf()
{
    const Conf *conf = Conf::shared();
    std::optional<QString> ip = DVEnv::shared().getIPAddress();
    std::optional<QString> mac = DVEnv::shared().getMacAddress();
    if (!conf)
        return std::make_unique<QrCodeDial>(std::nullopt, std::nullopt, std::nullopt, std::nullopt, ip, mac);
    return std::make_unique<QrCodeDial>(conf->qrcode.getHost(), conf->qrcode.getHashKey(), conf->qrcode.getDeCodeKey(),
                                        conf->login.dialMethod(), ip, mac);
}

QrCodeDial::QrCodeDial(const std::optional<QString> &host, const std::optional<QString> &encodeKey,
                       const std::optional<QString> &decodeKey, const std::optional<QString> &dialType,
                       const std::optional<QString> &ip, const std::optional<QString> &mac)
    : _decodeKey(decodeKey)
    , _encodeKey(encodeKey)
    , _dialType(dialType)
    , _ip(ip)
    , _mac(mac)
{
    if (host) {
        const QUrl url(*host, QUrl::StrictMode);
        if (url.isValid() && !host->isEmpty())
            _url = url;
    }
    _thread = new QThread;
    _thread->setObjectName(QStringLiteral("qrcode-session"));
    _context = new QObject;
    _context->moveToThread(_thread);
    _thread->start();
    runOnNetworkThread([this] { _urlSession = new QNetworkAccessManager(_context); }, true);
}

QrCodeDial::~QrCodeDial()
{
    runOnNetworkThread(
        [this] {
            if (_currentTask) {
                // Going away: the view is gone, nobody wants the cancellation notice.
                QObject::disconnect(_currentTask, nullptr, _context, nullptr);
                _currentTask->abort();
            }
            delete _context; // takes the session and its replies with it
            _context = nullptr;
        },
        true);
    _thread->quit();
    _thread->wait();
    delete _thread;
}

void QrCodeDial::runOnNetworkThread(std::function<void()> work, bool wait)
{
    if (wait)
        ThreadHandoff::postAndWait(_context, std::move(work));
    else
        ThreadHandoff::post(_context, std::move(work));
}

bool QrCodeDial::checkProperty() const
{
    if (missing(_mac)) {
        DVLOG() << "qrcode error, mac address is nil or empty ";
        return false;
    }
    if (missing(_ip)) {
        DVLOG() << "qrcode error, IP address is nil or empty ";
        return false;
    }
    if (!_url || !_url->scheme().startsWith(QLatin1String("http"))) {
        DVLOG() << "qrcode request failed, host format error";
        return false;
    }
    if (missing(_decodeKey)) {
        DVLOG() << "qrcode error, decodeKey is nil or empty ";
        return false;
    }
    if (missing(_encodeKey)) {
        // Same words as the decode key on purpose: the service's operators grep for this line.
        DVLOG() << "qrcode error, decodeKey is nil or empty ";
        return false;
    }
    if (missing(_dialType)) {
        DVLOG() << "qrcode error, dial type is nil or empty ";
        return false;
    }
    return true;
}

QByteArray QrCodeDial::makeRequestParam(qint64 timestamp) const
{
    const QString stamp = QString::number(timestamp);
    const QString mac = _mac.value_or(QString());
    const QString dialType = _dialType.value_or(QString());
    const QString ip = _ip.value_or(QString());
    const QString signature = DVUtils::hamacSha1ofString(QStringList{mac, dialType, ip, stamp}.join(QLatin1Char('$')),
                                                         _encodeKey.value_or(QString()));
    return DVUtils::getBodyFromParm({{QStringLiteral("strMAC"), mac},
                                     {QStringLiteral("dialType"), dialType},
                                     {QStringLiteral("ip"), ip},
                                     {QStringLiteral("timestamp"), stamp},
                                     {QStringLiteral("type"), QStringLiteral("getQrcode")},
                                     {QStringLiteral("signature"), signature}});
}

void QrCodeDial::doRequest()
{
    if (!checkProperty()) {
        postGet(QrCodeError::createErrorWithID(QrCodeError::Ok), QString());
        return;
    }
    HttpRequestSpec outgoing;
    outgoing.url = *_url;
    outgoing.body = makeRequestParam(_clock->secsSinceEpoch());
    outgoing.timeoutMs = kRequestTimeoutMs;
    runOnNetworkThread([this, outgoing] {
        QNetworkReply *reply = BusinessHttp::start(*_urlSession, outgoing);
        QObject::connect(reply, &QNetworkReply::finished, _context, [this, reply] {
            handleGetReply(reply);
            reply->deleteLater();
        });
    });
}

void QrCodeDial::handleGetReply(QNetworkReply *reply)
{
    const HttpReply r = BusinessHttp::collect(reply);
    if (r.transportError) {
        DVLOG() << "qrcode request error, err: " << *r.transportError;
        postGet(BusinessHttp::transportErrorOf(r), QString());
        return;
    }
    DVError error;
    const auto result = QrcodeGetResult::fromJson(r.body, &error);
    if (!result || !result->validate(&error)) {
        logModelError(error);
        postGet(error, QString());
        return;
    }
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _sessionId = result->sessionid;
        _token = result->token;
    }
    postGet(QrCodeError::createErrorWithID(QrCodeError::Ok),
            QStringLiteral("%1$$%2").arg(result->url.value_or(QString()), result->sessionid.value_or(QString())));
}

std::optional<QString> QrCodeDial::makeCheckParam() const
{
    const auto sid = sessionId();
    const auto tok = token();
    if (!sid || !tok)
        return std::nullopt;
    return QString::fromUtf8(DVUtils::getBodyFromParm({{QStringLiteral("type"), QStringLiteral("checkQrcode")},
                                                       {QStringLiteral("strMAC"), _mac.value_or(QString())},
                                                       {QStringLiteral("dialType"), _dialType.value_or(QString())},
                                                       {QStringLiteral("sessionid"), *sid},
                                                       {QStringLiteral("token"), *tok}}));
}

bool QrCodeDial::doCheck()
{
    const auto sid = sessionId();
    if (missing(sid)) {
        DVLOG() << "qrcode check failed, session id is nil or empty";
        return false;
    }
    const auto params = makeCheckParam();
    if (!params || !_url)
        return false;
    HttpRequestSpec outgoing;
    outgoing.method = QByteArrayLiteral("GET");
    outgoing.url = QUrl(QStringLiteral("%1/%2?%3").arg(_url->toString(QUrl::FullyEncoded), *sid, *params));
    outgoing.timeoutMs = 0; // waits as long as the service keeps the request open
    runOnNetworkThread([this, outgoing] {
        QNetworkReply *reply = BusinessHttp::start(*_urlSession, outgoing);
        _currentTask = reply;
        QObject::connect(reply, &QNetworkReply::finished, _context, [this, reply] {
            if (_currentTask == reply)
                _currentTask = nullptr;
            handleCheckReply(reply);
            reply->deleteLater();
        });
    });
    return true;
}

void QrCodeDial::cancel()
{
    runOnNetworkThread([this] {
        if (_currentTask)
            _currentTask->abort();
    });
}

void QrCodeDial::handleCheckReply(QNetworkReply *reply)
{
    const HttpReply r = BusinessHttp::collect(reply);
    std::optional<DVError> transport;
    if (r.transportError)
        transport = BusinessHttp::transportErrorOf(r);
    praseCheckRespData(r.body, r.status, transport);
}

void QrCodeDial::praseCheckRespData(const QByteArray &data, int status, const std::optional<DVError> &transportError)
{
    QrCodeCheckNotificationInfo info;
    if (transportError) {
        DVLOG() << "qrcode request error, err: " << transportError->localizedDescription;
        info.err = *transportError;
        postCheck(info);
        return;
    }
    if (status != 200 && data.isEmpty()) {
        DVLOG() << "qrcode check failed ,response data is nil, http sattus code " << status;
        info.err = QrCodeError::createErrorWithID(QrCodeError::ServerFailed);
        postCheck(info);
        return;
    }
    DVError error;
    const auto result = QrcodeCheckResult::fromJson(data, &error);
    if (!result || !result->validate(&error)) {
        logModelError(error);
        info.err = error;
        postCheck(info);
        return;
    }
    QString username, password;
    if (result->entryptData && decryptUserInfo(*result->entryptData, &username, &password)) {
        info.username = username;
        info.password = password;
        info.err = QrCodeError::createErrorWithID(QrCodeError::Ok);
    } else {
        info.err = QrCodeError::createErrorWithID(QrCodeError::DecryptFailed);
    }
    postCheck(info);
}

bool QrCodeDial::decryptUserInfo(const QString &entryptData, QString *username, QString *password) const
{
    const auto cipher = lenientBase64(entryptData);
    if (!cipher || !_decodeKey)
        return false;
    const auto plain = DVUtils::aesEcbDecode(*cipher, *_decodeKey);
    if (!plain)
        return false;
    QStringDecoder decoder(QStringDecoder::Utf8);
    const QString text = decoder(*plain);
    if (decoder.hasError())
        return false;
    const QStringList pieces = text.split(QLatin1Char('$'));
    if (pieces.size() != 2)
        return false;
    *username = pieces[0];
    *password = pieces[1];
    return true;
}

std::optional<QString> QrCodeDial::sessionId() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _sessionId;
}

std::optional<QString> QrCodeDial::token() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _token;
}
