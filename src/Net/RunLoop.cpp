#include "RunLoop.h"
#include "Util/ThreadHandoff.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QEventLoop>
#include <QThread>
#include <QTimer>

#include <atomic>
#include <chrono>
#include <vector>

namespace {

struct Frame
{
    QEventLoop *loop = nullptr;
    bool returnAfterSourceHandled = false;
    quint64 id = 0;
    bool done = false;
    RunLoopResult result = RunLoopResult::TimedOut;
};

// The runs in progress on this thread, innermost last.
thread_local std::vector<Frame *> t_frames;

std::atomic<quint64> g_nextFrameId{1};
// Id of the main thread's innermost run, 0 when the main thread is not inside runFor().
std::atomic<quint64> g_mainInnermost{0};

bool onMainThread()
{
    const auto *app = QCoreApplication::instance();
    return app && QThread::currentThread() == app->thread();
}

void publishMainInnermost()
{
    if (onMainThread())
        g_mainInnermost.store(t_frames.empty() ? 0 : t_frames.back()->id);
}

void finish(Frame *frame, RunLoopResult result)
{
    if (frame->done)
        return;
    frame->done = true;
    frame->result = result;
    frame->loop->exit();
}

} // namespace

namespace RunLoop {

void ensureEventDispatcher()
{
    if (!QThread::currentThread()->eventDispatcher()) {
        // Constructing an event loop gives a thread that Qt did not start its dispatcher.
        QEventLoop creator;
    }
}

RunLoopResult runFor(qint64 timeoutMs, bool returnAfterSourceHandled)
{
    QEventLoop loop;
    Frame frame;
    frame.loop = &loop;
    frame.returnAfterSourceHandled = returnAfterSourceHandled;
    frame.id = g_nextFrameId.fetch_add(1);

    QTimer timer;
    timer.setSingleShot(true);
    timer.setTimerType(Qt::PreciseTimer);
    QObject::connect(&timer, &QTimer::timeout, &loop, [&frame] { finish(&frame, RunLoopResult::TimedOut); });

    t_frames.push_back(&frame);
    publishMainInnermost();
    timer.start(std::chrono::milliseconds(qMax<qint64>(0, timeoutMs)));
    loop.exec();
    timer.stop();
    t_frames.pop_back();
    publishMainInnermost();
    return frame.result;
}

void stop()
{
    if (!t_frames.empty())
        finish(t_frames.back(), RunLoopResult::Stopped);
}

void stopMain()
{
    if (onMainThread()) {
        stop();
        return;
    }
    const quint64 id = g_mainInnermost.load();
    auto *app = QCoreApplication::instance();
    if (id == 0 || !app)
        return;
    // Only the run that was innermost when the stop was asked for may end; a run that starts
    // later must not inherit the stop.
    ThreadHandoff::post(app, [id] {
        if (!t_frames.empty() && t_frames.back()->id == id)
            finish(t_frames.back(), RunLoopResult::Stopped);
    });
}

void sourceHandled()
{
    if (!t_frames.empty() && t_frames.back()->returnAfterSourceHandled)
        finish(t_frames.back(), RunLoopResult::HandledSource);
}

bool isRunning()
{
    return !t_frames.empty();
}

} // namespace RunLoop
