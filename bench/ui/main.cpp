// Prints how long the windowed client takes from launch to its first painted frame and how
// much memory it holds then, beside the same figures of a bare Qt Widgets window, run
// alternately on the offscreen platform, with medians and ratios.
//
//   bench_ui_startup [--runs N] [--dorvik PATH] [--bare PATH]
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <vector>

namespace {

struct Sample
{
    double launchMs = 0; // from starting the process to reading its report
    qint64 probeMs = 0;  // from the process's own start to its first paint, as it measured
    qint64 rssKb = 0;
};

struct Program
{
    const char *label;
    QString path;
    QStringList arguments;
    std::vector<Sample> samples;
};

std::optional<Sample> runOnce(const Program &program, QString *failure)
{
    // A fresh home each time: no preferences, no logs from an earlier run.
    QTemporaryDir home;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    env.insert(QStringLiteral("DORVIK_FIRST_PAINT_EXIT"), QStringLiteral("1"));
    env.insert(QStringLiteral("HOME"), home.path());
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.filePath(QStringLiteral("config")));
    env.insert(QStringLiteral("XDG_DATA_HOME"), home.filePath(QStringLiteral("data")));
    env.insert(QStringLiteral("XDG_CACHE_HOME"), home.filePath(QStringLiteral("cache")));

    QProcess process;
    process.setProcessEnvironment(env);
    process.setProcessChannelMode(QProcess::SeparateChannels);
    process.setStandardErrorFile(QProcess::nullDevice());
    QElapsedTimer clock;
    clock.start();
    process.start(program.path, program.arguments);
    if (!process.waitForStarted(10000)) {
        *failure = QStringLiteral("cannot start: ") + process.errorString();
        return std::nullopt;
    }
    QByteArray output;
    std::optional<double> reportedAt;
    while (!reportedAt && clock.elapsed() < 30000) {
        if (!process.waitForReadyRead(1000) && process.state() == QProcess::NotRunning)
            break;
        output += process.readAllStandardOutput();
        if (output.contains("first-paint-ms") && output.contains('\n'))
            reportedAt = double(clock.nsecsElapsed()) / 1e6;
    }
    if (!process.waitForFinished(10000)) {
        process.kill();
        process.waitForFinished(2000);
    }
    output += process.readAllStandardOutput();
    const qsizetype at = output.indexOf("first-paint-ms");
    if (!reportedAt || at < 0) {
        *failure = QStringLiteral("no first-paint report (does the program call installFirstPaintProbe?)");
        return std::nullopt;
    }
    const QList<QByteArray> fields = output.mid(at).split('\n').front().simplified().split(' ');
    if (fields.size() < 4) {
        *failure = QStringLiteral("unreadable report: ") + QString::fromUtf8(output.mid(at));
        return std::nullopt;
    }
    return Sample{*reportedAt, fields[1].toLongLong(), fields[3].toLongLong()};
}

template<typename T> double median(std::vector<T> values)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return n % 2 ? double(values[n / 2]) : (double(values[n / 2 - 1]) + double(values[n / 2])) / 2;
}

void printSummary(const Program &program)
{
    std::vector<double> launch;
    std::vector<qint64> probe, rss;
    for (const Sample &s : program.samples) {
        launch.push_back(s.launchMs);
        probe.push_back(s.probeMs);
        rss.push_back(s.rssKb);
    }
    std::printf("%-8s median: launch-to-first-paint %.1f ms, process-start-to-first-paint %.0f ms, rss %.0f KiB\n",
                program.label, median(launch), median(probe), median(rss));
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    int runs = 10;
    Program dorvik{
        "dorvik",
        QStringLiteral(DORVIK_PROGRAM),
        {QStringLiteral("--backend"), QStringLiteral("simulated"), QStringLiteral("--area"), QStringLiteral("1001")},
        {}};
    Program bare{"bare", QStringLiteral(BARE_WINDOW_PROGRAM), {}, {}};
    const QStringList args = app.arguments();
    for (qsizetype i = 1; i + 1 < args.size(); i += 2) {
        if (args[i] == QLatin1String("--runs"))
            runs = std::max(1, args[i + 1].toInt());
        else if (args[i] == QLatin1String("--dorvik"))
            dorvik.path = args[i + 1];
        else if (args[i] == QLatin1String("--bare"))
            bare.path = args[i + 1];
    }

    const bool haveDorvik = QFileInfo(dorvik.path).isExecutable();
    if (!haveDorvik)
        std::printf("dorvik not found at %s: build the target dorvik first; measuring the bare window only\n",
                    qPrintable(dorvik.path));

    std::printf("%d runs each, offscreen platform, alternating order\n", runs);
    for (int run = 0; run < runs; ++run) {
        std::vector<Program *> order = {&dorvik, &bare};
        if (run % 2)
            std::swap(order[0], order[1]);
        for (Program *program : order) {
            if (program == &dorvik && !haveDorvik)
                continue;
            QString failure;
            const std::optional<Sample> sample = runOnce(*program, &failure);
            if (!sample) {
                std::printf("%s: run %d failed: %s\n", program->label, run + 1, qPrintable(failure));
                return 1;
            }
            program->samples.push_back(*sample);
            std::printf("run %2d %-8s launch-to-first-paint %7.1f ms  process-start %5lld ms  rss %7lld KiB\n", run + 1,
                        program->label, sample->launchMs, static_cast<long long>(sample->probeMs),
                        static_cast<long long>(sample->rssKb));
        }
    }

    printSummary(bare);
    if (!haveDorvik)
        return 2;
    printSummary(dorvik);
    const auto ratio = [](double a, double b) { return b > 0 ? a / b : 0.0; };
    std::vector<double> dl, bl, dr, br;
    for (const Sample &s : dorvik.samples) {
        dl.push_back(s.launchMs);
        dr.push_back(double(s.rssKb));
    }
    for (const Sample &s : bare.samples) {
        bl.push_back(s.launchMs);
        br.push_back(double(s.rssKb));
    }
    std::printf("ratio dorvik/bare: time to first paint %.2f, resident memory %.2f\n", ratio(median(dl), median(bl)),
                ratio(median(dr), median(br)));
    return 0;
}
