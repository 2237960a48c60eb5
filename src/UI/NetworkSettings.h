#pragma once

#include <QString>
#include <QStringList>

#include <functional>
#include <optional>
#include <vector>

// Opens the desktop's own network settings, where the user fixes what a failed dial points
// at (a cable, an interface switched off). Widget-free, so the choice can be tested.
//
// Which tool: the one that belongs to the running desktop (XDG_CURRENT_DESKTOP) when it is
// installed, else the first installed of: nm-connection-editor (NetworkManager's own editor,
// works on any desktop), GNOME Settings on its network page, KDE System Settings on its
// network page (Plasma 6 and Plasma 5 names). A tool counts as installed when its program is
// found on PATH.
class NetworkSettings
{
public:
    struct Tool
    {
        QString program;
        QStringList arguments;
        QString desktop; // the XDG_CURRENT_DESKTOP entry it belongs to; empty for any desktop
    };
    // Full path of a program on PATH, or empty.
    using Finder = std::function<QString(const QString &program)>;
    // Starts the program detached; false when it could not be started.
    using Launcher = std::function<bool(const QString &program, const QStringList &arguments)>;

    // Defaults: the real PATH, a detached process, the environment's XDG_CURRENT_DESKTOP.
    NetworkSettings();
    NetworkSettings(Finder finder, Launcher launcher, QString currentDesktop);

    static const std::vector<Tool> &candidates();
    // The tool to open, with its program resolved to a full path; nullopt when none is installed.
    std::optional<Tool> findTool() const;

    enum class Outcome { Opened, NotInstalled, LaunchFailed };
    Outcome open() const;

private:
    Finder _finder;
    Launcher _launcher;
    QString _currentDesktop;
};
