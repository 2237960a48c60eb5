// Hostile input from the configuration file: values nested far deeper than any real document,
// numbers far beyond any time-out, rule lists that would grow the dial name without bound. Each
// gets a logged error (or a bounded value) and the program carries on. (The servers' deep
// replies are checked end to end in tests/tools/ConnectEndToEndTest.cpp.)

#include "AccountRule/DVAccountRule.h"
#include "AccountRule/DVRuleException.h"
#include "Conf/Conf.h"
#include "Util/Log.h"
#include "support/LogCapture.h"
#include "support/TestData.h"

#include "services/HostileJson.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>

namespace {

void configurationFileWithDeepValue()
{
    ordered_json config = TestData::demoConfig();
    config["sms"]["timeout"] = {{"default", "@deep@"}};
    QString error;
    EXPECT_FALSE(Conf::fromJson(HostileJson::withDeepValue(QByteArray::fromStdString(config.dump())), &error));
    DVLOG() << error;
}

// Configuration numbers far outside any time-out become bounded integers; one beyond a double
// (read as infinity) makes the file unreadable, with the reason.
void configurationFileWithHugeNumbers()
{
    constexpr quint64 kMax = std::numeric_limits<quint64>::max();
    const std::pair<const char *, std::optional<quint64>> cases[] = {
        {"1e30", kMax},
        {"-1e30", 0},
        {"-5", 0},
        {"18446744073709551615", kMax},
        {"12.9", 12},
        {"1e400", std::nullopt},
        {"-1e400", std::nullopt},
    };
    for (const auto &[number, expected] : cases) {
        SCOPED_TRACE(number);
        ordered_json config = TestData::demoConfig();
        config["sms"]["timeout"] = {{"default", "@number@"}};
        const QByteArray text =
            QByteArray::fromStdString(config.dump()).replace(QByteArrayLiteral("\"@number@\""), QByteArray(number));
        QString error;
        auto conf = Conf::fromJson(text, &error);
        if (!expected) {
            EXPECT_FALSE(conf);
            EXPECT_TRUE(error.contains(QStringLiteral("number overflow"))) << error.toStdString();
            continue;
        }
        ASSERT_TRUE(conf) << error.toStdString();
        EXPECT_EQ(conf->sms.getTimeOutSeconds(), expected);
    }
}

// Without a key a time-PIN rule puts the user part in front again: repeated in the
// configuration's rule order, the name would double each time.
void dialNameRulesRepeated()
{
    qint64 time = 1700000000;
    DVAccountRule rule(QStringList(40, QStringLiteral("timepinV1")), std::nullopt, std::nullopt, std::nullopt, &time,
                       std::nullopt);
    try {
        rule.getAccountFromName(QStringLiteral("demo"));
        ADD_FAILURE() << "a dial name of 2^40 characters was asked for";
    } catch (const DVRuleException &e) {
        DVLOG() << e.reason();
    }
}

} // namespace

TEST(HostileInput, DeepRepliesAndHugeNumbersGetALoggedErrorAndNoCrash)
{
    struct Case
    {
        const char *name;
        std::function<void()> run;
        const char *logged; // null: the outcome is a bounded value, not an error
        bool nested;        // refused for its depth
    };
    const Case cases[] = {
        {"configuration file, deep value", configurationFileWithDeepValue, "configuration rejected", true},
        {"configuration file, huge numbers", configurationFileWithHugeNumbers, nullptr, false},
        {"dial-name rules repeated", dialNameRulesRepeated, "the dial name grew past 4096 characters", false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        LogCapture log;
        c.run();
        const std::string lines = log.lines().join(QLatin1Char('|')).toStdString();
        if (c.logged) {
            EXPECT_GE(log.countContaining(QLatin1String(c.logged)), 1) << lines;
        }
        if (c.nested) {
            EXPECT_GE(log.countContaining(QStringLiteral("nested deeper than 64 levels")), 1) << lines;
        }
    }
}
