#include "TokenReuest.h"

#include "BusinessBody.h"
#include "BusinessHttp.h"
#include "Conf/Conf.h"
#include "Util/Log.h"

#include <cmath>

using nlohmann::ordered_json;

namespace {
const int kTimeoutMs = 4000;

// Joins host and path with exactly one "/" between them and keeps the rest of both as written.
QString joinPath(QString host, QString path)
{
    while (host.endsWith(QLatin1Char('/')))
        host.chop(1);
    while (path.startsWith(QLatin1Char('/')))
        path.remove(0, 1);
    return host + QLatin1Char('/') + path;
}
} // namespace

TokenSettings TokenSettings::fromConf()
{
    TokenSettings s;
    if (const Conf *conf = Conf::shared()) {
        s.authName = conf->token.getAuthName();
        s.authPwd = conf->token.getAuthPassword();
        s.host = conf->token.getHost();
        s.key = conf->token.getPskkey();
        s.path = conf->token.getUrlPath();
    }
    return s;
}

TokenReuest::TokenReuest(const QString &username, const QString &password)
    : TokenReuest(TokenSettings::fromConf(), username, password)
{}

TokenReuest::TokenReuest(TokenSettings settings, const QString &username, const QString &password)
    : _authName(std::move(settings.authName))
    , _authPwd(std::move(settings.authPwd))
    , _host(std::move(settings.host))
    , _key(std::move(settings.key))
    , _path(std::move(settings.path))
    , _username(username)
    , _password(password)
{}

DVParams TokenReuest::makeParams() const
{
    return {{QStringLiteral("account"), _username}, {QStringLiteral("pwd"), DVUtils::md5OfString(_password)}};
}

std::optional<QString> TokenReuest::signatureBaseString(const DVParams &params) const
{
    if (!_path) {
        DVLOG() << "token host is nil";
        return std::nullopt;
    }
    QString base = QStringLiteral("POST&") + DVUtils::encodeToPercentEscapeString(*_path);
    for (const auto &[k, v] : params)
        base += QLatin1Char('&') + k + QLatin1Char('=') + v;
    return base;
}

std::optional<QString> TokenReuest::getSignatureFromParam(const DVParams &params) const
{
    const auto base = signatureBaseString(params);
    if (!base || !_key)
        return std::nullopt;
    const QString signature = DVUtils::hamacSha1ofString(*base, *_key);
    if (signature.isEmpty())
        return std::nullopt; // a text that is not ASCII cannot be signed
    return signature;
}

std::optional<TokenReuest::Headers> TokenReuest::getBasicAuthHeaderFromUserName(const QString &name,
                                                                                const QString &password)
{
    if (password.isEmpty() || name.isEmpty()) {
        DVLOG() << "empty name or pwd";
        return std::nullopt;
    }
    const QByteArray encoded = (name + QLatin1Char(':') + password).toUtf8().toBase64();
    if (encoded.isEmpty()) {
        DVLOG() << "basic auth get Authorization faild";
        return std::nullopt;
    }
    return Headers{{QStringLiteral("Authorization"), QStringLiteral("Basic ") + QString::fromLatin1(encoded)}};
}

void TokenReuest::fail(const QString &why)
{
    if (onOutcome)
        onOutcome(std::nullopt, why);
}

void TokenReuest::start()
{
    if (isCancelled())
        return fail(QStringLiteral("连接已断开，令牌请求已取消"));
    main();
}

void TokenReuest::main()
{
    if (!_authName || !_authPwd)
        return fail(QStringLiteral("the token service has no user or password configured"));
    const DVParams params = makeParams();
    const auto signature = getSignatureFromParam(params);
    if (!signature) {
        DVLOG() << "get sign failed";
        return fail(QStringLiteral("the request could not be signed"));
    }
    Headers headers = getBasicAuthHeaderFromUserName(*_authName, *_authPwd).value_or(Headers{});
    headers.emplace_back(QStringLiteral("Signature"), *signature);
    const QByteArray body = DVUtils::getBodyFromParm(params);
    if (body.isEmpty()) {
        DVLOG() << "make request body failed";
        return fail(QStringLiteral("the request body could not be made"));
    }
    doRquestWithBody(body, headers);
}

void TokenReuest::doRquestWithBody(const QByteArray &body, const Headers &header)
{
    const QString text = joinPath(_host.value_or(QString()), _path.value_or(QString()));
    const QUrl url(text, QUrl::StrictMode);
    if (!_host || !url.isValid() || url.scheme().isEmpty()) {
        DVLOG() << "url init failed";
        return fail(QStringLiteral("the token service address is not usable"));
    }
    HttpRequestSpec outgoing;
    outgoing.url = url;
    outgoing.body = body;
    outgoing.timeoutMs = kTimeoutMs;
    for (const auto &[k, v] : header)
        outgoing.headers.emplace_back(k.toUtf8(), v.toUtf8());
    const HttpReply reply = BusinessHttp::sendBlocking(outgoing);
    if (reply.transportError) {
        DVLOG() << *reply.transportError;
        return fail(*reply.transportError);
    }
    // Only the body counts: a failure status with a readable answer is an answer.
    QString why;
    const auto info = parseTokenInfo(reply.body, &why);
    if (!info) {
        DVLOG() << why;
        return fail(why);
    }
    if (onOutcome)
        onOutcome(info, QString());
    DVNotificationCenter::defaultCenter().postNotificationName(DVNotification::DVNotificationNameToken,
                                                               {{DVNotification::NotificationInfoKeyToken, *info}});
}

std::optional<TokenNotificationInfo> TokenReuest::parseTokenInfo(const QByteArray &body, QString *why)
{
    const auto json = BusinessBody::parse(body, why);
    if (!json)
        return std::nullopt;
    const auto fail = [why](const QString &reason) -> std::optional<TokenNotificationInfo> {
        if (why)
            *why = reason;
        return std::nullopt;
    };
    if (!json->is_object())
        return fail(QStringLiteral("token answer is not an object"));
    TokenNotificationInfo info;
    const auto code = json->find("code");
    if (code == json->end() || !code->is_number())
        return fail(QStringLiteral("token answer has no code"));
    const double c = code->get<double>();
    if (!std::isfinite(c) || c < -2147483648.0 || c > 2147483647.0)
        return fail(QStringLiteral("token answer code out of range"));
    info.code = static_cast<qint32>(c);
    const auto message = json->find("message");
    if (message == json->end() || !message->is_string())
        return fail(QStringLiteral("token answer has no message"));
    info.message = QString::fromStdString(message->get<std::string>());
    for (const auto &[key, place] : {std::pair{"token", &info.token}, std::pair{"redirect_uri", &info.redirect_uri}}) {
        const auto it = json->find(key);
        if (it == json->end() || it->is_null())
            continue;
        if (!it->is_string())
            return fail(QStringLiteral("token answer member %1 is not text").arg(QLatin1String(key)));
        *place = QString::fromStdString(it->get<std::string>());
    }
    return info;
}
