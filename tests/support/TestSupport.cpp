#include "TestSupport.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QThread>

namespace TestSupport {

QString sandboxDir()
{
    return qEnvironmentVariable("DORVIK_TEST_SANDBOX");
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

} // namespace TestSupport
