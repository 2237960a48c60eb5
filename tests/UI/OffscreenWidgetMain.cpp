// Main of the widget tests: the offscreen platform (no display needed), an isolated home for
// preferences and logs, one QApplication, then GoogleTest.
#include <gtest/gtest.h>

#include <QApplication>
#include <QDir>
#include <QTemporaryDir>

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QTemporaryDir sandbox(QDir::tempPath() + QStringLiteral("/dorvik-uitest-XXXXXX"));
    const QByteArray root = sandbox.path().toUtf8();
    qputenv("HOME", root + "/home");
    qputenv("XDG_CONFIG_HOME", root + "/config");
    qputenv("XDG_DATA_HOME", root + "/data");
    qputenv("XDG_CACHE_HOME", root + "/cache");
    qputenv("DORVIK_TEST_SANDBOX", root);
    QDir().mkpath(sandbox.path() + QStringLiteral("/home"));

    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
