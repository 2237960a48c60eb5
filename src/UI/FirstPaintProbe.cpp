#include "FirstPaintProbe.h"

#include <QCoreApplication>
#include <QEvent>
#include <QFile>
#include <QTimer>
#include <QWidget>

#include <cstdio>
#include <ctime>
#include <unistd.h>

namespace {

// Milliseconds since this process started, from the kernel's start time (in clock ticks since
// boot) and the boot-time clock; -1 when unknown.
qint64 msSinceProcessStart()
{
    QFile stat(QStringLiteral("/proc/self/stat"));
    if (!stat.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray line = stat.readAll();
    // The command name may contain spaces and parentheses: fields are counted after the last ')'.
    const qsizetype close = line.lastIndexOf(')');
    if (close < 0)
        return -1;
    const QList<QByteArray> fields = line.mid(close + 2).split(' ');
    constexpr int startTimeField = 22 - 3; // field 22 overall, the list starts at field 3
    if (fields.size() <= startTimeField)
        return -1;
    bool ok = false;
    const qint64 startTicks = fields[startTimeField].toLongLong(&ok);
    const long ticksPerSecond = sysconf(_SC_CLK_TCK);
    timespec now{};
    if (!ok || ticksPerSecond <= 0 || clock_gettime(CLOCK_BOOTTIME, &now) != 0)
        return -1;
    const qint64 nowMs = qint64(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
    return nowMs - startTicks * 1000 / ticksPerSecond;
}

qint64 residentKb()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    // Files under /proc report a size of 0: read everything rather than test for the end.
    const QList<QByteArray> lines = status.readAll().split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).simplified().split(' ').value(0).toLongLong();
    }
    return -1;
}

// Watches every paint of the application: the first one of any widget of the window counts,
// since a window whose children cover it fully may never paint itself.
class FirstPaintFilter : public QObject
{
public:
    explicit FirstPaintFilter(QWidget *window)
        : QObject(window)
        , _window(window)
    {}

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() != QEvent::Paint || _seen || !watched->isWidgetType())
            return false;
        if (static_cast<QWidget *>(watched)->window() != _window)
            return false;
        _seen = true;
        // Report once this paint has been done and flushed, from the next turn of the loop.
        QTimer::singleShot(0, qApp, [] {
            std::printf("first-paint-ms %lld rss-kb %lld\n", static_cast<long long>(msSinceProcessStart()),
                        static_cast<long long>(residentKb()));
            std::fflush(stdout);
            QCoreApplication::quit();
        });
        return false;
    }

private:
    QWidget *_window;
    bool _seen = false;
};

} // namespace

void installFirstPaintProbe(QWidget *window)
{
    if (!window || qEnvironmentVariable("DORVIK_FIRST_PAINT_EXIT") != QLatin1String("1"))
        return;
    // Owned by the window, so it stops watching when the window goes.
    qApp->installEventFilter(new FirstPaintFilter(window));
}
