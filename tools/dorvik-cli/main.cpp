#include "CliCommand.h"

#include "Util/Log.h"

#include <QCoreApplication>

static void usage()
{
    Cli::err(QStringLiteral("usage: dorvik-cli <command> [options]\n\ncommands:"));
    for (const auto &c : cliCommands())
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
    for (const auto &c : cliCommands())
        if (c.name == name)
            return c.run(args);
    Cli::err(QStringLiteral("dorvik-cli: unknown command '%1'").arg(name));
    usage();
    return 2;
}
