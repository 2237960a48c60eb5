#pragma once

#include "App/DVApp.h"
#include "Util/DVError.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QThread>
#include <QVariantMap>

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

// Runs the application controller and its dialing back-end on a thread of their own, so that
// a platform call that blocks for seconds (a busy NetworkManager, a polkit prompt waiting for
// the user) never holds the window's event loop.
//
// Every request runs on that thread, one after another in the order made, exactly as the
// controller would run it on the caller's thread: same steps, same errors. Each answer comes
// back as a callback on the thread that made the request (the main thread for the windows),
// through its event loop, and only while the context object given to the host is alive.
//
// The controller's own subscription to the dial-status event is moved to the controller's
// thread, in order, so that its state is only ever touched there.
class DVAppHost : public QObject
{
    Q_OBJECT
public:
    // Builds the controller. Runs on the host's thread, so that every object the controller
    // and its back-end create lives there.
    using AppFactory = std::function<std::unique_ptr<DVApp>()>;

    explicit DVAppHost(AppFactory factory, QObject *parent = nullptr);
    // Waits for the request under way, destroys the controller on its thread and ends the
    // thread. Does not hang up: call stopConn first when the link must go down.
    ~DVAppHost() override;

    // The dial result: `started` as the controller returned it, and the error it filled in
    // (an empty domain when none). A start that failed and was cleaned up may come back
    // started with an error: look at both.
    using DialDone = std::function<void(bool started, const DVError &error)>;
    void dial(const QString &name, const QString &password, quint64 index, DialDone done);
    void stopConn(std::function<void(bool)> done = {});
    void getInterfaceList(std::function<void(const std::vector<QVariantMap> &)> done);
    void getLastInterfaceIndex(std::function<void(quint64)> done);
    void getConnTime(std::function<void(qint32)> done);
    // Thread-safe in the controller: answers at once.
    QString username() const;

    // Runs `work` on the controller's thread with the controller (tests, tools).
    void post(std::function<void(DVApp &)> work);
    // Blocks until every request made so far has run. Not for the windows' code paths.
    void waitForIdle();

    // Requests made and not answered yet.
    int pendingCalls() const { return _pending.load(); }
    // The controller's thread (for checks).
    QThread *workerThread() const { return _thread; }

Q_SIGNALS:
    // A request started (the first one in flight) or the last one in flight was answered.
    void busyChanged(bool busy);
    // The controller handled a dial-status event (relayed to the host's thread).
    void dialStateChanged(qint64 dialState);

private:
    template<typename Result>
    void request(std::function<Result(DVApp &)> work, std::function<void(const Result &)> done);
    void begin();
    void end();

    QThread *_thread = nullptr;
    QObject *_worker = nullptr;               // lives on _thread; requests are posted to it
    DVApp *_app = nullptr;                    // owned; created and destroyed on _thread
    std::shared_ptr<const QString> _password; // kept alive for the connection (token request)
    std::atomic<int> _pending{0};
};
