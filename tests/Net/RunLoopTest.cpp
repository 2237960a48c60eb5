// The event-loop runs the UDP transport waits in. Runs that time out, that a call-back stops
// and that end on a handled datagram, on the main thread and on work-queue threads, are
// exercised against real servers by the SMS and password tests
// (tests/Business/SideChannelTest.cpp); a main-thread run stopped from another thread, as the
// SMS verification's transport errors do, is not.
#include "Net/RunLoop.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <QCoreApplication>

#include <atomic>
#include <chrono>
#include <thread>

namespace {

TEST(RunLoop, MainThreadStoppedFromAWorker)
{
    std::atomic<bool> inRun{false};
    QMetaObject::invokeMethod(
        QCoreApplication::instance(), [&inRun] { inRun = true; }, Qt::QueuedConnection);
    std::thread worker([&inRun] {
        while (!inRun)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        RunLoop::stopMain();
    });
    const auto result = RunLoop::runFor(10000);
    worker.join();
    EXPECT_EQ(result, RunLoopResult::Stopped);
    EXPECT_FALSE(RunLoop::isRunning());
}

} // namespace
