// The windowed client against the provider simulator as a separate program over 127.0.0.1:
// the user types the account, picks the interface, the access concentrator checks the dial
// name, the window switches to the online state; disconnecting brings the log-in view back.

#include "UiTestSupport.h"

#include "AppDelegate.h"
#include "netList.h"
#include "tools/ToolProcess.h"
#include "wifiViewController.h"

#include "App/ConnectionSetup.h"
#include "Conf/Conf.h"

#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <csignal>

using namespace UiTest;
using json = nlohmann::ordered_json;

namespace {

using DorvikEndToEnd = Fixture;

TEST_F(DorvikEndToEnd, LogInThroughTheWindowThenDisconnect)
{
    QTemporaryDir dir;
    const json config = demoConfigOnFreePorts();
    const quint16 ac = freeLocalPort();
    const QString plain = dir.filePath(QStringLiteral("system.json"));
    ASSERT_TRUE(writeJsonFile(plain, config));

    ToolProcess sim{QStringLiteral(DORVIK_SIM)};
    ASSERT_TRUE(sim.start({QStringLiteral("--config"), plain, QStringLiteral("--area"), QStringLiteral("1001"),
                           QStringLiteral("--port"), QStringLiteral("ac=%1").arg(ac), QStringLiteral("--only"),
                           QStringLiteral("heart,business,ac")}));
    ASSERT_TRUE(sim.waitForLine([](const json &l) { return l.value("event", "") == "ready"; }, 20000))
        << sim.standardError().toStdString();

    // The client as the program sets it up, with the options a user would give.
    Conf::setShared(Conf::fromJson(QByteArray::fromStdString(config.dump())));
    ConnectionSetup::Settings settings;
    settings.backend = QStringLiteral("simulated");
    settings.area = QStringLiteral("1001");
    settings.accessConcentrator = QUrl(QStringLiteral("http://127.0.0.1:%1/pppoe/auth").arg(ac));
    settings.heartbeatScale = 20;
    QString error;
    ASSERT_TRUE(ConnectionSetup::loadConfiguration(settings, &error)) << error.toStdString();
    {
        DVAppHost host([&] { return ConnectionSetup::makeApp(settings, &error); });
        AppDelegate delegate(&host);
        delegate.applicationDidFinishLaunching();
        baseWindow *window = delegate.window();
        ASSERT_TRUE(window->logInView()) << "an area was given: no area prompt";

        QTest::keyClicks(window->logInView()->usernameField(), QStringLiteral("demo"));
        QTest::keyClicks(window->logInView()->passwordField(), QStringLiteral("demo123"));
        window->logInView()->connectButton()->click();
        ASSERT_TRUE(waitFor([&] { return window->logInView() && window->logInView()->interfaceChoice(); }));
        netList *choice = window->logInView()->interfaceChoice();
        EXPECT_EQ(choice->findChild<QTableWidget *>()->rowCount(), 2) << "the simulated machine has two";
        QTest::keyClick(choice->findChild<QTableWidget *>(), Qt::Key_Return);

        const auto online = [&] { return qobject_cast<wifiViewController *>(window->currentView()) != nullptr; };
        ASSERT_TRUE(waitFor(online, 20000)) << sim.standardError().toStdString();
        EXPECT_EQ(window->size(), baseWindow::OnlineSize);
        for (const auto &alert : MessageBox::shown())
            ADD_FAILURE() << alert.messageText.toStdString() << " " << alert.informativeText.toStdString();

        qobject_cast<wifiViewController *>(window->currentView())->disconnButton()->click();
        ASSERT_TRUE(waitFor([&] { return window->logInView() != nullptr; }, 20000));
        EXPECT_EQ(window->size(), baseWindow::LogInSize);
    }

    EXPECT_EQ(sim.signalAndWait(SIGINT, 10000), 0);
    json stats;
    for (const auto &l : sim.lines())
        if (l.value("event", "") == "stopped")
            stats = l.at("stats");
    EXPECT_EQ(stats["ac"]["accepted"], 1) << "the access concentrator checked the window's dial name";
}

} // namespace
