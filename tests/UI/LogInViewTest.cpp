// The log-in view and the main window it lives in, driven as a user would, over the simulated
// machine: the input checks, the choice of interface, the dial errors, the check boxes, the
// dynamic-password countdown and a back-end that blocks for seconds.

#include "UiTestSupport.h"

#include "netList.h"
#include "wifiViewController.h"

#include "Conf/Conf.h"
#include "Conf/UIConf.h"
#include "support/TestData.h"

#include <QCheckBox>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QTableWidget>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

using namespace UiTest;

namespace {

class LogInView : public WindowFixture
{
protected:
    void open(int interfaces, int callDelayMs = 0) { WindowFixture::open(machine(interfaces, callDelayMs)); }
    logInViewController *login() const { return window->logInView(); }
    void type(const QString &name, const QString &password)
    {
        login()->usernameField()->setText(name);
        login()->passwordField()->setText(password);
    }
    void dialDemo()
    {
        type(QStringLiteral("demo"), QStringLiteral("demo123"));
        login()->connectButton()->click();
    }
    bool online() const { return qobject_cast<wifiViewController *>(window->currentView()) != nullptr; }
    QStringList alertTexts() const
    {
        QStringList texts;
        for (const auto &a : MessageBox::shown())
            texts << a.messageText + QLatin1Char('|') + a.informativeText;
        return texts;
    }
};

TEST_F(LogInView, InputIsCheckedInOrderBeforeAnyDial)
{
    open(1);
    const auto data = TestData::load("login-input.json"); // the loop must not outlive the document
    for (const auto &c : data.at("refused")) {
        SCOPED_TRACE(c.dump());
        MessageBox::clearShown();
        type(TestData::text(c, "user"), TestData::text(c, "password"));
        login()->connectButton()->click();
        EXPECT_EQ(alertTexts(), QStringList{QStringLiteral("提示|") + TestData::text(c, "refusal")});
        EXPECT_EQ(host->pendingCalls(), 0) << "no request may leave for bad input";
    }

    // From the keyboard: the account field has the focus, Tab goes to the password, Return connects.
    MessageBox::clearShown();
    type({}, {});
    window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));
    EXPECT_EQ(QApplication::focusWidget(), login()->usernameField());
    QTest::keyClicks(login()->usernameField(), QStringLiteral("demo"));
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    EXPECT_EQ(QApplication::focusWidget(), login()->passwordField());
    QTest::keyClick(login()->passwordField(), Qt::Key_Return);
    EXPECT_EQ(alertTexts(), QStringList{QStringLiteral("提示|密码不能为空")});
}

TEST_F(LogInView, TwoInterfacesAskWhichOneUnlessARememberedOneIsValid)
{
    // Not remembered: the choice opens, its first row dials.
    open(2);
    dialDemo();
    ASSERT_TRUE(waitFor([&] { return login()->interfaceChoice() && login()->interfaceChoice()->isVisible(); }));
    netList *choice = login()->interfaceChoice();
    auto *rememberBox = choice->findChild<QCheckBox *>();
    ASSERT_TRUE(rememberBox);
    rememberBox->setChecked(true);
    QTest::keyClick(choice->findChild<QTableWidget *>(), Qt::Key_Return);
    ASSERT_TRUE(waitFor([&] { return online(); })) << alertTexts().join(QLatin1Char('\n')).toStdString();
    EXPECT_TRUE(UIConf::shared().ifRememberInterface());
    EXPECT_EQ(Conf::shared()->user.getDefaultInterface(), QStringLiteral("eth0"));

    // Remembered and still there: the next dial goes out without asking.
    window.reset();
    host.reset();
    ASSERT_TRUE(waitFor([] { return true; }));
    open(2);
    dialDemo();
    ASSERT_TRUE(waitFor([&] { return online(); }));
    EXPECT_EQ(login(), nullptr);
}

TEST_F(LogInView, DialErrorIsShownWithItsCodeDomainAndText)
{
    SimulatedConfig config = machine(2);
    config.interfaces.erase(config.interfaces.begin()); // only the wireless one, and it is down
    WindowFixture::open(config);
    dialDemo();
    ASSERT_TRUE(waitFor([&] { return !MessageBox::shown().empty(); }));
    const auto &alert = MessageBox::shown().front();
    EXPECT_EQ(alert.messageText, QStringLiteral("错误号:20"));
    EXPECT_TRUE(alert.informativeText.startsWith(QStringLiteral("PPPoE\n"))) << alert.informativeText.toStdString();
    EXPECT_FALSE(online());
    EXPECT_TRUE(waitFor([&] { return login()->connectButton()->isEnabled(); })) << "the button comes back";
}

TEST_F(LogInView, CheckBoxesKeepAutomaticLogInConsistent)
{
    open(1);
    login()->autoLogInBox()->setChecked(true);
    EXPECT_TRUE(UIConf::shared().ifAutoLogin());
    EXPECT_TRUE(UIConf::shared().ifRememberPWd());
    EXPECT_TRUE(UIConf::shared().ifRememberInterface());
    EXPECT_TRUE(login()->rememberPasswordBox()->isChecked());

    type(QStringLiteral("demo"), QStringLiteral("demo123"));
    login()->rememberPasswordBox()->setChecked(false);
    EXPECT_FALSE(UIConf::shared().ifAutoLogin());
    EXPECT_FALSE(UIConf::shared().ifRememberPWd());
    EXPECT_FALSE(login()->autoLogInBox()->isChecked());
    EXPECT_TRUE(UIConf::shared().ifRememberInterface()) << "only automatic log-in depends on the password";
}

TEST_F(LogInView, DynamicPasswordCountdownAndResult)
{
    useDemoConfiguration(QStringLiteral("1001")); // an area that logs in with dynamic passwords
    open(1);
    QPushButton *button = login()->dynamicPasswordButton();
    login()->usernameField()->clear();
    button->click();
    EXPECT_EQ(alertTexts(), QStringList{QStringLiteral("错误|用户名不能为空")});
    EXPECT_FALSE(ticks->running);

    login()->usernameField()->setText(QStringLiteral("demo"));
    button->click(); // the first tick comes at once
    EXPECT_EQ(button->text(), QStringLiteral("90s后重试"));
    EXPECT_FALSE(button->isEnabled());
    for (int tick = 2; tick <= 90; ++tick)
        ticks->tick();
    EXPECT_EQ(button->text(), QStringLiteral("1s后重试"));
    EXPECT_FALSE(button->isEnabled());
    ticks->tick(); // the 91st
    EXPECT_EQ(button->text(), QStringLiteral("动态密码登陆"));
    EXPECT_TRUE(button->isEnabled());
    EXPECT_FALSE(ticks->running);

    // The outcome of a request, as the request reports it.
    const struct
    {
        std::optional<DVError> err;
        QString expected;
    } outcomes[] = {
        {std::nullopt, QStringLiteral("发送动态密码成功")},
        {DVError(QStringLiteral("dynamicPwd"), 1, QStringLiteral("动态密码发送超时")),
         QStringLiteral("动态密码发送超时")},
        {DVError(QStringLiteral("dynamicPwd"), 2, QString()), QStringLiteral("发送动态密码失败")},
    };
    for (const auto &o : outcomes) {
        MessageBox::clearShown();
        DyPwdCheckNotificationInfo info;
        info.err = o.err;
        DVNotificationCenter::defaultCenter().postNotificationName(
            DVNotification::DVNotificationNameDyPwd, {{DVNotification::NotificationInfoKeyDyPwdCheck, info}});
        ASSERT_TRUE(waitFor([] { return !MessageBox::shown().empty(); }));
        EXPECT_EQ(alertTexts(), QStringList{QStringLiteral("动态密码|") + o.expected});
    }
}

// Every system call of the back-end blocks for 700 ms: the click returns at once, the window
// shows its busy state and handles events while the calls are in flight, and the dial still
// gets through.
TEST_F(LogInView, SlowBackEndKeepsTheWindowResponsiveAndGivesTheSameOutcome)
{
    open(1, 700);
    dialDemo();
    EXPECT_GT(host->pendingCalls(), 0) << "the click waited for the back-end";
    EXPECT_TRUE(login()->isBusy());
    EXPECT_FALSE(login()->connectButton()->isEnabled());
    EXPECT_TRUE(login()->findChild<QProgressBar *>()->isVisible());
    bool handled = false;
    QTimer::singleShot(0, [&] { handled = true; });
    ASSERT_TRUE(waitFor([&] { return handled; }));
    EXPECT_GT(host->pendingCalls(), 0) << "the event loop was held while the back-end blocked";
    ASSERT_TRUE(waitFor([&] { return online(); }, 30000)) << alertTexts().join(QLatin1Char('\n')).toStdString();
    EXPECT_TRUE(MessageBox::shown().empty());
}

} // namespace
