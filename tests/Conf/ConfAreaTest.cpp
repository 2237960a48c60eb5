// Resolution of area-keyed settings and the conversions of the getters that convert.
#include "ConfTestSupport.h"

#include "Conf/ConfData.h"
#include "Util/UserDefaults.h"

#include <gtest/gtest.h>

using namespace ConfTest;

namespace {

class ConfAreaTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        resetPreferences();
        Conf::setArea(QString());
        ConfData::setArea(QString());
    }
    void TearDown() override { Conf::setArea(QString()); }

    // A configuration whose one setting holds `value`.
    static std::unique_ptr<Conf> withValue(const std::string &path, const ordered_json &value)
    {
        ordered_json root = completeConfig();
        setPath(root, path, value);
        auto conf = load(root);
        EXPECT_NE(conf, nullptr);
        return conf;
    }
};

TEST_F(ConfAreaTest, ResolvesTheAreaThenDefaultThenNothing)
{
    struct Case
    {
        const char *name;
        ordered_json value;
        const char *area;
        std::optional<ordered_json> expected;
    };
    const ordered_json both = {{"default", "d"}, {"1001", "a"}};
    const std::vector<Case> cases = {
        {"own entry wins", both, "1001", ordered_json("a")},
        {"other area falls back", both, "1002", ordered_json("d")},
        {"no area chosen falls back", both, "", ordered_json("d")},
        {"only default, area 1001", {{"default", "d"}}, "1001", ordered_json("d")},
        {"only default, composite area", {{"default", "d"}}, "1002:02:03:05:2", ordered_json("d")},
        {"only default, no area", {{"default", "d"}}, "", ordered_json("d")},
        {"neither area nor default", {{"1001", "a"}}, "1002", std::nullopt},
        {"no entries at all", ordered_json::object(), "1001", std::nullopt},
        {"area code compared exactly", {{"1001", "a"}}, "1001 ", std::nullopt},
        {"explicit null is the area's entry", {{"default", "d"}, {"1001", nullptr}}, "1001", ordered_json(nullptr)},
        {"non-text entries pass through", {{"default", {1, 2}}}, "1001", ordered_json({1, 2})},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        Conf::setArea(QLatin1String(c.area));
        EXPECT_EQ(AreaValue(c.value).getValueOfArea(), c.expected);
    }
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
        object["1001"] = {{"nested", true}};
        const AreaValue value(object);
        for (int i = 0; i < areas; ++i) {
            Conf::setArea(QString::number(2000 + i));
            ASSERT_EQ(value.getValueOfArea(), ordered_json(i));
        }
        Conf::setArea(QStringLiteral("1001"));
        EXPECT_EQ(value.getValueOfArea(), (ordered_json{{"nested", true}}));
        Conf::setArea(QStringLiteral("9999"));
        EXPECT_EQ(value.getValueOfArea(), ordered_json(-1));
        EXPECT_EQ(value.json(), object);

        ordered_json noDefault = object;
        noDefault.erase("default");
        EXPECT_EQ(AreaValue(noDefault).getValueOfArea(), std::nullopt);
    }
}

TEST_F(ConfAreaTest, ChangingTheAreaChangesTheNextRead)
{
    const auto conf = withValue("heart.interval", {{"default", "20"}, {"1002", "5"}, {"1003", "7"}});
    Conf::setArea(QStringLiteral("1001"));
    EXPECT_EQ(conf->heart.getInterval(), QStringLiteral("20"));
    Conf::setArea(QStringLiteral("1002"));
    EXPECT_EQ(conf->heart.getInterval(), QStringLiteral("5"));
    Conf::setArea(QStringLiteral("1003"));
    EXPECT_EQ(conf->heart.getInterval(), QStringLiteral("7"));
    Conf::setArea(QStringLiteral("1001"));
    EXPECT_EQ(conf->heart.getInterval(), QStringLiteral("20"));
}

TEST_F(ConfAreaTest, ValuesReadAsText)
{
    struct Case
    {
        ordered_json entry;
        std::optional<QString> expected;
    };
    const std::vector<Case> cases = {
        {"20", QStringLiteral("20")},
        {"", QString()},
        {"宽带", QStringLiteral("宽带")},
        {20, QStringLiteral("20")},
        {-3, QStringLiteral("-3")},
        {true, QStringLiteral("true")},
        {nullptr, std::nullopt},
        {ordered_json::array({"a"}), std::nullopt},
        {ordered_json::object({{"a", 1}}), std::nullopt},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.entry.dump());
        EXPECT_EQ(AreaValue(ordered_json{{"default", c.entry}}).text(), c.expected);
    }
}

TEST_F(ConfAreaTest, RuleOrderIsAListOfNames)
{
    struct Case
    {
        ordered_json value;
        std::optional<QStringList> expected;
    };
    const std::vector<Case> cases = {
        {{{"default", {"timepin", "prefix"}}}, QStringList{QStringLiteral("timepin"), QStringLiteral("prefix")}},
        {{{"default", ordered_json::array()}}, QStringList{}},
        {{{"default", {"prefix", "prefix"}}}, QStringList{QStringLiteral("prefix"), QStringLiteral("prefix")}},
        {{{"default", "timepin"}}, std::nullopt},
        {{{"default", {"timepin", 3}}}, std::nullopt},
        {ordered_json::object(), std::nullopt},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.value.dump());
        EXPECT_EQ(withValue("accountrule.order", c.value)->accountrule.getOrder(), c.expected);
    }
    // Per area, like every other setting.
    const auto conf = withValue("accountrule.order", {{"default", {"timepin", "prefix"}}, {"1001", {"timepinV2"}}});
    Conf::setArea(QStringLiteral("1001"));
    EXPECT_EQ(conf->accountrule.getOrder(), QStringList{QStringLiteral("timepinV2")});
}

TEST_F(ConfAreaTest, LogInSwitchesReadAsBooleans)
{
    struct Case
    {
        ordered_json entry;
        bool expected;
    };
    const std::vector<Case> cases = {
        {true, true},
        {false, false},
        {1, true},
        {0, false},
        {2.5, true},
        {0.0, false},
        {"1", true},
        {"0", false},
        {"12", true},
        {" 1", true},
        {"true", true},
        {"TRUE", true},
        {"yes", true},
        {"Yes", true},
        {"no", false},
        {"", false},
        {"abc", false},
        {nullptr, false},
        {ordered_json::array({1}), false},
    };
    for (const Case &c : cases)
        for (const char *path : {"login.isDynamic", "login.isQrcodeEnable", "login.ifQrCodeOnly"}) {
            SCOPED_TRACE(std::string(path) + " = " + c.entry.dump());
            const auto conf = withValue(path, {{"default", c.entry}});
            const bool actual = std::string(path) == "login.isDynamic"        ? conf->login.isDynamicDial()
                                : std::string(path) == "login.isQrcodeEnable" ? conf->login.isQrcCodeDial()
                                                                              : conf->login.ifQrCodeAlone();
            EXPECT_EQ(actual, c.expected);
        }
    // Absent is off.
    EXPECT_FALSE(withValue("login.isDynamic", ordered_json::object())->login.isDynamicDial());
}

TEST_F(ConfAreaTest, DialMethodIsAlwaysPPPoE)
{
    ordered_json root = completeConfig();
    root["login"]["dialMethod"] = {{"default", "L2TP"}};
    root["login"]["isDynamic"] = {{"default", true}};
    const auto conf = load(root);
    ASSERT_NE(conf, nullptr);
    for (const char *area : {"", "1001", "1002"}) {
        Conf::setArea(QLatin1String(area));
        EXPECT_EQ(conf->login.dialMethod(), QStringLiteral("PPPoE"));
    }
}

TEST_F(ConfAreaTest, SmsTimeOutReadsAsUnsignedSeconds)
{
    struct Case
    {
        ordered_json value;
        std::optional<quint64> expected;
    };
    const std::vector<Case> cases = {
        {{{"default", "60"}}, 60},
        {{{"default", 90}}, 90},
        {{{"default", "  45s"}}, 45},
        {{{"default", "-5"}}, 0},
        {{{"default", -5}}, 0},
        {{{"default", "abc"}}, 0},
        {{{"default", 12.7}}, 12},
        {{{"default", nullptr}}, std::nullopt},
        {ordered_json::object(), std::nullopt},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.value.dump());
        EXPECT_EQ(withValue("sms.timeout", c.value)->sms.getTimeOutSeconds(), c.expected);
    }
}

TEST_F(ConfAreaTest, RestoresTheChosenAreaFromThePreferences)
{
    const auto conf = withValue("heart.interval", {{"default", "20"}, {"1002", "5"}});
    Conf::restoreArea(); // nothing stored: nothing chosen
    EXPECT_EQ(Conf::area(), QString());
    EXPECT_EQ(conf->heart.getInterval(), QStringLiteral("20"));

    UserDefaults::saveValue(QStringLiteral("1002"), PrefKey::areacode);
    Conf::restoreArea();
    EXPECT_EQ(Conf::area(), QStringLiteral("1002"));
    EXPECT_EQ(conf->heart.getInterval(), QStringLiteral("5"));
}

TEST_F(ConfAreaTest, RememberedInterfaceLivesInThePreferences)
{
    UserConf user;
    EXPECT_EQ(user.getDefaultInterface(), std::nullopt);
    user.setDefaultInterface(QStringLiteral("enp3s0"));
    EXPECT_EQ(UserDefaults::loadValueForKey(PrefKey::defaultInterface).toString(), QStringLiteral("enp3s0"));
    EXPECT_EQ(UserConf().getDefaultInterface(), QStringLiteral("enp3s0"));
    user.setDefaultInterface(std::nullopt);
    EXPECT_FALSE(UserDefaults::loadValueForKey(PrefKey::defaultInterface).isValid());
}

TEST_F(ConfAreaTest, ConfDataKeepsItsOwnArea)
{
    const ordered_json object = {{"default", "d"}, {"1001", "a"}, {"1002", "b"}};
    Conf::setArea(QStringLiteral("1002"));

    struct Case
    {
        const char *dataArea;
        std::optional<ordered_json> areaValue;
        std::optional<ordered_json> value;
    };
    const std::vector<Case> cases = {
        {"1001", ordered_json("a"), ordered_json("a")},
        {"1003", std::nullopt, ordered_json("d")},
        {"", std::nullopt, ordered_json("d")},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.dataArea);
        ConfData::setArea(QLatin1String(c.dataArea));
        const auto data = ConfData::fromJson(object);
        ASSERT_TRUE(data.has_value());
        EXPECT_EQ(data->defaultValue, ordered_json("d"));
        EXPECT_EQ(data->areaValue, c.areaValue);
        EXPECT_EQ(data->value(), c.value);
    }
    EXPECT_EQ(Conf::area(), QStringLiteral("1002")); // untouched by ConfData

    ConfData::setArea(QStringLiteral("1001"));
    EXPECT_EQ(ConfData::fromJson(object)->toJson(), (ordered_json{{"default", "d"}, {"1001", "a"}}));
    EXPECT_FALSE(ConfData::fromJson("text").has_value());
    EXPECT_EQ(ConfData::fromJson(ordered_json::object())->value(), std::nullopt);
}

} // namespace
