// How often the windowed client wakes up while it sits online and idle, and what CPU time that
// costs, beside a bare Qt Widgets window measured the same way for the same time.
//
// The online run is the real main window over the simulated dialing back-end, connected to a
// `dorvik-sim` child (heartbeat, business, access concentrator, SMS) on the demo ports
// 18080-18087, so the heartbeat really runs. Each run is a child process of its own; it counts
// the dispatcher's "awake" signals of the main thread (several per wake-up), the main
// thread's voluntary context switches (each one a block and a wake-up, the kernel's counter) and
// the process's user + system CPU time over the measured window. With DORVIK_BENCH_TRACE set a
// child also lists which objects got the main thread's timer and queued events.
//
//   bench_ui_online_idle [--seconds 60] [--web]      (--web: with the provider page)
#include "App/ConnectionSetup.h"
#include "App/DVAppHost.h"
#include "Conf/Conf.h"
#include "OnlinePage.h"
#include "baseWindow.h"

#include <QAbstractEventDispatcher>
#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTimer>

#include <sys/resource.h>

#include <cstdio>
#include <functional>
#include <map>

namespace {

struct Figures
{
    qint64 awake = 0;
    qint64 switches = 0;
    double cpuMs = 0;
};

// The main thread's voluntary context switches: each time it blocked waiting for something and
// was woken again (the kernel's counter).
qint64 contextSwitches()
{
    QFile status(QStringLiteral("/proc/self/task/%1/status").arg(QCoreApplication::applicationPid()));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : status.readAll().split('\n'))
        if (line.startsWith("voluntary_ctxt_switches:"))
            return line.split(':').value(1).trimmed().toLongLong();
    return 0;
}

double cpuMs()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto ms = [](const timeval &t) { return t.tv_sec * 1000.0 + t.tv_usec / 1000.0; };
    return ms(usage.ru_utime) + ms(usage.ru_stime);
}

void spin(int ms)
{
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < ms)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, int(ms - clock.elapsed()));
}

// With DORVIK_BENCH_TRACE set: which objects get the main thread's timer and posted events.
class EventTrace : public QObject
{
public:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Timer || event->type() >= QEvent::User || event->type() == QEvent::MetaCall)
            ++counts[QStringLiteral("%1 %2")
                         .arg(QString::fromLatin1(watched->metaObject()->className()))
                         .arg(int(event->type()))];
        return false;
    }
    std::map<QString, int> counts;
};

// Waits, then counts for `seconds`.
Figures measure(int seconds)
{
    spin(3000); // warm-up: first paint, the connection's first tasks
    qint64 awake = 0;
    auto *dispatcher = QAbstractEventDispatcher::instance();
    const auto c = QObject::connect(dispatcher, &QAbstractEventDispatcher::awake, [&awake] { ++awake; });
    Figures start{0, contextSwitches(), cpuMs()};
    EventTrace trace;
    const bool tracing = !qEnvironmentVariableIsEmpty("DORVIK_BENCH_TRACE");
    if (tracing)
        qApp->installEventFilter(&trace);
    QEventLoop loop;
    QTimer::singleShot(seconds * 1000, &loop, &QEventLoop::quit);
    loop.exec();
    QObject::disconnect(c);
    for (const auto &[what, n] : trace.counts)
        std::fprintf(stderr, "%6d %s\n", n, qPrintable(what));
    return {awake, contextSwitches() - start.switches, cpuMs() - start.cpuMs};
}

int runBare(int seconds)
{
    QWidget window;
    window.resize(900, 610);
    window.show();
    const Figures f = measure(seconds);
    std::printf("%lld %lld %.1f\n", f.awake, f.switches, f.cpuMs);
    return 0;
}

int runOnline(int seconds, bool web)
{
    QProcess sim;
    sim.start(QStringLiteral(DORVIK_SIM),
              {QStringLiteral("--config"), QStringLiteral(DORVIK_DEMO_CONFIG), QStringLiteral("--area"),
               QStringLiteral("1001"), QStringLiteral("--only"), QStringLiteral("heart,business,ac,sms")});
    if (!sim.waitForReadyRead(20000)) {
        std::fprintf(stderr, "dorvik-sim did not start (demo ports 18080-18087 busy?)\n");
        return 1;
    }
    QFile demo(QStringLiteral(DORVIK_DEMO_CONFIG));
    demo.open(QIODevice::ReadOnly);
    Conf::setShared(Conf::fromJson(demo.readAll()));
    ConnectionSetup::Settings settings;
    settings.backend = QStringLiteral("simulated");
    settings.area = QStringLiteral("1001");
    settings.simInterfaces = 1;
    QString error;
    if (!ConnectionSetup::loadConfiguration(settings, &error)) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return 1;
    }
    int rc = 0;
    {
        DVAppHost host([&] { return ConnectionSetup::makeApp(settings, &error); });
        baseWindow window(&host);
        wifiViewController::Options options;
        options.webPage = web;
        window.setOnlineOptions(options);
        window.showLogIn();
        window.show();
        host.dial(QStringLiteral("demo"), QStringLiteral("demo123"), 0, [](bool, const DVError &) {});
        QElapsedTimer clock;
        clock.start();
        while (!window.onlineView() && clock.elapsed() < 20000)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        if (!window.onlineView()) {
            std::fprintf(stderr, "the link did not come up\n");
            rc = 1;
        } else {
            const Figures f = measure(seconds);
            std::printf("%lld %lld %.1f\n", f.awake, f.switches, f.cpuMs);
        }
        host.stopConn();
        host.waitForIdle();
    }
    sim.terminate();
    sim.waitForFinished(5000);
    return rc;
}

} // namespace

int main(int argc, char **argv)
{
    QStringList args;
    for (int i = 1; i < argc; ++i)
        args << QString::fromLocal8Bit(argv[i]);
    const int seconds = args.contains(QStringLiteral("--seconds"))
                            ? args.value(args.indexOf(QStringLiteral("--seconds")) + 1).toInt()
                            : 60;
    const bool web = args.contains(QStringLiteral("--web"));
    if (args.contains(QStringLiteral("--child-bare")) || args.contains(QStringLiteral("--child-online"))) {
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
            qputenv("QT_QPA_PLATFORM", "offscreen");
        OnlinePage::prepareApplication();
        QApplication app(argc, argv);
        return args.contains(QStringLiteral("--child-bare")) ? runBare(seconds) : runOnline(seconds, web);
    }

    QCoreApplication app(argc, argv);
    std::printf("idle for %d s after a 3 s warm-up%s\n", seconds, web ? " (provider page shown)" : "");
    std::printf("%-16s %14s %14s %14s %14s %12s %12s\n", "program", "awake signals", "per second", "main blocked",
                "blocked/s", "CPU ms", "CPU %");
    for (const char *mode : {"--child-bare", "--child-online"}) {
        QProcess child;
        QStringList childArgs{QString::fromLatin1(mode), QStringLiteral("--seconds"), QString::number(seconds)};
        if (web)
            childArgs << QStringLiteral("--web");
        child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        child.start(QCoreApplication::applicationFilePath(), childArgs);
        child.waitForFinished((seconds + 60) * 1000);
        const QList<QByteArray> f = child.readAllStandardOutput().trimmed().split(' ');
        if (child.exitCode() != 0 || f.size() != 3) {
            std::fprintf(stderr, "%s failed\n", mode);
            return 1;
        }
        const double awake = f[0].toDouble(), cpu = f[2].toDouble();
        const double blocked = f[1].toDouble();
        std::printf("%-16s %14.0f %14.2f %14.0f %14.2f %12.1f %12.3f\n", mode + 8, awake, awake / seconds, blocked,
                    blocked / seconds, cpu, cpu / (seconds * 10.0));
    }
    return 0;
}
