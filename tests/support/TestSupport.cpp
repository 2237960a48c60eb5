#include "TestSupport.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
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

} // namespace TestSupport
