// Values sent by the servers, kept per area in the preferences.
#include "ConfTestSupport.h"

#include "Conf/ReceivedConf.h"
#include "Util/UserDefaults.h"
#include "support/TestData.h"

#include <QSettings>

#include <gtest/gtest.h>

using namespace ConfTest;

namespace {

class ReceivedConfTest : public Fixture
{
protected:
    static QStringList storedKeys()
    {
        return QSettings(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("dorvik"),
                         QStringLiteral("dorvik"))
            .allKeys();
    }
};

// The three members the client knows, each through its own getter and setter.
struct Member
{
    const char *key;
    std::optional<QString> (ReceivedConf::*get)() const;
    void (ReceivedConf::*set)(const std::optional<QString> &);
};
const std::vector<Member> kMembers = {
    {"HeartServerAddress", &ReceivedConf::getHeartServerAddress, &ReceivedConf::setHeartServerAddress},
    {"UpdateServerAddress", &ReceivedConf::getUpdateServerAddress, &ReceivedConf::setUpdateServerAddress},
    {"hiturl", &ReceivedConf::getTabHost, &ReceivedConf::setTabHost},
};

TEST_F(ReceivedConfTest, EachAreaKeepsItsOwnValues)
{
    ReceivedConf &received = ReceivedConf::shared();
    for (const Member &m : kMembers) {
        SCOPED_TRACE(m.key);
        resetPreferences();
        Conf::setArea(QStringLiteral("1001"));
        (received.*m.set)(QStringLiteral("http://a.example/"));
        EXPECT_EQ((received.*m.get)(), QStringLiteral("http://a.example/"));
        // Stored under the member's own name in the area's object.
        EXPECT_EQ(UserDefaults::loadValueForKey(QStringLiteral("1001")).toMap().value(QLatin1String(m.key)),
                  QVariant(QStringLiteral("http://a.example/")));

        Conf::setArea(QStringLiteral("1002"));
        EXPECT_EQ((received.*m.get)(), std::nullopt);
        (received.*m.set)(QStringLiteral("http://b.example/"));
        EXPECT_EQ((received.*m.get)(), QStringLiteral("http://b.example/"));

        Conf::setArea(QStringLiteral("1001"));
        EXPECT_EQ((received.*m.get)(), QStringLiteral("http://a.example/"));
    }
}

TEST_F(ReceivedConfTest, WithoutAnAreaReadsAreAbsentAndWritesAreDropped)
{
    ReceivedConf &received = ReceivedConf::shared();
    Conf::setArea(QStringLiteral("1001"));
    received.setTabHost(QStringLiteral("http://kept.example/"));
    Conf::setArea(QString());
    const QStringList keysBefore = storedKeys();

    for (const Member &m : kMembers) {
        SCOPED_TRACE(m.key);
        EXPECT_EQ((received.*m.get)(), std::nullopt);
        LogCapture log;
        (received.*m.set)(QStringLiteral("http://dropped.example/"));
        EXPECT_EQ(log.lines().size(), 1);
    }
    {
        LogCapture log;
        EXPECT_FALSE(received.saveAreaObject({{QStringLiteral("hiturl"), QStringLiteral("x")}}));
        EXPECT_FALSE(received.saveAreaObjectJson({{"hiturl", "x"}}));
        EXPECT_EQ(log.lines().size(), 2);
    }
    EXPECT_FALSE(received.getValueOfKey(QStringLiteral("hiturl")).isValid());
    EXPECT_EQ(storedKeys(), keysBefore);

    Conf::setArea(QStringLiteral("1001"));
    EXPECT_EQ(received.getTabHost(), QStringLiteral("http://kept.example/"));
}

TEST_F(ReceivedConfTest, TabAddressFromTheServerWinsOnlyWhenItIsAUrl)
{
    ReceivedConf &received = ReceivedConf::shared();
    ordered_json root = completeConfig();
    setPath(root, "tab.url", {{"default", "http://file.example/ad"}});
    const auto conf = load(root);
    ASSERT_NE(conf, nullptr);
    Conf::setArea(QStringLiteral("1001"));

    const QString file = QStringLiteral("http://file.example/ad");
    EXPECT_EQ(conf->tab.getUrl(), file);           // nothing received
    const auto data = TestData::load("conf.json"); // the loop must not outlive the document
    for (const auto &c : data.at("tabAddresses")) {
        SCOPED_TRACE(c.dump());
        resetPreferences();
        const QString address = TestData::text(c, "address");
        conf->tab.setTabUrl(address);
        EXPECT_EQ(conf->tab.getUrl(), c.at("taken").get<bool>() ? address : file);
    }

    // The received address is kept per area and never replaces the file's value.
    resetPreferences();
    conf->tab.setTabUrl(QStringLiteral("http://10.1.2.3/portal"));
    EXPECT_EQ(received.getTabHost(), QStringLiteral("http://10.1.2.3/portal"));
    Conf::setArea(QStringLiteral("1002"));
    EXPECT_EQ(conf->tab.getUrl(), file);
    EXPECT_EQ(conf->tab.url.text(), file);
}

} // namespace
