#pragma once

#include "ProcessFigures.h"

#include "App/DVAppHost.h"
#include "Bcom/BcomOperationData.h"

#include <QElapsedTimer>
#include <QNetworkAccessManager>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

#include <nlohmann/json.hpp>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <set>

class ManualClock;
class QEventLoop;
class SimulatedPlatform;

struct SoakSettings
{
    QString simProgram; // dorvik-sim
    QString demoConfig; // plain JSON configuration to start from (servers move to free ports)
    QString area = QStringLiteral("1001");
    double days = 1.0; // simulated days
    quint32 seed = 1;
    int scale = 480;           // simulated seconds per real second (and heartbeat pauses divided by it)
    int warmupMinutes = 60;    // simulated; memory, descriptors and threads are compared from here
    int dropEveryMinutes = 30; // mean simulated time between link drops
    int redialAfterSeconds = 30;
    int faultEveryMinutes = 45; // mean simulated time between faults
    int faultMinutes = 10;      // mean simulated length of a fault
    // service=scenario pairs switched on at random.
    QStringList faults = {QStringLiteral("heart=nak-storm"),        QStringLiteral("heart=reject"),
                          QStringLiteral("heart=http500"),          QStringLiteral("heart=garbage"),
                          QStringLiteral("heart=lowercase-offer"),  QStringLiteral("business=http500"),
                          QStringLiteral("business=wrong-resptype")};
    bool verbose = false;
};

// One long run of the controller with the simulated dialing back-end against a dorvik-sim
// child process: the link is dropped by the back-end's peer and redialled now and then, the
// simulator's fault scenarios come and go, and the heartbeat keeps beating with its pauses
// shortened by `scale`. Time is simulated time: real elapsed time multiplied by `scale`.
class SoakRun : public QObject
{
    Q_OBJECT
public:
    explicit SoakRun(SoakSettings settings);
    ~SoakRun() override;

    // Runs to the end and prints the report; the process's exit code.
    int run();

private:
    enum class Link { Down, Dialing, Up };
    enum class Checkpoint { None, Warmup, End };

    struct Beats
    {
        std::map<QString, quint64> sent;    // by request type
        std::map<QString, quint64> replies; // by reply type ("(none)": no readable reply)
        quint64 notOk = 0;                  // HTTP status other than 200
        quint64 transportErrors = 0;
        quint64 chainsStopped = 0;
    };

    bool prepareConfiguration(QString *error);
    bool startSimulator(QString *error);
    void buildController();
    qint64 simSeconds() const;
    void at(qint64 simSecs, std::function<void()> work);

    void dial();
    void drop();
    void scheduleDrop();
    void scheduleFault();
    void switchScenario(const QString &service, const QString &scenario);
    void onState(qint64 state);
    void onExchange(const BcomExchange &exchange);

    void requestCheckpoint(Checkpoint kind);
    void measure();
    void finish();
    void onControlReply(QNetworkReply *reply);
    int report();

    SoakSettings _settings;
    QTemporaryDir _dir;
    QString _plainConfig;
    quint16 _acPort = 0;
    quint16 _controlPort = 0;
    QProcess _sim;
    QNetworkAccessManager _net;
    std::unique_ptr<DVAppHost> _host;
    SimulatedPlatform *_platform = nullptr; // owned by the controller; touched on its thread only
    std::shared_ptr<ManualClock> _dialClock;
    // Touched on the controller's thread only.
    qint64 _lastDialSecs = 0;
    std::set<QString> _namesTried;
    QEventLoop *_loop = nullptr;

    QElapsedTimer _elapsed;
    std::mt19937 _dropRandom, _faultRandom;
    Link _link = Link::Down;
    Checkpoint _checkpoint = Checkpoint::None;
    bool _ending = false;
    std::map<QString, QString> _activeFaults; // service -> scenario

    // Figures.
    ProcessFigures _atStart, _atWarmup, _atEnd;
    int _servicesAtWarmup = -1, _servicesAtEnd = -1;
    quint64 _dials = 0, _dialFailures = 0, _connects = 0, _drops = 0;
    std::set<QString> _dialNames;
    quint64 _repeatedDialNames = 0;
    std::map<QString, quint64> _faultsSwitched;
    quint64 _controlErrors = 0;
    nlohmann::ordered_json _simStats;
    qint64 _realMs = 0;

    mutable std::mutex _beatsMutex; // exchanges are reported on the heartbeat's threads
    Beats _beats;
};
