#include "ThreadHandoff.h"

#include <QCoreApplication>
#include <QEvent>
#include <QPointer>
#include <QThread>

#include <condition_variable>
#include <mutex>

#if defined(__SANITIZE_THREAD__)
#define DV_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define DV_THREAD_SANITIZER 1
#endif
#endif
#ifdef DV_THREAD_SANITIZER
#include <sanitizer/tsan_interface.h>
#endif

namespace {

void markRelease(void *address)
{
#ifdef DV_THREAD_SANITIZER
    __tsan_release(address);
#else
    Q_UNUSED(address);
#endif
}

void markAcquire(void *address)
{
#ifdef DV_THREAD_SANITIZER
    __tsan_acquire(address);
#else
    Q_UNUSED(address);
#endif
}

// Lets a waiting poster know the work is done; std::mutex, so the sanitizer sees the edge back.
struct Latch
{
    std::mutex mutex;
    std::condition_variable cond;
    bool open = false;
};

const QEvent::Type kRunEvent = static_cast<QEvent::Type>(QEvent::registerEventType());

// One posted function: its own receiver, moved to the context's thread, so that delivery
// reaches code we own before any of the parcel is read.
class Parcel : public QObject
{
public:
    Parcel(QObject *context, std::function<void()> work, Latch *latch)
        : _context(context)
        , _work(std::move(work))
        , _latch(latch)
    {}

    bool event(QEvent *e) override
    {
        // Posted after markRelease(this) on the posting thread; Qt's queue orders the two.
        markAcquire(this);
        if (e->type() != kRunEvent)
            return QObject::event(e);
        if (_context && _work)
            _work();
        _work = nullptr; // what the work captured goes on this thread, after it ran
        if (_latch) {
            // Notify under the lock: the waiter owns the latch on its stack and returns (ending
            // it) as soon as it sees `open`; past this unlock nothing here may touch the latch.
            std::lock_guard<std::mutex> lock(_latch->mutex);
            _latch->open = true;
            _latch->cond.notify_all();
        }
        // Not `delete this`: Qt is still delivering to this object until event() returns.
        deleteLater();
        return true;
    }

private:
    QPointer<QObject> _context;
    std::function<void()> _work;
    Latch *_latch;
};

void send(QObject *context, std::function<void()> work, Latch *latch)
{
    auto *parcel = new Parcel(context, std::move(work), latch);
    parcel->moveToThread(context->thread());
    markRelease(parcel);
    QCoreApplication::postEvent(parcel, new QEvent(kRunEvent));
}

} // namespace

namespace ThreadHandoff {

void post(QObject *context, std::function<void()> work)
{
    if (!context)
        return;
    send(context, std::move(work), nullptr);
}

void postAndWait(QObject *context, std::function<void()> work)
{
    if (!context)
        return;
    Latch latch;
    send(context, std::move(work), &latch);
    std::unique_lock<std::mutex> lock(latch.mutex);
    latch.cond.wait(lock, [&latch] { return latch.open; });
}

} // namespace ThreadHandoff
