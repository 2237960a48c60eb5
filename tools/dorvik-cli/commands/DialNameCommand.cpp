// dorvik-cli dialname: the dial name of an account under a list of account rules, as the
// controller would dial it, with the time value it keeps afterwards.

#include "CliCommand.h"

#include "AccountRule/DVAccountRule.h"
#include "AccountRule/DVRuleException.h"
#include "Util/Clock.h"

#include <QCommandLineParser>
#include <QDateTime>

#include <nlohmann/json.hpp>

namespace {

int runDialName(const QStringList &args)
{
    QCommandLineParser parser;
    const QCommandLineOption rulesOpt(QStringLiteral("rules"), QStringLiteral("Rule names, comma separated."),
                                      QStringLiteral("R1,R2,..."));
    const QCommandLineOption keyOpt(QStringLiteral("key"), QStringLiteral("Shared key."), QStringLiteral("K"));
    const QCommandLineOption prefixOpt(QStringLiteral("prefix"), QStringLiteral("Prefix."), QStringLiteral("P"));
    const QCommandLineOption suffixOpt(QStringLiteral("suffix"), QStringLiteral("Suffix."), QStringLiteral("S"));
    const QCommandLineOption macOpt(QStringLiteral("mac"), QStringLiteral("Interface MAC address."),
                                    QStringLiteral("M"));
    const QCommandLineOption timeOpt(QStringLiteral("time"), QStringLiteral("Dial time, seconds since the epoch."),
                                     QStringLiteral("T"));
    parser.addOptions({rulesOpt, keyOpt, prefixOpt, suffixOpt, macOpt, timeOpt});
    parser.addPositionalArgument(QStringLiteral("account"), QStringLiteral("The account name as typed."));
    if (!parser.parse(QStringList{QStringLiteral("dialname")} + args)) {
        Cli::err(QStringLiteral("dialname: ") + parser.errorText());
        return 2;
    }
    const QStringList positional = parser.positionalArguments();
    if (positional.size() != 1 || !parser.isSet(rulesOpt)) {
        Cli::err(QStringLiteral("dialname: need --rules and exactly one account name"));
        return 2;
    }

    const auto optional = [&parser](const QCommandLineOption &o) -> std::optional<QString> {
        return parser.isSet(o) ? std::optional<QString>(parser.value(o)) : std::nullopt;
    };
    const QString rulesText = parser.value(rulesOpt);
    const QStringList rules = rulesText.isEmpty() ? QStringList() : rulesText.split(u',');

    // A given time also drives the generators' clock, so the answer is reproducible; without
    // one, the dial time is now and the system clock is used, as in a real dial.
    qint64 time = 0;
    std::shared_ptr<Clock> clock;
    if (parser.isSet(timeOpt)) {
        bool ok = false;
        time = parser.value(timeOpt).toLongLong(&ok);
        if (!ok) {
            Cli::err(QStringLiteral("dialname: --time needs whole seconds"));
            return 2;
        }
        clock = std::make_shared<ManualClock>(QDateTime::fromSecsSinceEpoch(time, Qt::UTC));
    } else {
        time = QDateTime::currentSecsSinceEpoch();
    }

    DVAccountRule rule(rules, optional(prefixOpt), optional(suffixOpt), optional(keyOpt), &time, optional(macOpt),
                       clock);
    try {
        const std::optional<QString> dialName = rule.getAccountFromName(positional.first());
        nlohmann::ordered_json out;
        out["dialName"] = dialName.value_or(QString()).toStdString();
        out["time"] = time;
        Cli::out(QString::fromStdString(out.dump()));
        return 0;
    } catch (const DVRuleException &e) {
        Cli::err(QStringLiteral("dialname: %1: %2").arg(e.name(), e.reason()));
        return 1;
    }
}

} // namespace

CliCommand dialNameCommand()
{
    return {QStringLiteral("dialname"),
            QStringLiteral("dialname --rules R1,R2,... [--key K] [--prefix P] [--suffix S] [--mac M] "
                           "[--time T] ACCOUNT   dial name and dial time as JSON"),
            runDialName};
}
