// The controller against the simulated dialing back-end and the simulator's heartbeat server,
// in one process: what starts when the link comes up, what stops when it goes down.

#include "App/DVApp.h"
#include "Business/TokenReuest.h"
#include "Conf/Conf.h"
#include "Conf/UIConf.h"
#include "Dial/simulated/SimulatedPlatform.h"
#include "SimHost.h"
#include "support/TestData.h"

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <mutex>

namespace {
using json = nlohmann::ordered_json;

// What the heartbeat sent, by message type, and the account name of its first message.
struct Exchanges
{
    std::mutex mutex;
    std::map<QString, size_t> sent;
    QString firstUsername;

    void add(const BcomExchange &x)
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (firstUsername.isEmpty())
            firstUsername = QString::fromStdString(x.sent.content.at("username").get<std::string>());
        ++sent[x.sent.type];
    }
    size_t count(const QString &type)
    {
        std::lock_guard<std::mutex> lock(mutex);
        return sent[type];
    }
};

class DVAppTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        SimOptions options;
        options.config = TestData::demoConfig();
        options.ephemeralPorts = true;
        ASSERT_TRUE(sim.start(options, {QStringLiteral("heart")}));
        const quint16 port = sim.service(QStringLiteral("heart"))->port();

        json config = options.config;
        const std::string base = "http://127.0.0.1:" + std::to_string(port);
        config["heart"]["negotiateurl"] = {{"default", base + "/negotiate"}};
        config["heart"]["hearbeaturl"] = {{"default", base + "/heartbeat"}};
        config["business"]["host"] = {{"default", ""}};
        config["sms"]["host"] = {{"default", "127.0.0.1"}}; // no port: the verification does not run
        auto conf = Conf::fromJson(QByteArray::fromStdString(config.dump()));
        ASSERT_TRUE(conf);
        Conf::setShared(std::move(conf));
        UIConf::shared().setArea(QStringLiteral("default"));

        SimulatedConfig machine = SimulatedPlatform::defaultConfig();
        machine.stepDelayMs = 5;
        auto platform = std::make_unique<SimulatedPlatform>(machine);
        simulated = platform.get();

        DVApp::Options appOptions;
        appOptions.heartbeatWaits = [](qint32 seconds) { return qint64(seconds) * 5; }; // 10 s → 50 ms
        appOptions.onHeartbeatExchange = [this](const BcomExchange &x) { exchanges.add(x); };
        app = std::make_unique<DVApp>(std::make_unique<PPPoE>(std::move(platform)), appOptions);
    }

    void TearDown() override { app.reset(); }

    bool dial()
    {
        DVError error;
        const bool ok = app->dialWithUserName(QStringLiteral("demo"), password, 0, &error);
        return ok && error.domain.isEmpty() && TestSupport::spinUntil([&] { return app->isConnected(); });
    }

    void fire(qint64 state)
    {
        DVEvent::shared().fireEventWithEventID(DVEventIdDialStatus, DVDialStatusEvent::eventWithSates(state));
    }

    SimHost sim;
    SimulatedPlatform *simulated = nullptr;
    std::shared_ptr<const QString> password = std::make_shared<const QString>(QStringLiteral("demo123"));
    Exchanges exchanges;
    std::unique_ptr<DVApp> app;
};

TEST_F(DVAppTest, ConnectedTwiceStartsOneHeartbeatNamedAfterTheDialName)
{
    ASSERT_TRUE(dial());
    fire(DVDialStateConnected); // a repeated "connected" must not start a second set of tasks
    ASSERT_TRUE(TestSupport::spinUntil([&] { return exchanges.count(QStringLiteral("NOTIFY")) >= 2; }, 10000));
    EXPECT_EQ(exchanges.count(QStringLiteral("NEGOTIATE")), 1u);

    const QString pin = app->pin();
    ASSERT_FALSE(pin.isEmpty());
    EXPECT_NE(pin, QStringLiteral("demo")); // the rule changed the account name
    // (Written once, before the notifications counted above: no lock needed to read it.)
    EXPECT_EQ(exchanges.firstUsername, QString::fromLatin1(pin.toUtf8().toBase64()));
    // The dial name is forgotten with the link. (That nothing is sent after a hang-up is checked
    // end to end in tests/tools/ConnectEndToEndTest.cpp.)
    ASSERT_TRUE(app->stopConn());
    ASSERT_TRUE(TestSupport::spinUntil([&] { return !app->isConnected() && app->pin().isEmpty(); }));
}

TEST_F(DVAppTest, DisconnectedWhileNotConnectedStillCancelsTheQueue)
{
    struct Waiter : Operation
    {
        void main() override { waitSemaphore(std::nullopt); }
    };
    auto waiter = std::make_shared<Waiter>();
    app->queue()->addOperation(waiter);
    fire(DVDialStateDisconnected);
    ASSERT_TRUE(TestSupport::spinUntil([&] { return waiter->isFinished(); }));
    EXPECT_TRUE(waiter->isCancelled());
    EXPECT_FALSE(app->isConnected());
}

TEST_F(DVAppTest, RememberedInterfaceIndexAndListTexts)
{
    const auto list = app->getInterfaceList(); // eth0 up, wlan0 down
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].value(QStringLiteral("status")).toString(), QStringLiteral("已连接"));
    EXPECT_EQ(list[1].value(QStringLiteral("status")).toString(), QStringLiteral("未连接"));
    // Nothing remembered.
    UserConf().setDefaultInterface(std::nullopt);
    EXPECT_EQ(app->getLastInterfaceIndex(), DVApp::NotFound);
    // Remembered and up: its position in the list.
    UserConf().setDefaultInterface(QStringLiteral("eth0"));
    EXPECT_EQ(app->getLastInterfaceIndex(), 0u);
    // Remembered but down.
    simulated->setLinkActive(QStringLiteral("eth0"), false);
    EXPECT_EQ(app->getLastInterfaceIndex(), DVApp::NotFound);
    // Remembered but gone from the list.
    UserConf().setDefaultInterface(QStringLiteral("eth9"));
    EXPECT_EQ(app->getLastInterfaceIndex(), DVApp::NotFound);
}

TEST_F(DVAppTest, PasswordIsNotKeptAliveSoNoTokenRequestAfterwards)
{
    ASSERT_TRUE(dial());
    const auto tokenRequests = [&] {
        const auto ops = app->queue()->operations();
        return std::count_if(ops.begin(), ops.end(),
                             [](const auto &op) { return dynamic_cast<TokenReuest *>(op.get()) != nullptr; });
    };
    password.reset(); // the caller lets go: the controller must not keep the password alive
    app->requestToken();
    EXPECT_EQ(tokenRequests(), 0);
}

TEST_F(DVAppTest, DialsTheInterfaceTheCallerPickedEvenIfTheListReordersMeanwhile)
{
    simulated->setLinkActive(QStringLiteral("wlan0"), true);
    const auto seen = app->getInterfaceList(); // eth0, wlan0: both up, in the set's order
    ASSERT_EQ(seen.size(), 2u);
    ASSERT_TRUE(seen[1].value(QStringLiteral("name")).toString().contains(QStringLiteral("wlan0")));
    simulated->setLinkActive(QStringLiteral("eth0"), false); // a re-read would now list wlan0 first

    DVError error;
    ASSERT_TRUE(app->dialWithUserName(QStringLiteral("demo"), password, 1, &error));
    EXPECT_TRUE(error.domain.isEmpty()) << error.localizedDescription.toStdString();
    ASSERT_TRUE(app->dialInterface());
    EXPECT_EQ(app->dialInterface()->_bsdName, QStringLiteral("wlan0"));
    EXPECT_EQ(app->pppoe()->getMacAddress(), QStringLiteral("52:54:00:ab:cd:ef"));
}

} // namespace
