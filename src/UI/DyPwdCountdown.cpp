#include "DyPwdCountdown.h"

#include <QTimer>

TimerTickSource::TimerTickSource()
    : _timer(std::make_unique<QTimer>())
{
    _timer->setInterval(1000);
}

TimerTickSource::~TimerTickSource() = default;

void TimerTickSource::start(std::function<void()> onTick)
{
    QObject::disconnect(_timer.get(), nullptr, nullptr, nullptr);
    QObject::connect(_timer.get(), &QTimer::timeout, _timer.get(), onTick);
    _timer->start();
    onTick();
}

void TimerTickSource::stop()
{
    _timer->stop();
}

DyPwdCountdown::DyPwdCountdown(std::unique_ptr<TickSource> ticks, Show show)
    : _ticks(std::move(ticks))
    , _show(std::move(show))
{}

qint64 &DyPwdCountdown::counter()
{
    static qint64 remaining = Seconds;
    return remaining;
}

void DyPwdCountdown::start()
{
    _running = true;
    _show(QStringLiteral("%1s后重试").arg(counter()), false);
    _ticks->start([this] { tick(); });
}

void DyPwdCountdown::tick()
{
    qint64 &remaining = counter();
    if (remaining == 0) {
        remaining = Seconds;
        _running = false;
        _ticks->stop();
        _show(idleTitle(), true);
        return;
    }
    _show(QStringLiteral("%1s后重试").arg(remaining), false);
    --remaining;
}
