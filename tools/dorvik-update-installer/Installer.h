#pragma once

#include <QString>
#include <QStringList>

// Replaces an installation of dorvik with the tree of an update package once the program that
// asked for it has ended:
//   1. wait for the process to end;
//   2. unpack the package into a new directory beside the installation;
//   3. check the new tree is complete and its programs start;
//   4. swap the two trees with one atomic rename (the old tree is kept beside, as
//      "<installation>.previous", for one rollback);
//   5. start the new program.
// The installed tree is never written to: a package that is refused, or a crash at any
// moment, leaves either the old or the new tree whole at the installation's path.
// An installation owned by the system's package manager (under /usr) is not replaced: the
// package is copied to the user's download directory and the user is told what to do.
namespace Installer {

enum Exit {
    Installed = 0,
    BadArguments = 2,
    StillRunning = 3, // the process did not end in time; nothing changed
    HandedOff = 4,    // installed by the package manager; the package was handed to the user
    Refused = 5,      // the package or its tree was refused; nothing changed
    SwapFailed = 6,   // the trees could not be swapped; the old one is in place
};

struct Request
{
    qint64 pid = 0;
    QString package;
    QString root; // the installation: <root>/bin, <root>/share/dorvik, ...
};

struct Settings
{
    int waitTimeoutMs = 120000;
    int startTimeoutMs = 15000; // for each "--version" of the new tree
    // Prefixes that belong to the system's package manager.
    QStringList systemPrefixes{QStringLiteral("/usr")};
    // Where a package is handed to the user; empty: the download directory.
    QString handoffDirectory;
    // For tests of crash safety: the step at which the installer kills itself
    // ("after-unpack", "before-swap", "after-swap").
    QString crashAt;

    // Defaults, with DORVIK_UPDATE_INSTALLER_CRASH_AT and DORVIK_UPDATE_SYSTEM_PREFIXES
    // (colon-separated) from the environment.
    static Settings fromEnvironment();
};

int run(const Request &request, const Settings &settings);

// Whether `root` lies in one of `systemPrefixes` (/usr/local is the administrator's, not the
// package manager's).
bool isSystemManaged(const QString &root, const QStringList &systemPrefixes);

} // namespace Installer
