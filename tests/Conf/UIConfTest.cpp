// What the views are told: texts and links from the configuration, switches from the
// preferences.
#include "ConfTestSupport.h"

#include "Conf/ReceivedConf.h"
#include "Conf/UIConf.h"
#include "Util/UserDefaults.h"

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

// A link value: absent when no entry applies.
ordered_json linkValue(const std::optional<ordered_json> &entry)
{
    return entry ? ordered_json{{"default", *entry}} : ordered_json::object();
}

TEST_F(UIConfTest, LinksAreHiddenWithoutAUsableAddressOrWithAnEmptyCaption)
{
    UIConf &ui = UIConf::shared();
    struct Case
    {
        const char *name;
        std::optional<ordered_json> host;
        std::optional<ordered_json> caption;
        bool hidden;
    };
    const std::vector<Case> cases = {
        {"address and caption", "http://127.0.0.1:18081/portal", "营业厅", false},
        {"absent caption does not hide", "http://127.0.0.1:18081/portal", std::nullopt, false},
        {"empty caption hides", "http://127.0.0.1:18081/portal", "", true},
        {"caption of blanks is not empty", "http://127.0.0.1:18081/portal", " ", false},
        {"absent address hides", std::nullopt, "营业厅", true},
        {"empty address hides", "", "营业厅", true},
        {"malformed address hides", "http://bad host/", "营业厅", true},
        {"address without scheme hides", "www.example.com/portal", "营业厅", true},
        {"address that is no text hides", ordered_json::array({"http://h/"}), "营业厅", true},
    };
    for (const bool website : {true, false})
        for (const Case &c : cases) {
            SCOPED_TRACE(std::string(website ? "website: " : "password: ") + c.name);
            ordered_json root = completeConfig();
            const std::string link = website ? "app.website" : "app.password";
            setPath(root, link + ".host", linkValue(c.host));
            setPath(root, link + ".name", linkValue(c.caption));
            share(root);
            EXPECT_EQ(website ? ui.ifWebSiteHidden() : ui.ifPwdLinkHidden(), c.hidden);
            // The other link is untouched.
            EXPECT_TRUE(website ? ui.ifPwdLinkHidden() : ui.ifWebSiteHidden());
        }
}

TEST_F(UIConfTest, TextsComeFromTheConfigurationOfTheCurrentArea)
{
    UIConf &ui = UIConf::shared();
    ordered_json root = completeConfig();
    setPath(root, "logo.image", {{"default", "logo.png"}, {"1002", "campus.png"}});
    setPath(root, "app.website.host", {{"default", "http://site/"}});
    setPath(root, "app.password.host", {{"default", "http://pwd/"}});
    setPath(root, "login.isQrcodeEnable", {{"default", false}, {"1002", true}});
    share(root);

    ui.setArea(QStringLiteral("1001"));
    EXPECT_EQ(ui.getArea(), QStringLiteral("1001"));
    EXPECT_EQ(Conf::area(), QStringLiteral("1001"));
    EXPECT_EQ(ui.getLogo(), QStringLiteral("logo.png"));
    EXPECT_FALSE(ui.isQrCodeDial());
    ui.setArea(QStringLiteral("1002"));
    EXPECT_EQ(ui.getLogo(), QStringLiteral("campus.png"));
    EXPECT_TRUE(ui.isQrCodeDial());

    EXPECT_EQ(ui.getAppName(), QStringLiteral("app.taskBarName"));
    EXPECT_EQ(ui.getWichatPic(), QStringLiteral("app.weichatPic"));
    EXPECT_EQ(ui.getWebSiteName(), QStringLiteral("app.website.name"));
    EXPECT_EQ(ui.getWebSiteHost(), QStringLiteral("http://site/"));
    EXPECT_EQ(ui.getPwdLinkName(), QStringLiteral("app.password.name"));
    EXPECT_EQ(ui.getPwdLinkHost(), QStringLiteral("http://pwd/"));
    EXPECT_EQ(ui.getAdAddress(), QStringLiteral("tab.url"));
    ReceivedConf::shared().setTabHost(QStringLiteral("http://received/ad"));
    EXPECT_EQ(ui.getAdAddress(), QStringLiteral("http://received/ad"));
}

TEST_F(UIConfTest, WithoutAConfigurationNothingIsOffered)
{
    UIConf &ui = UIConf::shared();
    Conf::setShared(nullptr);
    EXPECT_EQ(ui.getLogo(), std::nullopt);
    EXPECT_EQ(ui.getAppName(), std::nullopt);
    EXPECT_EQ(ui.getAdAddress(), std::nullopt);
    EXPECT_TRUE(ui.ifWebSiteHidden());
    EXPECT_TRUE(ui.ifPwdLinkHidden());
    EXPECT_FALSE(ui.isDynamicDial());
    EXPECT_FALSE(ui.isQrCodeDial());
    EXPECT_FALSE(ui.ifQrCodeAlone());
}

TEST_F(UIConfTest, SwitchesAreStoredUnderTheirPreferenceKeys)
{
    UIConf &ui = UIConf::shared();
    struct Switch
    {
        QString key;
        bool (UIConf::*get)() const;
        void (UIConf::*set)(bool);
    };
    const std::vector<Switch> switches = {
        {QStringLiteral("ifRememberInterface"), &UIConf::ifRememberInterface, &UIConf::setRememberInterface},
        {QStringLiteral("remenberpass"), &UIConf::ifRememberPWd, &UIConf::setRememberPWd},
        {QStringLiteral("autolog"), &UIConf::ifAutoLogin, &UIConf::setAutoLogin},
    };
    for (const Switch &s : switches) {
        SCOPED_TRACE(s.key.toStdString());
        EXPECT_FALSE((ui.*s.get)());
        (ui.*s.set)(true);
        EXPECT_TRUE((ui.*s.get)());
        EXPECT_TRUE(UserDefaults::getConf(s.key));
        (ui.*s.set)(false);
        EXPECT_FALSE((ui.*s.get)());
        EXPECT_TRUE(UserDefaults::loadValueForKey(s.key).isValid());
        EXPECT_FALSE(UserDefaults::getConf(s.key));
    }

    EXPECT_FALSE(ui.getLastDilType().isValid());
    ui.setLastDialType(2);
    EXPECT_EQ(ui.getLastDilType().toInt(), 2);
    EXPECT_EQ(UserDefaults::loadValueForKey(QStringLiteral("lastDialType")).toInt(), 2);
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
