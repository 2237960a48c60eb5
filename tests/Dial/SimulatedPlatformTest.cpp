#include "Dial/simulated/SimulatedPlatform.h"
#include "Dial/PPPoE.h"
#include "Dial/PPPoEPlatformFactory.h"
#include "Util/DVEvent.h"

#include "DialTestSupport.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <QThread>

#include <thread>

namespace {

using DialTest::StateLog;

struct Sim
{
    SimulatedPlatform *platform = nullptr;
    std::unique_ptr<PPPoE> pppoe;
    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();

    explicit Sim(SimulatedAuthHook hook = nullptr)
    {
        SimulatedConfig config;
        config.stepDelayMs = 5;
        config.clock = clock;
        config.authHook = std::move(hook);
        auto p = std::make_unique<SimulatedPlatform>(config);
        platform = p.get();
        pppoe = std::make_unique<PPPoE>(std::move(p));
    }
};

using States = std::vector<qint64>;

} // namespace

TEST(SimulatedDial, DefaultMachineListsWiredUpThenWirelessDown)
{
    Sim sim;
    const auto list = sim.pppoe->getInterfaceList();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0]._bsdName, QStringLiteral("eth0"));
    EXPECT_TRUE(list[0]._isActive);
    EXPECT_EQ(list[0]._macAddress, QStringLiteral("52:54:00:12:34:56"));
    EXPECT_EQ(list[1]._bsdName, QStringLiteral("wlan0"));
    EXPECT_FALSE(list[1]._isActive);
    EXPECT_EQ(sim.pppoe->getInterfaceErrorAtIndex(1), QStringLiteral("WI-FI未开启或者未连接"));
    EXPECT_TRUE(sim.pppoe->getStatusOfInterface(QStringLiteral("eth0")));
    EXPECT_FALSE(sim.pppoe->getStatusOfInterface(QStringLiteral("nosuch0")));
}

TEST(SimulatedDial, Outcomes)
{
    const struct
    {
        const char *label;
        bool accept;
        bool linkDown;
        States states;
        std::optional<QString> ip;
    } cases[] = {
        {"accepted", true, false, {3, 2}, QStringLiteral("10.64.0.2")},
        {"refused by the access concentrator", false, false, {3, 5}, std::nullopt},
        {"no carrier: nobody answers", true, true, {3, 5}, std::nullopt},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.label);
        QString seenName, seenPassword;
        // The verdict comes from another thread, as an HTTP reply would.
        Sim sim([&](const QString &name, const QString &password, std::function<void(bool, QString)> done) {
            seenName = name;
            seenPassword = password;
            std::thread([done, accept = c.accept] {
                done(accept, accept ? QString() : QStringLiteral("bad password"));
            }).detach();
        });
        sim.pppoe->getInterfaceList();
        if (c.linkDown)
            sim.platform->setLinkActive(QStringLiteral("eth0"), false);
        StateLog log;
        DVError error;
        ASSERT_TRUE(sim.pppoe->dialWithUserName(QStringLiteral("dialname"), QStringLiteral("pw"), 0, &error));
        ASSERT_TRUE(log.waitFor(c.states.back()));
        TestSupport::spinUntil([] { return false; }, 30);
        EXPECT_EQ(log.states, c.states);
        EXPECT_EQ(sim.pppoe->getIP(), c.ip);
        if (!c.linkDown) {
            EXPECT_EQ(seenName, QStringLiteral("dialname"));
            EXPECT_EQ(seenPassword, QStringLiteral("pw"));
        }
    }
}

TEST(SimulatedDial, ConnectedTimeHangUpAndRedial)
{
    Sim sim;
    sim.pppoe->getInterfaceList();
    StateLog log;
    DVError error;
    ASSERT_TRUE(sim.pppoe->dialWithUserName(QStringLiteral("d"), QStringLiteral("p"), 0, &error));
    ASSERT_TRUE(log.waitFor(2));
    EXPECT_EQ(sim.pppoe->getConnTime(), 0u);
    sim.clock->advanceSecs(75);
    EXPECT_EQ(sim.pppoe->getConnTime(), 75u);

    // A second dial while connected is refused with the state error, and the manager still
    // returns the clean-up's result.
    DVError busy;
    EXPECT_TRUE(sim.pppoe->dialWithUserName(QStringLiteral("d"), QStringLiteral("p"), 0, &busy));
    EXPECT_EQ(busy.localizedDescription, QStringLiteral("拨号连接状态错误"));

    ASSERT_TRUE(sim.pppoe->stopConn());
    ASSERT_TRUE(log.waitFor(5));
    EXPECT_EQ(log.states, (States{3, 2, 3, 5}));
    EXPECT_EQ(sim.pppoe->getConnTime(), 0u);
    EXPECT_EQ(sim.pppoe->getIP(), std::nullopt);

    // Redial on the same interface: one service named "dorvik" in the store.
    log.states.clear();
    ASSERT_TRUE(sim.pppoe->dialWithUserName(QStringLiteral("d"), QStringLiteral("p"), 0, &error));
    ASSERT_TRUE(log.waitFor(2));
    EXPECT_EQ(sim.platform->serviceCountNamed(QStringLiteral("dorvik")), 1);

    sim.platform->peerHangUp();
    ASSERT_TRUE(log.waitFor(5));
    EXPECT_EQ(log.states, (States{3, 2, 5}));
}

TEST(SimulatedDial, MovingToAnotherInterfaceReplacesTheService)
{
    Sim sim;
    sim.platform->setLinkActive(QStringLiteral("wlan0"), true);
    const auto list = sim.pppoe->getInterfaceList();
    ASSERT_EQ(list.size(), 2u);
    StateLog log;
    for (quint64 index : {0u, 1u, 1u}) {
        DVError error;
        ASSERT_TRUE(sim.pppoe->dialWithUserName(QStringLiteral("d"), QStringLiteral("p"), index, &error));
        ASSERT_TRUE(log.waitFor(2));
        EXPECT_EQ(sim.pppoe->getMacAddress(), list[index]._macAddress);
        ASSERT_TRUE(sim.pppoe->stopConn());
        ASSERT_TRUE(log.waitFor(5));
        EXPECT_EQ(sim.platform->serviceCountNamed(QStringLiteral("dorvik")), 1);
        EXPECT_EQ(sim.platform->serviceCount(), 1);
    }
}

TEST(SimulatedDial, DestroyedWhileConnectingCallsNobody)
{
    StateLog log;
    {
        Sim sim([](const QString &, const QString &, std::function<void(bool, QString)> done) {
            // Answer late, after the manager is gone.
            std::thread([done] {
                QThread::msleep(50);
                done(true, QString());
            }).detach();
        });
        sim.pppoe->getInterfaceList();
        DVError error;
        ASSERT_TRUE(sim.pppoe->dialWithUserName(QStringLiteral("d"), QStringLiteral("p"), 0, &error));
    }
    TestSupport::spinUntil([] { return false; }, 150);
    EXPECT_TRUE(log.states.empty() || log.states == States{3});
}

TEST(SimulatedDial, FactoryNames)
{
    EXPECT_TRUE(PPPoEPlatformFactory::availableNames().contains(QStringLiteral("simulated")));
    auto sim = PPPoEPlatformFactory::create(QStringLiteral("simulated"));
    ASSERT_TRUE(sim);
    EXPECT_EQ(sim->name(), QStringLiteral("simulated"));
    EXPECT_EQ(PPPoEPlatformFactory::create(QStringLiteral("nosuch")), nullptr);
}
