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
    parser.addOption({QStringLiteral("password-stdin"), QStringLiteral("read the password from the first line of stdin")});
    parser.addOption({QStringLiteral("interface"), QStringLiteral("kernel name of the interface"), QStringLiteral("name")});
    parser.addOption({QStringLiteral("area"), QStringLiteral("area code"), QStringLiteral("code")});
    parser.addOption({QStringLiteral("config"), QStringLiteral("configuration file to try"), QStringLiteral("file")});
    parser.addOption({QStringLiteral("backend"), QStringLiteral("networkmanager | simulated"), QStringLiteral("name")});
    parser.addOption({QStringLiteral("ac"), QStringLiteral("simulated access concentrator (simulated back-end)"),
                      QStringLiteral("url"), QStringLiteral("http://127.0.0.1:18087/pppoe/auth")});
    parser.addOption({QStringLiteral("heartbeat-scale"),
                      QStringLiteral("divide heartbeat pauses by this factor (demos and tests)"), QStringLiteral("n")});
    if (!parser.parse(QStringList{QStringLiteral("connect")} + args)) {
        Cli::err(QStringLiteral("dorvik-cli connect: ") + parser.errorText());
        return 2;
    }
    if (!parser.isSet(QStringLiteral("user")) || !parser.isSet(QStringLiteral("password-stdin"))) {
        Cli::err(QStringLiteral("dorvik-cli connect: --user and --password-stdin are required "
                                "(a password never goes on the command line)"));
        return 2;
    }

    ConnectSession::Settings settings;
    settings.user = parser.value(QStringLiteral("user"));
    settings.interfaceName = parser.value(QStringLiteral("interface"));
    settings.area = parser.value(QStringLiteral("area"));
    settings.configPath = parser.value(QStringLiteral("config"));
    settings.backend = parser.value(QStringLiteral("backend"));
    settings.accessConcentrator = QUrl(parser.value(QStringLiteral("ac")));
    if (parser.isSet(QStringLiteral("heartbeat-scale"))) {
        bool ok = false;
        settings.heartbeatScale = parser.value(QStringLiteral("heartbeat-scale")).toInt(&ok);
        if (!ok || settings.heartbeatScale < 1) {
            Cli::err(QStringLiteral("dorvik-cli connect: --heartbeat-scale wants a whole number of at least 1"));
            return 2;
        }
    }

    ConnectSession session(settings);
    return session.run();
}

} // namespace

DORVIK_CLI_COMMAND(QStringLiteral("connect"),
                   QStringLiteral("connect --user U --password-stdin [--interface NAME] [--area A] [--config FILE] "
                                  "[--backend networkmanager|simulated] [--ac URL]"),
                   runConnect);
