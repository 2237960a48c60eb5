// The online view and its dialogs, driven as a user would: the clock, the search, the
// SMS-verification results, the code dialog's countdown and checks, the picture dialog, the
// guide, and the web page surviving the death of its renderer.

#include "UiTestSupport.h"

#include "GuideView.h"
#include "OnlinePresenter.h"
#include "SMSVerifyViewController.h"
#include "qrCodeViewController.h"

#include "support/TestData.h"

#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

using namespace UiTest;

namespace {

TEST(OnlineText, ClockAndSearchAddress)
{
    const auto data = TestData::load("util.json"); // the loop must not outlive the document
    for (const auto &c : data.at("onlineClock"))
        EXPECT_EQ(OnlinePresenter::clockText(c.at("seconds")), TestData::text(c, "text")) << c.dump();
    for (const auto &c : data.at("search"))
        EXPECT_EQ(OnlinePresenter::searchAddress(TestData::text(c, "text"), QStringLiteral("https://search.example/")),
                  QStringLiteral("https://search.example/s?wd=") + TestData::text(c, "wd"))
            << c.dump();
}

// Collects what the dialogs send back to the verification.
struct FromUi
{
    FromUi()
    {
        token = DVNotificationCenter::defaultCenter().addObserverForName(
            DVNotification::DVNotificationNameSMSVerifyFromUI, nullptr, [this](const DVNotificationMessage &m) {
                if (const auto *info =
                        m.payload<SMSVerifyFromUINotificationInfo>(DVNotification::NotificationInfoKeySMSVerifyFromUI))
                    codes.push_back(info->code);
            });
    }
    ~FromUi() { DVNotificationCenter::defaultCenter().removeObserver(token); }
    DVNotificationCenter::Token token;
    QStringList codes;
};

class OnlineView : public WindowFixture
{
protected:
    void SetUp() override
    {
        WindowFixture::SetUp();
        open(machine(1));
        auto options = quietOnlineOptions(&opened);
        options.smsTicks = [] { return std::make_unique<ManualTicks>(); };
        window->setOnlineOptions(options);
        if (askBeforeTheOnlineView)
            askWhileTheWindowIsBusy();
        else
            host->dial(QStringLiteral("demo"), QStringLiteral("demo123"), 0, [](bool, const DVError &) {});
        ASSERT_TRUE(waitFor([this] { return window->onlineView() != nullptr; }));
        view = window->onlineView();
    }

    wifiViewController *view = nullptr;
    bool askBeforeTheOnlineView = false;

private:
    // The link comes up and the verification asks while the main thread is busy: both wait in
    // its queue, the question behind the connected state, and no online view exists yet.
    void askWhileTheWindowIsBusy()
    {
        QObject marker;
        std::atomic<bool> up{false};
        DVEvent::shared().addObserver(
            &marker,
            [&up](const DVEventObjectPtr &e) {
                const auto *status = dynamic_cast<const DVDialStatusEvent *>(e.get());
                up = up || (status && status->dialState == DVDialStateConnected);
            },
            DVEventIdDialStatus, OperationQueue::create());
        host->dial(QStringLiteral("demo"), QStringLiteral("demo123"), 0, [](bool, const DVError &) {});
        for (int i = 0; i < 1000 && !up; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10)); // no events handled here
        DVEvent::shared().removeObserver(&marker, DVEventIdDialStatus);
        ASSERT_TRUE(up);
        postSmsToUi(DVError(QStringLiteral("SMSVerify"), 0, QStringLiteral("验证码已发送到您的手机")), 0);
    }
};

// The question can come before the online view is there.
class OnlineViewAskedEarly : public OnlineView
{
    void SetUp() override
    {
        askBeforeTheOnlineView = true;
        OnlineView::SetUp();
    }
};

TEST_F(OnlineViewAskedEarly, CodeDialogOpensWithTheOnlineView)
{
    ASSERT_TRUE(waitFor([&] { return view->smsDialog() && view->smsDialog()->isVisible(); }));
    EXPECT_EQ(view->smsDialog()->commitButton()->text(), QStringLiteral("90s")) << "0 seconds means 90";
}

TEST_F(OnlineView, SearchPictureGuideAndFocus)
{
    QTest::keyClicks(view->searchField(), QStringLiteral("abc 123"));
    QTest::keyClick(view->searchField(), Qt::Key_Return);
    ASSERT_EQ(opened.size(), 1u);
    EXPECT_EQ(opened[0], QUrl(OnlinePresenter::searchAddress(QStringLiteral("abc 123"))));

    // Clicking the view takes the focus from the search field.
    view->searchField()->setFocus();
    QTest::mouseClick(view, Qt::LeftButton, {}, QPoint(450, 300));
    EXPECT_FALSE(view->searchField()->hasFocus());

    view->qrCodeButton()->click();
    qrCodeViewController *qr = view->qrCodeDialog();
    ASSERT_NE(qr, nullptr);
    EXPECT_FALSE(qr->imageView()->pixmap().isNull());
    qr->close();
    view->qrCodeButton()->click();
    EXPECT_EQ(view->qrCodeDialog(), qr) << "made once, shown again";
    qr->close();

    // The guide covers the view with the title-bar buttons hidden; a click dismisses it.
    if (!view->guideView())
        view->showGuideView();
    ASSERT_TRUE(waitFor([&] { return view->guideView() && view->guideView()->isVisible(); }));
    EXPECT_EQ(view->guideView()->geometry(), view->rect());
    EXPECT_FALSE(window->windowFlags() & Qt::WindowCloseButtonHint);
    QTest::mouseClick(view->guideView(), Qt::LeftButton);
    EXPECT_TRUE(waitFor([&] { return !view->guideView(); }));
    EXPECT_TRUE(window->windowFlags() & Qt::WindowCloseButtonHint);
}

// A verdict other than code 0 hangs up first (the request is under way when the alert shows),
// then alerts. (Code 0 keeps the link: DorvikEndToEndTest.cpp.)
TEST_F(OnlineView, SmsRefusalHangsUpThenAlerts)
{
    int pendingAtAlert = -1;
    MessageBox::setShowHook([&](const MessageBox::Alert &) { pendingAtAlert = host->pendingCalls(); });
    postSmsToUi(DVError(QStringLiteral("SMSVerify"), 2, QString()));
    ASSERT_TRUE(waitFor([&] { return !MessageBox::shown().empty(); }));
    EXPECT_GT(pendingAtAlert, 0);
    EXPECT_EQ(MessageBox::shown().back().messageText, QStringLiteral("错误"));
    EXPECT_EQ(MessageBox::shown().back().informativeText, QStringLiteral("短信验证错误"));
    EXPECT_EQ(MessageBox::shown().back().style, MessageBox::Style::Warning);
    EXPECT_TRUE(waitFor([&] { return window->logInView() != nullptr; }));
}

class SmsDialog : public Fixture
{
protected:
    std::unique_ptr<SMSVerifyViewController> open(quint64 seconds)
    {
        auto t = std::make_unique<ManualTicks>();
        ticks = t.get();
        auto dialog = std::make_unique<SMSVerifyViewController>(seconds, QString(), nullptr, std::move(t));
        dialog->show();
        return dialog;
    }
    ManualTicks *ticks = nullptr;
    FromUi fromUi;
};

TEST_F(SmsDialog, CountdownClosesOnTheTickAfterOneSecond)
{
    auto dialog = open(3);
    EXPECT_EQ(dialog->windowTitle(), QStringLiteral("短信验证"));
    EXPECT_EQ(dialog->label()->text(), SMSVerifyPresenter::fallbackMessage());
    EXPECT_TRUE(waitFor([&] { return dialog->checkCodeField()->hasFocus(); }));
    QStringList titles{dialog->commitButton()->text()}; // the first tick came at once
    QTest::keyClicks(dialog->checkCodeField(), QStringLiteral("12"));
    for (int i = 0; i < 2; ++i) {
        ticks->tick();
        titles << dialog->commitButton()->text();
    }
    EXPECT_EQ(titles.join(QLatin1Char(',')), QStringLiteral("3s,2s,1s"));
    EXPECT_TRUE(dialog->isVisible());
    ticks->tick();
    EXPECT_FALSE(dialog->isVisible());
    EXPECT_FALSE(ticks->running);
    dialog.reset();
    EXPECT_EQ(fromUi.codes, QStringList{QStringLiteral("12")}) << "the text as it stands, once";
}

TEST_F(SmsDialog, BadCodesRefusedThenReturnSends)
{
    auto dialog = open(60);
    for (const char *bad : {"12345", "12a456", "1234567"}) {
        dialog->checkCodeField()->setText(QString::fromLatin1(bad));
        QTest::keyClick(dialog->checkCodeField(), Qt::Key_Return);
        ASSERT_FALSE(MessageBox::shown().empty()) << bad;
        EXPECT_EQ(MessageBox::shown().back().messageText, QStringLiteral("非法的验证码"));
        EXPECT_EQ(MessageBox::shown().back().informativeText, QStringLiteral("验证码应该为6位数字"));
        EXPECT_TRUE(dialog->isVisible()) << bad;
        MessageBox::clearShown();
    }
    EXPECT_TRUE(fromUi.codes.isEmpty());
    dialog->checkCodeField()->setText(QStringLiteral("123456"));
    QTest::keyClick(dialog->checkCodeField(), Qt::Key_Return);
    EXPECT_FALSE(dialog->isVisible());
    EXPECT_EQ(fromUi.codes, QStringList{QStringLiteral("123456")});
}

TEST(OnlinePageTest, RendererKilledPageComesBack)
{
    if (!OnlinePage::webEngineUnavailableReason().isEmpty())
        GTEST_SKIP() << OnlinePage::webEngineUnavailableReason().toStdString();
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("page.html"));
    {
        QFile f(file);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write("<html><body><h1>page</h1></body></html>");
    }
    std::unique_ptr<OnlinePage> page(OnlinePage::create({}, nullptr));
    page->resize(400, 300);
    page->show();
    int loads = 0, restarts = 0;
    QObject::connect(page.get(), &OnlinePage::loadFinished, [&](bool ok) { loads += ok; });
    QObject::connect(page.get(), &OnlinePage::renderProcessRestarted, [&] { ++restarts; });
    page->load(QUrl::fromLocalFile(file));
    ASSERT_TRUE(waitFor([&] { return loads == 1 && page->renderProcessId() > 0; }, 60000));
    const qint64 first = page->renderProcessId();
    ASSERT_EQ(::kill(pid_t(first), SIGKILL), 0);
    EXPECT_TRUE(waitFor([&] { return restarts == 1 && loads == 2; }, 60000));
    EXPECT_NE(page->renderProcessId(), first);
}

} // namespace
