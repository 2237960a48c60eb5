// The windowed client against the provider simulator as a separate program over 127.0.0.1:
// the user types the account, picks the interface, the access concentrator checks the dial
// name, the window switches to the online state; disconnecting brings the log-in view back.

#include "UiTestSupport.h"

#include "AppDelegate.h"
#include "MessageBox.h"
#include "netList.h"
#include "tools/ToolProcess.h"
#include "wifiViewController.h"

#include "App/ConnectionSetup.h"
#include "Conf/Conf.h"

#include <QFile>
#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <csignal>

using namespace UiTest;
using json = nlohmann::ordered_json;

namespace {

quint16 freeTcpPort()
{
    QTcpServer s;
    s.listen(QHostAddress::LocalHost, 0);
    return s.serverPort();
}

TEST(DorvikEndToEnd, LogInThroughTheWindowThenDisconnect)
{
    QTemporaryDir dir;
    QFile demo(QStringLiteral(DORVIK_DEMO_CONFIG));
    ASSERT_TRUE(demo.open(QIODevice::ReadOnly));
    const QByteArray raw = demo.readAll();
    json config = json::parse(raw.constData(), raw.constData() + raw.size());
    const auto http = [](quint16 port) { return "http://127.0.0.1:" + std::to_string(port); };
    const quint16 heart = freeTcpPort();
    config["heart"]["negotiateurl"] = {{"default", http(heart) + "/negotiate"}};
    config["heart"]["hearbeaturl"] = {{"default", http(heart) + "/heartbeat"}};
    config["business"]["host"] = {{"default", http(freeTcpPort())}};
    config["sms"]["host"] = {{"default", "127.0.0.1"}};
    const quint16 ac = freeTcpPort();
    const QString plain = dir.filePath(QStringLiteral("system.json"));
    QFile file(plain);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QByteArray::fromStdString(config.dump()));
    file.close();

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
    resetPreferences();
    MessageBox::clearShown();
    MessageBox::setDefaultAnswer(0);
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
    MessageBox::setDefaultAnswer(std::nullopt);

    EXPECT_EQ(sim.signalAndWait(SIGINT, 10000), 0);
    json stats;
    for (const auto &l : sim.lines())
        if (l.value("event", "") == "stopped")
            stats = l.at("stats");
    EXPECT_EQ(stats["ac"]["accepted"], 1) << "the access concentrator checked the window's dial name";
}

} // namespace
