// The redial supervisor with a hand-moved clock and waits that run only when the test says so.

#include "App/RedialSupervisor.h"
#include "AccountRule/DVAccountRule.h"
#include "support/TestData.h"

#include <gtest/gtest.h>

#include <deque>
#include <map>

namespace {

using Cause = LinkEndCause;

struct Harness
{
    std::shared_ptr<ManualClock> clock =
        std::make_shared<ManualClock>(QDateTime::fromSecsSinceEpoch(1700000000, Qt::UTC));
    std::deque<std::pair<qint64, std::function<void()>>> waits;
    std::vector<qint64> delays;
    std::vector<QString> dialNames;
    std::vector<RedialSupervisor::Report> reports;
    int hangUps = 0;
    RedialSupervisor supervisor;

    explicit Harness(RedialSupervisor::Policy policy = {})
        : supervisor(policy, clock, hooks())
    {
        supervisor.setEnabled(true);
        supervisor.userDialed();
    }

    RedialSupervisor::Hooks hooks()
    {
        RedialSupervisor::Hooks h;
        h.wait = [this](qint64 ms, std::function<void()> fire) {
            delays.push_back(ms);
            waits.emplace_back(ms, std::move(fire));
        };
        // The real controller makes the dial name from the clock at the moment of the dial;
        // so does this stand-in, with the "timepin" rule.
        h.dial = [this](DVError *) {
            qint64 t = clock->secsSinceEpoch();
            DVAccountRule rule(QStringList{QStringLiteral("timepin")}, std::nullopt, std::nullopt,
                               QStringLiteral("4f1c9a7e2b6d3058"), &t, std::nullopt, clock);
            dialNames.push_back(rule.getAccountFromName(QStringLiteral("demo")).value_or(QString()));
            return true;
        };
        h.hangUp = [this] { ++hangUps; };
        h.random = [] { return 0.5; }; // no jitter
        h.report = [this](const RedialSupervisor::Report &r) { reports.push_back(r); };
        h.timeBasedRule = [] { return true; };
        return h;
    }

    // Lets the oldest pending wait pass: the clock moves by its length, then it fires.
    bool runWait()
    {
        if (waits.empty())
            return false;
        auto [ms, fire] = std::move(waits.front());
        waits.pop_front();
        clock->advanceSecs(ms / 1000);
        fire();
        return true;
    }
};

} // namespace

TEST(RedialSupervisor, Scenarios)
{
    const auto data = TestData::load("redial.json"); // the loop must not outlive the document
    for (const auto &c : data.at("scenarios")) {
        SCOPED_TRACE(c.dump());
        Harness h;
        const std::map<QString, std::function<void()>> steps = {
            {QStringLiteral("Up"), [&] { h.supervisor.linkUp(); }},
            {QStringLiteral("Drop"), [&] { h.supervisor.linkDown(Cause::Dropped, QStringLiteral("carrier lost")); }},
            {QStringLiteral("Refuse"), [&] { h.supervisor.linkDown(Cause::Refused, QStringLiteral("refused")); }},
            {QStringLiteral("Fail"),
             [&] { h.supervisor.linkDown(Cause::Failed, QStringLiteral("the PPP session failed")); }},
            {QStringLiteral("UserDown"),
             [&] { h.supervisor.linkDown(Cause::UserRequested, QStringLiteral("hung up on request")); }},
            {QStringLiteral("HeartEnd"), [&] { h.supervisor.heartbeatEnded(QStringLiteral("stopped by the reply")); }},
            {QStringLiteral("UserHangUp"), [&] { h.supervisor.userHungUp(); }},
            {QStringLiteral("Wait"), [&] { h.runWait(); }},
            {QStringLiteral("Stable"), [&] { h.clock->advanceSecs(121); }},
        };
        for (const QString &step : TestData::text(c, "steps").split(u' '))
            steps.at(step)();
        EXPECT_EQ(h.delays, c.at("delays").get<std::vector<qint64>>());
        EXPECT_EQ(int(h.dialNames.size()), c.at("dials").get<int>());
        const bool stopped = c.at("stopped");
        EXPECT_EQ(h.supervisor.stoppedForGood(), stopped);
        if (stopped) {
            EXPECT_EQ(h.reports.back().event, QStringLiteral("stopped"));
            EXPECT_TRUE(h.reports.back().message.contains(QStringLiteral("账号可能已被锁定")));
            EXPECT_TRUE(h.reports.back().message.contains(QStringLiteral("本机时间不准确")));
        }
        // Every attempt came at a later time quantum than the one before: a fresh dial name each.
        for (size_t i = 1; i < h.dialNames.size(); ++i)
            EXPECT_NE(h.dialNames[i], h.dialNames[i - 1]) << i;
    }
}

TEST(RedialSupervisor, JitterStaysWithinItsShareAndUnderTheCap)
{
    const RedialSupervisor::Policy p;
    const struct
    {
        int attempt;
        double random;
        qint64 expected;
    } cases[] = {{0, 0.0, 1600}, {0, 0.999999, 2399}, {3, 0.0, 12800}, {20, 0.999999, 300000}, {9000, 0.0, 240000}};
    for (const auto &c : cases)
        EXPECT_EQ(RedialSupervisor::backoffMs(p, c.attempt, c.random), c.expected) << c.attempt << " " << c.random;
}
