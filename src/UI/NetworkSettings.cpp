#include "NetworkSettings.h"

#include "Util/Log.h"

#include <QProcess>
#include <QStandardPaths>

NetworkSettings::NetworkSettings()
    : NetworkSettings([](const QString &program) { return QStandardPaths::findExecutable(program); },
                      [](const QString &program, const QStringList &arguments) {
                          return QProcess::startDetached(program, arguments);
                      },
                      qEnvironmentVariable("XDG_CURRENT_DESKTOP"))
{}

NetworkSettings::NetworkSettings(Finder finder, Launcher launcher, QString currentDesktop)
    : _finder(std::move(finder))
    , _launcher(std::move(launcher))
    , _currentDesktop(std::move(currentDesktop))
{}

const std::vector<NetworkSettings::Tool> &NetworkSettings::candidates()
{
    static const std::vector<Tool> tools = {
        {QStringLiteral("nm-connection-editor"), {}, {}},
        {QStringLiteral("gnome-control-center"), {QStringLiteral("network")}, QStringLiteral("GNOME")},
        {QStringLiteral("systemsettings"), {QStringLiteral("kcm_networkmanagement")}, QStringLiteral("KDE")},
        {QStringLiteral("systemsettings5"), {QStringLiteral("kcm_networkmanagement")}, QStringLiteral("KDE")},
    };
    return tools;
}

std::optional<NetworkSettings::Tool> NetworkSettings::findTool() const
{
    // XDG_CURRENT_DESKTOP is a colon-separated list such as "ubuntu:GNOME".
    const QStringList desktops = _currentDesktop.split(QLatin1Char(':'), Qt::SkipEmptyParts);
    const auto resolved = [this](const Tool &tool) -> std::optional<Tool> {
        const QString path = _finder(tool.program);
        if (path.isEmpty())
            return std::nullopt;
        Tool found = tool;
        found.program = path;
        return found;
    };
    for (const Tool &tool : candidates()) {
        if (!tool.desktop.isEmpty() && desktops.contains(tool.desktop, Qt::CaseInsensitive)) {
            if (auto found = resolved(tool))
                return found;
        }
    }
    for (const Tool &tool : candidates()) {
        if (auto found = resolved(tool))
            return found;
    }
    return std::nullopt;
}

NetworkSettings::Outcome NetworkSettings::open() const
{
    const std::optional<Tool> tool = findTool();
    if (!tool) {
        DVLOG() << "no network settings tool installed";
        return Outcome::NotInstalled;
    }
    if (!_launcher(tool->program, tool->arguments)) {
        DVLOG() << "cannot start the network settings tool " << tool->program;
        return Outcome::LaunchFailed;
    }
    return Outcome::Opened;
}
