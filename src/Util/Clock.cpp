#include "Clock.h"

#include <chrono>

QDateTime Clock::now() const
{
    return QDateTime::currentDateTime();
}

qint64 Clock::monotonicMs() const
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

std::shared_ptr<Clock> Clock::system()
{
    static const auto clock = std::make_shared<Clock>();
    return clock;
}
