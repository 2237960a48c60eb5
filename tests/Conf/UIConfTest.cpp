// What the views are told: texts and links from the configuration, switches from the
// preferences.
#include "ConfTestSupport.h"

#include "Conf/ReceivedConf.h"
#include "Conf/UIConf.h"
#include "Util/UserDefaults.h"
#include "support/TestData.h"

#include <gtest/gtest.h>

using namespace ConfTest;

namespace {

class UIConfTest : public ::testing::Test
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
    static void share(const ordered_json &root)
    {
        auto conf = load(root);
        ASSERT_NE(conf, nullptr);
        Conf::setShared(std::move(conf));
    }
};

// A link's value from the case's `key`: no entry when the case leaves it out.
ordered_json linkValue(const ordered_json &c, const char *key)
{
    return c.contains(key) ? ordered_json{{"default", c.at(key)}} : ordered_json::object();
}

TEST_F(UIConfTest, LinksAreHiddenWithoutAUsableAddressOrWithAnEmptyCaption)
{
    UIConf &ui = UIConf::shared();
    const auto links = TestData::load("conf.json").at("links");
    for (const bool website : {true, false})
        for (const auto &c : links) {
            SCOPED_TRACE(std::string(website ? "website: " : "password: ") + c.dump());
            ordered_json root = completeConfig();
            const std::string link = website ? "app.website" : "app.password";
            setPath(root, link + ".host", linkValue(c, "host"));
            setPath(root, link + ".name", linkValue(c, "caption"));
            share(root);
            EXPECT_EQ(website ? ui.ifWebSiteHidden() : ui.ifPwdLinkHidden(), c.at("hidden").get<bool>());
            // The other link is untouched.
            EXPECT_TRUE(website ? ui.ifPwdLinkHidden() : ui.ifWebSiteHidden());
        }
}

TEST_F(UIConfTest, ForgettingTheInterfaceSwitchAlsoForgetsTheInterface)
{
    UIConf &ui = UIConf::shared();
    struct Case
    {
        bool remember;
        std::optional<QString> interfaceAfter;
    };
    const std::vector<Case> cases = {{true, QStringLiteral("enp3s0")}, {false, std::nullopt}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.remember);
        UserConf().setDefaultInterface(QStringLiteral("enp3s0"));
        ui.setRememberInterface(c.remember);
        EXPECT_EQ(ui.ifRememberInterface(), c.remember);
        EXPECT_EQ(UserConf().getDefaultInterface(), c.interfaceAfter);
    }
    // Switching it off leaves the password memory and automatic log-in alone.
    ui.setRememberPWd(true);
    ui.setAutoLogin(true);
    ui.setRememberInterface(false);
    EXPECT_TRUE(ui.ifRememberPWd());
    EXPECT_TRUE(ui.ifAutoLogin());
}

} // namespace
