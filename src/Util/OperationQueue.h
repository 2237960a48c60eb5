#pragma once

#include <QObject>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

// One unit of background work: built with its inputs, run once. Subclasses put the work in
// main(); start() is the entry point the queue calls (override it to wait before running).
//
// Each operation owns a counting semaphore. Long waits (a pause between heartbeats, an HTTP
// reply, a user's answer) go through waitSemaphore(), and cancel() signals it, so a cancelled
// operation never sits out its wait.
class Operation : public std::enable_shared_from_this<Operation>
{
public:
    virtual ~Operation() = default;

    virtual void start();
    virtual void main() = 0;
    virtual void cancel();

    bool isCancelled() const { return _cancelled.load(); }
    bool isFinished() const { return _finished.load(); }

    // Adds one to the semaphore (from any thread).
    void signalSemaphore();
    // Takes one from the semaphore, waiting at most `timeoutMs` (nullopt: no limit).
    // True when a signal came or the operation is cancelled (then at once, every time),
    // false when the time ran out.
    bool waitSemaphore(std::optional<qint64> timeoutMs);

private:
    friend class OperationQueue;
    void markFinished() { _finished.store(true); }

    std::atomic<bool> _cancelled{false};
    std::atomic<bool> _finished{false};
    std::mutex _semMutex;
    std::condition_variable _semCond;
    qint64 _semCount = 0;
};

// An operation made from a function.
class BlockOperation : public Operation
{
public:
    explicit BlockOperation(std::function<void()> block)
        : _block(std::move(block))
    {}
    void main() override
    {
        if (_block)
            _block();
    }

private:
    std::function<void()> _block;
};

// Runs operations. A worker queue gives every operation its own thread, with no limit on how
// many run at once: heartbeat and SMS operations block their thread for a long time, and a
// small pool would starve the others. The main queue runs operations on the Qt main thread's
// event loop, one after another in the order added.
//
// Use it through std::shared_ptr: operations that queue a successor hold it weakly.
class OperationQueue : public std::enable_shared_from_this<OperationQueue>
{
public:
    static std::shared_ptr<OperationQueue> create();
    // The queue of the Qt main thread (needs a QCoreApplication).
    static std::shared_ptr<OperationQueue> mainQueue();

    virtual ~OperationQueue();

    void addOperation(std::shared_ptr<Operation> op);
    void addOperationWithBlock(std::function<void()> block);

    // Cancels every pending and running operation. Operations added afterwards run normally.
    void cancelAllOperations();
    // Blocks until no operation of this queue is pending or running. Not for the main queue.
    void waitUntilAllOperationsAreFinished();
    // Operations pending or running now.
    std::vector<std::shared_ptr<Operation>> operations() const;
    size_t operationCount() const;

    bool isMainQueue() const { return _main; }

private:
    explicit OperationQueue(bool main)
        : _main(main)
    {}

    struct State
    {
        mutable std::mutex mutex;
        std::condition_variable idle;
        std::vector<std::shared_ptr<Operation>> live;
    };

    const bool _main;
    std::shared_ptr<State> _state = std::make_shared<State>();
};
