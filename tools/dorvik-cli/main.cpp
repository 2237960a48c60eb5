#include "CliCommand.h"

#include "Util/Log.h"

#include <QCoreApplication>

#include <cstdio>
#include <iostream>

bool CliRegistry::add(CliCommand command)
{
    const_cast<std::vector<CliCommand> &>(all()).push_back(std::move(command));
    return true;
}

const std::vector<CliCommand> &CliRegistry::all()
{
    static std::vector<CliCommand> commands;
    return commands;
}

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

static void usage()
{
    Cli::err(QStringLiteral("usage: dorvik-cli <command> [options]\n\ncommands:"));
    for (const auto &c : CliRegistry::all())
        Cli::err(QStringLiteral("  ") + c.usage);
}

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("dorvik"));
    QCoreApplication::setOrganizationName(QStringLiteral("dorvik"));
    Log::install(Log::defaultDirectory());

    QStringList args = QCoreApplication::arguments().mid(1);
    if (args.isEmpty() || args.first() == QLatin1String("help") || args.first() == QLatin1String("--help")) {
        usage();
        return args.isEmpty() ? 2 : 0;
    }
    const QString name = args.takeFirst();
    for (const auto &c : CliRegistry::all())
        if (c.name == name)
            return c.run(args);
    Cli::err(QStringLiteral("dorvik-cli: unknown command '%1'").arg(name));
    usage();
    return 2;
}
