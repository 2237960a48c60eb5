// dorvik-cli qr: log-in by QR code without windows. Asks the QR-code service for a code,
// draws it in the terminal, waits for the phone to confirm (a code that expires is replaced by
// a fresh one, as the log-in view does) and prints the outcome as one JSON line:
//   {"state":"confirmed","username":"…"}      exit 0 (the password is never printed)
//   {"state":"failed","code":N,"message":"…"} exit 1
// and then dials with the credentials the scan gave, as "connect" does (--no-dial stops after
// the scan).

#include "CliCommand.h"
#include "ConnectSession.h"

#include "Business/QrCode/QrCodeDial.h"
#include "Business/QrCode/QrCodeGenerator.h"
#include "Conf/Conf.h"
#include "Conf/UIConf.h"
#include "Util/DVNotification.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <nlohmann/json.hpp>

namespace {

int fail(const QString &message)
{
    Cli::err(QStringLiteral("dorvik-cli qr: ") + message);
    return 2;
}

void printOutcome(const nlohmann::ordered_json &line)
{
    Cli::out(QString::fromStdString(line.dump()));
}

int runQr(const QStringList &args)
{
    QCommandLineParser parser;
    ConnectSession::addOptions(parser);
    parser.addOption({QStringLiteral("no-dial"), QStringLiteral("stop after the scan, do not dial")});
    parser.addOption(
        {QStringLiteral("light"), QStringLiteral("draw for a terminal with dark text on a light background")});
    if (!parser.parse(QStringList{QStringLiteral("qr")} + args))
        return fail(parser.errorText());
    QString optionError;
    auto session = ConnectSession::settingsFrom(parser, &optionError);
    if (!session)
        return fail(optionError);

    if (parser.isSet(QStringLiteral("config"))) {
        QString error;
        auto conf = Conf::fromFile(parser.value(QStringLiteral("config")), &error);
        if (!conf)
            return fail(QStringLiteral("%1: %2").arg(parser.value(QStringLiteral("config")), error));
        Conf::setShared(std::move(conf));
    }
    if (!Conf::shared())
        return fail(QStringLiteral("the configuration %1 could not be read").arg(Conf::systemConfigPath()));
    if (parser.isSet(QStringLiteral("area")))
        UIConf::shared().setArea(parser.value(QStringLiteral("area")));
    else
        Conf::restoreArea();
    const bool invert = !parser.isSet(QStringLiteral("light"));

    auto dial = QrCodeDial::initFromConf();
    int exitCode = 1;
    std::optional<QString> scannedUser;
    std::optional<QString> scannedPassword; // in memory only, handed to the dial
    const auto token = DVNotificationCenter::defaultCenter().addObserverForName(
        DVNotification::DVNotificationNameQRcode, OperationQueue::mainQueue(), [&](const DVNotificationMessage &m) {
            if (const auto *got = m.payload<QrCodeGetNotificationInfo>(DVNotification::NotificationInfoKeyQrCodeGet)) {
                if (got->qrCodeContent.isEmpty()) {
                    const qint64 code = got->err ? got->err->code : 0;
                    printOutcome({{"state", "failed"},
                                  {"code", code},
                                  {"message", got->err && code != 0 ? got->err->localizedDescription.toStdString()
                                                                    : std::string("no code (see the log)")}});
                    QCoreApplication::exit(1);
                    return;
                }
                if (const auto matrix = QrCodeGenerator::encode(got->qrCodeContent))
                    Cli::err(QrCodeGenerator::renderHalfBlocks(*matrix, 2, invert));
                Cli::err(QStringLiteral("scan the code with the provider's app (%1)").arg(got->qrCodeContent));
                if (!dial->doCheck())
                    QCoreApplication::exit(1);
                return;
            }
            const auto *check = m.payload<QrCodeCheckNotificationInfo>(DVNotification::NotificationInfoKeyQrCodeCheck);
            if (!check)
                return;
            const qint64 code = check->err ? check->err->code : 0;
            if (code == 0 && !check->username.isEmpty()) {
                printOutcome({{"state", "confirmed"}, {"username", check->username.toStdString()}});
                scannedUser = check->username;
                scannedPassword = check->password;
                exitCode = 0;
                QCoreApplication::exit(0);
            } else if (check->err && check->err->domain == QLatin1String("QrcodeDomain") && code == 4) {
                Cli::err(QStringLiteral("the code expired, fetching a fresh one"));
                dial->doRequest();
            } else {
                printOutcome(
                    {{"state", "failed"},
                     {"code", code},
                     {"message", check->err ? check->err->localizedDescription.toStdString() : std::string()}});
                QCoreApplication::exit(1);
            }
        });
    dial->doRequest();
    const int loop = QCoreApplication::exec();
    DVNotificationCenter::defaultCenter().removeObserver(token);
    dial.reset();
    if (loop != 0 || exitCode != 0)
        return loop == 0 ? exitCode : loop;
    if (parser.isSet(QStringLiteral("no-dial")) || !scannedUser)
        return 0;
    // The configuration is loaded and the area chosen already.
    session->configPath.clear();
    session->user = *scannedUser;
    session->password = scannedPassword;
    return ConnectSession(*session).run();
}

} // namespace

CliCommand qrCommand()
{
    return {QStringLiteral("qr"),
            QStringLiteral("qr [--no-dial] [--light] [connect's options]   log in by QR code, then connect"), runQr};
}
