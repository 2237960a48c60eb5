#include "RecordingPlatform.h"

#include "Dial/PPPoE.h"
#include "Util/DVEvent.h"

#include "support/TestData.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

const QString kEthernet = PPPoEKey::InterfaceTypeEthernet;
const QString kWiFi = PPPoEKey::InterfaceTypeIEEE80211;

SimulatedInterface device(const QString &type, const char *bsd, const QString &display, const char *mac, bool up)
{
    return {QLatin1String(bsd), display, type, QLatin1String(mac), up};
}

// A machine with eth0 and eth1 (wired, up, with MAC); `machine` may change it before the
// platform is made, `before` the platform before the manager is made.
struct Rig
{
    RecordingPlatform *fake = nullptr;
    std::unique_ptr<PPPoE> pppoe;

    explicit Rig(const std::function<void(std::vector<SimulatedInterface> &)> &machine = nullptr,
                 const std::function<void(RecordingPlatform &)> &before = nullptr)
    {
        SimulatedConfig config;
        config.interfaces = {device(kEthernet, "eth0", QStringLiteral("以太网"), "52:54:00:00:00:01", true),
                             device(kEthernet, "eth1", QStringLiteral("USB LAN"), "52:54:00:00:00:02", true)};
        if (machine)
            machine(config.interfaces);
        auto platform = std::make_unique<RecordingPlatform>(config);
        fake = platform.get();
        if (before)
            before(*fake);
        pppoe = std::make_unique<PPPoE>(std::move(platform));
        pppoe->getInterfaceList();
        fake->calls.clear();
    }
    QStringList callsOf(const QStringList &interesting) const
    {
        QStringList out;
        for (const QString &c : fake->calls) {
            if (interesting.contains(c))
                out << c;
        }
        return out;
    }
};

const QStringList kServiceCalls = {
    QStringLiteral("preferencesLock"),          QStringLiteral("networkServiceRemove"),
    QStringLiteral("preferencesUnlock"),        QStringLiteral("networkServiceCreate"),
    QStringLiteral("networkServiceSetEnabled"), QStringLiteral("commit"),
    QStringLiteral("networkConnectionStart"),
};

} // namespace

TEST(PPPoELogic, InterfaceListKeepsWiredAndWirelessActiveFirst)
{
    Rig rig(
        [](auto &m) {
            m = {device(kEthernet, "en0", QStringLiteral("以太网"), "aa:00:00:00:00:01", false),
                 device(QStringLiteral("Bluetooth"), "bt0", QStringLiteral("蓝牙"), "", true),
                 device(kWiFi, "en1", QStringLiteral("Wi-Fi"), "aa:00:00:00:00:02", true),
                 device(kEthernet, "en2", QStringLiteral("雷雳"), "", false),
                 device(kEthernet, "en3", QStringLiteral("USB"), "", true)};
        },
        [](RecordingPlatform &p) { p.addPPPService(QStringLiteral("dorvik"), QStringLiteral("en1"), true); });
    const auto list = rig.pppoe->getInterfaceList();
    QStringList got;
    for (const auto &i : list)
        got << QStringLiteral("%1:%2:%3:%4")
                   .arg(i._bsdName, i._displayName, i._isActive ? QStringLiteral("up") : QStringLiteral("down"),
                        i._macAddress);
    EXPECT_EQ(got,
              (QStringList{QStringLiteral("en1:Wi-Fi:up:aa:00:00:00:00:02"), QStringLiteral("en3:USB:up:"),
                           QStringLiteral("en0:以太网:down:aa:00:00:00:00:01"), QStringLiteral("en2:雷雳:down:")}));
    ASSERT_TRUE(list[0]._interfaceRef);
}

TEST(PPPoELogic, UnreadableSetLeavesTheKeptList)
{
    for (const char *failing : {"networkSetCopyCurrent", "networkSetCopyServices"}) {
        SCOPED_TRACE(failing);
        Rig rig; // listed eth0 and eth1
        rig.fake->failing << QLatin1String(failing);
        EXPECT_TRUE(rig.pppoe->getInterfaceList().empty());
        rig.fake->failing.clear();
        // Dial indexes still refer to the last good list.
        DVError error;
        EXPECT_TRUE(rig.pppoe->dialWithUserName(QStringLiteral("dial"), QStringLiteral("pw"), 1, &error));
        EXPECT_TRUE(error.domain.isEmpty());
        EXPECT_EQ(rig.pppoe->getMacAddress(), QStringLiteral("52:54:00:00:00:02"));
    }
}

TEST(PPPoELogic, InputChecksInOrder)
{
    const TestData::json data = TestData::load("pppoe-services.json");
    for (const auto &c : data.at("inputChecks")) {
        SCOPED_TRACE(c.dump());
        Rig rig([&](auto &m) {
            if (c.at("emptyList"))
                m.clear();
            else
                m[0].active = false; // eth0 goes last in the list
        });
        DVError error;
        EXPECT_FALSE(rig.pppoe->dialWithUserName(TestData::text(c, "name"), TestData::text(c, "password"),
                                                 c.at("index"), &error));
        EXPECT_EQ(error.domain, QStringLiteral("PPPoE"));
        EXPECT_EQ(error.code, c.at("code").get<qint64>());
        EXPECT_EQ(error.localizedDescription, TestData::text(c, "description"));
        EXPECT_EQ(error.localizedFailureReason, TestData::text(c, "reason"));
        EXPECT_TRUE(rig.callsOf(kServiceCalls).isEmpty()) << rig.fake->calls.join(QLatin1Char(',')).toStdString();
    }
}

// A wired interface with a MAC: the reason of the "inactive interface" input check.
TEST(PPPoELogic, CauseTextPerInterfaceKind)
{
    const struct
    {
        QString type, mac, text;
    } cases[] = {
        {kEthernet, QString(), QStringLiteral("网卡、转接器可能未插好")},
        {kWiFi, QStringLiteral("aa:bb:cc:dd:ee:ff"), QStringLiteral("WI-FI未开启或者未连接")},
        {QStringLiteral("FireWire"), QString(), QStringLiteral("未知错误")},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.type.toStdString() + " " + c.mac.toStdString());
        Rig rig([&](auto &m) { m = {{QStringLiteral("x0"), QStringLiteral("X"), c.type, c.mac, false}}; });
        if (c.type != kEthernet && c.type != kWiFi) {
            EXPECT_TRUE(rig.pppoe->getInterfaceList().empty()); // other types are not listed
        }
        EXPECT_EQ(rig.pppoe->getInterfaceErrorAtIndex(0), c.text);
    }
}

TEST(PPPoELogic, ServiceReuseRemovalAndCreation)
{
    const TestData::json data = TestData::load("pppoe-services.json");
    ASSERT_TRUE(data.is_object());
    for (const auto &c : data.at("cases")) {
        SCOPED_TRACE(c.dump());
        Rig rig(nullptr, [&](RecordingPlatform &p) {
            if (const auto it = c.find("existing"); it != c.end())
                p.addPPPService(TestData::text(*it, "name"), TestData::text(*it, "on"), it->at("enabled"));
        });
        for (const auto &call : c.value("failing", TestData::json::array()))
            rig.fake->failing << QString::fromStdString(call);
        DVError error;
        EXPECT_EQ(rig.pppoe->dialWithUserName(QStringLiteral("dial"), QStringLiteral("pw"), 0, &error),
                  c.at("result").get<bool>());
        if (c.at("code") < 0)
            EXPECT_TRUE(error.domain.isEmpty()) << error.description().toStdString();
        else
            EXPECT_EQ(error.code, c.at("code").get<qint64>()) << error.description().toStdString();
        QStringList calls;
        for (const auto &call : c.at("calls"))
            calls << QString::fromStdString(call);
        EXPECT_EQ(rig.callsOf(kServiceCalls), calls);
        const auto ours = rig.fake->servicesNamed(QStringLiteral("dorvik"));
        ASSERT_EQ(ours.size(), c.at("servicesAfter").get<size_t>());
        if (!ours.empty()) {
            EXPECT_TRUE(rig.fake->networkServiceGetEnabled(ours[0]));
            EXPECT_EQ(rig.fake->parentOf(ours[0]), TestData::text(c, "parentAfter"));
        }
    }
}

TEST(PPPoELogic, NewServiceConfigurationHoldsPlaceholdersOnly)
{
    Rig rig;
    DVError error;
    ASSERT_TRUE(rig.pppoe->dialWithUserName(QStringLiteral("realname"), QStringLiteral("s3cret"), 0, &error));
    const auto ours = rig.fake->servicesNamed(QStringLiteral("dorvik"));
    ASSERT_EQ(ours.size(), 1u);
    const QVariantMap config = rig.fake->networkInterfaceGetConfiguration(rig.fake->networkServiceGetInterface(ours[0]))
                                   .value_or(QVariantMap());
    EXPECT_EQ(config.value(PPPoEKey::PropNetPPPAuthName).toString(), QStringLiteral("username"));
    EXPECT_EQ(config.value(PPPoEKey::PropNetPPPAuthPassword).toString(), QStringLiteral("password"));
    EXPECT_EQ(config.value(PPPoEKey::PropNetPPPCommRemoteAddress).toString(), QString());
    // The credentials travel only in the start options, which hold exactly three entries.
    const QVariantMap options = rig.fake->lastStartOptions;
    ASSERT_EQ(options.keys(), QStringList{PPPoEKey::EntNetPPP});
    const QVariantMap ppp = options.value(PPPoEKey::EntNetPPP).toMap();
    EXPECT_EQ(ppp.size(), 3);
    EXPECT_EQ(ppp.value(PPPoEKey::PropNetPPPAuthName).toString(), QStringLiteral("realname"));
    EXPECT_EQ(ppp.value(PPPoEKey::PropNetPPPAuthPassword).toString(), QStringLiteral("s3cret"));
    EXPECT_TRUE(ppp.contains(PPPoEKey::PropNetPPPCommRemoteAddress));
    EXPECT_EQ(rig.pppoe->getMacAddress(), QStringLiteral("52:54:00:00:00:01"));
}

TEST(PPPoELogic, FailedStartCleansUpAndReturnsTheCleanUpResult)
{
    const TestData::json data = TestData::load("pppoe-services.json");
    for (const auto &c : data.at("failedStarts")) {
        SCOPED_TRACE(c.dump());
        Rig rig;
        if (c.value("stillConnecting", false))
            rig.fake->forcedStatus = NetworkConnectionConnecting;
        for (const auto &call : c.value("failing", TestData::json::array()))
            rig.fake->failing << QString::fromStdString(call);
        DVError error;
        EXPECT_EQ(rig.pppoe->dialWithUserName(QStringLiteral("dial"), QStringLiteral("pw"), 0, &error),
                  c.at("result").get<bool>());
        EXPECT_EQ(error.domain, QStringLiteral("PPPoE"));
        EXPECT_EQ(error.code, c.at("code").get<qint64>());
        EXPECT_EQ(error.localizedDescription, TestData::text(c, "description"));
        EXPECT_EQ(rig.fake->calls.contains(QStringLiteral("networkConnectionUnscheduleFromRunLoop")),
                  c.value("stillConnecting", false));
        // No connection was kept: nothing to stop, no time, no address.
        EXPECT_FALSE(rig.pppoe->stopConn());
        EXPECT_EQ(rig.pppoe->getConnTime(), 0u);
        EXPECT_EQ(rig.pppoe->getMacAddress(), QString());
        // The removal is not committed here.
        EXPECT_EQ(rig.fake->calls.filter(QStringLiteral("commit")).size(), 1);
    }
}

TEST(PPPoELogic, NullErrorArgumentDoesNothing)
{
    Rig rig;
    EXPECT_FALSE(rig.pppoe->dialWithUserName(QStringLiteral("dial"), QStringLiteral("pw"), 0, nullptr));
    EXPECT_FALSE(rig.pppoe->checkParm(QString(), QString(), 0, nullptr));
    EXPECT_TRUE(rig.fake->calls.isEmpty());
}
