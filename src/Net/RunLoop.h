#pragma once

#include <QtGlobal>

// How a bounded run of the event loop ended.
enum class RunLoopResult {
    TimedOut,      // the time ran out
    Stopped,       // RunLoop::stop() (or stopMain()) ended it
    HandledSource, // an event source was handled and the run was asked to return after one
};

// Bounded, nestable runs of the current thread's Qt event loop, for code that waits for its
// own network call-backs on the thread that started them (a work-queue thread, or the main
// thread inside an operation). Works on threads that Qt did not start (work-queue threads):
// the thread's event dispatcher is created on first use.
//
// "Event sources" are the transport's call-backs (name resolution done, a readable socket):
// after dispatching one they call sourceHandled(), which ends a run that asked to return
// after the first handled source. Other Qt events (timers, posted calls) are processed but do
// not count.
namespace RunLoop {

// Processes events of the current thread for at most `timeoutMs` milliseconds, or until
// stop() is called on this thread, or (with returnAfterSourceHandled) until an event source
// has been handled, whichever comes first.
RunLoopResult runFor(qint64 timeoutMs, bool returnAfterSourceHandled = false);

// Ends the innermost run of the current thread. Does nothing when the thread is not inside
// runFor(): a stop is never remembered for a later run.
void stop();

// Ends the innermost run of the main thread, from any thread, when the main thread is inside
// runFor() right now; otherwise does nothing (the application's own loop is never ended).
void stopMain();

// Reports that an event source was dispatched on the current thread.
void sourceHandled();

// Whether the current thread is inside runFor().
bool isRunning();

// Makes sure the current thread has an event dispatcher, so that socket notifiers and timers
// can be created on it before the first run.
void ensureEventDispatcher();

} // namespace RunLoop
