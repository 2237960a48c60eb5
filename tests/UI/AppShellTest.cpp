// The application shell: the menu commands, the main window's reaction to every dial state,
// and the real program's start and end.

#include "UiTestSupport.h"

#include "AppDelegate.h"
#include "LinkTools.h"
#include "baseWindow.h"
#include "checkUpdateViewController.h"

#include "support/LogCapture.h"
#include "support/TestSupport.h"

#include "Conf/Conf.h"
#include "Conf/UIConf.h"
#include "Util/UserDefaults.h"

#include <QApplication>
#include <QClipboard>
#include <QDir>
#include <QFile>
#include <QMenuBar>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>

#include <gtest/gtest.h>

#include <csignal>

using namespace UiTest;

namespace {

using AppShell = Fixture;

TEST_F(AppShell, UpdateCommandNeedsAConnectionAndResetForgetsTheInterface)
{
    auto host = makeHost(machine(1));
    AppDelegate delegate(host.get());
    delegate.applicationDidFinishLaunching();

    int made = 0;
    delegate.setUpdateDialogFactory([&made](QWidget *parent) {
        ++made;
        return new checkUpdateViewController(parent);
    });
    delegate.checkUpdate();
    ASSERT_EQ(MessageBox::shown().size(), 1u);
    EXPECT_EQ(MessageBox::shown()[0].messageText, QStringLiteral("提示"));
    EXPECT_EQ(MessageBox::shown()[0].informativeText, QStringLiteral("请连接后再尝试更新"));
    EXPECT_EQ(made, 0);
    UserDefaults::saveConf(true, QStringLiteral("isconnected"));
    delegate.checkUpdate();
    ASSERT_NE(delegate.updateDialog(), nullptr);
    EXPECT_TRUE(delegate.updateDialog()->isVisible());
    // The dialog is made once; a second opening reuses it.
    delegate.updateDialog()->close();
    delegate.checkUpdate();
    EXPECT_EQ(made, 1);
    EXPECT_EQ(MessageBox::shown().size(), 1u);
    delegate.updateDialog()->close();

    UIConf::shared().setRememberPWd(true);
    UIConf::shared().setRememberInterface(true);
    UIConf::shared().setAutoLogin(true);
    Conf::shared()->user.setDefaultInterface(QStringLiteral("eth0"));
    delegate.onRestDefaultInterfaceBtnClick();
    EXPECT_FALSE(UIConf::shared().ifRememberInterface());
    EXPECT_FALSE(UIConf::shared().ifAutoLogin());
    EXPECT_TRUE(UIConf::shared().ifRememberPWd());
    EXPECT_FALSE(Conf::shared()->user.getDefaultInterface().has_value());
}

TEST_F(AppShell, MainWindowFollowsTheStateTable)
{
    auto host = makeHost(machine(1));
    auto window = makeWindow(host.get());
    window->showLogIn();
    LogCapture log;
    window->stateChange(nullptr);
    EXPECT_TRUE(log.contains(QStringLiteral("状态为空")));

    const auto fire = [&](qint64 state) { window->stateChange(DVDialStatusEvent::eventWithSates(state)); };
    fire(DVDialStateInProgress);
    EXPECT_TRUE(window->logInView()->isBusy());
    EXPECT_FALSE(window->logInView()->connectButton()->isEnabled());
    fire(DVDialStateDisconnected);
    EXPECT_FALSE(window->logInView()->isBusy());
    fire(DVDialStateConnected);
    EXPECT_EQ(window->size(), baseWindow::OnlineSize);
    EXPECT_TRUE(UserDefaults::getConf(QStringLiteral("isconnected")));
    QWidget *online = window->currentView();
    fire(DVDialStateConnected); // already online: nothing changes
    EXPECT_EQ(window->currentView(), online);
    fire(DVDialStateInProgress); // the online view has no busy state
    fire(DVDialStateDisconnected);
    ASSERT_TRUE(window->logInView());
    EXPECT_EQ(window->size(), baseWindow::LogInSize);
    EXPECT_FALSE(UserDefaults::getConf(QStringLiteral("isconnected")));
}

// Every log file that the programs started from this test's home wrote.
QString readLogs()
{
    QString all;
    QDir dir(qEnvironmentVariable("XDG_DATA_HOME") + QStringLiteral("/dorvik/Logs"));
    for (const QString &name : dir.entryList({QStringLiteral("*.log")}, QDir::Files)) {
        QFile file(dir.filePath(name));
        if (file.open(QIODevice::ReadOnly))
            all += QString::fromUtf8(file.readAll());
    }
    return all;
}

TEST_F(AppShell, ProgramQuitsPromptlyOnSignals)
{
    for (const int sig : {SIGINT, SIGTERM}) {
        QProcess program;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        program.setProcessEnvironment(env);
        program.start(QStringLiteral(DORVIK_PROGRAM), {QStringLiteral("--backend"), QStringLiteral("simulated"),
                                                       QStringLiteral("--area"), QStringLiteral("1001")});
        ASSERT_TRUE(program.waitForStarted(10000));
        // The start line in the day's log: the window is up and the event loop about to run.
        const QString pid = QString::number(program.processId());
        bool started = false;
        for (int i = 0; i < 600 && !started && !program.waitForFinished(100); ++i)
            started = readLogs().contains(QStringLiteral("started, pid ") + pid);
        ASSERT_TRUE(started) << program.readAllStandardError().toStdString();
        ::kill(pid_t(program.processId()), sig);
        ASSERT_TRUE(program.waitForFinished(5000)) << "signal " << sig;
        EXPECT_EQ(program.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(program.exitCode(), 0);
    }
}

TEST_F(AppShell, RedialSwitchAndDiagnosticsPageWithItsCopyButton)
{
    auto host = makeHost(machine(1));
    AppDelegate delegate(host.get());
    delegate.applicationDidFinishLaunching();
    QMenu *menu = delegate.window()->menuBar()->findChild<QMenu *>();
    ASSERT_NE(menu, nullptr);
    QAction *redial = nullptr, *diagnostics = nullptr;
    for (QAction *a : menu->actions()) {
        if (a->text() == QStringLiteral("断线自动重拨"))
            redial = a;
        if (a->text() == QStringLiteral("诊断信息…"))
            diagnostics = a;
    }
    ASSERT_NE(redial, nullptr);
    ASSERT_NE(diagnostics, nullptr);
    // Off unless the user turns it on; the switch reaches the controller and is remembered.
    EXPECT_TRUE(redial->isCheckable());
    EXPECT_FALSE(redial->isChecked());
    redial->setChecked(true);
    host->waitForIdle();
    EXPECT_TRUE(UserDefaults::getConf(QStringLiteral("autoRedial")));

    diagnostics->trigger();
    auto *page = delegate.window()->findChild<DiagnosticsDialog *>();
    ASSERT_NE(page, nullptr);
    ASSERT_TRUE(TestSupport::spinUntil([&] { return page->text().contains(QStringLiteral("\"redial\"")); }, 5000));
    EXPECT_TRUE(page->text().contains(QStringLiteral("\"enabled\": true")));
    for (QPushButton *b : page->findChildren<QPushButton *>())
        if (b->text() == QStringLiteral("复制诊断信息"))
            b->click();
    EXPECT_EQ(QApplication::clipboard()->text(), page->text());
    page->close();
    redial->setChecked(false);
}

} // namespace
