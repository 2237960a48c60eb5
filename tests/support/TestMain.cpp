#include "TestSupport.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>

int main(int argc, char **argv)
{
    // Isolate every test process: preferences, logs and keyrings land in a temporary home.
    QTemporaryDir sandbox(QDir::tempPath() + QStringLiteral("/dorvik-test-XXXXXX"));
    TestSupport::isolateHome(sandbox.path());
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
