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
    EXPECT_EQ(conf->tab.getUrl(), file); // nothing received
    // The first two are taken; the others are no usable address.
    const char *const addresses[] = {"http://10.1.2.3/portal",
                                     "https://ad.example:8443/p?x=1#top",
                                     "",
                                     "not a url",
                                     "ad.example/page",
                                     "/relative/page",
                                     "http://",
                                     "file:///etc/passwd",
                                     "http://bad host/",
                                     "http://[::1/"};
    for (size_t i = 0; i < std::size(addresses); ++i) {
        SCOPED_TRACE(addresses[i]);
        resetPreferences();
        conf->tab.setTabUrl(QString::fromUtf8(addresses[i]));
        EXPECT_EQ(conf->tab.getUrl(), i < 2 ? QString::fromUtf8(addresses[i]) : file);
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
