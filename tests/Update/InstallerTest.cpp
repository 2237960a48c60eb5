// The installer program on real directories: a good package is swapped in and the new program
// started; every refused package leaves the installed tree byte for byte as it was; a kill at
// any step leaves a working tree.

#include "support/TestSupport.h"

#include "Update/UpdatePackage.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <archive.h>
#include <archive_entry.h>

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

namespace {

using TestSupport::writeFile;

// An installation tree of scripts: dorvik-cli answers --version from the version file (or
// fails when `startable` is false), the windowed dorvik notes in $DORVIK_TEST_MARKER that it
// was started.
void makeTree(const QString &root, const QByteArray &version, bool startable = true)
{
    writeFile(root + QStringLiteral("/bin/dorvik-cli"),
              startable ? "#!/bin/sh\necho \"dorvik-cli $(cat \"$(dirname \"$0\")/../share/dorvik/version\")\"\n"
                        : "#!/bin/sh\nexit 1\n",
              true);
    writeFile(root + QStringLiteral("/bin/dorvik"),
              "#!/bin/sh\n[ \"$1\" = --version ] && exit 0\necho \"$0\" > \"$DORVIK_TEST_MARKER\"\n", true);
    writeFile(root + QStringLiteral("/libexec/dorvik/dorvik-update-installer"), "#!/bin/sh\n", true);
    writeFile(root + QStringLiteral("/share/dorvik/system.cfg"), "cfg " + version);
    writeFile(root + QStringLiteral("/share/dorvik/area.cfg"), "{}");
    writeFile(root + QStringLiteral("/share/dorvik/version"), version + '\n');
    QFile::link(QStringLiteral("dorvik-cli"), root + QStringLiteral("/bin/dorvik-cli-link"));
}

// Every path, kind, mode, link target and content of a tree, as one digest.
QByteArray treeDigest(const QString &root)
{
    if (!QFileInfo(root).isDir())
        return {};
    QStringList paths;
    QDirIterator it(root, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext())
        paths << QDir(root).relativeFilePath(it.next());
    paths.sort();
    QCryptographicHash h(QCryptographicHash::Sha256);
    for (const QString &p : paths) {
        const QFileInfo info(root + QLatin1Char('/') + p);
        h.addData(QByteArray(p.toUtf8() + '\0' + QByteArray::number(int(info.permissions())) + '\0'));
        if (info.isSymLink()) {
            char target[4096];
            const ssize_t n = ::readlink(QFile::encodeName(info.filePath()).constData(), target, sizeof target);
            h.addData(QByteArray(target, n > 0 ? static_cast<int>(n) : 0));
        } else if (info.isFile()) {
            QFile f(info.filePath());
            EXPECT_TRUE(f.open(QIODevice::ReadOnly));
            h.addData(f.readAll());
        }
    }
    return h.result().toHex();
}

// A raw archive member, for packages our own packer would never write.
struct Raw
{
    const char *path;
    unsigned type;
    const char *data = "";
    const char *link = nullptr;
};

void writeRaw(const QString &file, const std::vector<Raw> &members)
{
    archive *a = archive_write_new();
    archive_write_add_filter_gzip(a);
    archive_write_set_format_pax_restricted(a);
    ASSERT_EQ(archive_write_open_filename(a, QFile::encodeName(file).constData()), ARCHIVE_OK);
    for (const Raw &m : members) {
        archive_entry *e = archive_entry_new();
        archive_entry_set_pathname(e, m.path);
        archive_entry_set_filetype(e, m.type);
        archive_entry_set_perm(e, 0755);
        if (m.link)
            archive_entry_set_symlink(e, m.link);
        archive_entry_set_size(e, m.type == AE_IFREG ? static_cast<la_int64_t>(strlen(m.data)) : 0);
        archive_write_header(a, e);
        if (m.type == AE_IFREG)
            archive_write_data(a, m.data, strlen(m.data));
        archive_entry_free(e);
    }
    archive_write_close(a);
    archive_write_free(a);
}

// A process id that has certainly ended.
qint64 endedPid()
{
    const pid_t pid = fork();
    if (pid == 0)
        _exit(0);
    waitpid(pid, nullptr, 0);
    return pid;
}

class Installer : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        makeTree(root(), "1.0");
        oldDigest = treeDigest(root());
        makeTree(dir.filePath(QStringLiteral("src-new")), "2.0");
        newDigest = treeDigest(dir.filePath(QStringLiteral("src-new")));
    }
    QString root() const { return dir.filePath(QStringLiteral("dorvik")); }
    QString marker() const { return dir.filePath(QStringLiteral("started")); }
    QString package(const QString &name) const { return dir.filePath(name); }
    QString goodPackage()
    {
        const QString p = package(QStringLiteral("good.tar.gz"));
        QString error;
        EXPECT_TRUE(UpdatePackage::pack(dir.filePath(QStringLiteral("src-new")), p, {}, &error)) << error.toStdString();
        return p;
    }

    // Runs the installer; its exit code, or -9 when it was killed.
    int install(const QString &pkg, qint64 pid, const QStringList &env = {})
    {
        QProcessEnvironment e = QProcessEnvironment::systemEnvironment();
        e.insert(QStringLiteral("DORVIK_TEST_MARKER"), marker());
        e.insert(QStringLiteral("DISPLAY"), QStringLiteral(":99"));
        for (const QString &kv : env)
            e.insert(kv.section(QLatin1Char('='), 0, 0), kv.section(QLatin1Char('='), 1));
        const auto r =
            TestSupport::runProgram(QStringLiteral(DORVIK_INSTALLER), {QString::number(pid), pkg, root()}, {}, e);
        output = r.out;
        errors = r.err;
        return r.exitCode < 0 ? -9 : r.exitCode;
    }

    QTemporaryDir dir;
    QByteArray oldDigest, newDigest, output, errors;
};

TEST_F(Installer, SwapsAGoodPackageAndStartsTheNewProgram)
{
    ASSERT_EQ(install(goodPackage(), endedPid()), 0) << output.toStdString();
    EXPECT_EQ(treeDigest(root()), newDigest);
    EXPECT_EQ(treeDigest(root() + QStringLiteral(".previous")), oldDigest);
    EXPECT_FALSE(QFileInfo::exists(dir.filePath(QStringLiteral(".dorvik.update-new"))));
    ASSERT_TRUE(TestSupport::spinUntil([&] { return QFileInfo(marker()).size() > 0; }, 10000));
    QFile started(marker());
    ASSERT_TRUE(started.open(QIODevice::ReadOnly));
    EXPECT_EQ(started.readAll().trimmed(), (root() + QStringLiteral("/bin/dorvik")).toUtf8());

    // A second update keeps only one rollback copy: the 2.0 tree.
    makeTree(dir.filePath(QStringLiteral("src-new")), "3.0");
    ASSERT_EQ(install(goodPackage(), endedPid()), 0);
    EXPECT_EQ(treeDigest(root() + QStringLiteral(".previous")), newDigest);
}

TEST_F(Installer, WaitsForTheProcessToEnd)
{
    QProcess waited;
    waited.start(QStringLiteral("cat"));
    ASSERT_TRUE(waited.waitForStarted());
    QProcess installer;
    installer.start(QStringLiteral(DORVIK_INSTALLER), {QString::number(waited.processId()), goodPackage(), root()});
    ASSERT_TRUE(installer.waitForStarted());
    EXPECT_FALSE(installer.waitForFinished(300));
    EXPECT_EQ(treeDigest(root()), oldDigest);
    waited.closeWriteChannel();
    ASSERT_TRUE(waited.waitForFinished());
    ASSERT_TRUE(installer.waitForFinished(60000));
    EXPECT_EQ(installer.exitCode(), 0);
    EXPECT_EQ(treeDigest(root()), newDigest);
}

TEST_F(Installer, RefusedPackagesLeaveTheTreeAsItWas)
{
    const std::vector<Raw> goodMembers{{"bin/dorvik-cli", AE_IFREG, "#!/bin/sh\necho dorvik-cli\n"}};
    struct Case
    {
        const char *name;
        std::function<QString()> make;
        int exit;
        const char *why; // in the installer's log line
    };
    const auto raw = [&](const char *name, std::vector<Raw> extra) {
        return [&, name, extra] {
            std::vector<Raw> members = goodMembers;
            members.insert(members.end(), extra.begin(), extra.end());
            writeRaw(package(QString::fromLatin1(name)), members);
            return package(QString::fromLatin1(name));
        };
    };
    const auto fromTree = [&](const char *name, const std::function<void(const QString &)> &spoil) {
        return [&, name, spoil] {
            const QString src = dir.filePath(QStringLiteral("src-") + QString::fromLatin1(name));
            makeTree(src, "2.0");
            spoil(src);
            QString error;
            EXPECT_TRUE(UpdatePackage::pack(src, package(QString::fromLatin1(name)), {}, &error));
            return package(QString::fromLatin1(name));
        };
    };
    const auto bytes = [&](const char *name, const std::function<QByteArray()> &content) {
        return [&, name, content] {
            writeFile(package(QString::fromLatin1(name)), content());
            return package(QString::fromLatin1(name));
        };
    };
    const Case cases[] = {
        {"absolute", raw("absolute", {{"/tmp/dorvik-evil", AE_IFREG, "x"}}), 5, "leaves the tree"},
        {"dotdot", raw("dotdot", {{"bin/../../evil", AE_IFREG, "x"}}), 5, "leaves the tree"},
        {"link-absolute", raw("link-absolute", {{"bin/passwd", AE_IFLNK, "", "/etc/passwd"}}), 5, "points outside"},
        {"link-up", raw("link-up", {{"share/x", AE_IFLNK, "", "../../outside"}}), 5, "points outside"},
        // Each link stays inside by its text, but the second one goes through the first.
        {"link-chain", raw("link-chain", {{"a/b/d", AE_IFLNK, "", "../.."}, {"a/b/e", AE_IFLNK, "", "d/../.."}}), 5,
         "points outside the tree or nowhere"},
        {"fifo", raw("fifo", {{"bin/pipe", AE_IFIFO}}), 5, "is not a file, directory or link"},
        {"broken",
         bytes("broken",
               [&] {
                   QFile good(goodPackage());
                   EXPECT_TRUE(good.open(QIODevice::ReadOnly));
                   return good.readAll().left(good.size() / 2);
               }),
         5, "truncated gzip input"},
        {"not-an-archive", bytes("text", [] { return QByteArray("hello"); }), 5, "Unrecognized archive format"},
        {"does-not-start", fromTree("does-not-start", [](const QString &src) { makeTree(src, "2.0", false); }), 5,
         "does not run"},
        {"incomplete",
         fromTree("incomplete",
                  [](const QString &src) { QFile::remove(src + QStringLiteral("/share/dorvik/area.cfg")); }),
         5, "lacks share/dorvik/area.cfg"},
        {"system-managed", [&] { return goodPackage(); }, 4, "installed by the system"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const QString pkg = c.make();
        const bool system = std::string(c.name) == "system-managed";
        const QStringList env =
            system ? QStringList{QStringLiteral("DORVIK_UPDATE_SYSTEM_PREFIXES=") + dir.path()} : QStringList{};
        EXPECT_EQ(install(pkg, endedPid(), env), c.exit);
        EXPECT_TRUE(errors.contains(c.why)) << errors.toStdString();
        EXPECT_EQ(treeDigest(root()), oldDigest);
        EXPECT_FALSE(QFileInfo::exists(dir.filePath(QStringLiteral(".dorvik.update-new"))));
        EXPECT_FALSE(QFileInfo::exists(root() + QStringLiteral(".previous")));
        EXPECT_FALSE(QFileInfo::exists(QStringLiteral("/tmp/dorvik-evil")));
        if (system) {
            // The package waits in the download directory, and the message says where.
            const QString handed = TestSupport::sandboxDir() + QStringLiteral("/home/Downloads/good.tar.gz");
            EXPECT_TRUE(QString::fromUtf8(output).contains(QStringLiteral("系统的软件包管理器")))
                << output.toStdString();
            EXPECT_TRUE(QString::fromUtf8(output).contains(handed)) << output.toStdString();
            EXPECT_TRUE(QFileInfo::exists(handed));
        }
    }
}

TEST_F(Installer, AKillAtAnyStepLeavesAWorkingTree)
{
    for (const char *step : {"after-unpack", "before-swap", "after-swap"}) {
        SCOPED_TRACE(step);
        QDir(root()).removeRecursively();
        QDir(root() + QStringLiteral(".previous")).removeRecursively();
        makeTree(root(), "1.0");
        EXPECT_EQ(install(goodPackage(), endedPid(),
                          {QStringLiteral("DORVIK_UPDATE_INSTALLER_CRASH_AT=") + QString::fromLatin1(step)}),
                  -9);
        const QByteArray digest = treeDigest(root());
        EXPECT_TRUE(digest == oldDigest || digest == newDigest);
        EXPECT_EQ(digest == newDigest, std::string(step) == "after-swap");
        EXPECT_EQ(
            TestSupport::runProgram(root() + QStringLiteral("/bin/dorvik-cli"), {QStringLiteral("--version")}).exitCode,
            0);
        // The next run cleans up after the killed one and finishes the job.
        EXPECT_EQ(install(goodPackage(), endedPid()), 0) << output.toStdString();
        EXPECT_EQ(treeDigest(root()), newDigest);
    }
}

} // namespace
