#include "UpdatePackage.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

#include <archive.h>
#include <archive_entry.h>

#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <set>

namespace UpdatePackage {

namespace {

using ReadArchive = std::unique_ptr<archive, decltype(&archive_read_free)>;
using WriteArchive = std::unique_ptr<archive, decltype(&archive_write_free)>;
using Entry = std::unique_ptr<archive_entry, decltype(&archive_entry_free)>;

QString archiveError(archive *a)
{
    const char *text = archive_error_string(a);
    return text ? QString::fromUtf8(text) : QStringLiteral("unknown archive error");
}

ReadArchive openForReading(const QString &path, QString *error)
{
    ReadArchive a(archive_read_new(), archive_read_free);
    // Only what we produce: tar (ustar, pax, GNU) through gzip.
    archive_read_support_filter_gzip(a.get());
    archive_read_support_format_tar(a.get());
    archive_read_support_format_gnutar(a.get());
    if (archive_read_open_filename(a.get(), QFile::encodeName(path).constData(), 65536) != ARCHIVE_OK) {
        *error = QStringLiteral("cannot open %1: %2").arg(path, archiveError(a.get()));
        return ReadArchive(nullptr, archive_read_free);
    }
    return a;
}

// One checked member: where it goes and, for hard links, which member it repeats.
struct Member
{
    QString path;
    QString hardlink;
};

bool checkMember(archive_entry *entry, Member *out, QString *error)
{
    const char *rawPath = archive_entry_pathname(entry);
    const QString path = rawPath ? QString::fromUtf8(rawPath) : QString();
    if (!cleanMemberPath(path, &out->path)) {
        *error = QStringLiteral("member '%1' leaves the tree").arg(path);
        return false;
    }
    out->hardlink.clear();
    if (const char *hard = archive_entry_hardlink(entry)) {
        if (!cleanMemberPath(QString::fromUtf8(hard), &out->hardlink) || out->hardlink.isEmpty()) {
            *error = QStringLiteral("hard link '%1' points outside the tree").arg(path);
            return false;
        }
        return true;
    }
    switch (archive_entry_filetype(entry)) {
    case AE_IFREG:
    case AE_IFDIR:
        return true;
    case AE_IFLNK: {
        const char *target = archive_entry_symlink(entry);
        if (!target || !linkStaysInside(out->path, QString::fromUtf8(target))) {
            *error = QStringLiteral("link '%1' points outside the tree (%2)")
                         .arg(path, target ? QString::fromUtf8(target) : QString());
            return false;
        }
        return true;
    }
    default:
        *error = QStringLiteral("member '%1' is not a file, directory or link").arg(path);
        return false;
    }
}

bool writeFileEntry(archive *a, const QString &member, const QFileInfo &info, const QByteArray *replacement,
                    QString *error)
{
    Entry entry(archive_entry_new(), archive_entry_free);
    archive_entry_set_pathname_utf8(entry.get(), member.toUtf8().constData());
    archive_entry_set_mtime(entry.get(), info.exists() ? info.lastModified().toSecsSinceEpoch() : 0, 0);
    QByteArray data;
    if (!replacement && info.isSymLink()) {
        archive_entry_set_filetype(entry.get(), AE_IFLNK);
        archive_entry_set_perm(entry.get(), 0777);
        // Kept as written (QFile::symLinkTarget would make it absolute).
        char buf[4096];
        const ssize_t n = ::readlink(QFile::encodeName(info.filePath()).constData(), buf, sizeof buf - 1);
        if (n < 0) {
            *error = QStringLiteral("cannot read link %1").arg(info.filePath());
            return false;
        }
        buf[n] = '\0';
        archive_entry_set_symlink(entry.get(), buf);
    } else if (!replacement && info.isDir()) {
        archive_entry_set_filetype(entry.get(), AE_IFDIR);
        archive_entry_set_perm(entry.get(), 0755);
    } else {
        if (replacement) {
            data = *replacement;
        } else {
            QFile f(info.filePath());
            if (!f.open(QIODevice::ReadOnly)) {
                *error = QStringLiteral("cannot read %1: %2").arg(info.filePath(), f.errorString());
                return false;
            }
            data = f.readAll();
        }
        archive_entry_set_filetype(entry.get(), AE_IFREG);
        const bool executable = !replacement && info.isExecutable();
        archive_entry_set_perm(entry.get(), executable ? 0755 : 0644);
        archive_entry_set_size(entry.get(), data.size());
    }
    if (archive_write_header(a, entry.get()) != ARCHIVE_OK) {
        *error = archiveError(a);
        return false;
    }
    if (!data.isEmpty() && archive_write_data(a, data.constData(), static_cast<size_t>(data.size())) < 0) {
        *error = archiveError(a);
        return false;
    }
    return true;
}

} // namespace

QStringList packagedDirectories()
{
    return {QStringLiteral("bin"), QStringLiteral("libexec/dorvik"), QStringLiteral("share/dorvik")};
}

bool cleanMemberPath(const QString &path, QString *clean)
{
    if (path.startsWith(QLatin1Char('/')))
        return false;
    QStringList parts;
    for (const QString &part : path.split(QLatin1Char('/'), Qt::SkipEmptyParts)) {
        if (part == QLatin1String(".."))
            return false;
        if (part != QLatin1String("."))
            parts << part;
    }
    *clean = parts.join(QLatin1Char('/'));
    return true;
}

bool linkStaysInside(const QString &member, const QString &target)
{
    if (target.isEmpty() || target.startsWith(QLatin1Char('/')))
        return false;
    // Resolve against the link's own directory, by text: every ".." must stay within the tree.
    QStringList where = member.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    if (!where.isEmpty())
        where.removeLast();
    for (const QString &part : target.split(QLatin1Char('/'), Qt::SkipEmptyParts)) {
        if (part == QLatin1String("..")) {
            if (where.isEmpty())
                return false;
            where.removeLast();
        } else if (part != QLatin1String(".")) {
            where << part;
        }
    }
    return true;
}

bool pack(const QString &root, const QString &output, const std::map<QString, QByteArray> &replace, QString *error)
{
    WriteArchive a(archive_write_new(), archive_write_free);
    archive_write_add_filter_gzip(a.get());
    archive_write_set_format_pax_restricted(a.get());
    archive_write_set_options(a.get(), "gzip:compression-level=1");
    if (archive_write_open_filename(a.get(), QFile::encodeName(output).constData()) != ARCHIVE_OK) {
        *error = QStringLiteral("cannot write %1: %2").arg(output, archiveError(a.get()));
        return false;
    }
    const QDir base(root);
    std::set<QString> members; // sorted: the same tree gives the same archive
    for (const QString &top : packagedDirectories()) {
        if (!QFileInfo(base.filePath(top)).isDir())
            continue;
        QString prefix;
        for (const QString &part : top.split(QLatin1Char('/'))) {
            prefix += (prefix.isEmpty() ? QString() : QStringLiteral("/")) + part;
            members.insert(prefix);
        }
        QDirIterator it(base.filePath(top), QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                        QDirIterator::Subdirectories);
        while (it.hasNext())
            members.insert(base.relativeFilePath(it.next()));
    }
    for (const auto &[path, contents] : replace) {
        QString prefix;
        const QStringList parts = path.split(QLatin1Char('/'));
        for (qsizetype i = 0; i + 1 < parts.size(); ++i) {
            prefix += (prefix.isEmpty() ? QString() : QStringLiteral("/")) + parts[i];
            members.insert(prefix);
        }
        members.insert(path);
    }
    for (const QString &member : members) {
        const auto r = replace.find(member);
        if (!writeFileEntry(a.get(), member, QFileInfo(base.filePath(member)),
                            r == replace.end() ? nullptr : &r->second, error))
            return false;
    }
    if (archive_write_close(a.get()) != ARCHIVE_OK) {
        *error = archiveError(a.get());
        return false;
    }
    return true;
}

bool unpack(const QString &archivePath, const QString &destination, QString *error)
{
    // First pass: read every header (and every byte, so that a truncated archive is found)
    // before anything is written.
    {
        ReadArchive a = openForReading(archivePath, error);
        if (!a)
            return false;
        archive_entry *entry = nullptr;
        Member member;
        int members = 0;
        int r;
        while ((r = archive_read_next_header(a.get(), &entry)) == ARCHIVE_OK) {
            if (!checkMember(entry, &member, error))
                return false;
            if (archive_read_data_skip(a.get()) != ARCHIVE_OK) {
                *error = QStringLiteral("damaged archive: %1").arg(archiveError(a.get()));
                return false;
            }
            ++members;
        }
        if (r != ARCHIVE_EOF) {
            *error = QStringLiteral("damaged archive: %1").arg(archiveError(a.get()));
            return false;
        }
        if (members == 0) {
            *error = QStringLiteral("the archive is empty");
            return false;
        }
    }

    ReadArchive a = openForReading(archivePath, error);
    if (!a)
        return false;
    WriteArchive disk(archive_write_disk_new(), archive_write_free);
    // The member checks above already keep everything inside; libarchive's own guards stay on
    // as a second line (no writing through links, no "..").
    archive_write_disk_set_options(disk.get(), ARCHIVE_EXTRACT_PERM | ARCHIVE_EXTRACT_TIME
                                                   | ARCHIVE_EXTRACT_SECURE_SYMLINKS | ARCHIVE_EXTRACT_SECURE_NODOTDOT);
    // Without links in the destination's own path: libarchive refuses to write through any.
    const QString canonical = QFileInfo(destination).canonicalFilePath();
    if (canonical.isEmpty()) {
        *error = QStringLiteral("no directory %1").arg(destination);
        return false;
    }
    const QString base = canonical + QLatin1Char('/');
    archive_entry *entry = nullptr;
    Member member;
    int r;
    while ((r = archive_read_next_header(a.get(), &entry)) == ARCHIVE_OK) {
        if (!checkMember(entry, &member, error))
            return false;
        if (member.path.isEmpty())
            continue; // the tree's own directory
        archive_entry_set_pathname_utf8(entry, (base + member.path).toUtf8().constData());
        if (!member.hardlink.isEmpty())
            archive_entry_set_hardlink_utf8(entry, (base + member.hardlink).toUtf8().constData());
        if (archive_write_header(disk.get(), entry) != ARCHIVE_OK) {
            *error = QStringLiteral("cannot unpack %1: %2").arg(member.path, archiveError(disk.get()));
            return false;
        }
        const void *block = nullptr;
        size_t size = 0;
        la_int64_t offset = 0;
        int d;
        while ((d = archive_read_data_block(a.get(), &block, &size, &offset)) == ARCHIVE_OK) {
            if (archive_write_data_block(disk.get(), block, size, offset) != ARCHIVE_OK) {
                *error = QStringLiteral("cannot write %1: %2").arg(member.path, archiveError(disk.get()));
                return false;
            }
        }
        if (d != ARCHIVE_EOF) {
            *error = QStringLiteral("damaged archive: %1").arg(archiveError(a.get()));
            return false;
        }
        if (archive_write_finish_entry(disk.get()) != ARCHIVE_OK) {
            *error = QStringLiteral("cannot finish %1: %2").arg(member.path, archiveError(disk.get()));
            return false;
        }
    }
    if (r != ARCHIVE_EOF) {
        *error = QStringLiteral("damaged archive: %1").arg(archiveError(a.get()));
        return false;
    }
    if (archive_write_close(disk.get()) != ARCHIVE_OK) {
        *error = archiveError(disk.get());
        return false;
    }
    // Each link was checked by its text; a link through another link can still lead out
    // ("d" -> "../..", "e" -> "d/.."), so every link is resolved once more on disk.
    QDirIterator it(canonical, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QFileInfo link(it.next());
        if (!link.isSymLink())
            continue;
        const QString resolved = link.canonicalFilePath();
        if (resolved.isEmpty() || !QString(resolved + QLatin1Char('/')).startsWith(base)) {
            *error =
                QStringLiteral("link '%1' points outside the tree or nowhere").arg(link.filePath().mid(base.size()));
            return false;
        }
    }
    return true;
}

} // namespace UpdatePackage
