#include "Util/DVEnv.h"
#include "Util/UserDefaults.h"

#include "support/TestData.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QTemporaryDir>

namespace {

using TestSupport::writeFile;

// Interfaces in a fake /sys/class/net, as listed in tests/data/env.json.
void makeSys(const QString &root, const TestData::json &ifs)
{
    for (const auto &i : ifs) {
        const QString dir = root + QStringLiteral("/sys/class/net/") + TestData::text(i, "name");
        writeFile(dir + QStringLiteral("/type"), TestData::text(i, "type").toUtf8() + "\n");
        writeFile(dir + QStringLiteral("/address"), TestData::text(i, "address").toUtf8() + "\n");
        for (const char *flag : {"physical", "wireless", "bridge"}) {
            const QString sub = flag == std::string("physical") ? QStringLiteral("device") : QLatin1String(flag);
            if (i.value(flag, false))
                QDir().mkpath(dir + QLatin1Char('/') + sub);
        }
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
    const TestData::json env = TestData::load("env.json");
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
    for (const auto &c : env.at("os")) {
        SCOPED_TRACE(c.dump());
        QTemporaryDir root;
        if (c.contains("osRelease"))
            writeFile(root.path() + QStringLiteral("/etc/os-release"), TestData::text(c, "osRelease").toUtf8());
        if (c.contains("kernel"))
            writeFile(root.path() + QStringLiteral("/proc/sys/kernel/osrelease"),
                      TestData::text(c, "kernel").toUtf8() + "\n");
        DVEnv::shared().setSystemRoot(root.path());
        EXPECT_EQ(DVEnv::shared().getOSType(), TestData::text(c, "type"));
        EXPECT_EQ(DVEnv::shared().getOSVersion(), TestData::text(c, "version"));
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
              "Package: google-chrome-stable\nStatus: install ok installed\nVersion: 99\n\n"
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
    for (const auto &c : env.at("primaryInterface")) {
        SCOPED_TRACE(c.dump());
        QTemporaryDir root;
        makeSys(root.path(), c.at("interfaces"));
        DVEnv::shared().setSystemRoot(root.path());
        EXPECT_EQ(DVEnv::shared().primaryInterfaceName(), TestData::text(c, "primary"));
        EXPECT_EQ(DVEnv::shared().getPrimaryMacAddress(), TestData::opt(c, "mac"));
        // None of these names carries an address on this machine.
        EXPECT_EQ(DVEnv::shared().getIPAddress(), QStringLiteral("error"));
    }
}
