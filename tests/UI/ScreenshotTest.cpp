// The QR-code log-in view and the update dialog's pages on a real X server (Xvfb), captured
// from the screen as a user would see it: each picture must show something (not one flat colour)
// and the main window must have the size of its state. The pictures are kept for people to look
// at (Chinese must be drawn as glyphs); the views of a log-in are pictured by scripts/demo.sh
// (build/demo-screenshots/), the tray's menu by TrayTest.cpp.

#include "UiTestSupport.h"

#include "checkUpdateViewController.h"

#include "Update/CheckUpdatePresenter.h"
#include "Update/Updater.h"

#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QStackedWidget>

#include <gtest/gtest.h>

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

} // namespace
