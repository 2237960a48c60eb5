// The dialing layer against a real NetworkManager, started by rig/nm-rig.sh in a private
// network namespace with its own system bus. The kernel has no PPP, so /usr/sbin/pppd is a
// stand-in inside NetworkManager's mount namespace that speaks NetworkManager's PPP protocol.

#include "Dial/PPPoE.h"
#include "Dial/networkmanager/NMBus.h"
#include "Dial/networkmanager/NMPlatform.h"

#include "Util/DVEvent.h"
#include "support/LogCapture.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QProcess>

namespace {

using States = std::vector<qint64>;

// Collects the dial states fired on the event bus, delivered on the main queue.
class StateLog : public QObject
{
public:
    StateLog()
    {
        DVEvent::shared().addObserver(
            this,
            [this](const DVEventObjectPtr &obj) {
                if (const auto *e = dynamic_cast<const DVDialStatusEvent *>(obj.get())) {
                    states.push_back(e->dialState);
                    if (!e->endCause.isEmpty())
                        causes.push_back(e->endCause);
                }
            },
            DVEventIdDialStatus, OperationQueue::mainQueue());
    }
    ~StateLog() override { DVEvent::shared().removeObserver(this, DVEventIdDialStatus); }
    // Runs the event loop until the last state is `last`.
    bool waitFor(qint64 last, int ms = 15000)
    {
        return TestSupport::spinUntil([&] { return !states.empty() && states.back() == last; }, ms);
    }
    States states;
    std::vector<QString> causes; // why each "disconnected" came
};

QString readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
}

struct Rig
{
    QString dir;
    QMap<QString, QString> env;
    QString operator[](const char *key) const { return env.value(QLatin1String(key)); }

    // The stand-in accepts exactly this dial name and password (it gets a digest, not the password).
    void expect(const QString &name, const QString &password) const
    {
        QFile f(env.value(QStringLiteral("expect")));
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(QCryptographicHash::hash((name + QLatin1Char('\n') + password).toUtf8(), QCryptographicHash::Sha256)
                    .toHex());
    }
};

// Every "dorvik" profile NetworkManager holds: uuid -> settings.
QMap<QString, NMSettingsMap> dorvikProfiles()
{
    QMap<QString, NMSettingsMap> out;
    const auto r = NMBus::call(NMBus::SettingsPath, NMBus::SettingsInterface, QStringLiteral("ListConnections"));
    for (const QDBusObjectPath &p : NMBus::toPathList(r.first())) {
        const auto s =
            NMBus::toSettings(NMBus::call(p.path(), NMBus::ConnectionInterface, QStringLiteral("GetSettings")).first());
        if (s.value(QStringLiteral("connection")).value(QStringLiteral("id")).toString() == QLatin1String("dorvik"))
            out.insert(s.value(QStringLiteral("connection")).value(QStringLiteral("uuid")).toString(), s);
    }
    return out;
}

void deleteDorvikProfiles()
{
    const auto r = NMBus::call(NMBus::SettingsPath, NMBus::SettingsInterface, QStringLiteral("ListConnections"));
    for (const QDBusObjectPath &p : NMBus::toPathList(r.first()))
        NMBus::call(p.path(), NMBus::ConnectionInterface, QStringLiteral("Delete"));
}

int indexOf(const std::vector<NetworkInterfaceInfo> &list, const QString &bsd)
{
    for (size_t i = 0; i < list.size(); ++i) {
        if (list[i]._bsdName == bsd)
            return int(i);
    }
    return -1;
}

class NMDial : public ::testing::Test
{
protected:
    void SetUp() override
    {
        const QString skip = qEnvironmentVariable("DORVIK_NM_RIG_SKIP");
        if (!skip.isEmpty())
            GTEST_SKIP() << "NetworkManager rig unavailable: " << skip.toStdString();
        rig.dir = qEnvironmentVariable("DORVIK_NM_RIG");
        if (rig.dir.isEmpty())
            GTEST_SKIP() << "run through tests/Dial/rig/nm-rig.sh (it starts the NetworkManager rig)";
        const QStringList lines = readAll(rig.dir + QStringLiteral("/rig.env")).split(QLatin1Char('\n'));
        for (const QString &l : lines) {
            const int eq = l.indexOf(QLatin1Char('='));
            if (eq > 0)
                rig.env.insert(l.left(eq), l.mid(eq + 1));
        }
        deleteDorvikProfiles();
        pppoe = std::make_unique<PPPoE>(std::make_unique<NMPlatform>(clock));
        // NetworkManager takes over the veth ends shortly after it starts.
        ASSERT_TRUE(becomesActive(rig["wired"])) << "the wired interface never became usable";
    }
    void TearDown() override
    {
        if (pppoe)
            pppoe->stopConn();
        pppoe.reset();
    }

    int wiredIndex() { return indexOf(pppoe->getInterfaceList(), rig["wired"]); }
    bool becomesActive(const QString &bsd)
    {
        return TestSupport::spinUntil(
            [&] {
                const auto list = pppoe->getInterfaceList();
                const int i = indexOf(list, bsd);
                return i >= 0 && list[size_t(i)]._isActive;
            },
            15000);
    }

    Rig rig;
    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    std::unique_ptr<PPPoE> pppoe;
};

} // namespace

TEST_F(NMDial, ListsTheNamespaceInterfaces)
{
    const auto list = pppoe->getInterfaceList();
    QStringList names;
    for (const auto &i : list)
        names << i._bsdName;
    // The wired end with carrier first, the one without after it; unmanaged veth ends and the
    // loopback are not offered.
    EXPECT_EQ(names, (QStringList{rig["wired"], rig["nocarrier"]}));
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0]._displayName, QStringLiteral("以太网 (%1)").arg(rig["wired"]));
    EXPECT_TRUE(list[0]._isActive);
    EXPECT_FALSE(list[1]._isActive);
    EXPECT_EQ(list[0]._macAddress,
              readAll(QStringLiteral("/sys/class/net/%1/address").arg(rig["wired"])).trimmed().toLower());
    EXPECT_TRUE(pppoe->getStatusOfInterface(rig["wired"]));
    EXPECT_FALSE(pppoe->getStatusOfInterface(rig["nocarrier"]));
    EXPECT_FALSE(pppoe->getStatusOfInterface(rig["unmanaged"]));
    EXPECT_FALSE(pppoe->getStatusOfInterface(QStringLiteral("nosuch0")));
    // Refusing the one without carrier is the manager's, whatever the back-end (PPPoELogicTest).
}

TEST_F(NMDial, ProfileCreatedReusedAndMovedWithRefusedLogIns)
{
    LogCapture logs;
    StateLog log;
    rig.expect(QStringLiteral("someone-else"), QStringLiteral("x"));

    // First dial: the profile is made on the wired end, the log-in is refused.
    DVError error;
    ASSERT_TRUE(pppoe->dialWithUserName(QStringLiteral("dial-1"), QStringLiteral("pw-1"), wiredIndex(), &error))
        << error.description().toStdString() << " " << error.localizedFailureReason.toStdString();
    EXPECT_TRUE(error.domain.isEmpty()) << error.description().toStdString();
    ASSERT_TRUE(log.waitFor(5));
    EXPECT_EQ(log.states.front(), 3);
    EXPECT_TRUE(logs.contains(QStringLiteral("is down:"))) << logs.lines().join(QLatin1Char('\n')).toStdString();
    auto profiles = dorvikProfiles();
    ASSERT_EQ(profiles.size(), 1);
    const QString firstUuid = profiles.firstKey();
    const NMSettingsMap s = profiles.first();
    EXPECT_EQ(s[QStringLiteral("connection")][QStringLiteral("type")].toString(), QStringLiteral("pppoe"));
    EXPECT_EQ(s[QStringLiteral("connection")][QStringLiteral("autoconnect")].toBool(), false);
    EXPECT_EQ(s[QStringLiteral("connection")][QStringLiteral("interface-name")].toString(),
              QStringLiteral("ppp-dorvik"));
    EXPECT_EQ(s[QStringLiteral("pppoe")][QStringLiteral("parent")].toString(), rig["wired"]);
    EXPECT_EQ(s[QStringLiteral("pppoe")][QStringLiteral("username")].toString(), QStringLiteral("dial-1"));
    EXPECT_EQ(s[QStringLiteral("pppoe")][QStringLiteral("password-flags")].toUInt(), 2u);
    EXPECT_TRUE(readAll(rig["pppdlog"]).contains(QStringLiteral("secrets mismatch for user 'dial-1'")));
    // Never up: not a drop (a refusal the redial supervisor counts, or a failed start).
    ASSERT_EQ(log.causes.size(), 1u);
    EXPECT_NE(log.causes[0], QStringLiteral("dropped"));

    // Same interface: the profile is reused.
    log.states.clear();
    ASSERT_TRUE(pppoe->dialWithUserName(QStringLiteral("dial-2"), QStringLiteral("pw-2"), wiredIndex(), &error));
    ASSERT_TRUE(log.waitFor(5));
    profiles = dorvikProfiles();
    ASSERT_EQ(profiles.size(), 1);
    EXPECT_EQ(profiles.firstKey(), firstUuid);
    EXPECT_EQ(profiles.first()[QStringLiteral("pppoe")][QStringLiteral("username")].toString(),
              QStringLiteral("dial-2"));

    // Give the second end a carrier and dial there: the profile is removed and made anew.
    QProcess ip;
    ip.start(QStringLiteral("ip"),
             {QStringLiteral("link"), QStringLiteral("set"), rig["nocarrierpeer"], QStringLiteral("up")});
    ASSERT_TRUE(ip.waitForFinished(5000));
    ASSERT_EQ(ip.exitCode(), 0) << ip.readAllStandardError().toStdString();
    ASSERT_TRUE(becomesActive(rig["nocarrier"]));
    log.states.clear();
    const int other = indexOf(pppoe->getInterfaceList(), rig["nocarrier"]);
    ASSERT_TRUE(pppoe->dialWithUserName(QStringLiteral("dial-3"), QStringLiteral("pw-3"), quint64(other), &error));
    ASSERT_TRUE(log.waitFor(5));
    profiles = dorvikProfiles();
    ASSERT_EQ(profiles.size(), 1);
    EXPECT_NE(profiles.firstKey(), firstUuid);
    EXPECT_EQ(profiles.first()[QStringLiteral("pppoe")][QStringLiteral("parent")].toString(), rig["nocarrier"]);
}

TEST_F(NMDial, ConnectsWithTheDialledCredentialsAndHangsUp)
{
    const QString name = QStringLiteral("demo@area1001");
    const QString password = QStringLiteral("Pw-%1-secret").arg(QCoreApplication::applicationPid());
    rig.expect(name, password);
    StateLog log;
    DVError error;
    ASSERT_TRUE(pppoe->dialWithUserName(name, password, wiredIndex(), &error));
    EXPECT_TRUE(error.domain.isEmpty()) << error.description().toStdString();
    ASSERT_TRUE(log.waitFor(2)) << readAll(rig["pppdlog"]).toStdString();
    EXPECT_EQ(log.states, (States{3, 2}));
    EXPECT_EQ(pppoe->getIP(), QStringLiteral("10.64.0.2"));
    EXPECT_EQ(pppoe->getMacAddress(),
              readAll(QStringLiteral("/sys/class/net/%1/address").arg(rig["wired"])).trimmed().toLower());
    clock->advanceSecs(42);
    EXPECT_EQ(pppoe->getConnTime(), 42u);
    EXPECT_TRUE(readAll(rig["pppdlog"]).contains(QStringLiteral("secrets ok for user '%1'").arg(name)));
    // The profile never reaches the persistent profile directory. (That the password is in no
    // file and no argument list is the secret scan's to check, over the same rig.)
    EXPECT_EQ(QDir(rig["connections"]).entryList(QDir::Files | QDir::Hidden), QStringList());

    // A second dial while connected is refused with the state error.
    DVError busy;
    pppoe->dialWithUserName(name, password, wiredIndex(), &busy);
    EXPECT_EQ(busy.localizedDescription, QStringLiteral("拨号连接状态错误"));

    ASSERT_TRUE(pppoe->stopConn());
    ASSERT_TRUE(log.waitFor(5));
    EXPECT_EQ(log.states, (States{3, 2, 3, 5}));
    EXPECT_EQ(log.causes, std::vector<QString>{QStringLiteral("user")});
    EXPECT_EQ(pppoe->getIP(), std::nullopt);
    EXPECT_EQ(pppoe->getConnTime(), 0u);
    EXPECT_FALSE(pppoe->stopConn());
}
