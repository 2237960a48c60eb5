// A main for the window tests: an isolated home as for every test, a QApplication, and the
// offscreen platform unless the run asks for a real display (screenshots under Xvfb).
#include <gtest/gtest.h>

#include "OnlinePage.h"
#include "support/TestSupport.h"

#include <QApplication>
#include <QDir>
#include <QTemporaryDir>

#include <unistd.h>

int main(int argc, char **argv)
{
    QTemporaryDir sandbox(QDir::tempPath() + QStringLiteral("/dorvik-uitest-XXXXXX"));
    TestSupport::isolateHome(sandbox.path());
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");

    // The online view's page: the tests run as root on CI, where the web engine's sandbox
    // cannot start.
    if (geteuid() == 0)
        qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
    OnlinePage::prepareApplication();
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
