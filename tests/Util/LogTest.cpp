#include "Util/Log.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <thread>

namespace {

QStringList logFiles(const QString &dir)
{
    return QDir(dir).entryList({QStringLiteral("dorvik-*.log")}, QDir::Files, QDir::Name);
}

QString dayName(const QDateTime &t)
{
    return QStringLiteral("dorvik-%1.log").arg(t.toString(QStringLiteral("yyyy-MM-dd")));
}

QStringList linesOf(const QString &path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(f.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

class LogTest : public ::testing::Test
{
protected:
    void TearDown() override { Log::uninstall(); }
    QString dir = TestSupport::sandboxDir() + QStringLiteral("/logs-")
                  + QString::fromLatin1(::testing::UnitTest::GetInstance()->current_test_info()->name());
};

} // namespace

TEST_F(LogTest, KeepsSevenDailyFilesAcrossRunsAndGaps)
{
    const QDateTime start = QDateTime::fromString(QStringLiteral("2024-03-01T08:00:00Z"), Qt::ISODate);
    auto clock = std::make_shared<ManualClock>(start);
    // Days on which the client runs; a new run (a new install) starts after each gap.
    const struct
    {
        int day;
        bool newRun;
    } runs[] = {{0, true},   {1, false},  {2, false},  {5, true},  {6, false},  {7, false}, {11, true},
                {12, false}, {13, false}, {14, false}, {20, true}, {21, false}, {22, false}};
    QStringList written;
    for (const auto &r : runs) {
        clock->set(start.addDays(r.day));
        if (r.newRun)
            Log::install(dir, clock, 7);
        DVLOG() << "day " << r.day;
        clock->advanceSecs(3600);
        DVLOG() << "day " << r.day << " later";
        written.append(dayName(clock->now()));
        const QStringList files = logFiles(dir);
        EXPECT_LE(files.size(), 7) << "day " << r.day;
        EXPECT_EQ(files.last(), written.last());
    }
    // The newest seven days survive, each with its own two lines.
    EXPECT_EQ(logFiles(dir), written.mid(written.size() - 7));
    const QStringList last = linesOf(QDir(dir).filePath(written.last()));
    ASSERT_EQ(last.size(), 2);
    EXPECT_TRUE(last[0].endsWith(QStringLiteral("| day 22")));
    EXPECT_TRUE(last[1].endsWith(QStringLiteral("| day 22 later")));
}

TEST_F(LogTest, EveryLineNamesFileLineAndFunction)
{
    auto clock =
        std::make_shared<ManualClock>(QDateTime::fromString(QStringLiteral("2024-06-01T00:00:00Z"), Qt::ISODate));
    Log::install(dir, clock);
    const int line = __LINE__ + 1;
    DVLOG() << "from the main thread";
    std::thread([] { DVLOG() << "from a worker " << 42; }).join();
    qWarning("a library warning");
    const QStringList lines = linesOf(QDir(dir).filePath(logFiles(dir).value(0)));
    ASSERT_EQ(lines.size(), 3);
    const QRegularExpression format(
        QStringLiteral("^2024-06-01 00:00:00\\.000 \\[E\\] LogTest\\.cpp:(\\d+) (.+) \\| (.+)$"));
    const QString texts[] = {QStringLiteral("from the main thread"), QStringLiteral("from a worker 42"),
                             QStringLiteral("a library warning")};
    for (int i = 0; i < 3; ++i) {
        const auto m = format.match(lines[i]);
        ASSERT_TRUE(m.hasMatch()) << lines[i].toStdString();
        EXPECT_EQ(m.captured(3), texts[i]);
        EXPECT_TRUE(m.captured(2).contains(QStringLiteral("EveryLineNamesFileLineAndFunction")))
            << lines[i].toStdString();
    }
    EXPECT_EQ(format.match(lines[0]).captured(1).toInt(), line);
}
