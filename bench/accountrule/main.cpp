// Dial names per second for each account rule on one core. Prints figures only; the goal is
// at least one million dial names per second per rule. Two rates are printed: per second of
// this thread's CPU time (the one-core figure, fair on a busy machine) and per second of wall
// time.
//
// Usage: bench_accountrule [seconds-per-rule]   (default 1)

#include "AccountRule/DVAccountRule.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QElapsedTimer>

#include <cstdio>
#include <ctime>

namespace {

struct Setup
{
    const char *label;
    QStringList rules;
    bool systemClock;
};

double threadCpuSeconds()
{
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

struct Rates
{
    double perCpuSecond;
    double perWallSecond;
};

Rates measure(const Setup &setup, double seconds, QString *sample)
{
    const auto fixed = std::make_shared<ManualClock>(QDateTime::fromSecsSinceEpoch(1700000003, Qt::UTC));
    const std::shared_ptr<Clock> clock = setup.systemClock ? nullptr : fixed;
    const std::optional<QString> prefix = QStringLiteral("pre-");
    const std::optional<QString> suffix = QStringLiteral("@isp");
    const std::optional<QString> key = QStringLiteral("s3cr3t-key");
    const std::optional<QString> mac = QStringLiteral("AA:BB:CC:DD:EE:FF");
    const QString account = QStringLiteral("subscriber01@isp");

    QElapsedTimer timer;
    timer.start();
    const double cpuStart = threadCpuSeconds();
    qint64 count = 0;
    qint64 checksum = 0;
    const qint64 limitNs = static_cast<qint64>(seconds * 1e9);
    while (timer.nsecsElapsed() < limitNs) {
        for (int i = 0; i < 1000; ++i) {
            qint64 time = 1700000003;
            // A rule is built fresh for every dial, as the controller does.
            DVAccountRule rule(setup.rules, prefix, suffix, key, &time, mac, clock);
            const std::optional<QString> name = rule.getAccountFromName(account);
            checksum += name->size() + time;
            if (count == 0 && i == 0)
                *sample = *name;
        }
        count += 1000;
    }
    const double elapsed = static_cast<double>(timer.nsecsElapsed()) / 1e9;
    const double cpu = threadCpuSeconds() - cpuStart;
    if (checksum == 42)
        std::puts(""); // keeps the work observable
    return {static_cast<double>(count) / cpu, static_cast<double>(count) / elapsed};
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const double seconds = argc > 1 ? QByteArray(argv[1]).toDouble() : 1.0;
    const Setup setups[] = {
        {"timepin", {QStringLiteral("timepin")}, false},
        {"timepinV1", {QStringLiteral("timepinV1")}, false},
        {"timepinV2", {QStringLiteral("timepinV2")}, false},
        {"timepinV3", {QStringLiteral("timepinV3")}, false},
        {"prefix", {QStringLiteral("prefix")}, false},
        {"suffix", {QStringLiteral("suffix")}, false},
        {"timepin (system clock)", {QStringLiteral("timepin")}, true},
        {"timepinV1 (system clock)", {QStringLiteral("timepinV1")}, true},
        {"timepinV3 (system clock)", {QStringLiteral("timepinV3")}, true},
        {"prefix,timepinV1,suffix",
         {QStringLiteral("prefix"), QStringLiteral("timepinV1"), QStringLiteral("suffix")},
         true},
    };
    std::printf("%-28s %14s %14s  %s\n", "rules", "per CPU-s", "per wall-s", "sample dial name");
    for (const Setup &s : setups) {
        QString sample;
        const Rates rate = measure(s, seconds, &sample);
        std::printf("%-28s %14.0f %14.0f  \"%s\"\n", s.label, rate.perCpuSecond, rate.perWallSecond,
                    sample.toUtf8().constData());
    }
    return 0;
}
