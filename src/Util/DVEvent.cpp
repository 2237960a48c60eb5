#include "DVEvent.h"

#include <algorithm>

DVEvent &DVEvent::shared()
{
    static DVEvent bus;
    return bus;
}

void DVEvent::addObserver(QObject *server, DVEventHandler method, quint64 eventId,
                          std::shared_ptr<OperationQueue> queue)
{
    std::lock_guard<std::mutex> lock(_mutex);
    // Registrations of subscribers that were destroyed without unsubscribing can never be
    // delivered again; drop them here so they do not pile up.
    observers.erase(std::remove_if(observers.begin(), observers.end(),
                                   [](const std::shared_ptr<Observer> &o) { return o->server.isNull(); }),
                    observers.end());
    observers.push_back(std::make_shared<Observer>(server, std::move(method), eventId, std::move(queue)));
}

void DVEvent::removeObserver(QObject *server, quint64)
{
    std::lock_guard<std::mutex> lock(_mutex);
    observers.erase(std::remove_if(observers.begin(), observers.end(),
                                   [server](const std::shared_ptr<Observer> &o) { return o->server == server; }),
                    observers.end());
}

void DVEvent::fireEventWithEventID(quint64 eventId, DVEventObjectPtr objetc)
{
    // Work on a snapshot so that a handler may add or remove registrations while deliveries
    // are under way.
    std::vector<std::shared_ptr<Observer>> snapshot;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        snapshot = observers;
    }
    for (const auto &observer : snapshot) {
        if (observer->eventId != eventId || observer->server.isNull() || !observer->queue)
            continue;
        observer->queue->addOperationWithBlock([this, observer, objetc] {
            // Skip a subscriber that went away or unsubscribed since the event was fired.
            {
                std::lock_guard<std::mutex> lock(_mutex);
                if (std::find(observers.begin(), observers.end(), observer) == observers.end())
                    return;
            }
            if (observer->server.isNull() || !observer->method)
                return;
            observer->method(objetc);
        });
    }
}
