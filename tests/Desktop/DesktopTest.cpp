#include "Desktop/Autostart.h"
#include "Desktop/TrayState.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>

#include <gtest/gtest.h>

#include <vector>

namespace {

struct TrayCase
{
    const char *name;
    std::vector<qint64> events;
    bool trayAvailable;
    TrayState::Icon icon;
    TrayState::CloseAction firstClose;
    const char *menuText;
};

// The icon follows the dial states; closing the window hides it only while online with a tray,
// and the user is told so once, not on every close.
TEST(TrayState, IconAndCloseFollowTheLink)
{
    using A = TrayState::CloseAction;
    using I = TrayState::Icon;
    const std::vector<TrayCase> cases = {
        {"online with tray", {3, 2}, true, I::Online, A::HideToTray, "断开连接"},
        {"online, no tray", {3, 2}, false, I::Online, A::HangUpAndQuit, "断开连接"},
        {"unknown keeps", {3, 2, 0, 7}, true, I::Online, A::HideToTray, "断开连接"},
        {"connecting", {3}, true, I::Connecting, A::HangUpAndQuit, "断开连接"},
        {"dropped", {3, 2, 3, 5}, true, I::Offline, A::HangUpAndQuit, "连接"},
        {"never dialled", {}, true, I::Offline, A::HangUpAndQuit, "连接"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        TrayState state;
        for (qint64 event : c.events)
            state.onDialState(event);
        EXPECT_EQ(state.icon(), c.icon);
        EXPECT_EQ(state.connectActionText(), QString::fromUtf8(c.menuText));
        EXPECT_EQ(state.onWindowClose(c.trayAvailable), c.firstClose);
        const bool hidden = c.firstClose == A::HideToTray;
        EXPECT_EQ(state.takeHiddenNotice(), hidden);
        EXPECT_EQ(state.onWindowClose(c.trayAvailable), c.firstClose);
        EXPECT_FALSE(state.takeHiddenNotice()); // once per run
    }
}

// The entry is a valid desktop entry for an awkward path, switches off with the desktop's
// Hidden key, and goes away again; a place that cannot be written gives an error.
TEST(Autostart, EntryIsWrittenValidAndRemoved)
{
    const QString program = QDir::tempPath() + QStringLiteral("/my apps/$dorvik \"new\"/bin/dorvik");
    DVError error;
    ASSERT_FALSE(Autostart::isEnabled());
    ASSERT_TRUE(Autostart::enable(program, &error)) << error.localizedDescription.toStdString();
    EXPECT_TRUE(Autostart::isEnabled());

    QFile entry(Autostart::entryPath());
    ASSERT_TRUE(entry.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(entry.readAll());
    entry.close();
    EXPECT_TRUE(text.contains(QStringLiteral("Exec=\"") + QDir::tempPath()
                              + QStringLiteral("/my apps/\\\\$dorvik \\\\\"new\\\\\"/bin/dorvik\" --autostart\n")))
        << text.toStdString();
    const QString validator = QStandardPaths::findExecutable(QStringLiteral("desktop-file-validate"));
    if (!validator.isEmpty()) {
        QProcess check;
        check.start(validator, {Autostart::entryPath()});
        ASSERT_TRUE(check.waitForFinished());
        EXPECT_EQ(check.exitCode(), 0) << check.readAll().toStdString();
    }

    ASSERT_TRUE(entry.open(QIODevice::Append));
    entry.write("Hidden=true\n");
    entry.close();
    EXPECT_FALSE(Autostart::isEnabled());

    EXPECT_TRUE(Autostart::disable(&error));
    EXPECT_FALSE(QFile::exists(Autostart::entryPath()));
    EXPECT_TRUE(Autostart::disable(&error));

    // The configuration directory is a file: nothing can be written under it.
    const QByteArray config = qgetenv("XDG_CONFIG_HOME");
    const QString blocker = QDir::tempPath() + QStringLiteral("/dorvik-autostart-blocker");
    {
        QFile file(blocker);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    }
    qputenv("XDG_CONFIG_HOME", blocker.toUtf8());
    EXPECT_FALSE(Autostart::enable(program, &error));
    EXPECT_EQ(error.domain, QStringLiteral("Autostart"));
    EXPECT_FALSE(error.localizedDescription.isEmpty());
    qputenv("XDG_CONFIG_HOME", config);
    QFile::remove(blocker);
}

} // namespace
