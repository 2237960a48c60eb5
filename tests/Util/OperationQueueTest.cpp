#include "Util/OperationQueue.h"
#include "support/TestSupport.h"

#include <QCoreApplication>
#include <QThread>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

// Upper bound for anything that must happen "soon"; only a hang ever gets near it. A wait on
// the queue that hangs is left to the suite's time-out.
constexpr int kLiveness = 30000;

// Waits on its semaphore (without limit, `waits` times) and records what it saw.
class WaitingOp : public Operation
{
public:
    explicit WaitingOp(std::atomic<int> &entered, int waits = 1)
        : _entered(entered)
        , _waits(waits)
    {}
    void main() override
    {
        ++_entered;
        for (int i = 0; i < _waits; ++i)
            woken += waitSemaphore(std::nullopt) ? 1 : 0;
        cancelledAtEnd = isCancelled();
        ran = true;
    }
    std::atomic<int> woken{0};
    std::atomic<bool> cancelledAtEnd{false};
    std::atomic<bool> ran{false};

private:
    std::atomic<int> &_entered;
    int _waits;
};

} // namespace

TEST(OperationQueue, RunsEveryOperationAtOnceWithoutALimit)
{
    auto queue = OperationQueue::create();
    std::atomic<int> entered{0};
    std::vector<std::shared_ptr<WaitingOp>> ops;
    for (int i = 0; i < 16; ++i) {
        ops.push_back(std::make_shared<WaitingOp>(entered));
        queue->addOperation(ops.back());
    }
    // All 16 are blocked in their wait at the same time: none can finish before the others start.
    ASSERT_TRUE(TestSupport::spinUntil([&] { return entered == 16; }, kLiveness));
    EXPECT_EQ(queue->operationCount(), 16u);
    for (auto &op : ops)
        op->signalSemaphore();
    queue->waitUntilAllOperationsAreFinished();
    EXPECT_EQ(queue->operationCount(), 0u);
    for (auto &op : ops) {
        EXPECT_TRUE(op->isFinished());
        EXPECT_EQ(op->woken, 1);
        EXPECT_FALSE(op->cancelledAtEnd);
    }
}

TEST(OperationQueue, CancelReleasesWaitsAndLaterOperationsRun)
{
    auto queue = OperationQueue::create();
    std::atomic<int> entered{0};
    std::vector<std::shared_ptr<WaitingOp>> ops;
    // Operations that wait once and operations that wait again after being woken.
    for (int waits : {1, 1, 3, 3}) {
        ops.push_back(std::make_shared<WaitingOp>(entered, waits));
        queue->addOperation(ops.back());
    }
    ASSERT_TRUE(TestSupport::spinUntil([&] { return entered == 4; }, kLiveness));
    queue->cancelAllOperations();
    queue->waitUntilAllOperationsAreFinished();
    for (auto &op : ops) {
        EXPECT_TRUE(op->cancelledAtEnd);
        EXPECT_TRUE(op->isCancelled());
    }

    std::atomic<bool> later{false};
    queue->addOperationWithBlock([&] { later = true; });
    queue->waitUntilAllOperationsAreFinished();
    EXPECT_TRUE(later);

    // Cancelled before it starts: main() never runs, the operation still finishes.
    auto early = std::make_shared<WaitingOp>(entered);
    early->cancel();
    queue->addOperation(early);
    queue->waitUntilAllOperationsAreFinished();
    EXPECT_FALSE(early->ran);
    EXPECT_TRUE(early->isFinished());
}

TEST(OperationQueue, DestroyingAQueueCancelsAndWaits)
{
    std::atomic<int> entered{0};
    auto op = std::make_shared<WaitingOp>(entered);
    {
        auto queue = OperationQueue::create();
        queue->addOperation(op);
        ASSERT_TRUE(TestSupport::spinUntil([&] { return entered == 1; }, kLiveness));
        queue.reset();
    }
    EXPECT_TRUE(op->isFinished());
    EXPECT_TRUE(op->cancelledAtEnd);
}

TEST(OperationQueue, MainQueueRunsOnTheMainThreadInOrder)
{
    auto main = OperationQueue::mainQueue();
    EXPECT_TRUE(main->isMainQueue());
    std::vector<int> order;
    std::atomic<int> offMain{0};
    const auto record = [&](int i) {
        return [&, i] {
            if (QThread::currentThread() != QCoreApplication::instance()->thread())
                ++offMain;
            order.push_back(i);
        };
    };
    main->addOperationWithBlock(record(1));
    // Added from a worker thread, still run on the main thread, after the first.
    std::thread([&] { main->addOperationWithBlock(record(2)); }).join();
    main->addOperationWithBlock(record(3));
    EXPECT_TRUE(order.empty()); // nothing runs before the event loop does
    ASSERT_TRUE(TestSupport::spinUntil([&] { return order.size() == 3; }, kLiveness));
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(offMain, 0);
}
