#include "TokenServer.h"

#include "BusinessServer.h"

#include "Util/DVUtils.h"

#include <QHttpServerResponse>
#include <QTextStream>

using nlohmann::ordered_json;
using Status = QHttpServerResponder::StatusCode;

TokenServer::TokenServer(QObject *parent)
    : SimService(parent)
{}

bool TokenServer::start(const SimOptions &options)
{
    _options = options;
    _scenario = options.scenario(QStringLiteral("token"));
    const QString area = options.area;
    const auto host = options.setting("token", "host", area);
    _path = options.setting("token", "path", area).value_or(QStringLiteral("/token"));
    _key = options.setting("token", "key", area).value_or(QString());
    _authUser = options.setting("token", "user", area).value_or(QString());
    _authPwd = options.setting("token", "pwd", area).value_or(QString());

    QString route = _path;
    if (!route.startsWith(QLatin1Char('/')))
        route.prepend(QLatin1Char('/'));
    _http.route(route, QHttpServerRequest::Method::Post, [this](const QHttpServerRequest &r) { return handle(r); });

    const quint16 wanted = options.listenPort(host, 18082);
    _port = _http.listen(QHostAddress::LocalHost, wanted);
    if (_port == 0) {
        QTextStream(stderr) << "token: cannot listen on port " << wanted << '\n';
        return false;
    }
    return true;
}

QHttpServerResponse TokenServer::handle(const QHttpServerRequest &request)
{
    Seen seen;
    seen.body = request.body();
    seen.hadAuthorization = !request.value(QByteArrayLiteral("Authorization")).isEmpty();
    seen.authorization = request.value(QByteArrayLiteral("Authorization"));
    seen.signature = request.value(QByteArrayLiteral("Signature"));
    seen.contentType = request.value(QByteArrayLiteral("Content-Type"));

    const auto pairs = BusinessSim::formPairs(seen.body);
    QString base = QStringLiteral("POST&") + DVUtils::encodeToPercentEscapeString(_path);
    QString account, pwd;
    for (const auto &[k, v] : pairs) {
        base += QLatin1Char('&') + k + QLatin1Char('=') + v;
        if (k == QLatin1String("account"))
            account = v;
        else if (k == QLatin1String("pwd"))
            pwd = v;
    }
    seen.signatureOk = !_key.isEmpty() && DVUtils::hamacSha1ofString(base, _key) == QString::fromLatin1(seen.signature);

    const QByteArray expectedAuth =
        _authUser.isEmpty() || _authPwd.isEmpty()
            ? QByteArray()
            : QByteArrayLiteral("Basic ") + (_authUser + QLatin1Char(':') + _authPwd).toUtf8().toBase64();
    const bool authOk = seen.authorization == expectedAuth;

    {
        QMutexLocker lock(&_mutex);
        _last = seen;
        ++_requests;
    }
    const auto refuse = [this](int code, const char *message, Status status) {
        QMutexLocker lock(&_mutex);
        ++_refused;
        return BusinessSim::jsonResponse({{"code", code}, {"message", message}}, status);
    };
    if (!authOk)
        return refuse(401, "unauthorized", Status::Unauthorized);
    if (!seen.signatureOk)
        return refuse(403, "signature mismatch", Status::Forbidden);
    const auto known = _options.accounts.find(account);
    if (known == _options.accounts.end() || DVUtils::md5OfString(known->second) != pwd)
        return refuse(1, "account or password wrong", Status::Ok);
    if (_scenario == QLatin1String("refuse"))
        return refuse(3, "token quota exceeded", Status::Ok);

    ordered_json answer;
    answer["code"] = 0;
    answer["token"] = DVUtils::md5OfString(account + QStringLiteral("#token")).toStdString();
    answer["redirect_uri"] = QStringLiteral("http://127.0.0.1:%1/welcome").arg(_port).toStdString();
    if (_scenario != QLatin1String("no-message"))
        answer["message"] = "ok";
    {
        QMutexLocker lock(&_mutex);
        ++_issued;
    }
    return BusinessSim::jsonResponse(answer,
                                     _scenario == QLatin1String("http500") ? Status::InternalServerError : Status::Ok);
}

TokenServer::Seen TokenServer::lastRequest() const
{
    QMutexLocker lock(&_mutex);
    return _last;
}

int TokenServer::requests() const
{
    QMutexLocker lock(&_mutex);
    return _requests;
}

ordered_json TokenServer::stats() const
{
    QMutexLocker lock(&_mutex);
    return {{"requests", _requests}, {"issued", _issued}, {"refused", _refused}};
}
