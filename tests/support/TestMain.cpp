#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>

int main(int argc, char **argv)
{
    // Isolate every test process: preferences, logs and keyrings land in a temporary home.
    QTemporaryDir sandbox(QDir::tempPath() + QStringLiteral("/dorvik-test-XXXXXX"));
    const QByteArray root = sandbox.path().toUtf8();
    if (qEnvironmentVariableIsEmpty("DORVIK_TEST_KEEP_HOME")) {
        qputenv("HOME", root + "/home");
        qputenv("XDG_CONFIG_HOME", root + "/config");
        qputenv("XDG_DATA_HOME", root + "/data");
        qputenv("XDG_CACHE_HOME", root + "/cache");
    }
    qputenv("DORVIK_TEST_SANDBOX", root);
    QDir().mkpath(sandbox.path() + QStringLiteral("/home"));

    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
