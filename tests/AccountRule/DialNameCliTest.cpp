// dorvik-cli dialname end to end: the cases of tests/data/dialnames.json as arguments in, one
// JSON object or an error out.

#include "support/TestData.h"

#include <QDateTime>

#include <gtest/gtest.h>

namespace {

using TestData::json;

TestSupport::ProgramRun runCli(const QStringList &args)
{
    return TestSupport::runProgram(QStringLiteral(DORVIK_CLI_PATH), QStringList{QStringLiteral("dialname")} + args);
}

// The options of one case; the time given drives the clock too.
QStringList argsOf(const json &c, qint64 time)
{
    QStringList args{QStringLiteral("--rules"), TestData::text(c, "rules"), QStringLiteral("--time"),
                     QString::number(time)};
    for (const char *option : {"key", "prefix", "suffix", "mac"}) {
        if (const auto value = TestData::opt(c, option))
            args << QStringLiteral("--") + QLatin1String(option) << *value;
    }
    return args << TestData::text(c, "account");
}

TEST(DialNameCli, PrintsDialNameAndKeptTime)
{
    const json data = TestData::load("dialnames.json");
    ASSERT_TRUE(data.is_object());
    for (const json &c : data.at("cases")) {
        if (c.at("account").is_null() || c.contains("callerTime"))
            continue; // the tool always has an account, and its time is the clock's
        SCOPED_TRACE(c.dump());
        const auto r = runCli(argsOf(c, data.at("clock")));
        EXPECT_EQ(r.exitCode, 0) << r.err.toStdString();
        const auto out = json::parse(r.out.toStdString(), nullptr, false);
        ASSERT_TRUE(out.is_object()) << r.out.toStdString();
        EXPECT_EQ(out.begin().key(), "dialName");
        EXPECT_EQ(out.value("dialName", std::string()), c.at("dialName"));
        EXPECT_EQ(out.value("time", qint64(-1)), c.at("time"));
    }
    // Without --time the dial time is now.
    const auto r =
        runCli({QStringLiteral("--rules"), QStringLiteral("timepinV2"), QStringLiteral("--key"), QStringLiteral("k"),
                QStringLiteral("--mac"), QStringLiteral("aabbccddeeff"), QStringLiteral("alice")});
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    const auto out = json::parse(r.out.toStdString(), nullptr, false);
    EXPECT_NEAR(double(out.value("time", qint64(0))), double(QDateTime::currentSecsSinceEpoch()), 60.0);
    EXPECT_EQ(out.value("dialName", std::string()).size(), std::string("alice").size() + 12);
}

TEST(DialNameCli, FailuresGoToStderrWithNonZeroExit)
{
    const json data = TestData::load("dialnames.json");
    std::vector<QStringList> bad = {{QStringLiteral("--rules"), QStringLiteral("timepin"), QStringLiteral("--time"),
                                     QStringLiteral("soon"), QStringLiteral("alice")},
                                    {QStringLiteral("--rules"), QStringLiteral("timepin")},
                                    {QStringLiteral("alice")}};
    for (const json &c : data.at("failures")) {
        if (!c.contains("account"))
            continue;
        QStringList args = argsOf(c, data.at("clock"));
        args[1] = QStringLiteral("suffix,timepinV2,prefix");
        bad.push_back(args);
    }
    for (const QStringList &args : bad) {
        SCOPED_TRACE(args.join(u' ').toStdString());
        const auto r = runCli(args);
        EXPECT_NE(r.exitCode, 0);
        EXPECT_TRUE(r.out.isEmpty()) << r.out.toStdString();
        EXPECT_FALSE(r.err.isEmpty());
    }
    const auto r = runCli({QStringLiteral("--rules"), QStringLiteral("timepinV2"), QStringLiteral("--key"),
                           QStringLiteral("k"), QStringLiteral("alice")});
    EXPECT_TRUE(r.err.contains("fatal error while, gen pinv2 faild")) << r.err.toStdString();
}

} // namespace
