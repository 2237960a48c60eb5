#include "Util/DVEvent.h"
#include "Util/DVNotification.h"
#include "support/TestSupport.h"

#include <QCoreApplication>
#include <QThread>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

constexpr int kLiveness = 30000;
// An event ID nobody in the client uses: tests must not disturb each other's subscribers.
constexpr quint64 kOtherEvent = 77;

bool onMainThread()
{
    return QThread::currentThread() == QCoreApplication::instance()->thread();
}

// One subscriber's view of what reached it.
struct Received
{
    std::vector<qint64> states; // -1 for an event without object
    int offMain = 0;
    DVEventHandler handler()
    {
        return [this](const DVEventObjectPtr &object) {
            offMain += onMainThread() ? 0 : 1;
            const auto *dial = dynamic_cast<const DVDialStatusEvent *>(object.get());
            states.push_back(dial ? dial->dialState : -1);
        };
    }
};

// Fires a marker event for `server` and runs the main loop until it arrives: the main queue is
// first in, first out, so everything fired before it has been delivered (or skipped) by then.
void drain()
{
    QObject marker;
    std::atomic<bool> seen{false};
    DVEvent::shared().addObserver(
        &marker, [&](const DVEventObjectPtr &) { seen = true; }, 999, OperationQueue::mainQueue());
    DVEvent::shared().fireEventWithEventID(999, nullptr);
    ASSERT_TRUE(TestSupport::spinUntil([&] { return seen.load(); }, kLiveness));
    DVEvent::shared().removeObserver(&marker, 999);
}

class EventBus : public ::testing::Test
{
protected:
    void TearDown() override
    {
        for (QObject *o : {&a, &b})
            DVEvent::shared().removeObserver(o, DVEventIdDialStatus);
    }
    QObject a, b;
    Received ra, rb;
};

} // namespace

TEST_F(EventBus, WorkerThreadEventsReachMainThreadSubscribers)
{
    auto &bus = DVEvent::shared();
    bus.addObserver(&a, ra.handler(), DVEventIdDialStatus, OperationQueue::mainQueue());
    bus.addObserver(&b, rb.handler(), kOtherEvent, OperationQueue::mainQueue());
    std::thread([&] {
        bus.fireEventWithEventID(DVEventIdDialStatus, DVDialStatusEvent::eventWithSates(DVDialStateConnected));
        bus.fireEventWithEventID(DVEventIdDialStatus, nullptr);
        bus.fireEventWithEventID(12345, DVDialStatusEvent::eventWithSates(DVDialStateInProgress));
    }).join();
    drain();
    EXPECT_EQ(ra.states, (std::vector<qint64>{DVDialStateConnected, -1}));
    EXPECT_EQ(ra.offMain, 0);
    EXPECT_TRUE(rb.states.empty());
}

TEST_F(EventBus, RegistrationsAreNotMergedAndRemovalCoversEveryEvent)
{
    auto &bus = DVEvent::shared();
    bus.addObserver(&a, ra.handler(), DVEventIdDialStatus, OperationQueue::mainQueue());
    bus.addObserver(&a, ra.handler(), DVEventIdDialStatus, OperationQueue::mainQueue());
    bus.addObserver(&a, ra.handler(), kOtherEvent, OperationQueue::mainQueue());
    bus.fireEventWithEventID(DVEventIdDialStatus, DVDialStatusEvent::eventWithSates(DVDialStateDisconnected));
    drain();
    EXPECT_EQ(ra.states, (std::vector<qint64>{DVDialStateDisconnected, DVDialStateDisconnected}));

    // The event ID given to removal is not consulted: every registration of `a` goes.
    bus.removeObserver(&a, DVEventIdDialStatus);
    bus.fireEventWithEventID(kOtherEvent, nullptr);
    bus.fireEventWithEventID(DVEventIdDialStatus, nullptr);
    drain();
    EXPECT_EQ(ra.states.size(), 2u);
}

TEST_F(EventBus, HandlersMayRemoveSubscribersDuringDelivery)
{
    auto &bus = DVEvent::shared();
    // a's handler unsubscribes a and b; b's delivery of the same event is already queued.
    bus.addObserver(
        &a,
        [&](const DVEventObjectPtr &o) {
            ra.handler()(o);
            bus.removeObserver(&a, DVEventIdDialStatus);
            bus.removeObserver(&b, DVEventIdDialStatus);
        },
        DVEventIdDialStatus, OperationQueue::mainQueue());
    bus.addObserver(&b, rb.handler(), DVEventIdDialStatus, OperationQueue::mainQueue());
    bus.fireEventWithEventID(DVEventIdDialStatus, nullptr);
    bus.fireEventWithEventID(DVEventIdDialStatus, nullptr);
    drain();
    EXPECT_EQ(ra.states.size(), 1u);
    EXPECT_TRUE(rb.states.empty());
}

// Destruction unsubscribes like removal does (HandlersMayRemoveSubscribersDuringDelivery):
// even a delivery already queued is skipped.
TEST_F(EventBus, DestroyedSubscribersAreSkipped)
{
    Received r;
    auto *gone = new QObject;
    DVEvent::shared().addObserver(gone, r.handler(), DVEventIdDialStatus, OperationQueue::mainQueue());
    DVEvent::shared().fireEventWithEventID(DVEventIdDialStatus, nullptr);
    delete gone;
    drain();
    EXPECT_TRUE(r.states.empty());
}

TEST_F(EventBus, WorkerQueueSubscribersRunOffTheMainThread)
{
    auto worker = OperationQueue::create();
    DVEvent::shared().addObserver(&a, ra.handler(), DVEventIdDialStatus, worker);
    DVEvent::shared().fireEventWithEventID(DVEventIdDialStatus, nullptr);
    worker->waitUntilAllOperationsAreFinished();
    EXPECT_EQ(ra.states, std::vector<qint64>{-1});
    EXPECT_EQ(ra.offMain, 1);
}
