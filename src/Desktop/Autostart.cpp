#include "Autostart.h"

#include "Util/Log.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

namespace {
const QString Domain = QStringLiteral("Autostart");
}

namespace Autostart {

QString entryPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
           % QStringLiteral("/autostart/net.dorvik.Dorvik.desktop");
}

bool isEnabled()
{
    QFile file(entryPath());
    if (!file.open(QIODevice::ReadOnly))
        return false;
    while (!file.atEnd()) {
        if (file.readLine().trimmed() == "Hidden=true")
            return false;
    }
    return true;
}

QString quotedExecArgument(const QString &program)
{
    // Inside double quotes the Exec key escapes ", `, $ and \ with a backslash; the key's
    // value then escapes every backslash once more.
    static const QString plain = QStringLiteral("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._+-");
    bool needsQuotes = program.isEmpty();
    for (const QChar c : program)
        needsQuotes = needsQuotes || !plain.contains(c);
    if (!needsQuotes)
        return program;
    QString quoted = QStringLiteral("\"");
    for (const QChar c : program) {
        if (c == u'"' || c == u'`' || c == u'$')
            quoted += QStringLiteral("\\\\") + c;
        else if (c == u'\\')
            quoted += QStringLiteral("\\\\\\\\");
        else if (c == u'%')
            quoted += QStringLiteral("%%");
        else
            quoted += c;
    }
    return quoted + QChar(u'"');
}

QString entryText(const QString &program)
{
    return QStringLiteral("[Desktop Entry]\n"
                          "Type=Application\n"
                          "Name=dorvik\n"
                          "Name[zh_CN]=dorvik 宽带客户端\n"
                          "Comment=Log in to the broadband service when the session starts\n"
                          "Comment[zh_CN]=登录桌面时自动连接宽带\n"
                          "Icon=net.dorvik.Dorvik\n"
                          "Exec=")
           % quotedExecArgument(program) % QChar(u' ') % Argument
           % QStringLiteral("\n"
                            "Terminal=false\n"
                            "X-GNOME-Autostart-enabled=true\n");
}

bool enable(const QString &program, DVError *error)
{
    const QString path = entryPath();
    QSaveFile file(path);
    if (!QDir().mkpath(QFileInfo(path).absolutePath()) || !file.open(QIODevice::WriteOnly)
        || file.write(entryText(program).toUtf8()) < 0 || !file.commit()) {
        DVLOG() << "could not write the autostart entry " << path << ": " << file.errorString();
        setError(error, DVError(Domain, 1, QStringLiteral("无法写入开机启动项：%1").arg(path), file.errorString()));
        return false;
    }
    DVLOG() << "autostart entry written: " << path;
    return true;
}

bool disable(DVError *error)
{
    const QString path = entryPath();
    QFile file(path);
    if (!file.exists() || file.remove()) {
        DVLOG() << "autostart entry removed: " << path;
        return true;
    }
    DVLOG() << "could not remove the autostart entry " << path << ": " << file.errorString();
    setError(error, DVError(Domain, 2, QStringLiteral("无法删除开机启动项：%1").arg(path), file.errorString()));
    return false;
}

bool startHidden(bool autostarted, bool trayAvailable, bool canLogInAlone)
{
    return autostarted && trayAvailable && canLogInAlone;
}

} // namespace Autostart
