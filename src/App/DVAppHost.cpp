#include "DVAppHost.h"

#include "Business/BubbleCenter.h"
#include "Util/Log.h"
#include "Util/ThreadHandoff.h"

DVAppHost::DVAppHost(AppFactory factory, QObject *parent)
    : QObject(parent)
    , _thread(new QThread)
    , _worker(new QObject)
{
    // The bubble centre belongs to the main thread: make sure it is created here before the
    // controller asks for it from its own thread.
    BubbleCenter::defaultCenter();
    _thread->setObjectName(QStringLiteral("dorvik-dial"));
    _worker->moveToThread(_thread);
    _thread->start();

    ThreadHandoff::postAndWait(_worker, [this, factory = std::move(factory)] {
        std::unique_ptr<DVApp> app = factory ? factory() : nullptr;
        _app = app.release();
        if (_app) {
            // The controller subscribed for delivery on the main thread. Its state lives on this
            // thread, so deliver there instead: still through the main queue, which keeps the
            // events in the order fired, then on to this thread's queue, which keeps it too.
            DVEvent::shared().removeObserver(_app, DVEventIdDialStatus);
            QPointer<DVApp> target = _app;
            DVEvent::shared().addObserver(
                _app,
                [target](const DVEventObjectPtr &object) {
                    if (target)
                        ThreadHandoff::post(target.data(), [target, object] { target->onEventWithObject(object); });
                },
                DVEventIdDialStatus, OperationQueue::mainQueue());
            connect(_app, &DVApp::dialStateChanged, this, &DVAppHost::dialStateChanged, Qt::QueuedConnection);
        } else {
            DVLOG() << "no application controller: every request will fail";
        }
    });
}

DVAppHost::~DVAppHost()
{
    // Deliveries of the event bus run on this (the main) thread: once unsubscribed here, none
    // can reach the controller any more.
    if (_app)
        DVEvent::shared().removeObserver(_app, DVEventIdDialStatus);
    // Waited for through the hand-off rather than only the thread's end, so that the thread's
    // last writes (the password released) are ordered before this object's members go.
    ThreadHandoff::postAndWait(_worker, [this] {
        delete _app;
        _app = nullptr;
        _password.reset();
        delete _worker;
        _worker = nullptr;
        QThread::currentThread()->quit();
    });
    _thread->wait();
    delete _thread;
}

void DVAppHost::begin()
{
    if (_pending.fetch_add(1) == 0)
        Q_EMIT busyChanged(true);
}

void DVAppHost::end()
{
    if (_pending.fetch_sub(1) == 1)
        Q_EMIT busyChanged(false);
}

template<typename Result>
void DVAppHost::request(std::function<Result(DVApp &)> work, std::function<void(const Result &)> done)
{
    begin();
    // The answer goes to the thread that asked: the host's own (the main thread).
    ThreadHandoff::post(_worker, [this, work = std::move(work), done = std::move(done)] {
        Result result{};
        if (_app)
            result = work(*_app);
        ThreadHandoff::post(this, [this, done, result] {
            end();
            if (done)
                done(result);
        });
    });
}

void DVAppHost::dial(const QString &name, const QString &password, quint64 index, DialDone done)
{
    struct Outcome
    {
        bool started = false;
        DVError error;
    };
    request<Outcome>(
        [this, name, password, index](DVApp &app) {
            // The controller keeps the password weakly; it lives here for the connection.
            _password = std::make_shared<const QString>(password);
            Outcome outcome;
            outcome.started = app.dialWithUserName(name, _password, index, &outcome.error);
            return outcome;
        },
        [done = std::move(done)](const Outcome &outcome) {
            if (done)
                done(outcome.started, outcome.error);
        });
}

void DVAppHost::stopConn(std::function<void(bool)> done)
{
    request<bool>(
        [this](DVApp &app) {
            _password.reset();
            return app.stopConn();
        },
        std::move(done));
}

void DVAppHost::getInterfaceList(std::function<void(const std::vector<QVariantMap> &)> done)
{
    request<std::vector<QVariantMap>>([](DVApp &app) { return app.getInterfaceList(); }, std::move(done));
}

void DVAppHost::getLastInterfaceIndex(std::function<void(quint64)> done)
{
    request<quint64>([](DVApp &app) { return app.getLastInterfaceIndex(); },
                     [done = std::move(done)](const quint64 &index) {
                         if (done)
                             done(index);
                     });
}

void DVAppHost::getConnTime(std::function<void(qint32)> done)
{
    request<qint32>([](DVApp &app) { return app.getConnTime(); },
                    [done = std::move(done)](const qint32 &seconds) {
                        if (done)
                            done(seconds);
                    });
}

QString DVAppHost::username() const
{
    return _app ? _app->username() : QString();
}

void DVAppHost::post(std::function<void(DVApp &)> work)
{
    ThreadHandoff::post(_worker, [this, work = std::move(work)] {
        if (_app && work)
            work(*_app);
    });
}

void DVAppHost::waitForIdle()
{
    ThreadHandoff::postAndWait(_worker, [] {});
}
