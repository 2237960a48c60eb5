#include "Desktop/Autostart.h"
#include "Desktop/TrayState.h"

#include <QDir>
#include <QFile>
#include <QProcess>

#include <gtest/gtest.h>

#include <vector>

namespace {

// The icon follows the dial states (0 and unknown values keep it); closing the window hides it
// only while online with a tray, and the user is told so once per run.
TEST(TrayState, IconAndCloseFollowTheLink)
{
    using A = TrayState::CloseAction;
    using I = TrayState::Icon;
    const struct
    {
        std::vector<qint64> events;
        bool tray;
        I icon;
        A close;
    } cases[] = {{{3, 2}, true, I::Online, A::HideToTray},           {{3, 2}, false, I::Online, A::HangUpAndQuit},
                 {{3, 2, 0, 7}, true, I::Online, A::HideToTray},     {{3}, true, I::Connecting, A::HangUpAndQuit},
                 {{3, 2, 3, 5}, true, I::Offline, A::HangUpAndQuit}, {{}, true, I::Offline, A::HangUpAndQuit}};
    for (const auto &c : cases) {
        TrayState state;
        for (qint64 event : c.events)
            state.onDialState(event);
        EXPECT_EQ(state.icon(), c.icon);
        EXPECT_EQ(state.connectActionText(),
                  c.icon == I::Offline ? QStringLiteral("连接") : QStringLiteral("断开连接"));
        for (int close = 0; close < 2; ++close) {
            EXPECT_EQ(state.onWindowClose(c.tray), c.close);
            EXPECT_EQ(state.takeHiddenNotice(), close == 0 && c.close == A::HideToTray);
        }
    }
}

// A valid entry for an awkward path, off again with the desktop's Hidden key, removed; a place
// that cannot be written gives an error.
TEST(Autostart, EntryIsWrittenValidAndRemoved)
{
    const QString program = QDir::tempPath() + QStringLiteral("/my apps/$d \"x\"/dorvik");
    DVError error;
    ASSERT_TRUE(Autostart::enable(program, &error));
    EXPECT_TRUE(Autostart::isEnabled());
    QFile entry(Autostart::entryPath());
    ASSERT_TRUE(entry.open(QIODevice::ReadOnly));
    EXPECT_TRUE(
        QString::fromUtf8(entry.readAll())
            .contains(
                QStringLiteral("Exec=\"%1/my apps/\\\\$d \\\\\"x\\\\\"/dorvik\" --autostart\n").arg(QDir::tempPath())));
    entry.close();
    EXPECT_EQ(QProcess::execute(QStringLiteral("desktop-file-validate"), {entry.fileName()}), 0);
    ASSERT_TRUE(entry.open(QIODevice::Append));
    entry.write("Hidden=true\n");
    entry.close();
    EXPECT_FALSE(Autostart::isEnabled());
    EXPECT_TRUE(Autostart::disable(&error));
    EXPECT_FALSE(entry.exists());

    const QByteArray config = qgetenv("XDG_CONFIG_HOME");
    qputenv("XDG_CONFIG_HOME", "/proc/version"); // a file: nothing can be made under it
    EXPECT_FALSE(Autostart::enable(program, &error));
    EXPECT_EQ(error.domain, QStringLiteral("Autostart"));
    qputenv("XDG_CONFIG_HOME", config);
}

} // namespace
