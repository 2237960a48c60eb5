// Hostile input from servers and from the configuration file: replies nested far deeper than
// any real document, numbers far beyond any time-out. Each gets a logged error (or a bounded
// value) and the program carries on; the servers are the simulator's, on 127.0.0.1. (The
// heartbeat's deep reply is checked end to end in tests/tools/ConnectEndToEndTest.cpp.)

#include "Business/BusinessTestSupport.h"

#include "services/BusinessServer.h"
#include "services/HostileJson.h"

#include "AccountRule/DVAccountRule.h"
#include "AccountRule/DVRuleException.h"
#include "Business/ConfigReq.h"
#include "Business/Register.h"
#include "Conf/ReceivedConf.h"
#include "Util/Log.h"
#include "Util/OperationQueue.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>

namespace {

// Runs `op` on a work queue until it is done.
void runOnQueue(const std::shared_ptr<Operation> &op)
{
    auto queue = OperationQueue::create();
    queue->addOperation(op);
    ASSERT_TRUE(TestSupport::spinUntil([&] { return queue->operationCount() == 0; }, 15000));
}

void businessAgainstDeepReplies(bool config)
{
    const ordered_json demo = BizTest::demoConfig();
    SimHost host;
    ASSERT_TRUE(BizTest::startServices(host, demo, {QStringLiteral("business")},
                                       {{QStringLiteral("business"), QStringLiteral("deep")}}));
    const QString base = BizTest::local(host.service(QStringLiteral("business"))->port());
    BizTest::useConfig(demo);
    Conf::setArea(QStringLiteral("1001"));
    ReceivedConf::shared().saveAreaObject({{QStringLiteral("kept"), QStringLiteral("yes")}});
    if (config) {
        runOnQueue(std::make_shared<ConfigReq>(base, QStringLiteral("demo")));
    } else {
        const RegisterLinkFacts link{QStringLiteral("10.64.0.2"), QString(), QString()};
        runOnQueue(std::make_shared<Register>(base, link, QStringLiteral("demo")));
    }
    // Nothing of the hostile answer was stored.
    EXPECT_EQ(ReceivedConf::shared().getValueOfKey(QStringLiteral("kept")).toString(), QStringLiteral("yes"));
}

void configurationFileWithDeepValue()
{
    ordered_json config = BizTest::demoConfig();
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
        ordered_json config = BizTest::demoConfig();
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
        {"configuration request reply", [] { businessAgainstDeepReplies(true); }, "config request failed", true},
        {"registration reply", [] { businessAgainstDeepReplies(false); }, "config request failed", true},
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
