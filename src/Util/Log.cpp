#include "Log.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <cstdio>
#include <mutex>

namespace {

// One rolling file per local day; opened lazily when the first line of a day is written.
class RollingFile
{
public:
    RollingFile(QString dir, std::shared_ptr<Clock> clock, int maxFiles)
        : _dir(std::move(dir))
        , _clock(std::move(clock))
        , _maxFiles(qMax(1, maxFiles))
    {}

    void write(const QString &line, const QDateTime &when)
    {
        if (_dir.isEmpty())
            return;
        const QString day = when.toString(QStringLiteral("yyyy-MM-dd"));
        if (day != _day || !_file.isOpen()) {
            _file.close();
            _day = day;
            QDir().mkpath(_dir);
            _file.setFileName(QDir(_dir).filePath(QStringLiteral("dorvik-%1.log").arg(day)));
            if (!_file.open(QIODevice::Append | QIODevice::Text))
                return;
            prune();
        }
        _file.write(line.toUtf8());
        _file.write("\n");
        _file.flush();
    }

    Clock &clock() const { return *_clock; }

private:
    // Keeps _maxFiles files: the open one and the newest of the others (names sort by date).
    // The open one is kept even when it is not the newest, as after the clock was set back.
    void prune()
    {
        QDir dir(_dir);
        QStringList files = dir.entryList({QStringLiteral("dorvik-*.log")}, QDir::Files, QDir::Name);
        files.removeAll(QFileInfo(_file.fileName()).fileName());
        while (files.size() > _maxFiles - 1)
            dir.remove(files.takeFirst());
    }

    QString _dir;
    std::shared_ptr<Clock> _clock;
    int _maxFiles;
    QString _day;
    QFile _file;
};

std::mutex g_mutex;
std::unique_ptr<RollingFile> g_file;

void handler(QtMsgType, const QMessageLogContext &context, const QString &message)
{
    std::lock_guard<std::mutex> lock(g_mutex);
    const QDateTime when = g_file ? g_file->clock().now() : QDateTime::currentDateTime();
    const QString line = Log::formatLine(when, context, message);
    std::fprintf(stderr, "%s\n", line.toLocal8Bit().constData());
    std::fflush(stderr);
    if (g_file)
        g_file->write(line, when);
}

} // namespace

namespace Log {

QString defaultDirectory()
{
    const QString base = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    return base.isEmpty() ? QString() : QDir(base).filePath(QStringLiteral("dorvik/Logs"));
}

QString formatLine(const QDateTime &when, const QMessageLogContext &context, const QString &message)
{
    const QString file = context.file ? QFileInfo(QString::fromUtf8(context.file)).fileName() : QStringLiteral("?");
    const QString function = context.function ? QString::fromUtf8(context.function) : QStringLiteral("?");
    return QStringLiteral("%1 [E] %2:%3 %4 | %5")
        .arg(when.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz")), file)
        .arg(context.line)
        .arg(function, message);
}

void install(const QString &dir, std::shared_ptr<Clock> clock, int maxFiles)
{
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        g_file = std::make_unique<RollingFile>(dir, clock ? std::move(clock) : Clock::system(), maxFiles);
    }
    qInstallMessageHandler(handler);
}

void uninstall()
{
    qInstallMessageHandler(nullptr);
    std::lock_guard<std::mutex> lock(g_mutex);
    g_file.reset();
}

} // namespace Log
