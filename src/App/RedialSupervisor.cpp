#include "RedialSupervisor.h"

#include "Util/Log.h"

#include <algorithm>
#include <cmath>

RedialSupervisor::RedialSupervisor(Policy policy, std::shared_ptr<Clock> clock, Hooks hooks)
    : _policy(policy)
    , _clock(clock ? std::move(clock) : Clock::system())
    , _hooks(std::move(hooks))
{}

qint64 RedialSupervisor::backoffMs(const Policy &policy, int attempt, double random)
{
    // Doubling without overflow: past 2^30 the cap has long been reached.
    const double base =
        std::min(double(policy.maxDelayMs), double(policy.firstDelayMs) * std::ldexp(1.0, std::min(attempt, 30)));
    const double moved = base * (1.0 + policy.jitter * (2.0 * std::clamp(random, 0.0, 1.0) - 1.0));
    return qint64(std::clamp(moved, 0.0, double(policy.maxDelayMs)));
}

void RedialSupervisor::setEnabled(bool enabled)
{
    _enabled = enabled;
    if (!enabled) {
        ++_generation; // a pending attempt is dropped
        _nextAtMs.reset();
    }
}

void RedialSupervisor::userDialed()
{
    ++_generation;
    _armed = true;
    _restarting = false;
    _stopped = false;
    _stopMessage.clear();
    _attempt = 0;
    _refusals = 0;
    _failedStarts = 0;
    _upSinceMs.reset();
    _nextAtMs.reset();
}

void RedialSupervisor::userHungUp()
{
    ++_generation;
    _armed = false;
    _restarting = false;
    _nextAtMs.reset();
}

void RedialSupervisor::linkUp()
{
    _upSinceMs = _clock->monotonicMs();
    _refusals = 0; // the log-in was accepted: refusals are no longer in a row
    _failedStarts = 0;
}

void RedialSupervisor::linkDown(LinkEndCause cause, const QString &detail)
{
    const std::optional<qint64> upSince = std::exchange(_upSinceMs, std::nullopt);
    if (!_enabled || !_armed || _stopped)
        return;
    const bool ourOwn = std::exchange(_restarting, false);
    if (cause == LinkEndCause::UserRequested && !ourOwn) {
        // Someone hung up outside this program (nmcli, the desktop's applet): a person decided.
        DVLOG() << "redial: the link was taken down on request (" << detail << "); not redialling";
        _armed = false;
        return;
    }
    if (upSince && _clock->monotonicMs() - *upSince >= _policy.stablePeriodMs)
        _attempt = 0; // it had been stable: start the pauses over
    const bool timeBased = _hooks.timeBasedRule && _hooks.timeBasedRule();
    if (cause == LinkEndCause::Refused && ++_refusals >= _policy.maxRefusals) {
        QString text = QStringLiteral("连续 %1 次认证被拒绝，已停止自动重拨：账号可能已被锁定").arg(_refusals);
        if (timeBased)
            text += QStringLiteral("，或本机时间不准确");
        stop(text + QStringLiteral("。"));
        return;
    }
    if (!upSince && (cause == LinkEndCause::Refused || cause == LinkEndCause::Failed)
        && ++_failedStarts >= _policy.maxFailedStarts) {
        QString text =
            QStringLiteral("连续 %1 次拨号未能建立连接，已停止自动重拨：账号可能已被锁定").arg(_failedStarts);
        if (timeBased)
            text += QStringLiteral("、本机时间不准确");
        stop(text + QStringLiteral("，或线路故障。"));
        return;
    }
    schedule(ourOwn ? QStringLiteral("heartbeat") : linkEndCauseName(cause));
}

void RedialSupervisor::heartbeatEnded(const QString &why)
{
    if (!_enabled || !_armed || _stopped || !_upSinceMs)
        return;
    DVLOG() << "redial: the heartbeat ended (" << why << "); taking the link down to dial again";
    _restarting = true;
    if (_hooks.hangUp)
        _hooks.hangUp();
}

void RedialSupervisor::schedule(const QString &cause)
{
    const double r = _hooks.random ? _hooks.random() : 0.5;
    const qint64 delay = backoffMs(_policy, _attempt, r);
    ++_attempt;
    const quint64 generation = ++_generation;
    _nextAtMs = _clock->monotonicMs() + delay;
    DVLOG() << "redial: attempt " << _attempt << " in " << delay << " ms (link " << cause << ")";
    if (_hooks.report)
        _hooks.report({QStringLiteral("scheduled"), _attempt, delay, cause, {}});
    if (_hooks.wait)
        _hooks.wait(delay, [this, generation] { attempt(generation); });
}

void RedialSupervisor::attempt(quint64 generation)
{
    if (generation != _generation || !_enabled || !_armed || _stopped)
        return;
    _nextAtMs.reset();
    if (_hooks.report)
        _hooks.report({QStringLiteral("redial"), _attempt, 0, {}, {}});
    DVError error;
    const bool started = _hooks.dial && _hooks.dial(&error);
    if (started && error.domain.isEmpty()) {
        if (_hooks.report)
            _hooks.report({QStringLiteral("dialed"), _attempt, 0, {}, {}});
        return; // the link's own events say how it went
    }
    DVLOG() << "redial: attempt " << _attempt << " did not start: " << error.localizedDescription;
    if (_hooks.report)
        _hooks.report({QStringLiteral("failed"), _attempt, 0, error.localizedDescription, {}});
    // Try again after the next pause. (A start that failed and was cleaned up may still send
    // "disconnected"; that schedules anew and this wait is dropped.)
    schedule(QStringLiteral("failed"));
}

void RedialSupervisor::stop(const QString &message)
{
    ++_generation;
    _stopped = true;
    _armed = false;
    _nextAtMs.reset();
    _stopMessage = message;
    DVLOG() << "redial: stopped after " << _refusals << " refusals in a row";
    if (_hooks.report)
        _hooks.report({QStringLiteral("stopped"), _attempt, 0, QStringLiteral("refused"), message});
}
