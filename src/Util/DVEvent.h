#pragma once

#include "OperationQueue.h"

#include <QObject>
#include <QString>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

// Event IDs of the bus. There is one.
enum : quint64 { DVEventIdDialStatus = 1 };

// Dial states carried by event 1. 3 stands for both connecting and disconnecting.
enum DVDialState : qint64 {
    DVDialStateUnknown = 0,
    DVDialStateConnected = 2,
    DVDialStateInProgress = 3,
    DVDialStateDisconnected = 5,
};

// Base of the objects an event carries.
class DVEventObject
{
public:
    virtual ~DVEventObject() = default;
};

class DVErrorEvent
{
public:
    DVErrorEvent() = default;
    DVErrorEvent(qint64 errorId, QString msg)
        : errorId(errorId)
        , msg(std::move(msg))
    {}
    static DVErrorEvent initWithErrorId(qint64 errorId, const QString &msg) { return {errorId, msg}; }

    qint64 errorId = 0;
    QString msg;
};

class DVDialStatusEvent : public DVEventObject
{
public:
    DVDialStatusEvent() = default;
    explicit DVDialStatusEvent(qint64 state, std::optional<DVErrorEvent> err = std::nullopt)
        : dialState(state)
        , error(std::move(err))
    {}
    static std::shared_ptr<DVDialStatusEvent> eventWithSates(qint64 state)
    {
        return std::make_shared<DVDialStatusEvent>(state);
    }

    qint64 dialState = DVDialStateUnknown;
    std::optional<DVErrorEvent> error;
    // With "disconnected": why the link ended ("user", "refused", "dropped", "failed", or
    // "unknown"), and the back-end's detail. Empty otherwise.
    QString endCause;
    QString endDetail;
};

using DVEventObjectPtr = std::shared_ptr<const DVEventObject>;
// A handler gets the event object, or null when the event was fired without one.
using DVEventHandler = std::function<void(const DVEventObjectPtr &)>;

// One registration.
class Observer
{
public:
    Observer(QObject *server, DVEventHandler method, quint64 enventID, std::shared_ptr<OperationQueue> operationQueue)
        : server(server)
        , method(std::move(method))
        , eventId(enventID)
        , queue(std::move(operationQueue))
    {}

    // The subscriber, for identity only: it is never dereferenced here. When it is destroyed
    // the bus drops its registrations (the bus watches its destroyed() signal), so a
    // delivery checks registration, under the bus's lock, instead of reading a guarded
    // pointer that the subscriber's thread clears.
    QObject *server;
    QMetaObject::Connection watch; // the bus's watch of the subscriber's destruction
    DVEventHandler method;
    quint64 eventId;
    std::shared_ptr<OperationQueue> queue;
};

// The event bus: connection-state changes from the dialing layer to the controller and the
// views, each delivered on the queue the subscriber chose.
class DVEvent
{
public:
    static DVEvent &shared();

    // Appends a registration (no de-duplication: registering twice delivers twice). A
    // subscriber that is destroyed loses its registrations; deliveries already queued for it
    // are skipped, provided it is destroyed on the thread its deliveries run on (or after it
    // unsubscribed).
    void addObserver(QObject *server, DVEventHandler method, quint64 eventId, std::shared_ptr<OperationQueue> queue);
    // Removes every registration of the subscriber, whatever event it was for.
    void removeObserver(QObject *server, quint64 eventId);
    // Queues one delivery per matching registration and returns at once. Callable from any
    // thread.
    void fireEventWithEventID(quint64 eventId, DVEventObjectPtr objetc);
    // Does nothing; registrations stay.
    void clean() {}

private:
    DVEvent() = default;
    void forget(QObject *server);

    mutable std::mutex _mutex;
    std::vector<std::shared_ptr<Observer>> observers;
};
