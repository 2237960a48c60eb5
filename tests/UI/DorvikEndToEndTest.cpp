// The windowed client against the provider simulator as a separate program over 127.0.0.1:
// the user types the account, the access concentrator checks the dial name, the window switches
// to the online state and the provider asks for a text-message code; disconnecting brings the
// log-in view back with the last account in it. (The choice of interface: LogInViewTest.cpp.)

#include "UiTestSupport.h"

#include "AppDelegate.h"
#include "SMSVerifyViewController.h"
#include "tools/ToolProcess.h"
#include "wifiViewController.h"

#include "App/ConnectionSetup.h"
#include "Conf/Conf.h"

#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <atomic>

using namespace UiTest;
using json = nlohmann::ordered_json;

namespace {

using DorvikEndToEnd = Fixture;

// The provider asks for a text-message code once the link is up: the dialog opens while online,
// the right code keeps the link, a wrong one or none ends it.
TEST_F(DorvikEndToEnd, SmsCodeDialogDecidesTheLink)
{
    // The simulator on free ports, and the client set up as the program does it, with the
    // options a user would give.
    QTemporaryDir dir;
    const json config = demoConfigOnFreePorts();
    const quint16 ac = freeLocalPort();
    ASSERT_TRUE(writeJsonFile(dir.filePath(QStringLiteral("system.json")), config));
    ToolProcess sim{QStringLiteral(DORVIK_SIM)};
    ASSERT_TRUE(sim.startReady(
        {QStringLiteral("--config"), dir.filePath(QStringLiteral("system.json")), QStringLiteral("--area"),
         QStringLiteral("1001"), QStringLiteral("--port"), QStringLiteral("ac=%1").arg(ac), QStringLiteral("--only"),
         QStringLiteral("heart,business,ac,sms"), QStringLiteral("--scenario"), QStringLiteral("sms=code")}))
        << sim.standardError().toStdString();
    Conf::setShared(Conf::fromJson(QByteArray::fromStdString(config.dump())));
    ConnectionSetup::Settings settings;
    settings.backend = QStringLiteral("simulated");
    settings.area = QStringLiteral("1001");
    settings.accessConcentrator = QUrl(QStringLiteral("http://127.0.0.1:%1/pppoe/auth").arg(ac));
    settings.heartbeatScale = 20;
    settings.simInterfaces = 1;
    QString error;
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
            EXPECT_EQ(window->logInView()->usernameField()->text(), QStringLiteral("demo"))
                << "the last account is offered";
        }
    }
    DVNotificationCenter::defaultCenter().removeObserver(token);

    const json stats = sim.interruptForStats();
    EXPECT_EQ(stats["ac"]["accepted"], 3) << "the access concentrator checked the window's dial name";
    EXPECT_EQ(stats["sms"]["verified"], 1);
    EXPECT_EQ(stats["sms"]["wrongCodes"], 1) << "an empty code is not sent";
}

} // namespace
