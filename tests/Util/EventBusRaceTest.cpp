// Subscribers come and go on the main thread while another thread fires: no delivery reaches
// a destroyed subscriber, and the bus reads no subscriber state from the firing thread (this
// test is the one ThreadSanitizer watches for that).

#include "Util/DVEvent.h"
#include "support/TestSupport.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

namespace {

constexpr quint64 kRaceEvent = 78;

TEST(EventBusRace, SubscribersDestroyedWhileAnotherThreadFires)
{
    std::atomic<bool> stop{false};
    std::atomic<int> budget{0}; // events the firing thread still sends this round
    std::thread firing([&] {
        while (!stop.load()) {
            int left = budget.load();
            if (left > 0 && budget.compare_exchange_weak(left, left - 1))
                DVEvent::shared().fireEventWithEventID(kRaceEvent, nullptr);
            else
                std::this_thread::yield();
        }
    });
    int afterDestruction = 0;
    int delivered = 0;
    for (int round = 0; round < 100; ++round) {
        auto alive = std::make_shared<bool>(true);
        auto *subscriber = new QObject;
        DVEvent::shared().addObserver(
            subscriber,
            [&, alive](const DVEventObjectPtr &) {
                ++delivered;
                afterDestruction += *alive ? 0 : 1;
            },
            kRaceEvent, OperationQueue::mainQueue());
        const int before = delivered;
        budget = 200;
        if (!TestSupport::spinUntil([&] { return delivered > before; }, 5000)) {
            ADD_FAILURE() << "no event reached a live subscriber";
            break;
        }
        *alive = false;
        delete subscriber; // without unsubscribing
        QCoreApplication::processEvents();
    }
    stop = true;
    firing.join();
    QCoreApplication::processEvents();
    EXPECT_EQ(afterDestruction, 0);
}

} // namespace
