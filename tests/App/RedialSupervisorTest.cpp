// The redial supervisor with a hand-moved clock and waits that run only when the test says so.

#include "App/RedialSupervisor.h"
#include "AccountRule/DVAccountRule.h"

#include <gtest/gtest.h>

#include <deque>

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
    enum Step { Up, Drop, Refuse, Fail, UserDown, HeartEnd, UserHangUp, Wait, Stable };
    const struct
    {
        const char *name;
        std::vector<Step> steps;
        std::vector<qint64> delays; // every pause asked for, in order
        int dials;                  // redials made
        bool stopped;
    } cases[] = {
        {"drops double the pause up to the cap",
         {Drop, Wait, Drop, Wait, Drop, Wait, Drop, Wait, Drop, Wait, Drop, Wait, Drop, Wait, Drop, Wait, Drop, Wait,
          Drop},
         {2000, 4000, 8000, 16000, 32000, 64000, 128000, 256000, 300000, 300000},
         9,
         false},
        {"three refusals in a row stop for good",
         {Drop, Wait, Refuse, Wait, Refuse, Wait, Refuse, Wait},
         {2000, 4000, 8000},
         3,
         true},
        {"an accepted log-in breaks the run of refusals",
         {Refuse, Wait, Refuse, Wait, Up, Drop, Wait, Refuse, Wait, Refuse},
         {2000, 4000, 8000, 16000, 32000},
         4,
         false},
        {"six starts that never came up stop too (a back-end may not tell a refusal apart)",
         {Drop, Wait, Fail, Wait, Refuse, Wait, Fail, Wait, Fail, Wait, Fail, Wait, Fail, Wait},
         {2000, 4000, 8000, 16000, 32000, 64000},
         6,
         true},
        {"the user hanging up never redials", {Up, UserHangUp, UserDown, Wait}, {}, 0, false},
        {"a hang-up from outside never redials", {Up, UserDown, Wait}, {}, 0, false},
        {"a hang-up cancels the pending attempt", {Drop, UserHangUp, Wait}, {2000}, 0, false},
        {"a stable link starts the pauses over",
         {Drop, Wait, Drop, Wait, Up, Stable, Drop, Wait},
         {2000, 4000, 2000},
         3,
         false},
        {"a short-lived link does not", {Drop, Wait, Drop, Wait, Up, Drop, Wait}, {2000, 4000, 8000}, 3, false},
        {"a heartbeat that ended takes the link down and redials", {Up, HeartEnd, UserDown, Wait}, {2000}, 1, false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        Harness h;
        for (const Step step : c.steps) {
            switch (step) {
            case Up:
                h.supervisor.linkUp();
                break;
            case Drop:
                h.supervisor.linkDown(Cause::Dropped, QStringLiteral("carrier lost"));
                break;
            case Refuse:
                h.supervisor.linkDown(Cause::Refused, QStringLiteral("refused"));
                break;
            case Fail:
                h.supervisor.linkDown(Cause::Failed, QStringLiteral("the PPP session failed"));
                break;
            case UserDown:
                h.supervisor.linkDown(Cause::UserRequested, QStringLiteral("hung up on request"));
                break;
            case HeartEnd:
                h.supervisor.heartbeatEnded(QStringLiteral("stopped by the reply"));
                break;
            case UserHangUp:
                h.supervisor.userHungUp();
                break;
            case Wait:
                h.runWait();
                break;
            case Stable:
                h.clock->advanceSecs(121);
                break;
            }
        }
        EXPECT_EQ(h.delays, c.delays);
        EXPECT_EQ(int(h.dialNames.size()), c.dials);
        EXPECT_EQ(h.supervisor.stoppedForGood(), c.stopped);
        if (c.stopped) {
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
