// Soak run: the controller with the simulated dialing back-end against a dorvik-sim child
// process for a simulated day (heartbeat pauses shortened, so the day runs in minutes), with
// link drops, redials and the simulator's fault scenarios coming and going at random (seeded).
// Prints beats sent and verified, faults met, memory, descriptors and threads; exits 1 on
// growth after warm-up or on any beat the simulator did not verify.
#include "SoakRun.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QTemporaryDir>

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdio>

namespace {

QtMessageHandler g_previous = nullptr;
bool g_verbose = false;
std::atomic<quint64> g_logLines{0};

// The client logs every fault it meets; a day of them is counted, and shown only on request.
void countLogLine(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    ++g_logLines;
    if (g_verbose && g_previous)
        g_previous(type, context, message);
}

} // namespace

int main(int argc, char **argv)
{
    // Preferences and logs of the run stay in a directory of its own.
    QTemporaryDir home;
    if (!home.isValid())
        return 2;
    for (const char *name : {"HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_DATA_HOME"})
        qputenv(name, home.path().toUtf8());

    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("A simulated day of dorvik against dorvik-sim"));
    parser.addHelpOption();
    const QCommandLineOption days(QStringLiteral("days"), QStringLiteral("simulated days (default 1)"),
                                  QStringLiteral("n"), QStringLiteral("1"));
    const QCommandLineOption minutes(QStringLiteral("minutes"), QStringLiteral("simulated minutes instead of days"),
                                     QStringLiteral("n"));
    const QCommandLineOption seed(QStringLiteral("seed"), QStringLiteral("random seed (default 1)"),
                                  QStringLiteral("n"), QStringLiteral("1"));
    const QCommandLineOption scale(QStringLiteral("scale"),
                                   QStringLiteral("simulated seconds per real second (default 480)"),
                                   QStringLiteral("n"), QStringLiteral("480"));
    const QCommandLineOption warmup(QStringLiteral("warmup"), QStringLiteral("simulated warm-up minutes (default 60)"),
                                    QStringLiteral("n"), QStringLiteral("60"));
    const QCommandLineOption drops(QStringLiteral("drop-every"),
                                   QStringLiteral("mean simulated minutes between link drops (default 30)"),
                                   QStringLiteral("n"), QStringLiteral("30"));
    const QCommandLineOption faults(QStringLiteral("fault-every"),
                                    QStringLiteral("mean simulated minutes between faults (default 45)"),
                                    QStringLiteral("n"), QStringLiteral("45"));
    const QCommandLineOption faultLength(QStringLiteral("fault-length"),
                                         QStringLiteral("mean simulated minutes a fault lasts (default 10)"),
                                         QStringLiteral("n"), QStringLiteral("10"));
    const QCommandLineOption arenas(
        QStringLiteral("arenas"),
        QStringLiteral("malloc arenas (default 2; 0: the C library's choice, up to 8 per core)"), QStringLiteral("n"),
        QStringLiteral("2"));
    const QCommandLineOption faultList(QStringLiteral("faults"),
                                       QStringLiteral("service=scenario pairs to switch on, comma-separated"),
                                       QStringLiteral("list"));
    const QCommandLineOption sim(QStringLiteral("sim"), QStringLiteral("dorvik-sim program"), QStringLiteral("path"),
                                 QStringLiteral(DORVIK_SIM));
    const QCommandLineOption config(QStringLiteral("config"), QStringLiteral("plain JSON configuration"),
                                    QStringLiteral("file"), QStringLiteral(DORVIK_DEMO_CONFIG));
    const QCommandLineOption verbose(QStringLiteral("verbose"), QStringLiteral("show the client's log lines"));
    parser.addOptions(
        {days, minutes, seed, scale, warmup, drops, faults, faultLength, faultList, arenas, sim, config, verbose});
    parser.process(app);

    SoakSettings settings;
    settings.simProgram = parser.value(sim);
    settings.demoConfig = parser.value(config);
    settings.days = parser.isSet(minutes) ? parser.value(minutes).toDouble() / 1440.0 : parser.value(days).toDouble();
    settings.seed = parser.value(seed).toUInt();
    settings.scale = std::max(1, parser.value(scale).toInt());
    settings.warmupMinutes = std::max(1, parser.value(warmup).toInt());
    settings.dropEveryMinutes = std::max(1, parser.value(drops).toInt());
    settings.faultEveryMinutes = std::max(1, parser.value(faults).toInt());
    settings.faultMinutes = std::max(1, parser.value(faultLength).toInt());
    if (parser.isSet(faultList))
        settings.faults = parser.value(faultList).split(QLatin1Char(','), Qt::SkipEmptyParts);
    settings.verbose = parser.isSet(verbose);
    if (settings.days <= 0 || settings.warmupMinutes * 60.0 >= settings.days * 86400) {
        std::fprintf(stderr, "soak: the run must be longer than its warm-up\n");
        return 2;
    }
    // Every operation of the controller runs on a thread of its own, and each new thread may
    // open another malloc arena (up to 8 per core): their free space stays resident, and would
    // hide what the program itself holds. Two arenas by default; --arenas 0 shows the default.
    const int arenaCount = parser.value(arenas).toInt();
    if (arenaCount > 0)
        mallopt(M_ARENA_MAX, arenaCount);
    std::printf("%-34s %s\n", "malloc arenas",
                arenaCount > 0 ? qPrintable(QString::number(arenaCount)) : "C library default");
    g_verbose = settings.verbose;
    g_previous = qInstallMessageHandler(countLogLine);

    int code = 0;
    {
        SoakRun run(settings);
        code = run.run();
    }
    std::printf("%-34s %llu\n", "client log lines", static_cast<unsigned long long>(g_logLines.load()));
    return code;
}
