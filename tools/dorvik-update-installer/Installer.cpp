#include "Installer.h"

#include "Update/UpdatePackage.h"
#include "Util/Log.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QThread>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Installer {

namespace {

// The files without which an installation cannot run or update itself again.
const QStringList kRequiredFiles{
    QStringLiteral("bin/dorvik-cli"),
    QStringLiteral("libexec/dorvik/dorvik-update-installer"),
    QStringLiteral("share/dorvik/system.cfg"),
    QStringLiteral("share/dorvik/area.cfg"),
};

void say(const QString &line)
{
    std::fputs(line.toUtf8().constData(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

void crashPoint(const Settings &settings, const char *step)
{
    if (settings.crashAt == QLatin1String(step)) {
        DVLOG() << "crash point reached: " << step;
        ::raise(SIGKILL);
    }
}

bool processEnded(qint64 pid)
{
    return ::kill(static_cast<pid_t>(pid), 0) == -1 && errno == ESRCH;
}

bool waitForEnd(qint64 pid, int timeoutMs)
{
#ifdef SYS_pidfd_open
    const int fd = static_cast<int>(::syscall(SYS_pidfd_open, static_cast<pid_t>(pid), 0));
    if (fd >= 0) {
        pollfd p{fd, POLLIN, 0};
        int r;
        do
            r = ::poll(&p, 1, timeoutMs);
        while (r < 0 && errno == EINTR);
        ::close(fd);
        return r > 0;
    }
    if (errno == ESRCH)
        return true;
#endif
    // Without process descriptors: look every 50 ms.
    for (int waited = 0; waited < timeoutMs; waited += 50) {
        if (processEnded(pid))
            return true;
        QThread::msleep(50);
    }
    return processEnded(pid);
}

// Runs `program --version` with a display-less platform, so that the windowed program can
// answer too. The first line of its output; nullopt when it fails or does not end in time.
std::optional<QString> versionOf(const QString &program, int timeoutMs)
{
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    p.setProcessEnvironment(env);
    p.setStandardInputFile(QProcess::nullDevice());
    p.start(program, {QStringLiteral("--version")});
    if (!p.waitForStarted(timeoutMs))
        return std::nullopt;
    if (!p.waitForFinished(timeoutMs)) {
        p.kill();
        p.waitForFinished(1000);
        return std::nullopt;
    }
    if (p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0)
        return std::nullopt;
    return QString::fromUtf8(p.readAllStandardOutput()).section(QLatin1Char('\n'), 0, 0).trimmed();
}

QString versionFile(const QString &tree)
{
    QFile f(tree + QStringLiteral("/share/dorvik/version"));
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readLine()).trimmed() : QString();
}

// The unpacked tree must hold every program file, and its programs must start.
bool checkTree(const QString &tree, const QString &installed, const Settings &settings, QString *why)
{
    QStringList required = kRequiredFiles;
    // A package that would drop the windowed program from an installation that has it is
    // incomplete.
    if (QFileInfo::exists(installed + QStringLiteral("/bin/dorvik"))
        || QFileInfo::exists(tree + QStringLiteral("/bin/dorvik")))
        required << QStringLiteral("bin/dorvik");
    for (const QString &file : required) {
        const QFileInfo info(tree + QLatin1Char('/') + file);
        if (!info.isFile()) {
            *why = QStringLiteral("the package lacks %1").arg(file);
            return false;
        }
        if ((file.startsWith(QLatin1String("bin/")) || file.startsWith(QLatin1String("libexec/")))
            && !info.isExecutable()) {
            *why = QStringLiteral("%1 is not executable").arg(file);
            return false;
        }
    }
    const QString version = versionFile(tree);
    const auto cli = versionOf(tree + QStringLiteral("/bin/dorvik-cli"), settings.startTimeoutMs);
    if (!cli || cli->isEmpty() || (!version.isEmpty() && cli->section(QLatin1Char(' '), -1) != version)) {
        *why = QStringLiteral("bin/dorvik-cli --version does not run or does not report %1 (%2)")
                   .arg(version, cli.value_or(QStringLiteral("no answer")));
        return false;
    }
    if (required.contains(QStringLiteral("bin/dorvik"))
        && !versionOf(tree + QStringLiteral("/bin/dorvik"), settings.startTimeoutMs)) {
        *why = QStringLiteral("bin/dorvik --version does not run");
        return false;
    }
    return true;
}

bool removeTree(const QString &path)
{
    const QFileInfo info(path);
    if (info.isSymLink() || info.isFile())
        return QFile::remove(path);
    return !info.exists() || QDir(path).removeRecursively();
}

// Exchanges two directory entries in one step; false (errno set) where the file system
// cannot do it.
bool exchange(const QString &a, const QString &b)
{
#ifdef SYS_renameat2
    constexpr unsigned kRenameExchange = 1U << 1;
    return ::syscall(SYS_renameat2, AT_FDCWD, QFile::encodeName(a).constData(), AT_FDCWD,
                     QFile::encodeName(b).constData(), kRenameExchange)
           == 0;
#else
    errno = EINVAL;
    return false;
#endif
}

bool renamePath(const QString &from, const QString &to)
{
    return ::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0;
}

QString errnoText()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

// Puts the package where the user finds it and says what to do with it.
int handOff(const Request &request, const Settings &settings, const QString &reason)
{
    QString dir = settings.handoffDirectory;
    if (dir.isEmpty())
        dir = QStandardPaths::writableLocation(QStandardPaths::DownloadLocation);
    if (dir.isEmpty())
        dir = QDir::homePath();
    QDir().mkpath(dir);
    const QString name = QFileInfo(request.package).fileName();
    QString target = QDir(dir).filePath(name);
    for (int n = 1; QFileInfo::exists(target); ++n)
        target = QDir(dir).filePath(QStringLiteral("%1 (%2)").arg(name).arg(n));
    const bool copied = QFile::copy(request.package, target);
    DVLOG() << "not replacing " << request.root << ": " << reason << "; package "
            << (copied ? QStringLiteral("copied to ") + target : QStringLiteral("left at ") + request.package);
    const QString where = copied ? target : request.package;
    const QString message =
        QStringLiteral("dorvik 安装在 %1，由系统的软件包管理器管理，更新程序不会改动它。新版本的安装包已保存到 %2。"
                       "请通过系统的软件包管理器更新；也可以把安装包解压到一个单独的目录（例如 "
                       "~/.local/opt/dorvik）后从那里运行。")
            .arg(request.root, where);
    say(message);
    // A desktop user started this from the windowed program, which has quit by now.
    QProcess::startDetached(QStringLiteral("notify-send"), {QStringLiteral("dorvik 更新"), message});
    return HandedOff;
}

// After the swap: the program that asked (the windowed one again, or for the command line its
// new version), so that the user sees the new release run.
void startNewProgram(const QString &root, const QString &initiator)
{
    const QString gui = root + QStringLiteral("/bin/dorvik");
    const bool fromCli = initiator.endsWith(QLatin1String("/bin/dorvik-cli"));
    const bool haveDisplay = !qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
    if (!fromCli && QFileInfo(gui).isExecutable()
        && (initiator.endsWith(QLatin1String("/bin/dorvik")) || haveDisplay)) {
        qint64 pid = 0;
        if (QProcess::startDetached(gui, {}, root, &pid))
            DVLOG() << "started " << gui << ", pid " << pid;
        else
            DVLOG() << "could not start " << gui;
        return;
    }
    const auto version = versionOf(root + QStringLiteral("/bin/dorvik-cli"), 15000);
    say(QStringLiteral("dorvik 已更新：%1").arg(version.value_or(QStringLiteral("?"))));
}

} // namespace

Settings Settings::fromEnvironment()
{
    Settings s;
    s.crashAt = qEnvironmentVariable("DORVIK_UPDATE_INSTALLER_CRASH_AT");
    const QString prefixes = qEnvironmentVariable("DORVIK_UPDATE_SYSTEM_PREFIXES");
    if (!prefixes.isEmpty())
        s.systemPrefixes = prefixes.split(QLatin1Char(':'), Qt::SkipEmptyParts);
    return s;
}

bool isSystemManaged(const QString &root, const QStringList &systemPrefixes)
{
    const QString path = QDir::cleanPath(root);
    if (path == QLatin1String("/usr/local") || path.startsWith(QLatin1String("/usr/local/")))
        return false;
    for (const QString &prefix : systemPrefixes) {
        const QString p = QDir::cleanPath(prefix);
        if (path == p || path.startsWith(p + QLatin1Char('/')))
            return true;
    }
    return false;
}

int run(const Request &request, const Settings &settings)
{
    DVLOG() << "update installer: waiting for " << request.pid << ", package " << request.package << ", installation "
            << request.root;
    if (request.pid <= 0 || request.package.isEmpty() || request.root.isEmpty()) {
        DVLOG() << "update installer: bad arguments";
        return BadArguments;
    }
    // Which program asked, read while it still runs: it is the one started again.
    const QString initiator = QFile::symLinkTarget(QStringLiteral("/proc/%1/exe").arg(request.pid));
    if (!waitForEnd(request.pid, settings.waitTimeoutMs)) {
        DVLOG() << "process " << request.pid << " did not end; nothing was changed";
        return StillRunning;
    }

    const QString root = QFileInfo(request.root).canonicalFilePath();
    if (root.isEmpty() || root == QLatin1String("/") || !QFileInfo(root + QStringLiteral("/bin/dorvik-cli")).exists()) {
        DVLOG() << "refused: " << request.root << " is not a dorvik installation";
        return Refused;
    }
    if (isSystemManaged(root, settings.systemPrefixes))
        return handOff(request, settings, QStringLiteral("installed by the system's package manager"));
    // The swap replaces the whole prefix, so it must hold nothing but dorvik.
    for (const QString &program :
         QDir(root + QStringLiteral("/bin")).entryList(QDir::AllEntries | QDir::NoDotAndDotDot))
        if (!program.startsWith(QLatin1String("dorvik")))
            return handOff(request, settings,
                           QStringLiteral("the prefix is shared with other programs (bin/%1)").arg(program));

    const QFileInfo rootInfo(root);
    const QString parent = rootInfo.absolutePath();
    const QString staging = parent + QStringLiteral("/.") + rootInfo.fileName() + QStringLiteral(".update-new");
    const QString previous = root + QStringLiteral(".previous");

    // What a crashed earlier run left behind is never the installed tree.
    if (!removeTree(staging) || !QDir().mkdir(staging)) {
        DVLOG() << "refused: cannot create " << staging << ": " << errnoText();
        return Refused;
    }
    QString why;
    if (!UpdatePackage::unpack(request.package, staging, &why)) {
        DVLOG() << "refused package " << request.package << ": " << why;
        removeTree(staging);
        return Refused;
    }
    crashPoint(settings, "after-unpack");
    if (!checkTree(staging, root, settings, &why)) {
        DVLOG() << "refused package " << request.package << ": " << why;
        removeTree(staging);
        return Refused;
    }
    crashPoint(settings, "before-swap");

    // Only one rollback copy is kept: the one before it goes now.
    if (!removeTree(previous)) {
        DVLOG() << "cannot remove the old rollback copy " << previous << "; nothing was changed";
        removeTree(staging);
        return SwapFailed;
    }
    if (exchange(staging, root)) {
        crashPoint(settings, "after-swap");
        if (!renamePath(staging, previous))
            DVLOG() << "the previous tree stays at " << staging << ": " << errnoText();
    } else if (errno == EINVAL || errno == ENOSYS || errno == ENOTSUP) {
        // A file system without exchange: two renames. Between them the installation's path
        // is briefly empty while the old tree is whole at the rollback path.
        if (!renamePath(root, previous)) {
            DVLOG() << "cannot move " << root << " aside: " << errnoText() << "; nothing was changed";
            removeTree(staging);
            return SwapFailed;
        }
        crashPoint(settings, "after-swap");
        if (!renamePath(staging, root)) {
            DVLOG() << "cannot move the new tree in: " << errnoText() << "; putting the old one back";
            renamePath(previous, root);
            removeTree(staging);
            return SwapFailed;
        }
    } else {
        DVLOG() << "cannot swap " << staging << " and " << root << ": " << errnoText() << "; nothing was changed";
        removeTree(staging);
        return SwapFailed;
    }
    DVLOG() << "update installed: " << root << " is now version " << versionFile(root)
            << ", the previous tree is kept at " << previous;
    startNewProgram(root, initiator);
    return Installed;
}

} // namespace Installer
