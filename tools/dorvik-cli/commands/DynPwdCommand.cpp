// dorvik-cli dynpwd: asks the password server to text a one-time password to an account's
// phone, the way the log-in view's button does, and prints the outcome as one JSON line.
#include "CliCommand.h"

#include "Business/DynamicPassword.h"
#include "Conf/Conf.h"
#include "Util/DVNotification.h"
#include "Util/OperationQueue.h"

#include <QEventLoop>

#include <nlohmann/json.hpp>

namespace {

const QString kUsage = QStringLiteral("dynpwd --user U [--area A] [--config FILE]\n"
                                      "                                     request a dynamic password for account U;\n"
                                      "                                     prints one JSON line, exit 1 on failure");

int fail(const QString &message, int code)
{
    Cli::err(QStringLiteral("dorvik-cli dynpwd: ") + message);
    return code;
}

int run(QStringList args)
{
    std::optional<QString> user, area, config;
    while (!args.isEmpty()) {
        const QString arg = args.takeFirst();
        std::optional<QString> *place = arg == QLatin1String("--user")     ? &user
                                        : arg == QLatin1String("--area")   ? &area
                                        : arg == QLatin1String("--config") ? &config
                                                                           : nullptr;
        if (!place)
            return fail(QStringLiteral("unexpected argument '%1'\nusage: ").arg(arg) + kUsage, 2);
        if (args.isEmpty())
            return fail(arg + QStringLiteral(" needs a value"), 2);
        *place = args.takeFirst();
    }
    if (!user || user->isEmpty())
        return fail(QStringLiteral("which account? usage: ") + kUsage, 2);

    if (QString error; !Cli::useConfiguration(config, area, &error))
        return fail(error, 1);

    std::optional<DyPwdCheckNotificationInfo> outcome;
    auto &centre = DVNotificationCenter::defaultCenter();
    const auto token = centre.addObserverForName(
        DVNotification::DVNotificationNameDyPwd, nullptr, [&outcome](const DVNotificationMessage &message) {
            if (const auto *info =
                    message.payload<DyPwdCheckNotificationInfo>(DVNotification::NotificationInfoKeyDyPwdCheck))
                outcome = *info;
        });

    const auto request = std::make_shared<DynamicPassword>(*user);
    QEventLoop loop;
    const auto queue = OperationQueue::mainQueue();
    queue->addOperation(request);
    // The main queue runs in order: this one comes after the request.
    queue->addOperationWithBlock([&loop] { loop.quit(); });
    loop.exec();
    centre.removeObserver(token);

    nlohmann::ordered_json line = nlohmann::ordered_json::object();
    line["user"] = user->toStdString();
    line["host"] = request->host().value_or(QString()).toStdString();
    line["port"] = request->port();
    if (!outcome) {
        line["ok"] = false;
        line["error"] = {{"description", "not sent: the dynmicpwd host is missing or has no usable port"}};
        Cli::out(QString::fromStdString(line.dump()));
        return 1;
    }
    line["ok"] = !outcome->err.has_value();
    if (outcome->err) {
        line["error"] = {{"domain", outcome->err->domain.toStdString()},
                         {"code", outcome->err->code},
                         {"description", outcome->err->localizedDescription.toStdString()}};
    }
    Cli::out(QString::fromStdString(line.dump()));
    return outcome->err ? 1 : 0;
}

} // namespace

CliCommand dynPwdCommand()
{
    return {QStringLiteral("dynpwd"), kUsage, run};
}
