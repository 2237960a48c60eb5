// What the views are told: texts and links from the configuration, switches from the
// preferences.
#include "ConfTestSupport.h"

#include "Conf/UIConf.h"
#include "support/TestData.h"

#include <gtest/gtest.h>

using namespace ConfTest;

namespace {

class UIConfTest : public Fixture
{
protected:
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

} // namespace
