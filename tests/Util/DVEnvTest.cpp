#include "Util/DVEnv.h"
#include "Util/UserDefaults.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QNetworkInterface>
#include <QRegularExpression>
#include <QTemporaryDir>

namespace {

void writeFile(const QString &path, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write(content);
}

// One interface in a fake /sys/class/net.
struct FakeIf
{
    const char *name;
    const char *type;
    const char *address;
    bool physical;
    bool wireless;
    bool bridge;
};

void makeSys(const QString &root, const std::vector<FakeIf> &ifs)
{
    for (const FakeIf &i : ifs) {
        const QString dir = root + QStringLiteral("/sys/class/net/") + QLatin1String(i.name);
        writeFile(dir + QStringLiteral("/type"), QByteArray(i.type) + "\n");
        writeFile(dir + QStringLiteral("/address"), QByteArray(i.address) + "\n");
        if (i.physical)
            QDir().mkpath(dir + QStringLiteral("/device"));
        if (i.wireless)
            QDir().mkpath(dir + QStringLiteral("/wireless"));
        if (i.bridge)
            QDir().mkpath(dir + QStringLiteral("/bridge"));
    }
}

class DVEnvTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        for (const QString &k : {PrefKey::lastUpDate, PrefKey::lastDownDate, PrefKey::lastUpLong})
            UserDefaults::saveValue(QVariant(), k);
        DVEnv::shared().setClock(clock);
    }
    void TearDown() override
    {
        DVEnv::shared().setClock(nullptr);
        DVEnv::shared().setSystemRoot(QString());
    }
    std::shared_ptr<ManualClock> clock =
        std::make_shared<ManualClock>(QDateTime::fromSecsSinceEpoch(1700000000, Qt::UTC));
};

} // namespace

TEST_F(DVEnvTest, ConnectionRecord)
{
    DVEnv &env = DVEnv::shared();
    // Nothing recorded yet: the getters give "", "" and 0, and a disconnection writes nothing.
    EXPECT_EQ(env.getLastConnectionBeginTime(), QStringLiteral(""));
    EXPECT_EQ(env.getLastConnectionEndTime(), QStringLiteral(""));
    EXPECT_EQ(env.getLastConnectionTimeLong(), 0u);
    env.recordConnDown();
    for (const QString &k : {PrefKey::lastUpDate, PrefKey::lastDownDate, PrefKey::lastUpLong})
        EXPECT_FALSE(UserDefaults::loadValueForKey(k).isValid()) << k.toStdString();

    env.recordConnUp();
    clock->set(clock->now().addMSecs(125750));
    env.recordConnDown();
    const QString up = env.getLastConnectionBeginTime();
    const QString down = env.getLastConnectionEndTime();
    EXPECT_FALSE(up.isEmpty());
    EXPECT_FALSE(down.isEmpty());
    EXPECT_NE(up, down);
    EXPECT_DOUBLE_EQ(UserDefaults::loadValueForKey(PrefKey::lastUpLong).toDouble(), 125.75);
    EXPECT_EQ(env.getLastConnectionTimeLong(), 125u);

    // The begin time stays: a second disconnection measures from the same moment.
    clock->set(clock->now().addSecs(10));
    env.recordConnDown();
    EXPECT_EQ(env.getLastConnectionTimeLong(), 135u);
    EXPECT_EQ(env.getLastConnectionBeginTime(), up);
}

TEST_F(DVEnvTest, OperatingSystemTexts)
{
    const struct
    {
        const char *label;
        const char *osRelease; // null: no file
        const char *kernel;
        const char *type;
        const char *version;
    } cases[] = {
        {"name and version", "NAME=\"Debian GNU/Linux\"\nVERSION_ID=\"12\"\nVERSION=\"12 (bookworm)\"\n", "6.1.0",
         "Debian GNU/Linux12 (bookworm)", "12 (bookworm)"},
        {"version id only", "NAME=Fedora\nVERSION_ID=39\n", "6.5.0", "Fedora39", "39"},
        {"rolling release", "NAME=\"Arch Linux\"\nID=arch\n", "6.6.1-arch1", "Arch Linux6.6.1-arch1", "6.6.1-arch1"},
        {"no os-release", nullptr, "6.1.0-13-amd64", "Linux6.1.0-13-amd64", "6.1.0-13-amd64"},
        {"nothing known", nullptr, nullptr, "Linux", ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.label);
        QTemporaryDir root;
        if (c.osRelease)
            writeFile(root.path() + QStringLiteral("/etc/os-release"), c.osRelease);
        if (c.kernel)
            writeFile(root.path() + QStringLiteral("/proc/sys/kernel/osrelease"), QByteArray(c.kernel) + "\n");
        DVEnv::shared().setSystemRoot(root.path());
        EXPECT_EQ(DVEnv::shared().getOSType(), QString::fromUtf8(c.type));
        EXPECT_EQ(DVEnv::shared().getOSVersion(), QString::fromUtf8(c.version));
    }
}

TEST_F(DVEnvTest, MachineFacts)
{
    QTemporaryDir root;
    writeFile(root.path() + QStringLiteral("/proc/meminfo"), "MemTotal:       16318540 kB\nMemFree:  1 kB\n");
    writeFile(root.path() + QStringLiteral("/proc/cpuinfo"),
              "processor\t: 0\nmodel name\t: Intel(R) Core(TM) i7-8550U CPU @ 1.80GHz\n\nprocessor\t: 1\n"
              "model name\t: other\n");
    writeFile(root.path() + QStringLiteral("/usr/lib/firefox-esr/application.ini"),
              "[App]\nVendor=Mozilla\nVersion=115.6.0esr\n");
    DVEnv::shared().setSystemRoot(root.path());
    EXPECT_EQ(DVEnv::shared().getMemorySize(), 16318540u);
    EXPECT_EQ(DVEnv::shared().getCpuInfo(), QStringLiteral("Intel(R) Core(TM) i7-8550U CPU @ 1.80GHz"));
    EXPECT_EQ(DVEnv::shared().getSafariVersion(), QStringLiteral("Firefox 115.6.0esr"));

    QTemporaryDir dpkg;
    writeFile(dpkg.path() + QStringLiteral("/var/lib/dpkg/status"),
              "Package: chromium\nStatus: deinstall ok config-files\nVersion: 1.0\n\n"
              "Package: chromium\nStatus: install ok installed\nVersion: 120.0.6099.224-1~deb12u1\n");
    DVEnv::shared().setSystemRoot(dpkg.path());
    EXPECT_EQ(DVEnv::shared().getSafariVersion(), QStringLiteral("Chromium 120.0.6099.224-1~deb12u1"));
    EXPECT_EQ(DVEnv::shared().getCpuInfo(), QStringLiteral(""));

    QTemporaryDir empty;
    DVEnv::shared().setSystemRoot(empty.path());
    EXPECT_EQ(DVEnv::shared().getSafariVersion(), QStringLiteral(""));
}

TEST_F(DVEnvTest, PrimaryEthernetInterface)
{
    const struct
    {
        const char *label;
        std::vector<FakeIf> ifs;
        const char *primary;
        std::optional<QString> mac;
    } cases[] = {
        {"physical wired wins over earlier virtual and wireless",
         {{"docker0", "1", "02:42:AC:11:00:01", false, false, true},
          {"enp0s31f6", "1", "54:E1:AD:12:34:56", true, false, false},
          {"eth9", "1", "00:00:00:00:00:09", false, false, false},
          {"wlp2s0", "1", "7C:2A:31:00:00:01", true, true, false}},
         "enp0s31f6",
         QStringLiteral("54:e1:ad:12:34:56")},
        {"first physical in name order",
         {{"ethq1", "1", "52:54:00:00:00:02", true, false, false},
          {"ethq0", "1", "52:54:00:00:00:01", true, false, false}},
         "ethq0",
         QStringLiteral("52:54:00:00:00:01")},
        {"no physical: first virtual Ethernet",
         {{"lo", "772", "00:00:00:00:00:00", false, false, false},
          {"veth1", "1", "a2:00:00:00:00:01", false, false, false},
          {"br0", "1", "a2:00:00:00:00:00", false, false, true}},
         "veth1",
         QStringLiteral("a2:00:00:00:00:01")},
        {"only wireless and loopback: none",
         {{"wlan0", "1", "7c:00:00:00:00:01", true, true, false},
          {"lo", "772", "00:00:00:00:00:00", false, false, false}},
         "",
         std::nullopt},
        {"unreadable address", {{"ethq0", "1", "garbage", true, false, false}}, "ethq0", std::nullopt},
    };
    static const QRegularExpression form(QStringLiteral("^[0-9a-f]{2}(:[0-9a-f]{2}){5}$"));
    for (const auto &c : cases) {
        SCOPED_TRACE(c.label);
        QTemporaryDir root;
        makeSys(root.path(), c.ifs);
        DVEnv::shared().setSystemRoot(root.path());
        EXPECT_EQ(DVEnv::shared().primaryInterfaceName(), QLatin1String(c.primary));
        EXPECT_EQ(DVEnv::shared().getPrimaryMacAddress(), c.mac);
        EXPECT_EQ(DVEnv::shared().getMacAddress(), c.mac);
        if (c.mac) {
            EXPECT_TRUE(form.match(*c.mac).hasMatch());
        }
        // None of these names carries an address on this machine.
        EXPECT_EQ(DVEnv::shared().getIPAddress(), QStringLiteral("error"));
    }
}

TEST_F(DVEnvTest, IPv4OfThePrimaryInterface)
{
    // Stand a real interface of this machine in as the primary one.
    for (const QNetworkInterface &nif : QNetworkInterface::allInterfaces()) {
        if (nif.flags().testFlag(QNetworkInterface::IsLoopBack))
            continue;
        QString last;
        for (const QNetworkAddressEntry &e : nif.addressEntries()) {
            if (e.ip().protocol() == QAbstractSocket::IPv4Protocol)
                last = e.ip().toString();
        }
        if (last.isEmpty())
            continue;
        QTemporaryDir root;
        makeSys(root.path(), {{"aaa0", "1", "52:54:00:00:00:01", false, false, false}});
        const QString dir = root.path() + QStringLiteral("/sys/class/net/") + nif.name();
        writeFile(dir + QStringLiteral("/type"), "1\n");
        writeFile(dir + QStringLiteral("/address"), "52:54:00:00:00:02\n");
        QDir().mkpath(dir + QStringLiteral("/device"));
        DVEnv::shared().setSystemRoot(root.path());
        EXPECT_EQ(DVEnv::shared().primaryInterfaceName(), nif.name());
        EXPECT_EQ(DVEnv::shared().getIPAddress(), last);
        return;
    }
    GTEST_SKIP() << "this machine has no IPv4 address outside the loopback";
}

TEST_F(DVEnvTest, RealMachineAnswersInTheirForms)
{
    DVEnv &env = DVEnv::shared();
    static const QRegularExpression mac(QStringLiteral("^[0-9a-f]{2}(:[0-9a-f]{2}){5}$"));
    static const QRegularExpression ipv4(QStringLiteral("^\\d{1,3}(\\.\\d{1,3}){3}$"));
    if (const auto m = env.getPrimaryMacAddress()) {
        EXPECT_TRUE(mac.match(*m).hasMatch()) << m->toStdString();
    }
    const QString ip = env.getIPAddress();
    EXPECT_TRUE(ip == QLatin1String("error") || ipv4.match(ip).hasMatch()) << ip.toStdString();
    EXPECT_GT(env.getMemorySize(), 0u);
    EXPECT_FALSE(env.getOSType().isEmpty());
    EXPECT_TRUE(env.getOSType().endsWith(env.getOSVersion()));
}
