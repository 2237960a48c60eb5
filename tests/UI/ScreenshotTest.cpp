// Every view on a real X server (Xvfb), captured from the screen as a user would see it: each
// picture must show something (not one flat colour) and the main window must have the size of
// its state. The pictures are kept for people to look at (Chinese must be drawn as glyphs).

#include "UiTestSupport.h"

#include "AppDelegate.h"
#include "GuideView.h"
#include "SMSVerifyViewController.h"
#include "areaConfViewController.h"
#include "checkUpdateViewController.h"
#include "netList.h"
#include "qrCodeViewController.h"
#include "wifiViewController.h"

#include "Update/CheckUpdatePresenter.h"
#include "Update/Updater.h"
#include "tools/ToolProcess.h"

#include "Conf/Conf.h"
#include "Conf/UIConf.h"

#include <QComboBox>
#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QStackedWidget>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

#include <csignal>
#include <set>

using namespace UiTest;

namespace {

QString shotDir()
{
    const QString dir = qEnvironmentVariableIsEmpty("DORVIK_SCREENSHOT_DIR")
                            ? QStringLiteral(DORVIK_SCREENSHOT_DEFAULT_DIR)
                            : qEnvironmentVariable("DORVIK_SCREENSHOT_DIR");
    QDir().mkpath(dir);
    return dir;
}

// Captures the widget's window from the screen, saves it and checks that it is not blank.
QImage shoot(QWidget *widget, const QString &name, size_t minColours = 8)
{
    QWidget *top = widget->window();
    waitFor([] { return false; }, 300); // let the window be mapped and painted
    const QRect frame = top->geometry();
    const QImage image =
        QGuiApplication::primaryScreen()->grabWindow(0, frame.x(), frame.y(), frame.width(), frame.height()).toImage();
    image.save(shotDir() + QLatin1Char('/') + name + QStringLiteral(".png"));
    std::set<QRgb> colours;
    for (int y = 0; y < image.height(); y += 3)
        for (int x = 0; x < image.width(); x += 3)
            colours.insert(image.pixel(x, y));
    EXPECT_GT(colours.size(), minColours) << name.toStdString() << " looks blank";
    return image;
}

class Screenshots : public Fixture
{
protected:
    void SetUp() override
    {
        if (QGuiApplication::platformName() != QLatin1String("xcb"))
            GTEST_SKIP() << "needs an X server (run under xvfb-run)";
        Fixture::SetUp();
    }
};

TEST_F(Screenshots, EveryViewOfALogIn)
{
    auto host = makeHost(machine(2));
    AppDelegate delegate(host.get());
    delegate.applicationDidFinishLaunching();
    baseWindow *window = delegate.window();
    window->move(40, 40);
    // No provider page here: the online view with its page has a picture of its own.
    window->setOnlineOptions(quietOnlineOptions());

    // The log-in view, with an account typed in.
    window->logInView()->usernameField()->setText(QStringLiteral("demo"));
    window->logInView()->passwordField()->setText(QStringLiteral("demo123"));
    EXPECT_EQ(shoot(window, QStringLiteral("1-login")).size(), baseWindow::LogInSize);

    // The area selection.
    window->showArea();
    // A test program has no shipped tree beside it: show the demo deployment's, with a choice made.
    auto *area = qobject_cast<areaConfViewController *>(window->currentView());
    ASSERT_NE(area, nullptr);
    area->setUpView(areaModel::fromFile(QStringLiteral(DORVIK_SOURCE_DIR "/resources/demo/area.cfg")));
    area->findChild<QComboBox *>(QStringLiteral("provBtn"))->setCurrentIndex(0);
    EXPECT_EQ(shoot(window, QStringLiteral("2-area")).size(), baseWindow::LogInSize);
    window->showLogIn();
    window->logInView()->usernameField()->setText(QStringLiteral("demo"));
    window->logInView()->passwordField()->setText(QStringLiteral("demo123"));

    // The interface choice: the simulated machine has two.
    window->logInView()->connectButton()->click();
    ASSERT_TRUE(waitFor([&] { return window->logInView()->interfaceChoice(); }));
    netList *choice = window->logInView()->interfaceChoice();
    choice->move(100, 140);
    shoot(choice, QStringLiteral("3-interfaces"));

    // An error alert, as a real box on the screen: the down wireless interface.
    MessageBox::setDefaultAnswer(std::nullopt);
    QTimer::singleShot(600, [] {
        if (QWidget *box = QApplication::activeModalWidget()) {
            shoot(box, QStringLiteral("4-error"));
            box->close();
        }
    });
    choice->findChild<QTableWidget *>()->selectRow(1);
    choice->findChild<QPushButton *>()->click();
    ASSERT_TRUE(waitFor([&] { return !window->logInView()->interfaceChoice(); }));
    MessageBox::setDefaultAnswer(0);

    // The online state, dialled on the wired interface.
    window->logInView()->connectButton()->click();
    ASSERT_TRUE(waitFor([&] { return window->logInView()->interfaceChoice(); }));
    window->logInView()->interfaceChoice()->findChild<QPushButton *>()->click();
    ASSERT_TRUE(waitFor([&] { return qobject_cast<wifiViewController *>(window->currentView()) != nullptr; }));
    EXPECT_EQ(shoot(window, QStringLiteral("5-online")).size(), baseWindow::OnlineSize);
}

TEST_F(Screenshots, QrCodeLogIn)
{
    useDemoConfiguration(QStringLiteral("1002")); // an area that offers the QR code
    auto host = makeHost(machine(1));
    auto window = makeWindow(host.get());
    window->showLogIn();
    window->move(40, 40);
    window->show();
    if (window->logInView()->dialType() != QStringLiteral("qrcode"))
        window->logInView()->dialTypeSwitchButton()->click();
    EXPECT_EQ(shoot(window.get(), QStringLiteral("6-qrcode")).size(), baseWindow::LogInSize);
}

TEST_F(Screenshots, UpdateDialogPages)
{
    // No update server: the check ends at once with its message on the first page.
    CheckUpdatePresenter::Environment env;
    env.makeUpdater = [] { return std::make_shared<Updater>(std::nullopt, std::nullopt, std::nullopt, std::nullopt); };
    checkUpdateViewController dialog(std::make_unique<CheckUpdatePresenter>(env));
    dialog.move(60, 60);
    dialog.show();
    shoot(&dialog, QStringLiteral("7-update-message"));
    dialog.presenter().updateUserinterfaceByUpdateStateType(CheckUpdatePresenter::UpdateFound);
    ASSERT_TRUE(waitFor([&] { return dialog.tabview()->currentIndex() == CheckUpdatePresenter::QuestionPage; }));
    shoot(&dialog, QStringLiteral("8-update-question"));
    // The download page as a download halfway through shows it.
    dialog.tabview()->setCurrentIndex(CheckUpdatePresenter::DownloadingPage);
    dialog.downloadProgress()->setValue(42);
    shoot(&dialog, QStringLiteral("9-update-download"));
}

// The online view with the provider's page served by the simulator, the first-run guide over
// it, the picture dialog and the SMS-code dialog.
TEST_F(Screenshots, OnlineViewAndItsDialogs)
{
    QTemporaryDir dir;
    auto config = demoConfigOnFreePorts();
    const std::string business = config["business"]["host"]["default"];
    config["tab"]["url"] = {{"default", business + "/ad/index.html"}};
    const QString plain = dir.filePath(QStringLiteral("system.json"));
    ASSERT_TRUE(writeJsonFile(plain, config));
    ToolProcess sim{QStringLiteral(DORVIK_SIM)};
    ASSERT_TRUE(sim.startReady({QStringLiteral("--config"), plain, QStringLiteral("--area"), QStringLiteral("1001"),
                                QStringLiteral("--only"), QStringLiteral("business")}));
    Conf::setShared(Conf::fromJson(QByteArray::fromStdString(config.dump())));
    UIConf::shared().setArea(QStringLiteral("1001"));

    auto host = makeHost(machine(1));
    auto window = makeWindow(host.get());
    auto options = quietOnlineOptions();
    options.webPage = true;
    window->setOnlineOptions(options);
    window->showLogIn();
    window->move(40, 40);
    window->show();
    host->dial(QStringLiteral("demo"), QStringLiteral("demo123"), 0, [](bool, const DVError &) {});
    ASSERT_TRUE(waitFor([&] { return window->onlineView() != nullptr; }));
    wifiViewController *view = window->onlineView();
    ASSERT_NE(view->webPage(), nullptr);
    bool loaded = false;
    QObject::connect(view->webPage(), &OnlinePage::loadFinished, [&](bool ok) { loaded = ok; });
    if (!view->guideView())
        view->showGuideView();
    ASSERT_TRUE(waitFor([&] { return view->guideView() != nullptr; }));
    waitFor([&] { return loaded; }, OnlinePage::webEngineUnavailableReason().isEmpty() ? 30000 : 0);
    shoot(window.get(), QStringLiteral("10-guide"));
    view->guideView()->dismiss();
    waitFor([] { return false; }, 500); // the page paints once uncovered
    EXPECT_EQ(shoot(window.get(), QStringLiteral("11-online-page")).size(), baseWindow::OnlineSize);

    view->qrCodeButton()->click();
    ASSERT_NE(view->qrCodeDialog(), nullptr);
    view->qrCodeDialog()->move(300, 200);
    shoot(view->qrCodeDialog(), QStringLiteral("12-qrcode-dialog"), 2); // a black and white picture
    view->qrCodeDialog()->close();

    postSmsToUi(DVError(QStringLiteral("SMSVerify"), 0, QStringLiteral("验证码已发送到您的手机")));
    ASSERT_TRUE(waitFor([&] { return view->smsDialog() && view->smsDialog()->isVisible(); }));
    view->smsDialog()->move(320, 260);
    QTest::keyClicks(view->smsDialog()->checkCodeField(), QStringLiteral("1234"));
    shoot(view->smsDialog(), QStringLiteral("13-sms-dialog"));
    view->smsDialog()->close();
    EXPECT_EQ(sim.signalAndWait(SIGINT, 10000), 0);
}

} // namespace
