// Resolution of area-keyed settings and the conversions of the getters that convert, against
// tests/data/conf.json.
#include "ConfTestSupport.h"

#include "Util/UserDefaults.h"
#include "support/TestData.h"

#include <gtest/gtest.h>

using namespace ConfTest;

namespace {

class ConfAreaTest : public Fixture
{
protected:
    // A configuration whose one setting holds `value`.
    static std::unique_ptr<Conf> withValue(const std::string &path, const ordered_json &value)
    {
        ordered_json root = completeConfig();
        setPath(root, path, value);
        auto conf = load(root);
        EXPECT_NE(conf, nullptr);
        return conf;
    }
    // "@absent" in the data stands for no value at all.
    template<typename T> static std::optional<T> expected(const ordered_json &v)
    {
        return v == "@absent" ? std::nullopt : std::optional<T>(v.get<T>());
    }
    const TestData::json data = TestData::load("conf.json");
};

TEST_F(ConfAreaTest, ResolutionAndConversions)
{
    ASSERT_TRUE(data.is_object());
    for (const auto &c : data.at("area")) {
        SCOPED_TRACE(c.dump());
        Conf::setArea(TestData::text(c, "area"));
        EXPECT_EQ(AreaValue(c.at("value")).getValueOfArea(), expected<ordered_json>(c.at("expected")));
    }
    Conf::setArea(QStringLiteral("1001"));
    for (const auto &c : data.at("text")) {
        SCOPED_TRACE(c.dump());
        const auto text = expected<std::string>(c.at("text"));
        EXPECT_EQ(AreaValue(ordered_json{{"default", c.at("entry")}}).text(),
                  text ? std::optional<QString>(QString::fromStdString(*text)) : std::nullopt);
    }
    for (const auto &c : data.at("switch")) {
        SCOPED_TRACE(c.dump());
        const bool on = c.at("on");
        EXPECT_EQ(withValue("login.isDynamic", {{"default", c.at("entry")}})->login.isDynamicDial(), on);
        EXPECT_EQ(withValue("login.isQrcodeEnable", {{"default", c.at("entry")}})->login.isQrcCodeDial(), on);
        EXPECT_EQ(withValue("login.ifQrCodeOnly", {{"default", c.at("entry")}})->login.ifQrCodeAlone(), on);
    }
    EXPECT_FALSE(withValue("login.isDynamic", ordered_json::object())->login.isDynamicDial());
    for (const auto &c : data.at("smsTimeout")) {
        SCOPED_TRACE(c.dump());
        EXPECT_EQ(withValue("sms.timeout", c.at("value"))->sms.getTimeOutSeconds(), expected<quint64>(c.at("seconds")));
    }
    for (const auto &c : data.at("ruleOrder")) {
        SCOPED_TRACE(c.dump());
        const auto order = expected<std::vector<std::string>>(c.at("order"));
        std::optional<QStringList> names;
        if (order) {
            names.emplace();
            for (const std::string &n : *order)
                names->append(QString::fromStdString(n));
        }
        EXPECT_EQ(withValue("accountrule.order", c.at("value"))->accountrule.getOrder(), names);
    }
}

TEST_F(ConfAreaTest, ChangingTheAreaChangesTheNextRead)
{
    const auto conf = withValue("heart.interval", {{"default", "20"}, {"1002", "5"}, {"1003", "7"}});
    const auto order = withValue("accountrule.order", {{"default", {"timepin"}}, {"1002", {"timepinV2"}}});
    const std::pair<const char *, const char *> steps[] = {
        {"1001", "20"}, {"1002", "5"}, {"1003", "7"}, {"1001", "20"}};
    for (const auto &[area, interval] : steps) {
        Conf::setArea(QLatin1String(area));
        EXPECT_EQ(conf->heart.getInterval(), QLatin1String(interval));
    }
    Conf::setArea(QStringLiteral("1002"));
    EXPECT_EQ(order->accountrule.getOrder(), QStringList{QStringLiteral("timepinV2")});
    // The dial method is always PPPoE, whatever the file says.
    ordered_json root = completeConfig();
    root["login"]["dialMethod"] = {{"default", "L2TP"}};
    EXPECT_EQ(load(root)->login.dialMethod(), QStringLiteral("PPPoE"));
}

TEST_F(ConfAreaTest, LargeValueObjectsResolveEveryArea)
{
    // Big deployments list hundreds of areas in one value; every one must still be found.
    for (const int areas : {15, 16, 17, 500}) {
        SCOPED_TRACE(areas);
        ordered_json object = ordered_json::object();
        for (int i = 0; i < areas; ++i)
            object[std::to_string(2000 + i)] = i;
        object["default"] = -1;
        const AreaValue value(object);
        for (int i = 0; i < areas; ++i) {
            Conf::setArea(QString::number(2000 + i));
            ASSERT_EQ(value.getValueOfArea(), ordered_json(i));
        }
        Conf::setArea(QStringLiteral("9999"));
        EXPECT_EQ(value.getValueOfArea(), ordered_json(-1));
        object.erase("default");
        EXPECT_EQ(AreaValue(object).getValueOfArea(), std::nullopt);
    }
}

TEST_F(ConfAreaTest, AreaAndInterfaceLiveInThePreferences)
{
    const auto conf = withValue("heart.interval", {{"default", "20"}, {"1002", "5"}});
    Conf::restoreArea(); // nothing stored: nothing chosen
    EXPECT_EQ(Conf::area(), QString());
    UserDefaults::saveValue(QStringLiteral("1002"), PrefKey::areacode);
    Conf::restoreArea();
    EXPECT_EQ(conf->heart.getInterval(), QStringLiteral("5"));

    UserConf user;
    EXPECT_EQ(user.getDefaultInterface(), std::nullopt);
    user.setDefaultInterface(QStringLiteral("enp3s0"));
    EXPECT_EQ(UserConf().getDefaultInterface(), QStringLiteral("enp3s0"));
    user.setDefaultInterface(std::nullopt);
    EXPECT_FALSE(UserDefaults::loadValueForKey(PrefKey::defaultInterface).isValid());
}

} // namespace
