// Dial names per second for each account rule on one core. Prints figures only; the goal is
// at least one million dial names per second per rule. Two rates are printed: per second of
// this thread's CPU time (the one-core figure, fair on a busy machine) and per second of wall
// time. The rule lists and their expected names are the known answers of the test suite
// (tests/data/dialnames.json): a rate is only printed for a list that gives the right name.
//
// Usage: bench_accountrule [seconds-per-rule]   (default 1)

#include "AccountRule/DVAccountRule.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QElapsedTimer>
#include <QFile>

#include <nlohmann/json.hpp>

#include <cstdio>
#include <ctime>

namespace {

using json = nlohmann::ordered_json;

struct Setup
{
    QString label;
    QStringList rules;
    std::optional<QString> prefix, suffix, key, mac;
    QString account;
    std::optional<QString> expected; // with the fixed clock only
    bool systemClock = false;
};

constexpr qint64 kClock = 1700000003;

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
    const std::shared_ptr<Clock> clock =
        setup.systemClock ? nullptr : std::make_shared<ManualClock>(QDateTime::fromSecsSinceEpoch(kClock, Qt::UTC));
    QElapsedTimer timer;
    timer.start();
    const double cpuStart = threadCpuSeconds();
    qint64 count = 0;
    qint64 checksum = 0;
    const qint64 limitNs = static_cast<qint64>(seconds * 1e9);
    while (timer.nsecsElapsed() < limitNs) {
        for (int i = 0; i < 1000; ++i) {
            qint64 time = kClock;
            // A rule is built fresh for every dial, as the controller does.
            DVAccountRule rule(setup.rules, setup.prefix, setup.suffix, setup.key, &time, setup.mac, clock);
            const std::optional<QString> name = rule.getAccountFromName(setup.account);
            checksum += name.value_or(QString()).size() + time;
            if (count == 0 && i == 0)
                *sample = name.value_or(QString());
        }
        count += 1000;
    }
    const double elapsed = static_cast<double>(timer.nsecsElapsed()) / 1e9;
    const double cpu = threadCpuSeconds() - cpuStart;
    if (checksum == 42)
        std::puts(""); // keeps the work observable
    return {static_cast<double>(count) / cpu, static_cast<double>(count) / elapsed};
}

std::optional<QString> opt(const json &c, const char *key)
{
    return c.contains(key) && !c.at(key).is_null()
               ? std::optional<QString>(QString::fromStdString(c.at(key).get<std::string>()))
               : std::nullopt;
}

std::vector<Setup> setups()
{
    std::vector<Setup> out;
    QFile file(QStringLiteral(DORVIK_TEST_DATA_DIR "/dialnames.json"));
    const QByteArray raw = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    const json data = json::parse(raw.constBegin(), raw.constEnd(), nullptr, false);
    if (data.is_object()) {
        for (const json &c : data.at("cases")) {
            if (c.at("account").is_null() || c.contains("callerTime"))
                continue; // a dial always has an account, dialled at the clock's time
            const QString rules = QString::fromStdString(c.at("rules").get<std::string>());
            out.push_back({QString::fromStdString(c.at("label").get<std::string>()),
                           rules.isEmpty() ? QStringList() : rules.split(u','), opt(c, "prefix"), opt(c, "suffix"),
                           opt(c, "key"), opt(c, "mac"), *opt(c, "account"), opt(c, "dialName")});
        }
    } else {
        std::fprintf(stderr, "no known answers in %s\n", qPrintable(file.fileName()));
    }
    const std::optional<QString> key = QStringLiteral("s3cr3t-key");
    const std::optional<QString> mac = QStringLiteral("AA:BB:CC:DD:EE:FF");
    const QString account = QStringLiteral("subscriber01@isp");
    for (const char *rule : {"timepin", "timepinV1", "timepinV3"})
        out.push_back({QLatin1String(rule) + QStringLiteral(" (system clock)"),
                       {QLatin1String(rule)},
                       std::nullopt,
                       std::nullopt,
                       key,
                       mac,
                       account,
                       std::nullopt,
                       true});
    out.push_back({QStringLiteral("prefix,timepinV1,suffix (system clock)"),
                   {QStringLiteral("prefix"), QStringLiteral("timepinV1"), QStringLiteral("suffix")},
                   QStringLiteral("pre-"),
                   QStringLiteral("@isp"),
                   key,
                   mac,
                   account,
                   std::nullopt,
                   true});
    return out;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const double seconds = argc > 1 ? QByteArray(argv[1]).toDouble() : 1.0;
    int wrong = 0;
    std::printf("%-56s %14s %14s  %s\n", "rules", "per CPU-s", "per wall-s", "sample dial name");
    for (const Setup &s : setups()) {
        QString sample;
        const Rates rate = measure(s, seconds, &sample);
        if (s.expected && sample != *s.expected) {
            std::printf("%-56s WRONG NAME \"%s\", expected \"%s\"\n", qPrintable(s.label), sample.toUtf8().constData(),
                        s.expected->toUtf8().constData());
            ++wrong;
            continue;
        }
        std::printf("%-56s %14.0f %14.0f  \"%s\"\n", qPrintable(s.label.left(56)), rate.perCpuSecond,
                    rate.perWallSecond, sample.toUtf8().constData());
    }
    return wrong == 0 ? 0 : 1;
}
