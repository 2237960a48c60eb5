// dorvik-cli status / token: ask the running client (the windowed program, else a
// `dorvik-cli connect`) over the session bus for its diagnostics report or for an access token.

#include "CliCommand.h"

#include "App/DorvikBus.h"

#include <QCommandLineParser>

#include <nlohmann/json.hpp>

namespace {
using json = nlohmann::ordered_json;

// Sends `method` to the chosen or found client and prints its JSON answer; the exit code.
int ask(const QString &command, const QString &method, int timeoutMs, const QStringList &args)
{
    QCommandLineParser parser;
    parser.addOption({QStringLiteral("service"),
                      QStringLiteral("bus name of the client to ask (default: the windowed program, else a "
                                     "running dorvik-cli connect)"),
                      QStringLiteral("name")});
    if (!parser.parse(QStringList{command} + args)) {
        Cli::err(QStringLiteral("dorvik-cli %1: %2").arg(command, parser.errorText()));
        return 2;
    }
    const auto service = parser.isSet(QStringLiteral("service"))
                             ? std::optional<QString>(parser.value(QStringLiteral("service")))
                             : DorvikBus::findService();
    if (!service) {
        Cli::err(QStringLiteral("dorvik-cli %1: no running dorvik client on this session bus").arg(command));
        return 1;
    }
    QString error;
    const auto answer = DorvikBus::call(*service, method, timeoutMs, &error);
    if (!answer) {
        Cli::err(QStringLiteral("dorvik-cli %1: %2 did not answer: %3").arg(command, *service, error));
        return 1;
    }
    const QByteArray raw = answer->toUtf8();
    json parsed = json::parse(raw.constData(), raw.constData() + raw.size(), nullptr, false);
    if (parsed.is_discarded()) {
        Cli::err(QStringLiteral("dorvik-cli %1: %2 answered something that is not JSON").arg(command, *service));
        return 1;
    }
    Cli::out(QString::fromStdString(parsed.dump(2)));
    // A token answer counts as success only when the service issued one.
    if (method == QLatin1String("Token"))
        return parsed.is_object() && parsed.value("code", -1) == 0 ? 0 : 1;
    return 0;
}

} // namespace

CliCommand statusCommand()
{
    return {QStringLiteral("status"), QStringLiteral("status [--service NAME]"), [](const QStringList &args) {
                return ask(QStringLiteral("status"), QStringLiteral("Status"), 5000, args);
            }};
}

CliCommand tokenCommand()
{
    return {QStringLiteral("token"), QStringLiteral("token [--service NAME]"),
            [](const QStringList &args) { return ask(QStringLiteral("token"), QStringLiteral("Token"), 20000, args); }};
}
