// A link left running, end to end on a private session bus: dorvik-sim's access concentrator
// drops the link and later refuses, `dorvik-cli connect --redial` comes back with fresh dial
// names and stops after the refusals; the clock guard against a provider whose clock is off;
// `dorvik-cli status` and `token` against the running connection; and `connect` refusing an
// interface the windowed program holds.

#include "CliSimFixture.h"

#include "App/DorvikBus.h"

#include "support/TestSupport.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <csignal>

#include <signal.h>

namespace {

// Runs dorvik-cli to its end: exit code and stdout.
std::pair<int, QByteArray> runCli(const QStringList &args)
{
    const auto r = TestSupport::runProgram(QStringLiteral(DORVIK_CLI), args);
    return {r.exitCode, r.out};
}

class LinkEndToEnd : public CliSimTest
{
protected:
    void SetUp() override
    {
        ASSERT_FALSE(qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS")) << "run on a private session bus";
        CliSimTest::SetUp();
    }

    std::vector<std::string> dialNames() const
    {
        std::vector<std::string> names;
        for (const auto &l : cli->lines())
            if (isEvent(l, "dial"))
                names.push_back(l.value("dialName", ""));
        return names;
    }
};

TEST_F(LinkEndToEnd, RedialsWithFreshNamesAfterDropsThenStopsAfterRefusals)
{
    // Sessions end after 2 s; after two sessions the concentrator refuses everything.
    startSim({QStringLiteral("--scenario"), QStringLiteral("ac=drop:2:2")});
    startClient({QStringLiteral("--redial")});
    ASSERT_TRUE(cli->waitForLine([](const json &l) { return isState(l, 2); }, 20000))
        << cli->standardError().toStdString();

    // Meanwhile `dorvik-cli status` reads the running connection, and its report holds none of
    // the secrets: password, dial name, keys.
    const auto [code, raw] = runCli({QStringLiteral("status")});
    ASSERT_EQ(code, 0) << raw.toStdString();
    const json status = json::parse(raw.toStdString(), nullptr, false);
    ASSERT_TRUE(status.is_object()) << raw.toStdString();
    EXPECT_EQ(status["state"], "connected");
    EXPECT_EQ(status["interface"], "eth0");
    EXPECT_EQ(status["lastDial"]["length"].get<size_t>(), dialNames().at(0).size());
    EXPECT_EQ(status["redial"]["enabled"], true);
    const std::string text = raw.toStdString();
    for (const std::string &secret :
         {std::string("demo123"), dialNames().at(0), config["accountrule"]["timepin-psk"]["1001"].get<std::string>(),
          config["heart"]["key"]["default"].get<std::string>(), config["token"]["key"]["default"].get<std::string>()})
        EXPECT_EQ(text.find(secret), std::string::npos) << secret;

    ASSERT_EQ(cli->waitForExit(90000), 1) << cli->standardError().toStdString();
    const auto redial = [&](const char *action) {
        return cli->count([&](const json &l) { return isEvent(l, "redial") && l.value("action", "") == action; });
    };
    // Two drops, then three refusals: four redials in all, and the stop.
    EXPECT_EQ(cli->count([](const json &l) { return isState(l, 5) && l.value("cause", "") == "dropped"; }), 2u);
    EXPECT_EQ(cli->count([](const json &l) { return isState(l, 5) && l.value("cause", "") == "refused"; }), 3u);
    EXPECT_EQ(redial("dialed"), 4u);
    EXPECT_EQ(redial("stopped"), 1u);
    // Each attempt dialled a name of its own moment.
    const auto names = dialNames();
    ASSERT_EQ(names.size(), 5u);
    for (size_t i = 1; i < names.size(); ++i)
        EXPECT_NE(names[i], names[i - 1]);
    EXPECT_GE(cli->count([](const json &l) { return isEvent(l, "hint"); }), 1u);
    EXPECT_NE(cli->standardError().indexOf("账号可能已被锁定"), -1);
}

TEST_F(LinkEndToEnd, ClockGuardWarnsAndTheRefusalGetsTheClockHint)
{
    const struct
    {
        int offsetMinutes;
        bool warning;
        int exitState;
    } cases[] = {{0, false, 2}, {-10, true, 5}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.offsetMinutes);
        restart();
        startSim({QStringLiteral("--clock-offset"), QString::number(c.offsetMinutes)});
        startClient();
        ASSERT_TRUE(cli->waitForLine([](const json &l) { return isEvent(l, "clock"); }, 20000));
        ASSERT_TRUE(cli->waitForLine([&](const json &l) { return isState(l, c.exitState); }, 20000));
        json clock;
        for (const auto &l : cli->lines())
            if (isEvent(l, "clock"))
                clock = l;
        EXPECT_EQ(clock["checked"], true);
        EXPECT_EQ(clock["warning"], c.warning);
        EXPECT_NEAR(clock["offsetSecs"].get<double>(), -c.offsetMinutes * 60.0, 5.0);
        if (c.warning) {
            ASSERT_EQ(cli->waitForExit(20000), 1);
        }
        EXPECT_EQ(cli->count([](const json &l) { return isEvent(l, "hint"); }) > 0, c.warning);
    }
}

TEST_F(LinkEndToEnd, TokenAnswersOfTheProvider)
{
    const struct
    {
        const char *scenario;
        int exit;
        const char *expect; // a member of the printed answer
    } cases[] = {{"", 0, "token"}, {"token=refuse", 1, "message"}, {"token=no-message", 1, "error"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.scenario);
        restart();
        startSim(*c.scenario ? QStringList{QStringLiteral("--scenario"), QString::fromLatin1(c.scenario)}
                             : QStringList{});
        startClient();
        ASSERT_TRUE(cli->waitForLine([](const json &l) { return isState(l, 2); }, 20000));
        const auto [code, raw] = runCli({QStringLiteral("token")});
        const json answer = json::parse(raw.toStdString(), nullptr, false);
        EXPECT_EQ(code, c.exit) << raw.toStdString();
        ASSERT_TRUE(answer.is_object()) << raw.toStdString();
        EXPECT_TRUE(answer.contains(c.expect)) << raw.toStdString();
        if (std::string(c.scenario) == "token=refuse") {
            EXPECT_EQ(answer["code"], 3);
        }
    }
}

TEST_F(LinkEndToEnd, ConnectRefusesTheInterfaceTheWindowedProgramHolds)
{
    // This process takes the windowed program's place on the bus and says it holds eth0.
    DorvikBusService::Handlers handlers;
    handlers.heldInterface = [](std::function<void(const QString &)> reply) { reply(QStringLiteral("eth0")); };
    DorvikBusService window(handlers);
    QString error;
    ASSERT_TRUE(window.publish(DorvikBusService::AppName, &error)) << error.toStdString();
    startSim({});
    startClient();
    // Waiting spins this process's event loop, so the bus call is answered meanwhile.
    EXPECT_EQ(cli->waitForExit(20000), 3) << cli->standardError().toStdString();
    EXPECT_NE(cli->standardError().indexOf("正在 eth0 上保持连接"), -1) << cli->standardError().toStdString();
    EXPECT_EQ(cli->count([](const json &l) { return isEvent(l, "dial"); }), 0u);
}

} // namespace

#ifdef DORVIK_GUI
namespace {

TEST_F(LinkEndToEnd, SecondStartRaisesTheFirstWindowAndEnds)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QStringList args{QStringLiteral("--backend"), QStringLiteral("simulated"),
                           QStringLiteral("--area"),    QStringLiteral("1001"),
                           QStringLiteral("--config"),  dir.filePath(QStringLiteral("system.cfg"))};
    QProcess first;
    first.start(QStringLiteral(DORVIK_GUI), args);
    ASSERT_TRUE(first.waitForStarted(10000));
    ASSERT_TRUE(TestSupport::spinUntil([] { return DorvikBus::isRunning(DorvikBusService::AppName); }, 20000));

    QProcess second;
    second.start(QStringLiteral(DORVIK_GUI), args);
    ASSERT_TRUE(second.waitForFinished(20000));
    EXPECT_EQ(second.exitCode(), 0);
    // One process: the first still runs and still owns the name.
    EXPECT_EQ(first.state(), QProcess::Running);
    const QDBusReply<uint> owner = QDBusConnection::sessionBus().interface()->servicePid(DorvikBusService::AppName);
    EXPECT_EQ(qint64(owner.value()), first.processId());
    // And it raised its window.
    const QString logs = dir.filePath(QStringLiteral("data/dorvik/Logs"));
    EXPECT_TRUE(TestSupport::spinUntil(
        [&] {
            for (const QFileInfo &f : QDir(logs).entryInfoList(QDir::Files)) {
                QFile file(f.filePath());
                if (file.open(QIODevice::ReadOnly) && file.readAll().contains("window raised for a second start"))
                    return true;
            }
            return false;
        },
        10000));
    ::kill(pid_t(first.processId()), SIGTERM);
    EXPECT_TRUE(first.waitForFinished(10000));
}

} // namespace
#endif
