// The windowed client against the provider simulator as a separate program over 127.0.0.1:
// the user types the account, picks the interface, the access concentrator checks the dial
// name, the window switches to the online state; disconnecting brings the log-in view back.

#include "UiTestSupport.h"

#include "AppDelegate.h"
#include "SMSVerifyViewController.h"
#include "netList.h"
#include "tools/ToolProcess.h"
#include "wifiViewController.h"

#include "App/ConnectionSetup.h"
#include "Conf/Conf.h"

#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <atomic>

using namespace UiTest;
using json = nlohmann::ordered_json;

namespace {

// The simulator on free ports with `services`, and the client set up as the program does it,
// with the options a user would give.
class DorvikEndToEnd : public Fixture
{
protected:
    void startSim(const QString &services, const QStringList &extra = {})
    {
        ASSERT_TRUE(writeJsonFile(dir.filePath(QStringLiteral("system.json")), config));
        ASSERT_TRUE(
            sim.startReady(QStringList{QStringLiteral("--config"), dir.filePath(QStringLiteral("system.json")),
                                       QStringLiteral("--area"), QStringLiteral("1001"), QStringLiteral("--port"),
                                       QStringLiteral("ac=%1").arg(ac), QStringLiteral("--only"), services}
                           + extra))
            << sim.standardError().toStdString();
        Conf::setShared(Conf::fromJson(QByteArray::fromStdString(config.dump())));
        settings.backend = QStringLiteral("simulated");
        settings.area = QStringLiteral("1001");
        settings.accessConcentrator = QUrl(QStringLiteral("http://127.0.0.1:%1/pppoe/auth").arg(ac));
        settings.heartbeatScale = 20;
    }

    QTemporaryDir dir;
    const json config = demoConfigOnFreePorts();
    const quint16 ac = freeLocalPort();
    ToolProcess sim{QStringLiteral(DORVIK_SIM)};
    ConnectionSetup::Settings settings;
    QString error;
};

TEST_F(DorvikEndToEnd, LogInThroughTheWindowThenDisconnect)
{
    startSim(QStringLiteral("heart,business,ac"));
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
        EXPECT_EQ(window->logInView()->usernameField()->text(), QStringLiteral("demo"))
            << "the last account is offered";
    }

    EXPECT_EQ(sim.interruptForStats()["ac"]["accepted"], 1) << "the access concentrator checked the window's dial name";
}

// The provider asks for a text-message code once the link is up: the dialog opens while online,
// the right code keeps the link, a wrong one or none ends it.
TEST_F(DorvikEndToEnd, SmsCodeDialogDecidesTheLink)
{
    startSim(QStringLiteral("heart,business,ac,sms"), {QStringLiteral("--scenario"), QStringLiteral("sms=code")});
    settings.simInterfaces = 1;
    ASSERT_TRUE(ConnectionSetup::loadConfiguration(settings, &error)) << error.toStdString();

    // The verification's own verdict: a result without an error means the code was accepted.
    std::atomic<int> accepted{0};
    const auto token = DVNotificationCenter::defaultCenter().addObserverForName(
        DVNotification::DVNotificationNameSMSVerifyToUI, nullptr, [&](const DVNotificationMessage &m) {
            const auto *info =
                m.payload<SMSVerifyToUINotificationInfo>(DVNotification::NotificationInfoKeySMSVerifyToUI);
            if (info && !info->err)
                ++accepted;
        });
    {
        DVAppHost host([&] { return ConnectionSetup::makeApp(settings, &error); });
        AppDelegate delegate(&host);
        delegate.applicationDidFinishLaunching();
        baseWindow *window = delegate.window();
        window->setOnlineOptions(quietOnlineOptions());

        const struct
        {
            const char *typed;
            bool byHand; // closes the window instead of pressing Return
            bool keepsLink;
            const char *alert;
        } cases[] = {
            {"123456", false, true, ""},
            {"654321", false, false, "验证码不正确"},
            {"", true, false, "短信验证失败,客户端断开连接"},
        };
        for (const auto &c : cases) {
            SCOPED_TRACE(c.typed);
            MessageBox::clearShown();
            const int acceptedBefore = accepted;
            ASSERT_TRUE(
                waitFor([&] { return window->logInView() && window->logInView()->connectButton()->isEnabled(); }));
            window->logInView()->usernameField()->setText(QStringLiteral("demo"));
            window->logInView()->passwordField()->setText(QStringLiteral("demo123"));
            window->logInView()->connectButton()->click();
            ASSERT_TRUE(waitFor([&] { return window->onlineView() && window->onlineView()->smsDialog(); }, 20000))
                << sim.standardError().toStdString();
            QPointer<SMSVerifyViewController> dialog = window->onlineView()->smsDialog();
            EXPECT_EQ(dialog->label()->text(), QStringLiteral("验证码已发送到您的手机"));
            QTest::keyClicks(dialog->checkCodeField(), QString::fromUtf8(c.typed));
            if (c.byHand)
                dialog->close();
            else
                QTest::keyClick(dialog->checkCodeField(), Qt::Key_Return);
            if (c.keepsLink) {
                ASSERT_TRUE(waitFor([&] { return accepted > acceptedBefore; }, 20000));
                EXPECT_TRUE(window->onlineView() != nullptr);
                EXPECT_TRUE(MessageBox::shown().empty());
                window->onlineView()->disconnButton()->click();
            } else {
                ASSERT_TRUE(waitFor([&] { return !MessageBox::shown().empty(); }, 20000));
                EXPECT_EQ(MessageBox::shown().back().informativeText, QString::fromUtf8(c.alert));
            }
            ASSERT_TRUE(waitFor([&] { return window->logInView() != nullptr; }, 20000));
        }
    }
    DVNotificationCenter::defaultCenter().removeObserver(token);

    const json stats = sim.interruptForStats();
    EXPECT_EQ(stats["sms"]["verified"], 1);
    EXPECT_EQ(stats["sms"]["wrongCodes"], 1) << "an empty code is not sent";
}

} // namespace
