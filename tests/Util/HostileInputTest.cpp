// Hostile input from the configuration file: values nested far deeper than any real document,
// numbers far beyond any time-out, rule lists that would grow the dial name without bound. Each
// gets an error that says why (or a bounded value) and the program carries on. (The servers' deep
// replies are checked end to end in tests/tools/ConnectEndToEndTest.cpp.)

#include "AccountRule/DVAccountRule.h"
#include "AccountRule/DVRuleException.h"
#include "Conf/Conf.h"
#include "support/TestData.h"

#include "services/HostileJson.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

// The demo configuration whose SMS time-out is the JSON text `raw`.
std::unique_ptr<Conf> withTimeout(const QByteArray &raw, QString *error)
{
    ordered_json config = TestData::demoConfig();
    config["sms"]["timeout"] = {{"default", "@raw@"}};
    const QByteArray text = QByteArray::fromStdString(config.dump()).replace(QByteArrayLiteral("\"@raw@\""), raw);
    return Conf::fromJson(text, error);
}

} // namespace

TEST(HostileInput, ConfigurationFileWithDeepValueIsRejectedWithTheReason)
{
    QString error;
    EXPECT_FALSE(withTimeout(HostileJson::deepArrays(), &error));
    EXPECT_TRUE(error.startsWith(QStringLiteral("configuration rejected"))) << error.toStdString();
    EXPECT_TRUE(error.contains(QStringLiteral("nested deeper than 64 levels"))) << error.toStdString();
}

// Numbers far outside any time-out become bounded integers; one beyond a double (read as
// infinity) makes the file unreadable, with the reason. (Small negatives and fractions are rows
// of conf.json's smsTimeout.)
TEST(HostileInput, ConfigurationFileWithHugeNumbers)
{
    constexpr quint64 kMax = std::numeric_limits<quint64>::max();
    const std::pair<const char *, std::optional<quint64>> cases[] = {
        {"1e30", kMax}, {"-1e30", 0}, {"18446744073709551615", kMax}, {"1e400", std::nullopt}, {"-1e400", std::nullopt},
    };
    for (const auto &[number, expected] : cases) {
        SCOPED_TRACE(number);
        QString error;
        const auto conf = withTimeout(QByteArray(number), &error);
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
TEST(HostileInput, DialNameRulesRepeatedStopAtTheLengthBound)
{
    qint64 time = 1700000000;
    DVAccountRule rule(QStringList(40, QStringLiteral("timepinV1")), std::nullopt, std::nullopt, std::nullopt, &time,
                       std::nullopt);
    try {
        rule.getAccountFromName(QStringLiteral("demo"));
        ADD_FAILURE() << "a dial name of 2^40 characters was asked for";
    } catch (const DVRuleException &e) {
        EXPECT_TRUE(e.reason().contains(QStringLiteral("the dial name grew past 4096 characters")))
            << e.reason().toStdString();
    }
}
