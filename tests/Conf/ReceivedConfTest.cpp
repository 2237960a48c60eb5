// Values sent by the servers, kept per area in the preferences.
#include "ConfTestSupport.h"

#include "Conf/ReceivedConf.h"
#include "Util/UserDefaults.h"

#include <QSettings>

#include <gtest/gtest.h>

using namespace ConfTest;

namespace {

class ReceivedConfTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        resetPreferences();
        Conf::setArea(QString());
    }
    void TearDown() override
    {
        Conf::setArea(QString());
        Conf::setShared(nullptr);
    }

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

TEST_F(ReceivedConfTest, SettersKeepOtherMembersAndIgnoreAbsentValues)
{
    ReceivedConf &received = ReceivedConf::shared();
    Conf::setArea(QStringLiteral("1001"));
    for (const Member &m : kMembers)
        (received.*m.set)(QLatin1String(m.key) + QStringLiteral("-value"));
    for (const Member &m : kMembers) {
        SCOPED_TRACE(m.key);
        (received.*m.set)(std::nullopt);
        for (const Member &other : kMembers)
            EXPECT_EQ((received.*other.get)(), QLatin1String(other.key) + QStringLiteral("-value"));
    }
    received.saveValue(QVariant(), QStringLiteral("hiturl"));
    received.saveValue(QStringLiteral("x"), QString());
    EXPECT_EQ(received.areaObject().size(), 3);
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

TEST_F(ReceivedConfTest, ARegistrationAnswerReplacesTheWholeObject)
{
    ReceivedConf &received = ReceivedConf::shared();
    Conf::setArea(QStringLiteral("1002"));
    received.setTabHost(QStringLiteral("http://old.example/"));
    received.setUpdateServerAddress(QStringLiteral("http://old-update.example/"));

    const ordered_json infos = {{"HeartServerAddress", "http://127.0.0.1:18080"}, {"port", 18080}, {"flags", {1, 2}}};
    EXPECT_TRUE(received.saveAreaObjectJson(infos));
    EXPECT_EQ(received.getHeartServerAddress(), QStringLiteral("http://127.0.0.1:18080"));
    EXPECT_EQ(received.getTabHost(), std::nullopt);
    EXPECT_EQ(received.getUpdateServerAddress(), std::nullopt);
    EXPECT_EQ(received.getValueOfKey(QStringLiteral("port")).toInt(), 18080);
    EXPECT_EQ(received.getValueOfKey(QStringLiteral("flags")).toList().size(), 2);

    // A later single value is merged into it.
    received.setTabHost(QStringLiteral("http://new.example/"));
    EXPECT_EQ(received.getHeartServerAddress(), QStringLiteral("http://127.0.0.1:18080"));
    EXPECT_EQ(received.getTabHost(), QStringLiteral("http://new.example/"));

    // Something that is no object leaves the stored one as it was.
    for (const ordered_json &bad : {ordered_json("text"), ordered_json::array(), ordered_json(nullptr)}) {
        LogCapture log;
        EXPECT_FALSE(received.saveAreaObjectJson(bad));
        EXPECT_EQ(log.lines().size(), 1);
        EXPECT_EQ(received.getTabHost(), QStringLiteral("http://new.example/"));
    }
}

TEST_F(ReceivedConfTest, MembersOfOtherKindsReadAsText)
{
    ReceivedConf &received = ReceivedConf::shared();
    Conf::setArea(QStringLiteral("1001"));
    struct Case
    {
        ordered_json value;
        std::optional<QString> expected;
    };
    const std::vector<Case> cases = {
        {"http://h/", QStringLiteral("http://h/")},
        {18080, QStringLiteral("18080")},
        {true, QStringLiteral("true")},
        {ordered_json::object({{"a", 1}}), std::nullopt},
        {ordered_json::array({"a"}), std::nullopt},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.value.dump());
        received.saveAreaObjectJson({{"HeartServerAddress", c.value}});
        EXPECT_EQ(received.getHeartServerAddress(), c.expected);
    }
    // A stored entry that is no object is not used.
    UserDefaults::saveValue(QStringLiteral("garbage"), QStringLiteral("1001"));
    LogCapture log;
    EXPECT_EQ(received.getHeartServerAddress(), std::nullopt);
    received.setTabHost(QStringLiteral("http://fresh/"));
    EXPECT_EQ(received.getTabHost(), QStringLiteral("http://fresh/"));
}

TEST_F(ReceivedConfTest, TabAddressFromTheServerWinsOnlyWhenItIsAUrl)
{
    ReceivedConf &received = ReceivedConf::shared();
    ordered_json root = completeConfig();
    setPath(root, "tab.url", {{"default", "http://file.example/ad"}});
    const auto conf = load(root);
    ASSERT_NE(conf, nullptr);
    Conf::setArea(QStringLiteral("1001"));

    struct Case
    {
        std::optional<QString> receivedAddress;
        QString expected;
    };
    const QString file = QStringLiteral("http://file.example/ad");
    const std::vector<Case> cases = {
        {std::nullopt, file},
        {QStringLiteral("http://10.1.2.3/portal"), QStringLiteral("http://10.1.2.3/portal")},
        {QStringLiteral("https://ad.example:8443/p?x=1#top"), QStringLiteral("https://ad.example:8443/p?x=1#top")},
        {QString(), file},
        {QStringLiteral("not a url"), file},
        {QStringLiteral("ad.example/page"), file},
        {QStringLiteral("/relative/page"), file},
        {QStringLiteral("http://"), file},
        {QStringLiteral("file:///etc/passwd"), file},
        {QStringLiteral("http://bad host/"), file},
        {QStringLiteral("http://[::1/"), file},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.receivedAddress.value_or(QStringLiteral("<absent>")).toStdString());
        resetPreferences();
        if (c.receivedAddress)
            conf->tab.setTabUrl(*c.receivedAddress);
        EXPECT_EQ(conf->tab.getUrl(), c.expected);
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
