// dorvik-cli update: the update dialog's walk for people without a desktop. Asks the update
// server, downloads with a progress bar, verifies the package, and hands it to the installer,
// which replaces this installation once dorvik-cli has ended.
// dorvik-cli --version: the installation's version (what the update check compares).
#include "CliCommand.h"

#include "Conf/Conf.h"
#include "Update/InstallLocation.h"
#include "Update/UpdateDownload.h"
#include "Update/Updater.h"
#include "Util/ThreadHandoff.h"
#include "Util/userSecurityInfo.h"

#include <QEventLoop>
#include <QTimer>
#include <QUrl>

#include <cstdio>
#include <unistd.h>

namespace {

const QString kUsage =
    QStringLiteral("update [--check] [--yes] [--config FILE] [--area A]\n"
                   "                                     check for a newer release, download, verify and install it;\n"
                   "                                     --check only asks, --yes never prompts");
const QString kUpToDate = QStringLiteral("已经是最新版本");

int fail(const QString &message, int code)
{
    Cli::err(QStringLiteral("dorvik-cli update: ") + message);
    return code;
}

void drawProgress(qint64 written, qint64 expected)
{
    constexpr int width = 30;
    const float percent = qBound(0.0f, UpdateDownload::percent(written, expected), 100.0f);
    const int filled = static_cast<int>(percent / 100.0f * width);
    const QString bar = QString(filled, QLatin1Char('#')) + QString(width - filled, QLatin1Char('-'));
    std::fprintf(stderr, "\r[%s] %5.1f%%  %.1f/%.1f MB", qUtf8Printable(bar), static_cast<double>(percent),
                 static_cast<double>(written) / 1e6, static_cast<double>(qMax<qint64>(expected, 0)) / 1e6);
    std::fflush(stderr);
}

bool confirm()
{
    std::fputs("下载并安装新版本？[y/N] ", stderr);
    std::fflush(stderr);
    char line[64] = {};
    if (!std::fgets(line, sizeof line, stdin))
        return false;
    const QString answer = QString::fromUtf8(line).trimmed().toLower();
    return answer == QLatin1String("y") || answer == QLatin1String("yes");
}

int run(QStringList args)
{
    bool checkOnly = false, yes = false;
    std::optional<QString> area, config;
    while (!args.isEmpty()) {
        const QString arg = args.takeFirst();
        if (arg == QLatin1String("--check")) {
            checkOnly = true;
            continue;
        }
        if (arg == QLatin1String("--yes")) {
            yes = true;
            continue;
        }
        std::optional<QString> *place = arg == QLatin1String("--area")     ? &area
                                        : arg == QLatin1String("--config") ? &config
                                                                           : nullptr;
        if (!place)
            return fail(QStringLiteral("unexpected argument '%1'\nusage: ").arg(arg) + kUsage, 2);
        if (args.isEmpty())
            return fail(arg + QStringLiteral(" needs a value"), 2);
        *place = args.takeFirst();
    }
    if (QString error; !Cli::useConfiguration(config, area, &error))
        return fail(error, 1);

    const auto updater = Updater::manualUpdateInitializerWithUser(userSecurityInfo().loadUser());
    QEventLoop loop;
    std::optional<QString> offer, message;
    updater->checkUpdateWithNeedUpdateHandler(
        [&](const QString &address) {
            ThreadHandoff::post(&loop, [&, address] {
                offer = address;
                loop.quit();
            });
        },
        [&](const QString &text) {
            ThreadHandoff::post(&loop, [&, text] {
                message = text;
                loop.quit();
            });
        });
    loop.exec();
    if (message) {
        if (*message == kUpToDate) {
            Cli::out(*message);
            return 0;
        }
        Cli::err(*message);
        return 1;
    }
    Cli::out(QStringLiteral("检查到更新，下载地址：%1").arg(*offer));
    if (checkOnly)
        return 0;
    if (!yes && !confirm()) {
        Cli::out(QStringLiteral("已取消"));
        return 0;
    }

    UpdateDownload download;
    std::optional<QString> location, failure;
    const bool terminal = ::isatty(STDERR_FILENO) == 1;
    if (terminal)
        QObject::connect(&download, &UpdateDownload::progress, &loop, drawProgress);
    QObject::connect(&download, &UpdateDownload::finished, &loop, [&](const QString &file) {
        location = file;
        loop.quit();
    });
    QObject::connect(&download, &UpdateDownload::failed, &loop, [&](const QString &why) {
        failure = why;
        loop.quit();
    });
    download.start(QUrl(*offer));
    loop.exec();
    if (terminal)
        std::fputc('\n', stderr);
    if (failure)
        return fail(QStringLiteral("下载更新失败，错误:%1").arg(*failure), 1);
    if (!updater->verifyDataAt(*location)) {
        Cli::err(QStringLiteral("验证失败"));
        return 1;
    }
    if (!updater->prepareUpdate()) {
        Cli::err(QStringLiteral("更新失败"));
        return 1;
    }
    updater->doUpdate();
    Cli::out(QStringLiteral("正在安装：dorvik-cli 退出后，安装程序将替换 %1").arg(updater->installRoot()));
    // The same pause as the windowed program: the installer notes who it waits for.
    QTimer::singleShot(1000, &loop, &QEventLoop::quit);
    loop.exec();
    return 0;
}

int printVersion(const QStringList &)
{
    Cli::out(QStringLiteral("dorvik-cli ") + InstallLocation::version(InstallLocation::root()));
    return 0;
}

} // namespace

CliCommand updateCommand()
{
    return {QStringLiteral("update"), kUsage, run};
}

CliCommand versionCommand()
{
    return {QStringLiteral("--version"), QStringLiteral("--version                            print the version"),
            printVersion};
}
