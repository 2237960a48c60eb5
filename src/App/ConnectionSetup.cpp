#include "ConnectionSetup.h"

#include "Conf/Conf.h"
#include "Conf/UIConf.h"
#include "Dial/PPPoEPlatformFactory.h"
#include "Dial/simulated/SimulatedPlatform.h"
#include "Util/DVJson.h"

#include <QCommandLineParser>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>
#include <QTimer>

#include <nlohmann/json.hpp>

namespace ConnectionSetup {

namespace {
using json = nlohmann::ordered_json;

std::optional<int> wholeNumber(const QCommandLineParser &parser, const QString &name, int min, int max, int fallback,
                               QString *error)
{
    if (!parser.isSet(name))
        return fallback;
    bool ok = false;
    const int value = parser.value(name).toInt(&ok);
    if (!ok || value < min || value > max) {
        *error = QStringLiteral("--%1 wants a whole number from %2 to %3").arg(name).arg(min).arg(max);
        return std::nullopt;
    }
    return value;
}

} // namespace

SimulatedAuthHook accessConcentratorHook(const QUrl &url, std::function<QString()> macAddress,
                                         std::function<void()> sessionEnds)
{
    auto network = std::make_shared<std::unique_ptr<QNetworkAccessManager>>();
    return [url, macAddress, network, sessionEnds](const QString &dialName, const QString &password,
                                                   std::function<void(bool, QString)> done) {
        if (!*network)
            *network = std::make_unique<QNetworkAccessManager>();
        QNetworkRequest request(url);
        request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
        request.setTransferTimeout(5000);
        const QString mac = macAddress ? macAddress() : QString();
        const json body = {
            {"dialName", dialName.toStdString()}, {"password", password.toStdString()}, {"mac", mac.toStdString()}};
        QNetworkReply *reply = (*network)->post(request, QByteArray::fromStdString(body.dump()));
        QNetworkAccessManager *context = network->get();
        QObject::connect(reply, &QNetworkReply::finished, reply, [reply, done, sessionEnds, context] {
            reply->deleteLater();
            const QByteArray raw = reply->readAll();
            const json answer = DVJson::parse(raw).value_or(json());
            if (answer.is_object() && answer.value("accepted", false)) {
                const auto limit = answer.find("sessionSeconds");
                if (sessionEnds && limit != answer.end() && limit->is_number_integer() && *limit > 0 && *limit < 86400)
                    QTimer::singleShot(int(limit->get<int>()) * 1000, context, sessionEnds);
                done(true, QString());
                return;
            }
            QString reason = reply->error() == QNetworkReply::NoError || !raw.isEmpty()
                                 ? QStringLiteral("refused")
                                 : QStringLiteral("access concentrator unreachable: ") + reply->errorString();
            if (answer.is_object() && answer.contains("reason") && answer["reason"].is_string())
                reason = QString::fromStdString(answer["reason"].get<std::string>());
            done(false, reason);
        });
    };
}
void addOptions(QCommandLineParser &parser)
{
    parser.addOption({QStringLiteral("area"), QStringLiteral("area code"), QStringLiteral("code")});
    parser.addOption({QStringLiteral("config"), QStringLiteral("configuration file to try"), QStringLiteral("file")});
    parser.addOption({QStringLiteral("backend"), QStringLiteral("networkmanager | simulated"), QStringLiteral("name")});
    parser.addOption({QStringLiteral("ac"), QStringLiteral("simulated access concentrator (simulated back-end)"),
                      QStringLiteral("url"), QStringLiteral("http://127.0.0.1:18087/pppoe/auth")});
    parser.addOption({QStringLiteral("heartbeat-scale"),
                      QStringLiteral("divide heartbeat pauses by this factor (demos and tests)"), QStringLiteral("n")});
    parser.addOption({QStringLiteral("sim-interfaces"),
                      QStringLiteral("simulated back-end: 1 or 2 network interfaces (default 2)"),
                      QStringLiteral("n")});
    parser.addOption({QStringLiteral("sim-delay-ms"),
                      QStringLiteral("simulated back-end: every platform call blocks this long"),
                      QStringLiteral("ms")});
}

std::optional<Settings> settingsFrom(const QCommandLineParser &parser, QString *error)
{
    Settings settings;
    settings.area = parser.value(QStringLiteral("area"));
    settings.configPath = parser.value(QStringLiteral("config"));
    settings.backend = parser.value(QStringLiteral("backend"));
    settings.accessConcentrator = QUrl(parser.value(QStringLiteral("ac")));
    const auto scale = wholeNumber(parser, QStringLiteral("heartbeat-scale"), 1, 1000000, 1, error);
    const auto interfaces = wholeNumber(parser, QStringLiteral("sim-interfaces"), 1, 2, 2, error);
    const auto delay = wholeNumber(parser, QStringLiteral("sim-delay-ms"), 0, 60000, 0, error);
    if (!scale || !interfaces || !delay)
        return std::nullopt;
    settings.heartbeatScale = *scale;
    settings.simInterfaces = *interfaces;
    settings.simCallDelayMs = *delay;
    return settings;
}

bool loadConfiguration(const Settings &settings, QString *error)
{
    if (!settings.configPath.isEmpty()) {
        QString why;
        auto conf = Conf::fromFile(settings.configPath, &why);
        if (!conf) {
            *error = QStringLiteral("%1: %2").arg(settings.configPath, why);
            return false;
        }
        Conf::setShared(std::move(conf));
    }
    if (!Conf::shared()) {
        *error = QStringLiteral("the configuration %1 could not be read").arg(Conf::systemConfigPath());
        return false;
    }
    if (settings.area.isEmpty())
        Conf::restoreArea();
    else
        UIConf::shared().setArea(settings.area);
    return true;
}

std::unique_ptr<DVApp> makeApp(const Settings &settings, QString *error)
{
    return makeApp(settings, DVApp::Options{}, error);
}

std::unique_ptr<DVApp> makeApp(const Settings &settings, DVApp::Options options, QString *error,
                               std::unique_ptr<PPPoEPlatform> platform)
{
    auto appRef = std::make_shared<QPointer<DVApp>>();
    const QString chosen = settings.backend.isEmpty() ? PPPoEPlatformFactory::defaultName() : settings.backend;
    if (!platform && chosen == QLatin1String("simulated")) {
        SimulatedConfig config = SimulatedPlatform::defaultConfig();
        if (settings.simInterfaces < int(config.interfaces.size()))
            config.interfaces.resize(size_t(qMax(1, settings.simInterfaces)));
        config.callDelayMs = settings.simCallDelayMs;
        platform = std::make_unique<SimulatedPlatform>(std::move(config));
    } else if (!platform) {
        platform = PPPoEPlatformFactory::create(chosen);
    }
    if (!platform) {
        *error = QStringLiteral("unknown back-end '%1' (have: %2)")
                     .arg(chosen, PPPoEPlatformFactory::availableNames().join(QStringLiteral(", ")));
        return nullptr;
    }
    if (auto *simulated = dynamic_cast<SimulatedPlatform *>(platform.get())) {
        // The simulated link asks the simulated access concentrator, as pppd would ask the
        // provider's access server, and ends when the concentrator ends the session.
        simulated->setAuthHook(accessConcentratorHook(
            settings.accessConcentrator,
            [appRef] { return *appRef && (*appRef)->pppoe() ? (*appRef)->pppoe()->getMacAddress() : QString(); },
            [appRef] {
                DVApp *app = appRef->data();
                if (!app || !app->pppoe() || !app->dialInterface())
                    return;
                if (auto *sim = dynamic_cast<SimulatedPlatform *>(&app->pppoe()->platform()))
                    sim->peerHangUpOn(app->dialInterface()->_bsdName);
            }));
    }
    if (settings.heartbeatScale > 1) {
        const int scale = settings.heartbeatScale;
        options.heartbeatWaits = [scale](qint32 seconds) { return qint64(seconds) * 1000 / scale; };
    }
    auto app = std::make_unique<DVApp>(std::make_unique<PPPoE>(std::move(platform)), options);
    *appRef = app.get();
    return app;
}

} // namespace ConnectionSetup
