#include "BusinessServer.h"

#include "HostileJson.h"
#include "SimClock.h"

#include <QHttpServerResponse>
#include <QTextStream>

using nlohmann::ordered_json;

namespace BusinessSim {

std::vector<std::pair<QString, QString>> formPairs(const QByteArray &body)
{
    std::vector<std::pair<QString, QString>> out;
    for (const QString &part : QString::fromUtf8(body).split(QLatin1Char('&'), Qt::SkipEmptyParts)) {
        const qsizetype eq = part.indexOf(QLatin1Char('='));
        if (eq < 0)
            out.emplace_back(part, QString());
        else
            out.emplace_back(part.left(eq), part.mid(eq + 1));
    }
    return out;
}

QHttpServerResponse jsonResponse(const ordered_json &body, QHttpServerResponder::StatusCode status)
{
    return QHttpServerResponse(QByteArrayLiteral("application/json"), QByteArray::fromStdString(body.dump()), status);
}

} // namespace BusinessSim

BusinessServer::BusinessServer(QObject *parent)
    : SimService(parent)
{}

QString BusinessServer::tabAddress(const QString &area) const
{
    return QStringLiteral("http://127.0.0.1:%1/tab?area=%2").arg(_port).arg(area);
}

ordered_json BusinessServer::defaultConfigAnswer(const QString &area) const
{
    const std::string tab = tabAddress(area).toStdString();
    const std::string notice = QStringLiteral("http://127.0.0.1:%1/notice").arg(_port).toStdString();
    ordered_json answer;
    answer["RespType"] = "ConfigResp";
    answer["Infos"] = {
        {"TabConfig", ordered_json::array({{{"hiturl", tab}}})},
        {"BubbleConfig",
         ordered_json::array({
             {{"type", "text"}, {"caption", "欢迎"}, {"contents", "您已接入网络"}, {"hiturl", ""}, {"delaytime", 1}},
             {{"type", "web"}, {"caption", "网络公告"}, {"contents", ""}, {"hiturl", notice}, {"delaytime", 3}},
         })},
    };
    // The client reads the entries from the top level (the "Infos" array only says there are some).
    answer["TabConfig"] = ordered_json::array({{{"name", "portal"}}, {{"hiturl", tab}}});
    return answer;
}

ordered_json BusinessServer::defaultRegisterAnswer(const QString &area) const
{
    const QString a = area.isEmpty() ? _options.area : area;
    ordered_json infos = ordered_json::object();
    if (const auto heart = _options.setting("heart", "negotiateurl", a))
        infos["HeartServerAddress"] = heart->toStdString();
    if (const auto update = _options.setting("update", "host", a))
        infos["UpdateServerAddress"] = update->toStdString();
    infos["hiturl"] = tabAddress(a).toStdString();
    return {{"RespType", "RegisterResp"}, {"infos", infos}};
}

bool BusinessServer::start(const SimOptions &options)
{
    _options = options;
    _scenario = options.scenario(QStringLiteral("business"));
    SimClock::stampDate(_http, &_options);
    const auto host = options.setting("business", "host", options.area);

    _http.route(QStringLiteral("/config.action"), QHttpServerRequest::Method::Post,
                [this](const QHttpServerRequest &r) { return handle(r, true); });
    _http.route(QStringLiteral("/register.action"), QHttpServerRequest::Method::Post,
                [this](const QHttpServerRequest &r) { return handle(r, false); });
    _http.route(
        QStringLiteral("/sim/business/answer"), QHttpServerRequest::Method::Post, [this](const QHttpServerRequest &r) {
            ordered_json answer;
            try {
                answer = ordered_json::parse(r.body().constBegin(), r.body().constEnd());
            } catch (const ordered_json::exception &e) {
                return BusinessSim::jsonResponse({{"error", e.what()}}, QHttpServerResponder::StatusCode::BadRequest);
            }
            if (r.query().queryItemValue(QStringLiteral("kind")) == QLatin1String("register"))
                setRegisterAnswer(answer);
            else
                setConfigAnswer(answer);
            return BusinessSim::jsonResponse({{"ok", true}});
        });
    _http.route(QStringLiteral("/tab"), [this](const QHttpServerRequest &r) {
        return QHttpServerResponse(QByteArrayLiteral("text/html; charset=utf-8"),
                                   adPage(r.query().queryItemValue(QStringLiteral("area"))).toUtf8());
    });
    // The online view's page: the configuration's "tab" address, until the configuration
    // answer above names "/tab".
    _http.route(QStringLiteral("/ad/index.html"), [this] {
        return QHttpServerResponse(QByteArrayLiteral("text/html; charset=utf-8"), adPage(_options.area).toUtf8());
    });
    _http.route(QStringLiteral("/notice"), [] {
        return QHttpServerResponse(
            QByteArrayLiteral("text/html; charset=utf-8"),
            QStringLiteral("<html><body><h1>网络公告</h1><p>今晚 2:00 例行维护。</p></body></html>").toUtf8());
    });

    const quint16 wanted = options.listenPort(host, 18081);
    _port = _http.listen(QHostAddress::LocalHost, wanted);
    if (_port == 0) {
        QTextStream(stderr) << "business: cannot listen on port " << wanted << '\n';
        return false;
    }
    return true;
}

bool BusinessServer::setScenario(const QString &name)
{
    static const QStringList known = {QString(), QStringLiteral("http500"), QStringLiteral("wrong-resptype"),
                                      QStringLiteral("deep")};
    if (!known.contains(name))
        return false;
    _scenario = name;
    return true;
}

QString BusinessServer::adPage(const QString &area) const
{
    return QStringLiteral(
               "<!DOCTYPE html><html lang=\"zh-CN\"><head><meta charset=\"utf-8\"><title>dorvik 宽带</title>"
               "<style>body{font-family:sans-serif;margin:0;background:#f4f8fc;color:#1d3c5e}"
               "header{background:#2f86d6;color:#fff;padding:18px 28px;font-size:24px}"
               "main{display:flex;gap:18px;padding:22px 28px}"
               "section{flex:1;background:#fff;border-radius:10px;padding:16px 20px;box-shadow:0 1px 4px #0002}"
               "h2{font-size:18px;margin:0 0 8px}a{color:#1d5fa8}</style></head><body>"
               "<header>欢迎使用 dorvik 宽带（区域 %1）</header><main>"
               "<section><h2>网络公告</h2><p>今晚 2:00 例行维护，届时可能短暂断线。</p>"
               "<p><a href=\"/notice\" target=\"_blank\">查看全部公告</a></p></section>"
               "<section><h2>套餐与服务</h2><p>校园 100M 光纤，每月 30 元。</p><p>客服电话：10000</p></section>"
               "</main></body></html>")
        .arg(area.toHtmlEscaped());
}

QHttpServerResponse BusinessServer::handle(const QHttpServerRequest &request, bool config)
{
    const QByteArray body = request.body();
    std::optional<ordered_json> answer;
    {
        QMutexLocker lock(&_mutex);
        (config ? _lastConfigBody : _lastRegisterBody) = body;
        ++(config ? _configRequests : _registerRequests);
        answer = config ? _configAnswer : _registerAnswer;
    }
    if (_scenario == QLatin1String("http500"))
        return BusinessSim::jsonResponse({{"error", "internal"}},
                                         QHttpServerResponder::StatusCode::InternalServerError);

    ordered_json req;
    try {
        req = ordered_json::parse(body.constBegin(), body.constEnd());
    } catch (const ordered_json::exception &) {
        QMutexLocker lock(&_mutex);
        ++_badRequests;
        return BusinessSim::jsonResponse({{"error", "body is not JSON"}}, QHttpServerResponder::StatusCode::BadRequest);
    }
    const char *expected = config ? "ConfigReq" : "RegisterReq";
    if (!req.is_object() || req.value("ReqType", std::string()) != expected) {
        QMutexLocker lock(&_mutex);
        ++_badRequests;
        return BusinessSim::jsonResponse({{"error", "wrong ReqType"}}, QHttpServerResponder::StatusCode::BadRequest);
    }
    const QString area = QString::fromStdString(req.value("AreaCode", _options.area.toStdString()));
    if (!answer)
        answer = config ? defaultConfigAnswer(area) : defaultRegisterAnswer(area);
    if (_scenario == QLatin1String("wrong-resptype"))
        (*answer)["RespType"] = "OtherResp";
    if (_scenario == QLatin1String("deep")) {
        // The bubble list of the configuration answer, a member of the registration's infos.
        if (config)
            (*answer)["Infos"]["BubbleConfig"] = "@deep@";
        else
            (*answer)["infos"]["deep"] = "@deep@";
        return QHttpServerResponse(QByteArrayLiteral("application/json"),
                                   HostileJson::withDeepValue(QByteArray::fromStdString(answer->dump())));
    }
    return BusinessSim::jsonResponse(*answer);
}

void BusinessServer::setConfigAnswer(std::optional<ordered_json> answer)
{
    QMutexLocker lock(&_mutex);
    _configAnswer = std::move(answer);
}

void BusinessServer::setRegisterAnswer(std::optional<ordered_json> answer)
{
    QMutexLocker lock(&_mutex);
    _registerAnswer = std::move(answer);
}

QByteArray BusinessServer::lastConfigBody() const
{
    QMutexLocker lock(&_mutex);
    return _lastConfigBody;
}

QByteArray BusinessServer::lastRegisterBody() const
{
    QMutexLocker lock(&_mutex);
    return _lastRegisterBody;
}

int BusinessServer::configRequests() const
{
    QMutexLocker lock(&_mutex);
    return _configRequests;
}

int BusinessServer::registerRequests() const
{
    QMutexLocker lock(&_mutex);
    return _registerRequests;
}

ordered_json BusinessServer::stats() const
{
    QMutexLocker lock(&_mutex);
    return {{"config", _configRequests}, {"register", _registerRequests}, {"bad", _badRequests}};
}
