// The event-loop runs the UDP transport waits in, and how they end. The transport itself is
// exercised against real servers by the SMS and password tests (tests/Business).
#include "Net/RunLoop.h"
#include "Net/UDPEcho.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <QCoreApplication>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

namespace {

// Counts the starts it is told about.
struct Starts : UDPEchoDelegate
{
    std::atomic<int> count{0};
    void echoDidStartWithAddress(UDPEcho *, const QByteArray &) override { ++count; }
};

// Connecting a datagram socket needs nobody at the other end: the start is the handled source.
RunLoopResult runUntilStarted(Starts &starts)
{
    UDPEcho echo;
    echo.setDelegate(&starts);
    echo.startConnectedToHostName(QStringLiteral("127.0.0.1"), 9);
    return RunLoop::runFor(10000, true);
}

TEST(RunLoop, EndsForTheRightReason)
{
    const struct
    {
        const char *name;
        std::function<RunLoopResult()> run;
        RunLoopResult expected;
    } cases[] = {
        {"time runs out", [] { return RunLoop::runFor(30); }, RunLoopResult::TimedOut},
        {"stopped from a call-back",
         [] {
             QMetaObject::invokeMethod(
                 QCoreApplication::instance(), [] { RunLoop::stop(); }, Qt::QueuedConnection);
             return RunLoop::runFor(10000);
         },
         RunLoopResult::Stopped},
        {"main thread stopped from a worker",
         [] {
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
             return result;
         },
         RunLoopResult::Stopped},
        {"returns after a handled source",
         [] {
             Starts starts;
             return runUntilStarted(starts);
         },
         RunLoopResult::HandledSource},
        {"a work-queue thread runs its own transport",
         [] {
             RunLoopResult result = RunLoopResult::TimedOut;
             std::thread worker([&] {
                 Starts starts;
                 result = runUntilStarted(starts);
                 if (starts.count != 1)
                     result = RunLoopResult::TimedOut;
             });
             worker.join();
             return result;
         },
         RunLoopResult::HandledSource},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.run(), c.expected);
        EXPECT_FALSE(RunLoop::isRunning());
    }
}

} // namespace
