// dorvik-cli connect: the client without windows. Dials through the controller, prints one JSON
// line per state change and heartbeat exchange, and hangs up cleanly on SIGINT/SIGTERM.

#include "CliCommand.h"
#include "ConnectSession.h"

#include <QCommandLineParser>
#include <QCoreApplication>

namespace {

int runConnect(const QStringList &args)
{
    QCommandLineParser parser;
    parser.addOption({QStringLiteral("user"), QStringLiteral("account name"), QStringLiteral("name")});
    parser.addOption(
        {QStringLiteral("password-stdin"), QStringLiteral("read the password from the first line of stdin")});
    ConnectSession::addOptions(parser);
    if (!parser.parse(QStringList{QStringLiteral("connect")} + args)) {
        Cli::err(QStringLiteral("dorvik-cli connect: ") + parser.errorText());
        return 2;
    }
    if (!parser.isSet(QStringLiteral("user")) || !parser.isSet(QStringLiteral("password-stdin"))) {
        Cli::err(QStringLiteral("dorvik-cli connect: --user and --password-stdin are required "
                                "(a password never goes on the command line)"));
        return 2;
    }
    QString error;
    auto settings = ConnectSession::settingsFrom(parser, &error);
    if (!settings) {
        Cli::err(QStringLiteral("dorvik-cli connect: ") + error);
        return 2;
    }
    settings->user = parser.value(QStringLiteral("user"));

    ConnectSession session(*settings);
    return session.run();
}

} // namespace

CliCommand connectCommand()
{
    return {QStringLiteral("connect"),
            QStringLiteral("connect --user U --password-stdin [--interface NAME] [--redial] [--area A] [--config FILE] "
                           "[--backend networkmanager|simulated] [--ac URL] [--heartbeat-scale N]"),
            runConnect};
}
