#pragma once

#include "Util/DVEvent.h"

#include "support/TestSupport.h"

#include <QObject>
#include <QStringList>

#include <mutex>
#include <vector>

namespace DialTest {

// Collects the dial states fired on the event bus, delivered on the main queue.
class StateLog : public QObject
{
public:
    StateLog()
    {
        DVEvent::shared().addObserver(
            this,
            [this](const DVEventObjectPtr &obj) {
                if (const auto *e = dynamic_cast<const DVDialStatusEvent *>(obj.get()))
                    states.push_back(e->dialState);
            },
            DVEventIdDialStatus, OperationQueue::mainQueue());
    }
    ~StateLog() override { DVEvent::shared().removeObserver(this, DVEventIdDialStatus); }
    // Runs the event loop until the last state is `last`.
    bool waitFor(qint64 last, int ms = 5000)
    {
        return TestSupport::spinUntil([&] { return !states.empty() && states.back() == last; }, ms);
    }
    std::vector<qint64> states;
};

// Collects the log lines written while it lives (and still lets them through).
class LogCapture
{
public:
    LogCapture()
    {
        std::lock_guard<std::mutex> lock(mutex());
        current() = this;
        _previous = qInstallMessageHandler(&LogCapture::handler);
    }
    ~LogCapture()
    {
        std::lock_guard<std::mutex> lock(mutex());
        qInstallMessageHandler(_previous);
        current() = nullptr;
    }
    QStringList lines() const
    {
        std::lock_guard<std::mutex> lock(mutex());
        return _lines;
    }
    bool contains(const QString &text) const { return !lines().filter(text).isEmpty(); }

private:
    static void handler(QtMsgType type, const QMessageLogContext &ctx, const QString &msg)
    {
        QtMessageHandler previous = nullptr;
        {
            std::lock_guard<std::mutex> lock(mutex());
            if (current()) {
                current()->_lines << msg;
                previous = current()->_previous;
            }
        }
        if (previous)
            previous(type, ctx, msg);
    }
    static std::mutex &mutex()
    {
        static std::mutex m;
        return m;
    }
    static LogCapture *&current()
    {
        static LogCapture *c = nullptr;
        return c;
    }
    QtMessageHandler _previous = nullptr;
    QStringList _lines;
};

} // namespace DialTest
