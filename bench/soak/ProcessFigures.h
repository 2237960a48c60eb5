#pragma once

#include <QDir>
#include <QFile>

#include <malloc.h>

// What the process holds right now, read from /proc/self.
struct ProcessFigures
{
    qint64 rssKb = 0;
    qint64 untrimmedRssKb = 0; // before free memory went back to the system (0: not measured)
    qint64 heapInUseKb = 0;    // bytes the program holds from malloc, whatever the pages around them
    int fds = 0;
    int threads = 0;

    static ProcessFigures now()
    {
        ProcessFigures f;
        QFile status(QStringLiteral("/proc/self/status"));
        if (status.open(QIODevice::ReadOnly)) {
            for (const QByteArray &line : status.readAll().split('\n')) {
                if (line.startsWith("VmRSS:"))
                    f.rssKb = line.mid(6).trimmed().split(' ').value(0).toLongLong();
                else if (line.startsWith("Threads:"))
                    f.threads = line.mid(8).trimmed().toInt();
            }
        }
        f.heapInUseKb = qint64(mallinfo2().uordblks / 1024);
        // The listing itself holds one descriptor while it reads.
        f.fds = int(QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::NoDotAndDotDot | QDir::AllEntries).size());
        return f;
    }
};
