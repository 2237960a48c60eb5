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

struct Rig
{
    RecordingPlatform *fake = nullptr;
    std::unique_ptr<PPPoE> pppoe;
    std::shared_ptr<RecordingPlatform::Iface> eth0, eth1;

    // eth0 (wired, up, with MAC) and eth1 (wired, up, with MAC); `setup` may change the
    // machine before the manager is made.
    explicit Rig(const std::function<void(Rig &)> &setup = nullptr)
    {
        auto platform = std::make_unique<RecordingPlatform>();
        fake = platform.get();
        eth0 = fake->addDevice(kEthernet, QStringLiteral("eth0"), QStringLiteral("以太网"),
                               QStringLiteral("52:54:00:00:00:01"), true);
        eth1 = fake->addDevice(kEthernet, QStringLiteral("eth1"), QStringLiteral("USB LAN"),
                               QStringLiteral("52:54:00:00:00:02"), true);
        if (setup)
            setup(*this);
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

QSet<QString> toSet(const std::vector<const char *> &texts)
{
    QSet<QString> out;
    for (const char *t : texts)
        out << QLatin1String(t);
    return out;
}

} // namespace

TEST(PPPoELogic, InterfaceListKeepsWiredAndWirelessActiveFirst)
{
    Rig rig([](Rig &r) {
        r.fake->setServices.clear();
        r.fake->addDevice(kEthernet, QStringLiteral("en0"), QStringLiteral("以太网"),
                          QStringLiteral("aa:00:00:00:00:01"), false);
        r.fake->addDevice(QStringLiteral("Bluetooth"), QStringLiteral("bt0"), QStringLiteral("蓝牙"), QString(), true);
        auto wifi = r.fake->addDevice(kWiFi, QStringLiteral("en1"), QStringLiteral("Wi-Fi"),
                                      QStringLiteral("aa:00:00:00:00:02"), true);
        r.fake->addPPPService(QStringLiteral("dorvik"), wifi, true);
        r.fake->addDevice(kEthernet, QStringLiteral("en2"), QStringLiteral("雷雳"), QString(), false);
        r.fake->addDevice(kEthernet, QStringLiteral("en3"), QStringLiteral("USB"), QString(), true);
    });
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
    const QString reason20 =
        QStringLiteral("当前所选网卡为：以太网\n可能的原因为:电缆可能未插好，或另一端的设备没有响应");
    const struct
    {
        const char *label;
        QString name, password;
        bool emptyList;
        quint64 index;
        qint64 code;
        QString description, reason;
    } cases[] = {
        {"empty password, empty list", QStringLiteral("u"), QString(), true, 0, 18, QStringLiteral("用户名或密码为空"),
         QString()},
        {"empty name", QString(), QStringLiteral("p"), false, 0, 18, QStringLiteral("用户名或密码为空"), QString()},
        {"empty list", QStringLiteral("u"), QStringLiteral("p"), true, 0, 17, QStringLiteral("网卡列表为空"),
         QString()},
        {"index == count", QStringLiteral("u"), QStringLiteral("p"), false, 2, 16, QStringLiteral("错误的网卡序号"),
         QString()},
        {"inactive interface", QStringLiteral("u"), QStringLiteral("p"), false, 1, 20,
         QStringLiteral("所选网卡未连接，请重新选择已经连接的设备或者检查设备连接情况"), reason20},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.label);
        Rig rig([&](Rig &r) {
            if (c.emptyList)
                r.fake->setServices.clear();
            else
                r.fake->links[QStringLiteral("eth0")] = false; // eth0 goes last in the list
        });
        DVError error;
        EXPECT_FALSE(rig.pppoe->dialWithUserName(c.name, c.password, c.index, &error));
        EXPECT_EQ(error.domain, QStringLiteral("PPPoE"));
        EXPECT_EQ(error.code, c.code);
        EXPECT_EQ(error.localizedDescription, c.description);
        EXPECT_EQ(error.localizedFailureReason, c.reason);
        EXPECT_TRUE(rig.callsOf(kServiceCalls).isEmpty()) << rig.fake->calls.join(QLatin1Char(',')).toStdString();
    }
}

TEST(PPPoELogic, CauseTextPerInterfaceKind)
{
    const struct
    {
        QString type, mac, text;
    } cases[] = {
        {kEthernet, QStringLiteral("aa:bb:cc:dd:ee:ff"), QStringLiteral("电缆可能未插好，或另一端的设备没有响应")},
        {kEthernet, QString(), QStringLiteral("网卡、转接器可能未插好")},
        {kWiFi, QStringLiteral("aa:bb:cc:dd:ee:ff"), QStringLiteral("WI-FI未开启或者未连接")},
        {QStringLiteral("FireWire"), QString(), QStringLiteral("未知错误")},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.type.toStdString() + " " + c.mac.toStdString());
        Rig rig([&](Rig &r) {
            r.fake->setServices.clear();
            r.fake->addDevice(c.type, QStringLiteral("x0"), QStringLiteral("X"), c.mac, false);
        });
        // Other types are not listed; put the interface in the list through the set's order.
        if (c.type != kEthernet && c.type != kWiFi) {
            EXPECT_TRUE(rig.pppoe->getInterfaceList().empty());
            EXPECT_EQ(rig.pppoe->getInterfaceErrorAtIndex(0), c.text);
            continue;
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
        Rig rig([&](Rig &r) {
            if (const auto it = c.find("existing"); it != c.end())
                r.fake->addPPPService(TestData::text(*it, "name"),
                                      TestData::text(*it, "on") == QLatin1String("eth0") ? r.eth0 : r.eth1,
                                      it->at("enabled"));
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
            EXPECT_TRUE(ours[0]->enabled);
            EXPECT_EQ(ours[0]->iface->child->bsd, TestData::text(c, "parentAfter"));
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
    const QVariantMap config = ours[0]->iface->config.value_or(QVariantMap());
    EXPECT_EQ(config.value(PPPoEKey::PropNetPPPAuthName).toString(), QStringLiteral("username"));
    EXPECT_EQ(config.value(PPPoEKey::PropNetPPPAuthPassword).toString(), QStringLiteral("password"));
    EXPECT_EQ(config.value(PPPoEKey::PropNetPPPCommRemoteAddress).toString(), QString());
    // The credentials travel only in the start options, which hold exactly three entries.
    const QVariantMap options = rig.fake->conns.back()->startOptions;
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
    const struct
    {
        const char *label;
        int initialStatus;
        std::vector<const char *> failing;
        bool result;
        qint64 code;
        QString description;
        bool unscheduled;
    } cases[] = {
        {"still connecting", NetworkConnectionConnecting, {}, true, 1, QStringLiteral("拨号连接状态错误"), true},
        {"start refused",
         NetworkConnectionDisconnected,
         {"networkConnectionStart"},
         true,
         12,
         QStringLiteral("启动连接失败启动连接失败,错误:1001,Failed!"),
         false},
        {"not scheduled",
         NetworkConnectionDisconnected,
         {"networkConnectionScheduleWithRunLoop"},
         true,
         12,
         QStringLiteral("启动连接失败创建连接启动计划失败,错误:1001,Failed!"),
         false},
        {"connection not created",
         NetworkConnectionDisconnected,
         {"networkConnectionCreateWithServiceID"},
         true,
         1,
         QStringLiteral("创建连接失败"),
         false},
        {"start refused and clean-up fails",
         NetworkConnectionDisconnected,
         {"networkConnectionStart", "networkServiceRemove"},
         false,
         7,
         QStringLiteral("删除服务失败"),
         false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.label);
        Rig rig;
        rig.fake->initialStatus = c.initialStatus;
        rig.fake->failing = toSet(c.failing);
        DVError error;
        EXPECT_EQ(rig.pppoe->dialWithUserName(QStringLiteral("dial"), QStringLiteral("pw"), 0, &error), c.result);
        EXPECT_EQ(error.domain, QStringLiteral("PPPoE"));
        EXPECT_EQ(error.code, c.code);
        EXPECT_EQ(error.localizedDescription, c.description);
        EXPECT_EQ(rig.fake->calls.contains(QStringLiteral("networkConnectionUnscheduleFromRunLoop")), c.unscheduled);
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
