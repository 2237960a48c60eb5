#include "RecordingPlatform.h"

#include "Dial/PPPoE.h"
#include "Util/DVEvent.h"

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

QStringList toList(const std::vector<const char *> &texts)
{
    QStringList out;
    for (const char *t : texts)
        out << QLatin1String(t);
    return out;
}

QSet<QString> toSet(const std::vector<const char *> &texts)
{
    const QStringList list = toList(texts);
    return QSet<QString>(list.begin(), list.end());
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
    const auto dorvik = QStringLiteral("dorvik");
    const struct
    {
        const char *label;
        std::function<void(Rig &)> setup;
        std::vector<const char *> failing;
        bool result;
        qint64 code; // -1: no error
        std::vector<const char *> calls;
        int servicesAfter;
        const char *parentAfter;
    } cases[] = {
        {"no service: created on the chosen interface",
         nullptr,
         {},
         true,
         -1,
         {"preferencesLock", "networkServiceCreate", "commit", "preferencesUnlock", "networkConnectionStart"},
         1,
         "eth0"},
        {"service on the same interface: reused",
         [&](Rig &r) { r.fake->addPPPService(dorvik, r.eth0, true); },
         {},
         true,
         -1,
         {"networkConnectionStart"},
         1,
         "eth0"},
        {"disabled service on the same interface: enabled and reused",
         [&](Rig &r) { r.fake->addPPPService(dorvik, r.eth0, false); },
         {},
         true,
         -1,
         {"networkServiceSetEnabled", "networkConnectionStart"},
         1,
         "eth0"},
        {"service on another interface: removed, then created",
         [&](Rig &r) { r.fake->addPPPService(dorvik, r.eth1, true); },
         {},
         true,
         -1,
         {"preferencesLock", "networkServiceRemove", "preferencesUnlock", "preferencesLock", "networkServiceCreate",
          "commit", "preferencesUnlock", "networkConnectionStart"},
         1,
         "eth0"},
        {"disabled service that cannot be enabled: replaced",
         [&](Rig &r) { r.fake->addPPPService(dorvik, r.eth0, false); },
         {"networkServiceSetEnabled"},
         true,
         -1,
         {"networkServiceSetEnabled", "preferencesLock", "networkServiceRemove", "preferencesUnlock", "preferencesLock",
          "networkServiceCreate", "commit", "preferencesUnlock", "networkConnectionStart"},
         1,
         "eth0"},
        {"other names are not ours",
         [&](Rig &r) { r.fake->addPPPService(QStringLiteral("Dorvik"), r.eth0, true); },
         {},
         true,
         -1,
         {"preferencesLock", "networkServiceCreate", "commit", "preferencesUnlock", "networkConnectionStart"},
         1,
         "eth0"},
        {"removal fails: error 7 and the lock stays",
         [&](Rig &r) { r.fake->addPPPService(dorvik, r.eth1, true); },
         {"networkServiceRemove"},
         false,
         7,
         {"preferencesLock", "networkServiceRemove"},
         1,
         "eth1"},
        {"lock fails: error 21", nullptr, {"preferencesLock"}, false, 21, {"preferencesLock"}, 0, ""},
        {"unlock after removal fails: error 22",
         [&](Rig &r) { r.fake->addPPPService(dorvik, r.eth1, true); },
         {"preferencesUnlock"},
         false,
         22,
         {"preferencesLock", "networkServiceRemove", "preferencesUnlock"},
         0,
         ""},
        {"naming fails: error 4, unlocked",
         nullptr,
         {"networkServiceSetName"},
         false,
         4,
         {"preferencesLock", "networkServiceCreate", "preferencesUnlock"},
         0,
         ""},
        {"service not created: no error, unlocked",
         nullptr,
         {"networkServiceCreate"},
         false,
         -1,
         {"preferencesLock", "networkServiceCreate", "preferencesUnlock"},
         0,
         ""},
        {"configuration not stored: error 8",
         nullptr,
         {"networkInterfaceSetConfiguration"},
         false,
         8,
         {"preferencesLock", "networkServiceCreate", "preferencesUnlock"},
         0,
         ""},
        {"no current set: error 5 stays while the dial goes on, the new service is not in any set",
         nullptr,
         {"networkSetCopyCurrent"},
         true,
         5,
         {"preferencesLock", "networkServiceCreate", "preferencesUnlock", "networkConnectionStart"},
         0,
         ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.label);
        Rig rig(c.setup);
        rig.fake->failing = toSet(c.failing);
        DVError error;
        EXPECT_EQ(rig.pppoe->dialWithUserName(QStringLiteral("dial"), QStringLiteral("pw"), 0, &error), c.result);
        if (c.code < 0)
            EXPECT_TRUE(error.domain.isEmpty()) << error.description().toStdString();
        else
            EXPECT_EQ(error.code, c.code) << error.description().toStdString();
        EXPECT_EQ(rig.callsOf(kServiceCalls), toList(c.calls));
        const auto ours = rig.fake->servicesNamed(dorvik);
        ASSERT_EQ(int(ours.size()), c.servicesAfter);
        if (!ours.empty()) {
            EXPECT_TRUE(ours[0]->enabled);
            EXPECT_EQ(ours[0]->iface->child->bsd, QLatin1String(c.parentAfter));
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

TEST(PPPoELogic, NoPreferencesSessionFailsWithError0AndItsReason)
{
    const struct
    {
        const char *label;
        std::vector<const char *> failing;
    } cases[] = {
        {"authorized session refused", {"preferencesCreateWithAuthorization"}},
        {"no authorization, plain session refused", {"authorizationCreate", "preferencesCreate"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.label);
        Rig rig([&](Rig &r) { r.fake->failing = toSet(c.failing); });
        rig.fake->failing.clear();
        EXPECT_TRUE(rig.pppoe->getInterfaceList().empty());
        DVError error;
        EXPECT_FALSE(rig.pppoe->dialWithUserName(QStringLiteral("dial"), QStringLiteral("pw"), 0, &error));
        EXPECT_EQ(error.code, 0);
        EXPECT_EQ(error.localizedDescription, QStringLiteral("获取权限失败"));
        EXPECT_EQ(error.localizedFailureReason, QStringLiteral("Failed!"));
        // Empty credentials are still reported first.
        EXPECT_FALSE(rig.pppoe->dialWithUserName(QString(), QStringLiteral("pw"), 0, &error));
        EXPECT_EQ(error.code, 18);
        EXPECT_TRUE(rig.callsOf(kServiceCalls).isEmpty());
    }
}

TEST(PPPoELogic, StatusEventsOnTheBus)
{
    const struct
    {
        int status;
        qint64 dialState;
        bool unscheduled;
    } cases[] = {
        {NetworkConnectionConnecting, 3, false},
        {NetworkConnectionConnected, 2, false},
        {NetworkConnectionDisconnecting, 3, false},
        {NetworkConnectionInvalid, 0, false},
        {7, 0, false},
        {NetworkConnectionDisconnected, 5, true},
    };
    Rig rig;
    DVError error;
    ASSERT_TRUE(rig.pppoe->dialWithUserName(QStringLiteral("dial"), QStringLiteral("pw"), 0, &error));
    auto conn = rig.fake->conns.back();

    QObject subscriber;
    std::vector<qint64> states;
    DVEvent::shared().addObserver(
        &subscriber,
        [&](const DVEventObjectPtr &obj) {
            const auto *e = dynamic_cast<const DVDialStatusEvent *>(obj.get());
            states.push_back(e ? e->dialState : -100);
        },
        DVEventIdDialStatus, OperationQueue::mainQueue());
    for (const auto &c : cases) {
        SCOPED_TRACE(c.status);
        const size_t before = states.size();
        rig.fake->report(conn, c.status);
        ASSERT_TRUE(TestSupport::spinUntil([&] { return states.size() > before; }));
        EXPECT_EQ(states.back(), c.dialState);
        EXPECT_EQ(!conn->scheduled, c.unscheduled);
    }
    // Once unscheduled, later reports reach nobody.
    rig.fake->report(conn, NetworkConnectionConnected);
    TestSupport::spinUntil([] { return false; }, 100);
    EXPECT_EQ(states.size(), std::size(cases));
    DVEvent::shared().removeObserver(&subscriber, DVEventIdDialStatus);
}

TEST(PPPoELogic, AddressAndConnectedTime)
{
    const struct
    {
        const char *label;
        std::optional<QVariantMap> extended;
        std::optional<QString> ip;
        quint32 connTime;
    } cases[] = {
        {"no extended status", std::nullopt, std::nullopt, 0},
        {"no IPv4, no connect time", QVariantMap{{PPPoEKey::EntNetPPP, QVariantMap{}}}, std::nullopt, 0},
        {"two addresses",
         QVariantMap{
             {PPPoEKey::EntNetIPv4, QVariantMap{{PPPoEKey::PropNetIPv4Addresses,
                                                 QStringList{QStringLiteral("10.0.0.2"), QStringLiteral("10.0.0.3")}}}},
             {PPPoEKey::EntNetPPP, QVariantMap{{PPPoEKey::PropNetPPPConnectTime, 940u}}}},
         QStringLiteral("10.0.0.210.0.0.3"), 60},
        {"empty address list",
         QVariantMap{{PPPoEKey::EntNetIPv4, QVariantMap{{PPPoEKey::PropNetIPv4Addresses, QStringList{}}}}},
         QStringLiteral(""), 0},
    };
    {
        Rig rig;
        EXPECT_EQ(rig.pppoe->getConnTime(), 0u);
        EXPECT_EQ(rig.pppoe->getIP(), std::nullopt);
    }
    for (const auto &c : cases) {
        SCOPED_TRACE(c.label);
        Rig rig;
        rig.fake->uptime = 1000;
        DVError error;
        ASSERT_TRUE(rig.pppoe->dialWithUserName(QStringLiteral("dial"), QStringLiteral("pw"), 0, &error));
        rig.fake->conns.back()->extended = c.extended;
        EXPECT_EQ(rig.pppoe->getIP(), c.ip);
        EXPECT_EQ(rig.pppoe->getConnTime(), c.connTime);
        EXPECT_TRUE(rig.pppoe->stopConn());
    }
}

TEST(PPPoELogic, ErrorTable)
{
    const struct
    {
        qint64 id;
        std::optional<QString> info;
        QString description;
    } cases[] = {
        {0, std::nullopt, QStringLiteral("获取权限失败")},
        {12, QStringLiteral("启动连接失败,错误:5,x"), QStringLiteral("启动连接失败启动连接失败,错误:5,x")},
        {20, QStringLiteral(""), QStringLiteral("所选网卡未连接，请重新选择已经连接的设备或者检查设备连接情况")},
        {22, std::nullopt, QStringLiteral("无法解锁网络设置")},
        {23, QStringLiteral("info"), QString()},
        {-1, std::nullopt, QString()},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.id);
        const DVError e = PPPoE::createErrorWithID(c.id, c.info);
        EXPECT_EQ(e.domain, QStringLiteral("PPPoE"));
        EXPECT_EQ(e.code, c.id);
        EXPECT_EQ(e.localizedDescription, c.description);
        EXPECT_EQ(e.localizedFailureReason, QString());
        EXPECT_EQ(PPPoE::createErrorWithID(c.id, c.info, QStringLiteral("why")).localizedFailureReason,
                  QStringLiteral("why"));
    }
    for (qint64 id = 0; id < 23; ++id)
        EXPECT_FALSE(PPPoE::errorMessage(id).isEmpty()) << id;
}
