#include "DVEvent.h"

#include <algorithm>

DVEvent &DVEvent::shared()
{
    // Never destroyed: subscribers that are static objects unsubscribe (or are watched for
    // their destruction) during the program's exit, after other statics have gone.
    static DVEvent *const bus = new DVEvent;
    return *bus;
}

void DVEvent::addObserver(QObject *server, DVEventHandler method, quint64 eventId,
                          std::shared_ptr<OperationQueue> queue)
{
    if (!server)
        return;
    auto observer = std::make_shared<Observer>(server, std::move(method), eventId, std::move(queue));
    // Runs in the destroying thread, before the address can be reused by another object.
    observer->watch = QObject::connect(server, &QObject::destroyed, [this, server] { forget(server); });
    std::lock_guard<std::mutex> lock(_mutex);
    observers.push_back(std::move(observer));
}

void DVEvent::removeObserver(QObject *server, quint64)
{
    forget(server);
}

void DVEvent::forget(QObject *server)
{
    std::lock_guard<std::mutex> lock(_mutex);
    const auto gone =
        std::stable_partition(observers.begin(), observers.end(),
                              [server](const std::shared_ptr<Observer> &o) { return o->server != server; });
    for (auto it = gone; it != observers.end(); ++it)
        QObject::disconnect((*it)->watch);
    observers.erase(gone, observers.end());
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
        if (observer->eventId != eventId || !observer->queue)
            continue;
        observer->queue->addOperationWithBlock([this, observer, objetc] {
            // Skip a subscriber that went away or unsubscribed since the event was fired.
            {
                std::lock_guard<std::mutex> lock(_mutex);
                if (std::find(observers.begin(), observers.end(), observer) == observers.end())
                    return;
            }
            if (observer->method)
                observer->method(objetc);
        });
    }
}
