// dorvik-cli dialname end to end: arguments in, one JSON object or an error out.

#include <QDateTime>
#include <QProcess>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace {

struct CliRun
{
    int code;
    QByteArray out;
    QByteArray err;
};

CliRun runCli(const QStringList &args)
{
    QProcess p;
    p.start(QStringLiteral(DORVIK_CLI_PATH), QStringList{QStringLiteral("dialname")} + args);
    EXPECT_TRUE(p.waitForFinished(30000));
    return {p.exitCode(), p.readAllStandardOutput(), p.readAllStandardError()};
}

TEST(DialNameCli, PrintsDialNameAndKeptTime)
{
    struct Case
    {
        QStringList args;
        std::string dialName;
        qint64 time;
    };
    const Case cases[] = {
        {{QStringLiteral("--rules"), QStringLiteral("timepin,prefix"), QStringLiteral("--key"),
          QStringLiteral("secret"), QStringLiteral("--prefix"), QStringLiteral("pre-"), QStringLiteral("--time"),
          QStringLiteral("1700000003"), QStringLiteral("alice@isp")},
         "pre-.1AW, 8falice@isp",
         340000000},
        {{QStringLiteral("--rules"), QStringLiteral("timepinV2"), QStringLiteral("--key"), QStringLiteral("secret"),
          QStringLiteral("--mac"), QStringLiteral("AA:BB:CC:DD:EE:FF"), QStringLiteral("--time"),
          QStringLiteral("1700000003"), QStringLiteral("alice@isp")},
         "koV7iyUglDehalice@isp",
         1700000003},
        {{QStringLiteral("--rules"), QStringLiteral("timepinV1"), QStringLiteral("--key"), QStringLiteral("密钥"),
          QStringLiteral("--time"), QStringLiteral("1700000003"), QStringLiteral("张三@isp")},
         ".1AW, f8张三@isp",
         340000000},
        {{QStringLiteral("--rules"), QStringLiteral(""), QStringLiteral("--time"), QStringLiteral("5"),
          QStringLiteral("alice")},
         "alice",
         5},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.args.join(u' ').toStdString());
        const CliRun r = runCli(c.args);
        EXPECT_EQ(r.code, 0) << r.err.toStdString();
        const auto json = nlohmann::ordered_json::parse(r.out.toStdString(), nullptr, false);
        ASSERT_TRUE(json.is_object()) << r.out.toStdString();
        EXPECT_EQ(json.value("dialName", std::string()), c.dialName);
        EXPECT_EQ(json.value("time", qint64(-1)), c.time);
        EXPECT_EQ(json.begin().key(), "dialName");
    }
}

TEST(DialNameCli, FailuresGoToStderrWithNonZeroExit)
{
    const QStringList badArgs[] = {
        {QStringLiteral("--rules"), QStringLiteral("timepinV2"), QStringLiteral("--key"), QStringLiteral("secret"),
         QStringLiteral("--mac"), QStringLiteral("AA:BB:CC:DD:EE:FF "), QStringLiteral("alice")},
        {QStringLiteral("--rules"), QStringLiteral("timepin"), QStringLiteral("--time"), QStringLiteral("soon"),
         QStringLiteral("alice")},
        {QStringLiteral("--rules"), QStringLiteral("timepin")},
        {QStringLiteral("alice")},
    };
    for (const QStringList &args : badArgs) {
        SCOPED_TRACE(args.join(u' ').toStdString());
        const CliRun r = runCli(args);
        EXPECT_NE(r.code, 0);
        EXPECT_TRUE(r.out.isEmpty()) << r.out.toStdString();
        EXPECT_FALSE(r.err.isEmpty());
    }
    const CliRun r = runCli({QStringLiteral("--rules"), QStringLiteral("timepinV2"), QStringLiteral("--key"),
                             QStringLiteral("k"), QStringLiteral("alice")});
    EXPECT_TRUE(r.err.contains("fatal error while, gen pinv2 faild")) << r.err.toStdString();
}

TEST(DialNameCli, DefaultTimeIsNow)
{
    const CliRun r =
        runCli({QStringLiteral("--rules"), QStringLiteral("timepinV2"), QStringLiteral("--key"), QStringLiteral("k"),
                QStringLiteral("--mac"), QStringLiteral("aabbccddeeff"), QStringLiteral("alice")});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    const auto json = nlohmann::ordered_json::parse(r.out.toStdString(), nullptr, false);
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    EXPECT_NEAR(double(json.value("time", qint64(0))), double(now), 60.0);
    EXPECT_EQ(json.value("dialName", std::string()).size(), std::string("alice").size() + 12);
}

} // namespace
