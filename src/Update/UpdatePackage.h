#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <map>

// The update package: a gzip-compressed tar archive of an installation prefix. Members are
// paths relative to the prefix ("bin/dorvik-cli", "share/dorvik/system.cfg", optionally
// written "./bin/..."), regular files, directories and symbolic links only, links pointing
// inside the tree.
namespace UpdatePackage {

// The directories of a prefix that belong to the program and go into a package.
QStringList packagedDirectories();

// Writes a package of `root`'s packaged directories to `output`. `replace` maps relative paths
// to contents that take the place of (or are added to) the files found in the tree, e.g. a
// version file. False with `error` filled when a file cannot be read or the archive written.
bool pack(const QString &root, const QString &output, const std::map<QString, QByteArray> &replace, QString *error);

// Unpacks `archive` into the existing directory `destination`. Every member is checked before
// anything is written: absolute paths, ".." components, links that lead outside the tree,
// devices and other special files refuse the whole package. False with `error` filled when it
// refuses or cannot unpack; `destination` may then hold part of the tree and is the caller's
// to remove.
bool unpack(const QString &archive, const QString &destination, QString *error);

// The member path without "./" and empty components; empty when the path is the tree itself
// ("." or "./"); nullopt-like failure (returns false) for absolute paths and "..".
bool cleanMemberPath(const QString &path, QString *clean);

// Whether a link stored at `member` with target `target` stays inside the tree.
bool linkStaysInside(const QString &member, const QString &target);

} // namespace UpdatePackage
