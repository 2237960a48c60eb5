#include "OperationQueue.h"
#include "Util/ThreadHandoff.h"

#include <QCoreApplication>
#include <QMetaObject>

#include <algorithm>
#include <chrono>
#include <thread>

void Operation::start()
{
    if (isCancelled())
        return;
    main();
}

void Operation::cancel()
{
    {
        // Under the semaphore's lock, so that a waiter cannot check the flag, miss the store
        // and then sleep through the notification.
        std::lock_guard<std::mutex> lock(_semMutex);
        _cancelled.store(true);
    }
    _semCond.notify_all();
}

void Operation::signalSemaphore()
{
    {
        std::lock_guard<std::mutex> lock(_semMutex);
        ++_semCount;
    }
    _semCond.notify_all();
}

bool Operation::waitSemaphore(std::optional<qint64> timeoutMs)
{
    std::unique_lock<std::mutex> lock(_semMutex);
    // A cancelled operation never waits again: cancel() wakes the wait under way, and every
    // later wait returns at once, so an operation that waits more than once still ends promptly.
    const auto ready = [this] { return _semCount > 0 || isCancelled(); };
    if (timeoutMs) {
        if (!_semCond.wait_for(lock, std::chrono::milliseconds(qMax<qint64>(0, *timeoutMs)), ready))
            return false;
    } else {
        _semCond.wait(lock, ready);
    }
    if (_semCount > 0)
        --_semCount;
    return true;
}

std::shared_ptr<OperationQueue> OperationQueue::create()
{
    return std::shared_ptr<OperationQueue>(new OperationQueue(false));
}

std::shared_ptr<OperationQueue> OperationQueue::mainQueue()
{
    static const std::shared_ptr<OperationQueue> queue(new OperationQueue(true));
    return queue;
}

OperationQueue::~OperationQueue()
{
    // Worker threads hold only the shared state, so they may outlive the queue object; still,
    // a queue that goes away takes its work with it.
    if (!_main) {
        cancelAllOperations();
        waitUntilAllOperationsAreFinished();
    }
}

void OperationQueue::addOperation(std::shared_ptr<Operation> op)
{
    if (!op)
        return;
    {
        std::lock_guard<std::mutex> lock(_state->mutex);
        _state->live.push_back(op);
    }
    auto state = _state;
    auto run = [state, op] {
        op->start();
        op->markFinished();
        {
            std::lock_guard<std::mutex> lock(state->mutex);
            auto &live = state->live;
            live.erase(std::remove(live.begin(), live.end(), op), live.end());
        }
        state->idle.notify_all();
    };
    if (_main) {
        ThreadHandoff::post(QCoreApplication::instance(), std::move(run));
    } else {
        std::thread(std::move(run)).detach();
    }
}

void OperationQueue::addOperationWithBlock(std::function<void()> block)
{
    addOperation(std::make_shared<BlockOperation>(std::move(block)));
}

void OperationQueue::cancelAllOperations()
{
    for (const auto &op : operations())
        op->cancel();
}

void OperationQueue::waitUntilAllOperationsAreFinished()
{
    std::unique_lock<std::mutex> lock(_state->mutex);
    _state->idle.wait(lock, [this] { return _state->live.empty(); });
}

std::vector<std::shared_ptr<Operation>> OperationQueue::operations() const
{
    std::lock_guard<std::mutex> lock(_state->mutex);
    return _state->live;
}

size_t OperationQueue::operationCount() const
{
    std::lock_guard<std::mutex> lock(_state->mutex);
    return _state->live.size();
}
