#pragma once

#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <mutex>

// Collects every log line written while it lives (from any thread).
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
    int count(const QString &line) const { return static_cast<int>(lines().count(line)); }
    bool has(const QString &line) const { return count(line) > 0; }
    bool hasPrefix(const QString &prefix) const
    {
        for (const QString &l : lines()) {
            if (l.startsWith(prefix))
                return true;
        }
        return false;
    }
    void clear()
    {
        std::lock_guard<std::mutex> lock(mutex());
        _lines.clear();
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
    static void handler(QtMsgType, const QMessageLogContext &, const QString &message)
    {
        std::lock_guard<std::mutex> lock(mutex());
        if (current())
            current()->_lines.append(message);
    }

    QtMessageHandler _previous = nullptr;
    QStringList _lines;
};
