// The headless client and the provider simulator as separate programs over 127.0.0.1: the
// access concentrator checks the dial name, the link comes up, the heartbeat runs with every
// proof the server knows, and a hang-up ends it with nothing sent afterwards.

#include "CliSimFixture.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <csignal>

namespace {

class ConnectEndToEnd : public CliSimTest
{
protected:
    void startClient(const QByteArray &input)
    {
        CliSimTest::startClient({QStringLiteral("--heartbeat-scale"), QStringLiteral("20")}, input);
    }

    void smsCase(const QString &scenario, const QByteArray &typedCode, bool verified);

    json simStats() { return sim->interruptForStats(); }
};

TEST_F(ConnectEndToEnd, DialHeartbeatWithEveryProofThenCleanHangUp)
{
    startSim();
    startClient("demo123");
    ASSERT_TRUE(cli->waitForLine([](const json &l) { return isState(l, 2); }, 20000))
        << cli->standardError().toStdString();
    // Enough notifications for the server to have rotated through every transformation and salt.
    const auto notify = [](const json &l) { return isEvent(l, "heartbeat") && l.value("sent", "") == "NOTIFY"; };
    ASSERT_TRUE(cli->waitForLine([&](const json &) { return cli->count(notify) >= 6; }, 60000))
        << cli->standardError().toStdString();

    EXPECT_EQ(cli->signalAndWait(SIGINT, 20000), 0) << cli->standardError().toStdString();
    EXPECT_EQ(cli->count([](const json &l) { return isState(l, 5); }), 1u);
    const size_t exchanges = cli->count([](const json &l) { return isEvent(l, "heartbeat"); });

    // Several heartbeat periods at this scale: nothing may reach the server after the hang-up.
    TestSupport::spinUntil([] { return false; }, 1500);
    const json stats = simStats();
    const json &heart = stats.at("heart");
    EXPECT_EQ(stats.at("ac").at("accepted"), 1);
    EXPECT_EQ(heart.at("negotiations"), 1);
    EXPECT_EQ(heart.at("signatures").at("failed"), 0);
    EXPECT_EQ(heart.at("proofs").at("failed"), 0);
    EXPECT_EQ(heart.at("failures"), 0) << heart.at("failureReasons").dump(); // sequences, echoes
    for (const char *kind : {"AES", "MD5", "SHA1", "PREFIX", "SUFFIX"})
        EXPECT_GE(heart.at("proofs").value(kind, 0), 1) << kind;
    EXPECT_EQ(heart.at("requests").get<size_t>(), exchanges);
    EXPECT_EQ(heart.at("signatures").at("verified").get<size_t>(), exchanges);

    // The first exchange is the NEGOTIATE, answered with an OFFER.
    const auto first =
        std::find_if(cli->lines().begin(), cli->lines().end(), [](const json &l) { return isEvent(l, "heartbeat"); });
    ASSERT_NE(first, cli->lines().end());
    EXPECT_EQ(first->value("sent", ""), "NEGOTIATE");
    EXPECT_EQ(first->value("reply", ""), "OFFER");
}

TEST_F(ConnectEndToEnd, WrongPasswordIsRefusedByTheAccessServer)
{
    startSim();
    startClient("not-the-password");
    EXPECT_EQ(cli->waitForExit(30000), 1) << cli->standardError().toStdString();
    EXPECT_EQ(cli->count([](const json &l) { return isState(l, 2); }), 0u);
    EXPECT_EQ(cli->count([](const json &l) { return isState(l, 5); }), 1u);
    const json stats = simStats();
    EXPECT_EQ(stats.at("ac").at("refused"), 1);
    EXPECT_EQ(stats.at("heart").at("requests"), 0);
}

TEST_F(ConnectEndToEnd, TerminalRejectStopsTheHeartbeatButNotTheLink)
{
    startSim({QStringLiteral("--scenario"), QStringLiteral("heart=reject")});
    startClient("demo123");
    ASSERT_TRUE(cli->waitForLine(
        [](const json &l) { return isEvent(l, "heartbeat") && l.value("reply", "") == "REJECT"; }, 30000));
    TestSupport::spinUntil([] { return false; }, 1500);
    EXPECT_EQ(cli->count([](const json &l) { return isState(l, 5); }), 0u); // still online
    EXPECT_EQ(cli->signalAndWait(SIGINT, 20000), 0);
    EXPECT_EQ(simStats().at("heart").at("requests"), 1);
}

// The heartbeat server and the business server (configuration request and registration)
// answer with documents nested 100,000 levels deep: each answer is refused with a logged error
// and the link stays up.
TEST_F(ConnectEndToEnd, DeeplyNestedRepliesAreLoggedAndTheLinkStays)
{
    startSim({QStringLiteral("--scenario"), QStringLiteral("heart=deep"), QStringLiteral("--scenario"),
              QStringLiteral("business=deep")});
    startClient("demo123");
    ASSERT_TRUE(cli->waitForLine([](const json &l) { return isState(l, 2); }, 20000))
        << cli->standardError().toStdString();
    const auto logged = [this](const char *text) {
        cli->waitForLine([](const json &) { return false; }, 50); // reads what the client wrote
        return cli->standardError().count(text);
    };
    // The heartbeat's answer, the configuration request's and the registration's.
    ASSERT_TRUE(TestSupport::spinUntil([&] { return logged("nested deeper than 64 levels") >= 3; }, 60000))
        << cli->standardError().toStdString();
    EXPECT_GE(logged("response data parse failed"), 1);
    EXPECT_GE(logged("config request failed"), 2);
    TestSupport::spinUntil([] { return false; }, 1500);
    EXPECT_EQ(cli->count([](const json &l) { return isState(l, 5); }), 0u); // still online
    EXPECT_EQ(cli->signalAndWait(SIGINT, 20000), 0);
}

// The verification server sends a code; the user types one on the terminal.
void ConnectEndToEnd::smsCase(const QString &scenario, const QByteArray &typedCode, bool verified)
{
    startSim({QStringLiteral("--scenario"), scenario});
    startClient("demo123\n" + typedCode);
    const auto asked = [](const json &l) {
        return isEvent(l, "sms") && l.contains("error") && l["error"].value("code", -1) == 0;
    };
    ASSERT_TRUE(cli->waitForLine(asked, 20000)) << cli->standardError().toStdString();
    const auto outcome = [&](const json &l) { return isEvent(l, "sms") && !asked(l); };
    ASSERT_TRUE(cli->waitForLine(outcome, 20000)) << cli->standardError().toStdString();
    if (verified) {
        EXPECT_EQ(cli->count([](const json &l) { return isState(l, 5); }), 0u); // still online
        EXPECT_EQ(cli->signalAndWait(SIGINT, 20000), 0);
    } else {
        EXPECT_EQ(cli->waitForExit(20000), 1); // the client hangs up by itself
        EXPECT_EQ(cli->count([](const json &l) { return isState(l, 5); }), 1u);
    }
    const json sms = simStats().at("sms");
    EXPECT_EQ(sms.at("checks"), 1);
    EXPECT_EQ(sms.at("verified"), verified ? 1 : 0);
}

TEST_F(ConnectEndToEnd, SmsCodeAccepted)
{
    smsCase(QStringLiteral("sms=code"), "123456", true);
}

TEST_F(ConnectEndToEnd, SmsCodeRefusedHangsUp)
{
    smsCase(QStringLiteral("sms=code-error"), "654321", false);
}

} // namespace
