#include "CliCommand.h"

#include <cstdio>

namespace Cli {
void out(const QString &line)
{
    std::fputs(line.toUtf8().constData(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

void err(const QString &line)
{
    std::fputs(line.toUtf8().constData(), stderr);
    std::fputc('\n', stderr);
    std::fflush(stderr);
}

QByteArray readStdin()
{
    QByteArray data;
    char buf[65536];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, stdin)) > 0)
        data.append(buf, static_cast<qsizetype>(n));
    return data;
}

void writeStdout(const QByteArray &bytes)
{
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stdout);
    std::fflush(stdout);
}
} // namespace Cli
