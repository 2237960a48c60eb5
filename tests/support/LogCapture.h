#pragma once

#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <algorithm>
#include <mutex>

// Collects every log line written while it lives, from any thread, and still lets each line
// through to the handler that was there before (so a failing test shows its log).
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
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    QStringList lines() const
    {
        std::lock_guard<std::mutex> lock(mutex());
        return _lines;
    }
    QStringList all() const { return lines(); }
    bool has(const QString &line) const { return lines().contains(line); }
    // Lines that contain `part`.
    int countContaining(const QString &part) const { return int(lines().filter(part).size()); }
    bool contains(const QString &part) const { return countContaining(part) > 0; }
    bool hasPrefix(const QString &prefix) const
    {
        const QStringList all = lines();
        return std::any_of(all.begin(), all.end(), [&](const QString &l) { return l.startsWith(prefix); });
    }

private:
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
    static void handler(QtMsgType type, const QMessageLogContext &context, const QString &message)
    {
        QtMessageHandler previous = nullptr;
        {
            std::lock_guard<std::mutex> lock(mutex());
            if (current()) {
                current()->_lines.append(message);
                previous = current()->_previous;
            }
        }
        if (previous)
            previous(type, context, message);
    }

    QtMessageHandler _previous = nullptr;
    QStringList _lines;
};
