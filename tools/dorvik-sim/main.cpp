// dorvik-sim: every server a dorvik client talks to, on 127.0.0.1, so that the client can be
// tried end to end on one machine. Prints one JSON line when ready and one with what each
// server saw when stopped (SIGINT/SIGTERM).

#include "SimControl.h"
#include "SimHost.h"
#include "UnixSignals.h"

#include "Conf/Conf.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>

#include <csignal>
#include <cstdio>

static void printJson(const nlohmann::ordered_json &j)
{
    std::fprintf(stdout, "%s\n", j.dump().c_str());
    std::fflush(stdout);
}

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("dorvik-sim"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Provider simulator for dorvik"));
    parser.addHelpOption();
    parser.addOption({QStringLiteral("config"),
                      QStringLiteral("Configuration (plaintext JSON or encrypted .cfg); default: the shipped file"),
                      QStringLiteral("file")});
    parser.addOption({QStringLiteral("area"), QStringLiteral("Area whose values the servers use"),
                      QStringLiteral("code"), QStringLiteral("default")});
    parser.addOption(
        {QStringLiteral("account"),
         QStringLiteral("A subscriber the provider knows, user:password (repeatable; default demo:demo123)"),
         QStringLiteral("user:password")});
    parser.addOption({QStringLiteral("account-file"),
                      QStringLiteral("Subscribers, one user:password a line (keeps passwords off the command line)"),
                      QStringLiteral("file")});
    parser.addOption({QStringLiteral("control"),
                      QStringLiteral("Listen for run-time control on this port of 127.0.0.1 (0: any free one)"),
                      QStringLiteral("port")});
    parser.addOption({QStringLiteral("scenario"),
                      QStringLiteral("Fault scenario of one service, service=name (repeatable)"),
                      QStringLiteral("service=name")});
    parser.addOption({QStringLiteral("port"),
                      QStringLiteral("Port of a service without a configured address, service=port (repeatable)"),
                      QStringLiteral("service=port")});
    parser.addOption({QStringLiteral("only"), QStringLiteral("Start only these services (comma-separated)"),
                      QStringLiteral("list")});
    parser.addOption({QStringLiteral("list"), QStringLiteral("List the services and exit")});
    parser.addOption({QStringLiteral("clock-offset"),
                      QStringLiteral("Move the provider's clock (Date headers, dial-name time window) by minutes"),
                      QStringLiteral("minutes")});
    parser.process(app);

    if (parser.isSet(QStringLiteral("list"))) {
        for (const auto &e : simServices())
            std::fprintf(stdout, "%s\n", qUtf8Printable(e.name));
        return 0;
    }

    SimOptions options;
    const QString configPath =
        parser.isSet(QStringLiteral("config")) ? parser.value(QStringLiteral("config")) : Conf::systemConfigPath();
    QString error;
    const auto config = SimHost::loadConfig(configPath, &error);
    if (!config) {
        std::fprintf(stderr, "dorvik-sim: %s\n", qUtf8Printable(error));
        return 1;
    }
    options.config = *config;
    options.area = parser.value(QStringLiteral("area"));
    QStringList accounts = parser.values(QStringLiteral("account"));
    if (parser.isSet(QStringLiteral("account-file"))) {
        QFile file(parser.value(QStringLiteral("account-file")));
        if (!file.open(QIODevice::ReadOnly)) {
            std::fprintf(stderr, "dorvik-sim: cannot read %s\n", qUtf8Printable(file.fileName()));
            return 1;
        }
        for (const QByteArray &line : file.readAll().split('\n'))
            if (!line.trimmed().isEmpty())
                accounts.append(QString::fromUtf8(line.trimmed()));
    }
    for (const QString &a : accounts) {
        const qsizetype colon = a.indexOf(QLatin1Char(':'));
        if (colon <= 0) {
            std::fprintf(stderr, "dorvik-sim: --account wants user:password\n");
            return 2;
        }
        options.accounts[a.left(colon)] = a.mid(colon + 1);
    }
    if (options.accounts.empty())
        options.accounts[QStringLiteral("demo")] = QStringLiteral("demo123");
    for (const QString &s : parser.values(QStringLiteral("scenario"))) {
        const qsizetype eq = s.indexOf(QLatin1Char('='));
        if (eq <= 0) {
            std::fprintf(stderr, "dorvik-sim: --scenario wants service=name\n");
            return 2;
        }
        options.scenarios[s.left(eq)] = s.mid(eq + 1);
    }
    for (const QString &p : parser.values(QStringLiteral("port"))) {
        const qsizetype eq = p.indexOf(QLatin1Char('='));
        bool ok = false;
        const uint port = eq > 0 ? p.mid(eq + 1).toUInt(&ok) : 0;
        if (!ok || port == 0 || port > 65535) {
            std::fprintf(stderr, "dorvik-sim: --port wants service=port\n");
            return 2;
        }
        options.ports[p.left(eq)] = static_cast<quint16>(port);
    }
    if (parser.isSet(QStringLiteral("clock-offset"))) {
        bool ok = false;
        const qint64 minutes = parser.value(QStringLiteral("clock-offset")).toLongLong(&ok);
        if (!ok || minutes < -100000 || minutes > 100000) {
            std::fprintf(stderr, "dorvik-sim: --clock-offset wants a whole number of minutes\n");
            return 2;
        }
        options.clockOffsetSecs = minutes * 60;
    }
    const QStringList only = parser.value(QStringLiteral("only")).split(QLatin1Char(','), Qt::SkipEmptyParts);

    SimHost host;
    if (!host.start(options, only))
        return 1;
    auto ports = host.ports();
    SimControl control(host);
    if (parser.isSet(QStringLiteral("control"))) {
        bool ok = false;
        const uint port = parser.value(QStringLiteral("control")).toUInt(&ok);
        if (!ok || port > 65535 || !control.start(static_cast<quint16>(port))) {
            std::fprintf(stderr, "dorvik-sim: the control port cannot listen\n");
            return 1;
        }
        ports["control"] = control.port();
    }
    printJson({{"event", "ready"}, {"area", options.area.toStdString()}, {"ports", ports}});

    UnixSignals signals({SIGINT, SIGTERM});
    QObject::connect(&signals, &UnixSignals::received, &app, [&] {
        printJson({{"event", "stopped"}, {"stats", host.stats()}});
        app.quit();
    });
    return app.exec();
}
