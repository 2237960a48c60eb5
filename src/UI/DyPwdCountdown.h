#pragma once

#include <QString>

#include <functional>
#include <memory>

class QTimer;

// A repeating one-second tick. The windows use a timer; tests tick by hand.
class TickSource
{
public:
    virtual ~TickSource() = default;
    // First tick at once, then one per second until stop().
    virtual void start(std::function<void()> onTick) = 0;
    virtual void stop() = 0;
};

// The tick of the Qt event loop of the calling thread.
class TimerTickSource : public TickSource
{
public:
    TimerTickSource();
    ~TimerTickSource() override;
    void start(std::function<void()> onTick) override;
    void stop() override;

private:
    std::unique_ptr<QTimer> _timer;
};

// The dynamic-password button's countdown: after a request the button stays disabled and reads
// "90s后重试" down to "1s后重试", and on the 91st tick it reads "动态密码登陆" and is enabled again.
// The counter is shared by every log-in view of the process, so a new view does not restart a
// countdown under way.
class DyPwdCountdown
{
public:
    // Told the button's title and whether it is enabled, on every change.
    using Show = std::function<void(const QString &title, bool enabled)>;

    DyPwdCountdown(std::unique_ptr<TickSource> ticks, Show show);

    static constexpr qint64 Seconds = 90;
    static QString idleTitle() { return QStringLiteral("动态密码登陆"); }

    // Disables the button and starts ticking.
    void start();
    void tick();
    bool running() const { return _running; }

    // The shared counter (tests put it back).
    static qint64 &counter();

private:
    std::unique_ptr<TickSource> _ticks;
    Show _show;
    bool _running = false;
};
