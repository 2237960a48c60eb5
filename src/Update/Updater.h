#pragma once

#include "Business/BusinessHttp.h"

#include <QString>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>

// Checks with the update server whether a newer release exists for the user's area, verifies
// a downloaded package against the hash from the answer, stages the installer program outside
// the installation and launches it to swap the installation once this program has quit.
// The download and every question to the user belong to the caller (the update dialog, the
// command line).
class Updater : public std::enable_shared_from_this<Updater>
{
public:
    using Handler = std::function<void(const QString &)>;

    // area = the current area, version = the installation's version, host = the update
    // section's address; the installation is the running program's (InstallLocation::root()).
    static std::shared_ptr<Updater> manualUpdateInitializerWithUser(const std::optional<QString> &user);

    Updater(std::optional<QString> area, std::optional<QString> user, std::optional<QString> version,
            std::optional<QString> host);

    // Asks the server. Exactly one handler is called, once, on a thread of its own (never the
    // caller's): needUpdate with the package's download address, or needlessUpdate with the
    // text to show ("已经是最新版本" or why the check failed).
    void checkUpdateWithNeedUpdateHandler(Handler needUpdate, Handler needlessUpdate);

    // The server's answer to a check, handled as checkUpdateWithNeedUpdateHandler does (on the
    // calling thread). The check's own path; the fuzz target feeds it directly.
    void handleCheckReply(const HttpReply &reply, const Handler &needUpdate, const Handler &needlessUpdate);

    // Checks the downloaded file against the answer's hash and copies it, beside itself, under
    // the package's name. True when the copy is in place.
    bool verifyDataAt(const QString &downloadedFile);
    // Copies the installer program into the temporary directory, so that it does not run from
    // the tree it replaces. True when it is there.
    bool prepareUpdate();
    // Launches the staged installer with this process's id, the package and the installation.
    // True whenever a package is in place (a failed launch is logged).
    bool doUpdate();

    // The installation the installer replaces (tests point it elsewhere).
    void setInstallRoot(const QString &root);
    QString installRoot() const;

    // Where prepareUpdate() puts the installer.
    static QString stagedInstallerPath();

    std::optional<QString> packageName() const;
    std::optional<QString> packageHash() const;
    std::optional<QString> packageUrl() const;

private:
    void runCheck(const Handler &needUpdate, const Handler &needlessUpdate);

    const std::optional<QString> _host;
    const std::optional<QString> _version;
    const std::optional<QString> _user;
    const std::optional<QString> _area;

    // Written by the check's thread, read by the caller's.
    mutable std::mutex _mutex;
    std::optional<QString> _packageName;
    std::optional<QString> _packageHash;
    std::optional<QString> _packageUrl;
    QString _installRoot;
};
