#pragma once

#include <QObject>

#include <functional>

// Runs a function on the thread of a QObject through that thread's event queue: the queued
// form of QMetaObject::invokeMethod with a function, in posting order, and dropped when the
// context is destroyed before its turn comes.
//
// Why not invokeMethod itself: it copies the function into Qt's call object inside the
// caller's (instrumented) code and hands it over under a lock inside Qt, which is not built
// with ThreadSanitizer. The sanitizer then sees the receiving thread read what the posting
// thread wrote with nothing between them. Here the parcel is complete before it is posted,
// and the post and the delivery are marked as the release and acquire they are, so every
// cross-thread hand-off in the core stays checked instead of being suppressed.
namespace ThreadHandoff {

void post(QObject *context, std::function<void()> work);

// Posts and blocks until the work has run (or was dropped). Never from the context's thread.
void postAndWait(QObject *context, std::function<void()> work);

} // namespace ThreadHandoff
