#include "SoakRun.h"

#include "AccountRule/DVAccountRule.h"
#include "AccountRule/DVRuleException.h"
#include "App/ConnectionSetup.h"
#include "Conf/Conf.h"
#include "Conf/ConfCrypt.h"
#include "Dial/simulated/SimulatedPlatform.h"
#include "Util/Clock.h"
#include "Util/DVEvent.h"
#include "Util/ThreadHandoff.h"
#include "tools/ToolProcess.h"

#include <QEventLoop>
#include <QFile>
#include <QNetworkReply>
#include <QPointer>
#include <QTimer>

#include <malloc.h>

#include <QNetworkRequest>

#include <algorithm>
#include <climits>
#include <cstdio>

using json = nlohmann::ordered_json;

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
#else
constexpr bool kSanitized = false;
#endif

const QString kUser = QStringLiteral("demo");
const QString kPassword = QStringLiteral("demo123");
// The property that marks a reply of the control port as a scenario switch ("service=scenario").
constexpr const char *kFaultProperty = "dorvikSoakFault";

// Simulated seconds drawn around a mean, never less than one.
qint64 draw(std::mt19937 &random, double meanSeconds)
{
    std::exponential_distribution<double> d(1.0 / std::max(1.0, meanSeconds));
    return std::max<qint64>(1, qint64(d(random)));
}

} // namespace

SoakRun::SoakRun(SoakSettings settings)
    : _settings(std::move(settings))
    , _dialClock(std::make_shared<ManualClock>(QDateTime::currentDateTimeUtc()))
    , _dropRandom(_settings.seed)
    , _faultRandom(_settings.seed + 1)
{
    // One handler for every reply of the simulator's control port, connected for the run's whole
    // life. A connection made per request is a slot object that Qt may release on the network
    // access manager's own thread, ordered only by Qt's internal locks, which the thread checker
    // cannot see: it then reports the strings the slot captured as freed without order.
    connect(&_net, &QNetworkAccessManager::finished, this, &SoakRun::onControlReply);
}

SoakRun::~SoakRun()
{
    _host.reset();
    if (_sim.state() != QProcess::NotRunning) {
        _sim.terminate();
        if (!_sim.waitForFinished(5000))
            _sim.kill();
        _sim.waitForFinished(2000);
    }
}

bool SoakRun::prepareConfiguration(QString *error)
{
    QFile demo(_settings.demoConfig);
    if (!_dir.isValid() || !demo.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("cannot read %1").arg(_settings.demoConfig);
        return false;
    }
    const QByteArray raw = demo.readAll();
    json config = json::parse(raw.constData(), raw.constData() + raw.size(), nullptr, false);
    if (!config.is_object()) {
        *error = QStringLiteral("%1 is not a JSON object").arg(_settings.demoConfig);
        return false;
    }
    // Every server on a port of its own, so that a soak may run beside the demo or the tests.
    moveServersToFreePorts(config);
    _acPort = freeLocalPort();

    _plainConfig = _dir.filePath(QStringLiteral("system.json"));
    const QString encrypted = _dir.filePath(QStringLiteral("system.cfg"));
    QFile plain(_plainConfig), cfg(encrypted);
    const auto sealed = ConfCrypt::encodeData(QByteArray::fromStdString(config.dump()));
    if (!sealed || !plain.open(QIODevice::WriteOnly) || !cfg.open(QIODevice::WriteOnly)
        || plain.write(QByteArray::fromStdString(config.dump(2))) <= 0 || cfg.write(*sealed) <= 0) {
        *error = QStringLiteral("cannot write the configuration into %1").arg(_dir.path());
        return false;
    }
    plain.close();
    cfg.close();
    ConnectionSetup::Settings settings;
    settings.area = _settings.area;
    settings.configPath = encrypted;
    return ConnectionSetup::loadConfiguration(settings, error);
}

bool SoakRun::startSimulator(QString *error)
{
    _sim.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    _sim.start(_settings.simProgram, {QStringLiteral("--config"), _plainConfig, QStringLiteral("--area"),
                                      _settings.area, QStringLiteral("--port"), QStringLiteral("ac=%1").arg(_acPort),
                                      QStringLiteral("--control"), QStringLiteral("0")});
    if (!_sim.waitForStarted(10000)) {
        *error = QStringLiteral("%1 did not start: %2").arg(_settings.simProgram, _sim.errorString());
        return false;
    }
    QElapsedTimer waited;
    waited.start();
    while (waited.elapsed() < 30000) {
        if (!_sim.canReadLine() && !_sim.waitForReadyRead(1000)) {
            if (_sim.state() == QProcess::NotRunning)
                break;
            continue;
        }
        while (_sim.canReadLine()) {
            const QByteArray line = _sim.readLine();
            const json ready = json::parse(line.constData(), line.constData() + line.size(), nullptr, false);
            if (ready.is_object() && ready.value("event", "") == "ready") {
                _controlPort = ready.value("ports", json::object()).value("control", quint16(0));
                return _controlPort != 0;
            }
        }
    }
    *error = QStringLiteral("dorvik-sim did not report ready");
    return false;
}

void SoakRun::buildController()
{
    const QUrl ac(QStringLiteral("http://127.0.0.1:%1/pppoe/auth").arg(_acPort));
    const int scale = _settings.scale;
    _host = std::make_unique<DVAppHost>([this, ac, scale] {
        auto appRef = std::make_shared<QPointer<DVApp>>();
        SimulatedConfig config = SimulatedPlatform::defaultConfig();
        config.stepDelayMs = 20;
        config.authHook = ConnectionSetup::accessConcentratorHook(
            ac, [appRef] { return *appRef && (*appRef)->pppoe() ? (*appRef)->pppoe()->getMacAddress() : QString(); });
        auto platform = std::make_unique<SimulatedPlatform>(std::move(config));
        _platform = platform.get();
        DVApp::Options options;
        options.clock = _dialClock;
        options.heartbeatWaits = [scale](qint32 seconds) { return qint64(seconds) * 1000 / scale; };
        options.onHeartbeatExchange = [this](const BcomExchange &x) { onExchange(x); };
        auto app = std::make_unique<DVApp>(std::make_unique<PPPoE>(std::move(platform)), std::move(options));
        *appRef = app.get();
        return app;
    });
    connect(_host.get(), &DVAppHost::dialStateChanged, this, &SoakRun::onState);
}

qint64 SoakRun::simSeconds() const
{
    return _elapsed.nsecsElapsed() * _settings.scale / 1000000000LL;
}

void SoakRun::at(qint64 simSecs, std::function<void()> work)
{
    const qint64 realMs = std::max<qint64>(0, (simSecs - simSeconds()) * 1000 / _settings.scale);
    QTimer::singleShot(int(std::min<qint64>(realMs, INT_MAX)), this, std::move(work));
}

void SoakRun::onExchange(const BcomExchange &x)
{
    std::lock_guard<std::mutex> lock(_beatsMutex);
    ++_beats.sent[x.sent.type];
    ++_beats.replies[x.reply ? x.reply->type : QStringLiteral("(none)")];
    if (x.httpStatus != 200)
        ++_beats.notOk;
    if (x.httpStatus == 0)
        ++_beats.transportErrors;
    if (!x.continues)
        ++_beats.chainsStopped;
}

void SoakRun::dial()
{
    if (_ending || _checkpoint != Checkpoint::None || _link != Link::Down)
        return;
    _link = Link::Dialing;
    ++_dials;
    // The dial name carries the dial's time in steps the rule chooses: move the dial's second
    // on until the rule gives a name no earlier dial of the run used.
    _host->post([this](DVApp &app) {
        if (!app.pppoe()->interfaceAtIndex(0))
            app.getInterfaceList();
        const auto chosen = app.pppoe()->interfaceAtIndex(0);
        const Conf *conf = Conf::shared();
        qint64 second = std::max(QDateTime::currentSecsSinceEpoch(), _lastDialSecs + 1);
        for (int tries = 0; conf && tries < 600; ++tries, ++second) {
            qint64 t = second;
            try {
                DVAccountRule rule(conf->accountrule.getOrder(), conf->accountrule.getPrefix(),
                                   conf->accountrule.getSufix(), conf->accountrule.getPsk(), &t,
                                   chosen ? std::optional(chosen->_macAddress) : std::nullopt);
                if (_namesTried.insert(rule.getAccountFromName(kUser).value_or(QString())).second)
                    break;
            } catch (const DVRuleException &) {
                break;
            }
        }
        _lastDialSecs = second;
        _dialClock->set(QDateTime::fromSecsSinceEpoch(second));
    });
    _host->dial(kUser, kPassword, 0, [this](bool started, const DVError &error) {
        if (!started) {
            ++_dialFailures;
            std::fprintf(stderr, "soak: dial did not start: %s\n", qUtf8Printable(error.localizedDescription));
            _link = Link::Down;
            if (_checkpoint != Checkpoint::None)
                measure();
            else
                at(simSeconds() + _settings.redialAfterSeconds, [this] { dial(); });
        }
    });
    _host->post([this](DVApp &app) {
        const QString name = app.pin();
        ThreadHandoff::post(this, [this, name] {
            if (!_dialNames.insert(name).second)
                ++_repeatedDialNames;
        });
    });
}

void SoakRun::drop()
{
    if (_link != Link::Up)
        return;
    ++_drops;
    _host->post([this](DVApp &) { _platform->peerHangUp(); });
}

void SoakRun::scheduleDrop()
{
    at(simSeconds() + draw(_dropRandom, _settings.dropEveryMinutes * 60.0), [this] {
        if (_ending)
            return;
        if (_checkpoint == Checkpoint::None)
            drop();
        scheduleDrop();
    });
}

void SoakRun::scheduleFault()
{
    if (_settings.faults.isEmpty())
        return;
    at(simSeconds() + draw(_faultRandom, _settings.faultEveryMinutes * 60.0), [this] {
        if (_ending)
            return;
        const QString pick = _settings.faults.at(
            int(std::uniform_int_distribution<int>(0, int(_settings.faults.size()) - 1)(_faultRandom)));
        const QString service = pick.section(QLatin1Char('='), 0, 0);
        const QString scenario = pick.section(QLatin1Char('='), 1);
        switchScenario(service, scenario);
        ++_faultsSwitched[pick];
        at(simSeconds() + draw(_faultRandom, _settings.faultMinutes * 60.0), [this, service] {
            if (_ending)
                return;
            switchScenario(service, QString());
            scheduleFault();
        });
    });
}

void SoakRun::switchScenario(const QString &service, const QString &scenario)
{
    if (scenario.isEmpty())
        _activeFaults.erase(service);
    else
        _activeFaults[service] = scenario;
    QNetworkRequest request(QUrl(QStringLiteral("http://127.0.0.1:%1/sim/scenario").arg(_controlPort)));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    const json body = {{"service", service.toStdString()}, {"scenario", scenario.toStdString()}};
    QNetworkReply *reply = _net.post(request, QByteArray::fromStdString(body.dump()));
    reply->setProperty(kFaultProperty, QString(service + QLatin1Char('=') + scenario));
}

void SoakRun::onControlReply(QNetworkReply *reply)
{
    reply->deleteLater();
    const QByteArray raw = reply->readAll();
    const QVariant fault = reply->property(kFaultProperty);
    if (!fault.isValid()) { // the statistics that end the run
        _simStats = json::parse(raw.constData(), raw.constData() + raw.size(), nullptr, false);
        if (_loop)
            _loop->quit();
        return;
    }
    if (reply->error() != QNetworkReply::NoError) {
        ++_controlErrors;
        std::fprintf(stderr, "soak: %s refused: %s\n", qUtf8Printable(fault.toString()), raw.constData());
    }
}

void SoakRun::onState(qint64 state)
{
    if (state == DVDialStateConnected) {
        if (_link != Link::Up)
            ++_connects;
        _link = Link::Up;
        if (_checkpoint != Checkpoint::None)
            drop();
    } else if (state == DVDialStateDisconnected) {
        _link = Link::Down;
        if (_checkpoint != Checkpoint::None)
            measure();
        else
            at(simSeconds() + _settings.redialAfterSeconds, [this] { dial(); });
    }
}

// A measurement is taken in one state only, so that two of them compare: the link down, every
// task of the connection finished.
void SoakRun::requestCheckpoint(Checkpoint kind)
{
    _checkpoint = kind;
    if (kind == Checkpoint::End) {
        _ending = true;
        for (const auto &[service, scenario] : std::map<QString, QString>(_activeFaults))
            switchScenario(service, QString());
    }
    if (_link == Link::Up)
        drop();
    else if (_link == Link::Down)
        measure();
    // Dialing: the connected state drops it.
}

void SoakRun::measure()
{
    // The control requests' idle keep-alive connections are the run's own descriptors.
    _net.clearConnectionCache();
    _host->post([this](DVApp &app) {
        app.queue()->waitUntilAllOperationsAreFinished();
        const int services = _platform->serviceCount();
        ThreadHandoff::post(this, [this, services] {
            // Let threads and sockets that were told to end do so before counting them.
            QTimer::singleShot(500, this, [this, services] {
                // Memory the allocator keeps for reuse after the threads that used it ended is
                // not held by the program: hand it back first, so that what is left is what
                // the program holds.
                const qint64 untrimmed = ProcessFigures::now().rssKb;
                malloc_trim(0);
                ProcessFigures now = ProcessFigures::now();
                now.untrimmedRssKb = untrimmed;
                if (_checkpoint == Checkpoint::Warmup) {
                    _atWarmup = now;
                    _servicesAtWarmup = services;
                    _checkpoint = Checkpoint::None;
                    dial();
                } else {
                    _atEnd = now;
                    _servicesAtEnd = services;
                    finish();
                }
            });
        });
    });
}

void SoakRun::finish()
{
    _realMs = _elapsed.elapsed();
    _net.get(QNetworkRequest(QUrl(QStringLiteral("http://127.0.0.1:%1/sim/stats").arg(_controlPort))));
}

int SoakRun::run()
{
    _atStart = ProcessFigures::now();
    QString error;
    if (!prepareConfiguration(&error) || !startSimulator(&error)) {
        std::fprintf(stderr, "soak: %s\n", qUtf8Printable(error));
        return 2;
    }
    buildController();
    _elapsed.start();
    const qint64 total = qint64(_settings.days * 86400);
    dial();
    scheduleDrop();
    scheduleFault();
    at(qint64(_settings.warmupMinutes) * 60, [this] { requestCheckpoint(Checkpoint::Warmup); });
    at(total, [this] { requestCheckpoint(Checkpoint::End); });
    QEventLoop loop;
    _loop = &loop;
    loop.exec();
    _loop = nullptr;
    _host.reset();
    return report();
}

int SoakRun::report()
{
    QStringList failures;
    const auto print = [](const char *label, const QString &value) {
        std::printf("%-34s %s\n", label, qUtf8Printable(value));
    };
    const auto figures = [](const ProcessFigures &f) {
        const QString before =
            f.untrimmedRssKb ? QStringLiteral(" (%1 KB before malloc_trim)").arg(f.untrimmedRssKb) : QString();
        return QStringLiteral("RSS %1 KB%2, heap in use %3 KB, %4 fds, %5 threads")
            .arg(f.rssKb)
            .arg(before)
            .arg(f.heapInUseKb)
            .arg(f.fds)
            .arg(f.threads);
    };
    Beats beats;
    {
        std::lock_guard<std::mutex> lock(_beatsMutex);
        beats = _beats;
    }
    const json heart = _simStats.is_object() ? _simStats.value("heart", json::object()) : json::object();
    const json ac = _simStats.is_object() ? _simStats.value("ac", json::object()) : json::object();
    const json business = _simStats.is_object() ? _simStats.value("business", json::object()) : json::object();
    const auto number = [](const json &j, const char *a, const char *b = nullptr) -> quint64 {
        const json *v = j.contains(a) ? &j.at(a) : nullptr;
        if (v && b)
            v = v->contains(b) ? &v->at(b) : nullptr;
        return v && v->is_number_integer() ? quint64(std::max<qint64>(0, v->get<qint64>())) : 0;
    };
    const quint64 notifySent = beats.sent[QStringLiteral("NOTIFY")];
    const quint64 negotiateSent = beats.sent[QStringLiteral("NEGOTIATE")];
    const quint64 simNotifications = number(heart, "notifications");
    const quint64 proofsOk = number(heart, "proofs", "verified"), proofsBad = number(heart, "proofs", "failed");
    const quint64 sigOk = number(heart, "signatures", "verified"), sigBad = number(heart, "signatures", "failed");
    const quint64 simRequests = number(heart, "requests");

    print("simulated time", QStringLiteral("%1 s (%2 days) in %3 s real, scale %4, seed %5")
                                .arg(qint64(_settings.days * 86400))
                                .arg(_settings.days)
                                .arg(_realMs / 1000.0, 0, 'f', 1)
                                .arg(_settings.scale)
                                .arg(_settings.seed));
    print("dials / connected / failed to start",
          QStringLiteral("%1 / %2 / %3").arg(_dials).arg(_connects).arg(_dialFailures));
    print("link drops (peer hang-up)", QString::number(_drops));
    print("distinct dial names", QStringLiteral("%1 (%2 repeated)").arg(_dialNames.size()).arg(_repeatedDialNames));
    print("access concentrator",
          QStringLiteral("%1 accepted, %2 refused").arg(number(ac, "accepted")).arg(number(ac, "refused")));
    print("beats sent (client)", QStringLiteral("%1 NOTIFY + %2 NEGOTIATE").arg(notifySent).arg(negotiateSent));
    print("beats at the simulator", QStringLiteral("%1 requests, %2 NOTIFY").arg(simRequests).arg(simNotifications));
    print("verified by the simulator", QStringLiteral("signatures %1 ok / %2 bad, proofs %3 ok / %4 bad")
                                           .arg(sigOk)
                                           .arg(sigBad)
                                           .arg(proofsOk)
                                           .arg(proofsBad));
    QStringList replies;
    for (const auto &[type, n] : beats.replies)
        replies << QStringLiteral("%1 %2").arg(type).arg(n);
    print("replies seen (client)", replies.join(QStringLiteral(", ")));
    print("faults met (client)", QStringLiteral("%1 non-200 replies, %2 transport errors, %3 heartbeats stopped")
                                     .arg(beats.notOk)
                                     .arg(beats.transportErrors)
                                     .arg(beats.chainsStopped));
    QStringList faults;
    for (const auto &[name, n] : _faultsSwitched)
        faults << QStringLiteral("%1 x%2").arg(name).arg(n);
    print("faults switched on", faults.isEmpty() ? QStringLiteral("none") : faults.join(QStringLiteral(", ")));
    print("business requests (config/register)",
          QStringLiteral("%1 / %2").arg(number(business, "config")).arg(number(business, "register")));
    print("at start", figures(_atStart));
    print("after warm-up", figures(_atWarmup));
    print("at end", figures(_atEnd));
    print("services in the back-end's store",
          QStringLiteral("%1 after warm-up, %2 at end").arg(_servicesAtWarmup).arg(_servicesAtEnd));
    const qint64 growth = _atEnd.rssKb - _atWarmup.rssKb;
    print("RSS growth after warm-up",
          QStringLiteral("%1 KB (heap in use %2 KB)").arg(growth).arg(_atEnd.heapInUseKb - _atWarmup.heapInUseKb));

    if (!_simStats.is_object())
        failures << QStringLiteral("the simulator's statistics could not be read");
    if (_atWarmup.rssKb == 0 || _atEnd.rssKb == 0)
        failures << QStringLiteral("a measurement is missing");
    if (kSanitized)
        print("memory judged", QStringLiteral("no: a sanitizer's allocator holds freed memory on purpose"));
    else if (growth > 1024)
        failures << QStringLiteral("memory grew by %1 KB after warm-up").arg(growth);
    if (_atEnd.fds > _atWarmup.fds)
        failures << QStringLiteral("open descriptors grew from %1 to %2").arg(_atWarmup.fds).arg(_atEnd.fds);
    if (_atEnd.threads > _atWarmup.threads)
        failures << QStringLiteral("threads grew from %1 to %2").arg(_atWarmup.threads).arg(_atEnd.threads);
    if (_servicesAtEnd > _servicesAtWarmup)
        failures
            << QStringLiteral("the back-end's services grew from %1 to %2").arg(_servicesAtWarmup).arg(_servicesAtEnd);
    if (sigBad || proofsBad)
        failures << QStringLiteral("the simulator refused %1 signatures and %2 proofs").arg(sigBad).arg(proofsBad);
    if (simNotifications != proofsOk)
        failures << QStringLiteral("%1 of %2 beats at the simulator were not verified")
                        .arg(simNotifications - proofsOk)
                        .arg(simNotifications);
    // Every beat the client saw answered reached the simulator; the only ones the client does not
    // report are those a drop cancelled in flight, at most one per drop.
    if (notifySent > simNotifications || simNotifications > notifySent + _drops)
        failures
            << QStringLiteral("the client sent %1 beats, the simulator saw %2").arg(notifySent).arg(simNotifications);
    if (notifySent == 0)
        failures << QStringLiteral("no beat was sent");
    if (_repeatedDialNames)
        failures << QStringLiteral("%1 dials reused a dial name").arg(_repeatedDialNames);
    if (_controlErrors)
        failures << QStringLiteral("%1 scenario switches were refused").arg(_controlErrors);

    for (const QString &f : failures)
        std::printf("FAIL: %s\n", qUtf8Printable(f));
    std::printf("%s\n", failures.isEmpty() ? "soak: PASS" : "soak: FAIL");
    return failures.isEmpty() ? 0 : 1;
}
