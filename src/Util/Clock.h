#pragma once

#include <QDateTime>

#include <memory>

// Time as the client sees it. Everything that reads the wall clock or measures a duration
// takes a Clock, so that tests can move time instead of waiting for it.
class Clock
{
public:
    virtual ~Clock() = default;

    // Wall-clock time.
    virtual QDateTime now() const;
    // Milliseconds on a clock that never jumps (for durations such as the connection time).
    virtual qint64 monotonicMs() const;

    qint64 secsSinceEpoch() const { return now().toSecsSinceEpoch(); }

    // The machine's clock; shared, never null.
    static std::shared_ptr<Clock> system();
};

// A clock that stands still until moved; for tests and tools that need a fixed time.
class ManualClock : public Clock
{
public:
    explicit ManualClock(QDateTime start = QDateTime::fromSecsSinceEpoch(0, Qt::UTC))
        : _now(std::move(start))
    {}

    QDateTime now() const override { return _now; }
    qint64 monotonicMs() const override { return _monotonicMs; }

    void set(QDateTime t) { _now = std::move(t); }
    void advanceSecs(qint64 s)
    {
        _now = _now.addSecs(s);
        _monotonicMs += s * 1000;
    }

private:
    QDateTime _now;
    qint64 _monotonicMs = 0;
};
