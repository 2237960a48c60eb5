#include "CliCommand.h"

#include "Conf/Conf.h"

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
bool useConfiguration(const std::optional<QString> &config, const std::optional<QString> &area, QString *error)
{
    if (config) {
        QString why;
        auto conf = Conf::fromEncryptedOrPlainFile(*config, &why);
        if (!conf) {
            *error = QStringLiteral("cannot use %1: %2").arg(*config, why);
            return false;
        }
        Conf::setShared(std::move(conf));
    } else if (!Conf::shared()) {
        *error = QStringLiteral("the shipped configuration cannot be read");
        return false;
    }
    if (area)
        Conf::setArea(*area);
    else
        Conf::restoreArea();
    return true;
}

} // namespace Cli
