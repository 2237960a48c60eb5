#include "AccessConcentrator.h"

#include "SimClock.h"

#include "AccountRule/DVAccountRule.h"
#include "AccountRule/DVRuleException.h"

#include <QDateTime>
#include <QHttpServerRequest>
#include <QHttpServerResponse>
#include <QUrl>

#include <cstdio>

namespace {
using json = nlohmann::ordered_json;

QByteArray reply(const json &body)
{
    return QByteArray::fromStdString(body.dump());
}
} // namespace

bool AccessConcentrator::start(const SimOptions &options)
{
    _options = options;
    _server = std::make_unique<QHttpServer>();
    SimClock::stampDate(*_server, &_options);
    _server->route(
        QStringLiteral("/pppoe/auth"), QHttpServerRequest::Method::Post, [this](const QHttpServerRequest &request) {
            const QByteArray raw = request.body();
            const json body = json::parse(raw.constData(), raw.constData() + raw.size(), nullptr, false);
            if (body.is_discarded() || !body.is_object() || !body.contains("dialName") || !body["dialName"].is_string()
                || !body.contains("password") || !body["password"].is_string()) {
                ++_malformed;
                return QHttpServerResponse(QByteArrayLiteral("application/json"),
                                           reply({{"accepted", false}, {"reason", "malformed request"}}),
                                           QHttpServerResponse::StatusCode::BadRequest);
            }
            const QString mac = body.contains("mac") && body["mac"].is_string()
                                    ? QString::fromStdString(body["mac"].get<std::string>())
                                    : QString();
            QString reason;
            const auto area = authenticate(QString::fromStdString(body["dialName"].get<std::string>()),
                                           QString::fromStdString(body["password"].get<std::string>()), mac,
                                           SimClock::nowSecs(_options), &reason);
            if (!area) {
                ++_refused;
                return QHttpServerResponse(QByteArrayLiteral("application/json"),
                                           reply({{"accepted", false}, {"reason", reason.toStdString()}}),
                                           QHttpServerResponse::StatusCode::Forbidden);
            }
            ++_accepted;
            json answer = {{"accepted", true}, {"area", area->toStdString()}};
            if (const auto drop = dropScenario()) {
                answer["sessionSeconds"] = drop->first;
                ++_dropped;
            }
            return QHttpServerResponse(QByteArrayLiteral("application/json"), reply(answer));
        });
    const quint16 wanted = _options.portOf(QStringLiteral("ac"), 18087);
    _port = _server->listen(QHostAddress::LocalHost, wanted);
    if (_port == 0) {
        std::fprintf(stderr, "dorvik-sim: access concentrator cannot listen on 127.0.0.1:%u\n", wanted);
        return false;
    }
    return true;
}

std::optional<QString> AccessConcentrator::authenticate(const QString &dialName, const QString &password,
                                                        const QString &mac, qint64 now, QString *reason) const
{
    if (_options.scenario(QStringLiteral("ac")) == QLatin1String("refuse-all")) {
        *reason = QStringLiteral("access server refuses every dial");
        return std::nullopt;
    }
    if (const auto drop = dropScenario(); drop && _accepted >= drop->second) {
        *reason = QStringLiteral("account locked after %1 sessions").arg(_accepted);
        return std::nullopt;
    }
    const json &rules = _options.config.contains("accountrule") ? _options.config.at("accountrule") : json();
    if (!rules.is_object() || !rules.contains("order") || !rules.at("order").is_object()) {
        *reason = QStringLiteral("no account rule configured");
        return std::nullopt;
    }
    // Every area the configuration knows, "default" last.
    std::vector<std::string> areas;
    for (const auto &[area, value] : rules.at("order").items())
        if (area != "default")
            areas.push_back(area);
    areas.push_back("default");

    bool knownPassword = false;
    for (const auto &[account, accountPassword] : _options.accounts) {
        if (accountPassword != password)
            continue;
        knownPassword = true;
        for (const auto &area : areas) {
            const QString areaCode = QString::fromStdString(area);
            const auto order = _options.settingValue("accountrule", "order", areaCode);
            if (!order || !order->is_array())
                continue;
            QStringList names;
            for (const auto &n : *order)
                if (n.is_string())
                    names.append(QString::fromStdString(n.get<std::string>()));
            const auto prefix = _options.setting("accountrule", "timepin-prefix", areaCode);
            const auto suffix = _options.setting("accountrule", "suffix", areaCode);
            const auto psk = _options.setting("accountrule", "timepin-psk", areaCode);
            for (qint64 t = now - WindowSecs; t <= now + WindowSecs; ++t) {
                qint64 flag = t;
                try {
                    DVAccountRule rule(names, prefix, suffix, psk, &flag,
                                       mac.isEmpty() ? std::nullopt : std::optional(mac));
                    if (rule.getAccountFromName(account) == dialName)
                        return QString::fromStdString(area);
                } catch (const DVRuleException &) {
                    break; // this area's rule cannot make a name for the account at all
                }
            }
        }
    }
    *reason = knownPassword ? QStringLiteral("dial name matches no account rule within the time window")
                            : QStringLiteral("unknown account or wrong password");
    return std::nullopt;
}

std::optional<std::pair<int, int>> AccessConcentrator::dropScenario() const
{
    const QStringList parts = _options.scenario(QStringLiteral("ac")).split(QLatin1Char(':'));
    if (parts.size() != 3 || parts[0] != QLatin1String("drop"))
        return std::nullopt;
    bool okS = false, okK = false;
    const int seconds = parts[1].toInt(&okS);
    const int sessions = parts[2].toInt(&okK);
    if (!okS || !okK || seconds < 1 || sessions < 0)
        return std::nullopt;
    return std::pair{seconds, sessions};
}

nlohmann::ordered_json AccessConcentrator::stats() const
{
    return {{"accepted", _accepted}, {"refused", _refused}, {"malformed", _malformed}, {"droppedSessions", _dropped}};
}
