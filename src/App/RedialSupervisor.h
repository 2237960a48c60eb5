#pragma once

#include "Dial/PPPoEPlatform.h"
#include "Util/Clock.h"
#include "Util/DVError.h"

#include <QString>

#include <functional>
#include <memory>
#include <optional>

// Brings a link back that went down without the user asking: the line or the peer dropped it,
// or the heartbeat with the provider ended for good. Each attempt dials with a dial name made
// at that moment (a time PIN made earlier would be stale), after a pause that doubles from
// `firstDelayMs` up to `maxDelayMs`, with some jitter so that many clients cut off together do
// not come back together. A link that stayed up for `stablePeriodMs` starts the pauses over.
// After `maxRefusals` refusals of the log-in in a row it stops for good: dialing on would only
// get the account locked, and the usual causes (a locked account, a wrong clock) need the user.
//
// It has no timer and no thread of its own: the owner tells it what happened, on one thread,
// and gives it the clock, the wait ("call this in N ms") and the dial to use. Off by default.
class RedialSupervisor
{
public:
    struct Policy
    {
        qint64 firstDelayMs = 2000;
        qint64 maxDelayMs = 5 * 60 * 1000;
        double jitter = 0.2; // each pause is moved by up to this fraction either way
        qint64 stablePeriodMs = 2 * 60 * 1000;
        int maxRefusals = 3;
        // Dials in a row that never came up, refused or failed: some back-ends (NetworkManager)
        // report a refused log-in as a failed PPP start, so these stop the loop too, later.
        int maxFailedStarts = 6;
    };

    // What the supervisor did, for the owner's log, JSON lines and diagnostics.
    struct Report
    {
        QString event; // "scheduled", "redial" (dialing now), "dialed", "failed", "stopped"
        int attempt = 0;
        qint64 delayMs = 0;
        QString cause;   // why the link went down ("dropped", "refused", "heartbeat", ...)
        QString message; // "stopped": the text for the user
    };

    struct Hooks
    {
        // Calls `fire` once after `ms` milliseconds, on the owner's thread.
        std::function<void(qint64 ms, std::function<void()> fire)> wait;
        // Dials again with a dial name computed now; false with `error` when it did not start.
        std::function<bool(DVError *error)> dial;
        // Takes a link down that is still up (the heartbeat ended under it).
        std::function<void()> hangUp;
        // A number in [0, 1) for the jitter.
        std::function<double()> random;
        std::function<void(const Report &)> report;
        // Whether the dial names of the current rule depend on the time (for the stop text).
        std::function<bool()> timeBasedRule;
    };

    RedialSupervisor(Policy policy, std::shared_ptr<Clock> clock, Hooks hooks);

    void setEnabled(bool enabled);
    bool enabled() const { return _enabled; }

    // The user started a dial: the supervisor watches this connection from now on.
    void userDialed();
    // The user hung up: nothing is redialled, a pending attempt is dropped.
    void userHungUp();
    void linkUp();
    // The link went down; `cause` as the dialing back-end tells it.
    void linkDown(LinkEndCause cause, const QString &detail);
    // The heartbeat stopped for good while the link was up (a reject, or too many failures).
    void heartbeatEnded(const QString &why);

    // The pause before attempt `attempt` (0-based) with jitter from `random` in [0, 1).
    static qint64 backoffMs(const Policy &policy, int attempt, double random);

    // For diagnostics.
    int attempts() const { return _attempt; }
    int refusals() const { return _refusals; }
    bool stoppedForGood() const { return _stopped; }
    QString stopMessage() const { return _stopMessage; }
    // Monotonic time (ms) the next attempt is due; nullopt when none is pending.
    std::optional<qint64> nextAttemptAtMs() const { return _nextAtMs; }

private:
    void schedule(const QString &cause);
    void attempt(quint64 generation);
    void stop(const QString &message);

    Policy _policy;
    std::shared_ptr<Clock> _clock;
    Hooks _hooks;
    bool _enabled = false;
    bool _armed = false;      // a connection the user asked for is being looked after
    bool _restarting = false; // we took the link down ourselves to dial again
    bool _stopped = false;
    quint64 _generation = 0; // a wait scheduled under an older generation does nothing
    int _attempt = 0;        // attempts since the last stable link
    int _refusals = 0;       // log-in refusals in a row
    int _failedStarts = 0;   // dials in a row that never came up
    std::optional<qint64> _upSinceMs;
    std::optional<qint64> _nextAtMs;
    QString _stopMessage;
};
