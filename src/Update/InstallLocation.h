#pragma once

#include <QString>

// Where this copy of dorvik is installed. Programs live in <root>/bin, the updater's installer
// in <root>/libexec/dorvik and the shipped files in <root>/share/dorvik, so the root is found
// from the running program's own directory: an installation moved elsewhere keeps working and
// updates itself where it is.
namespace InstallLocation {

// <directory of the running program>/.., without "." or ".." and with links resolved.
QString root();

// The installer program of an installation.
QString installerPath(const QString &root);

// The release version of an installation: the first line of <root>/share/dorvik/version when
// there is one (an update package carries its own), else the version this program was built
// with.
QString version(const QString &root);

} // namespace InstallLocation
