#include "TestSupport.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QThread>

namespace TestSupport {

QString sandboxDir()
{
    return qEnvironmentVariable("DORVIK_TEST_SANDBOX");
}

void isolateHome(const QString &root)
{
    const QByteArray r = root.toUtf8();
    if (qEnvironmentVariableIsEmpty("DORVIK_TEST_KEEP_HOME")) {
        qputenv("HOME", r + "/home");
        qputenv("XDG_CONFIG_HOME", r + "/config");
        qputenv("XDG_DATA_HOME", r + "/data");
        qputenv("XDG_CACHE_HOME", r + "/cache");
    }
    qputenv("DORVIK_TEST_SANDBOX", r);
    QDir().mkpath(root + QStringLiteral("/home"));
}

bool spinUntil(const std::function<bool()> &done, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!done()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(1);
    }
    return true;
}

QString sourceTestsDir()
{
    return QStringLiteral(DORVIK_TESTS_SOURCE_DIR);
}

QString buildDir()
{
    return QStringLiteral(DORVIK_BUILD_DIR);
}

bool writeFile(const QString &path, const QByteArray &data, bool executable)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly) || f.write(data) != data.size())
        return false;
    f.close();
    return !executable || f.setPermissions(f.permissions() | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther);
}

ProgramRun runProgram(const QString &program, const QStringList &args, const QByteArray &input,
                      const QProcessEnvironment &env, int timeoutMs)
{
    QProcess p;
    p.setProcessEnvironment(env);
    p.start(program, args);
    p.waitForStarted(timeoutMs);
    p.write(input);
    p.closeWriteChannel();
    ProgramRun r;
    const bool ended = p.waitForFinished(timeoutMs);
    r.out = p.readAllStandardOutput();
    r.err = p.readAllStandardError();
    if (ended && p.exitStatus() == QProcess::NormalExit)
        r.exitCode = p.exitCode();
    return r;
}

} // namespace TestSupport
