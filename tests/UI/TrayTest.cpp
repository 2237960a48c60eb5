// The tray, run by tests/rigs/tray-session.sh on a virtual X server with a private session bus:
// TrayOnBus with a StatusNotifier host on that bus, TrayAbsent with no tray at all, and
// TrayScreenshots in an XEmbed panel (trayer) whose menu is opened by a real right click.

#include "UiTestSupport.h"

#include "AppDelegate.h"
#include "TrayIcon.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QEventLoop>
#include <QLineEdit>
#include <QMenu>
#include <QProcess>
#include <QRegularExpression>
#include <QSystemTrayIcon>
#include <QTimer>

#include <gtest/gtest.h>

using namespace UiTest;

namespace {

// A property as gdbus prints it; the event loop runs meanwhile, as this process serves the item.
QString busProperty(const QString &service, const QString &path, const QString &interface, const QString &name)
{
    QProcess gdbus;
    gdbus.start(QStringLiteral("gdbus"), {QStringLiteral("call"), QStringLiteral("--session"), QStringLiteral("--dest"),
                                          service, QStringLiteral("--object-path"), path, QStringLiteral("--method"),
                                          QStringLiteral("org.freedesktop.DBus.Properties.Get"), interface, name});
    waitFor([&gdbus] { return gdbus.state() == QProcess::NotRunning; });
    return QString::fromUtf8(gdbus.readAllStandardOutput());
}

struct Launched
{
    std::unique_ptr<DVAppHost> host = makeHost(machine(1));
    AppDelegate delegate{host.get()};
    std::vector<TrayState::Icon> icons; // the tray's icon after each dial state

    Launched()
    {
        delegate.applicationDidFinishLaunching();
        QObject::connect(host.get(), &DVAppHost::dialStateChanged, &delegate,
                         [this](qint64) { icons.push_back(delegate.tray()->state().icon()); });
    }
    // The tray menu's connect (with an account typed into the log-in view) or disconnect.
    bool menuTo(TrayState::Icon icon)
    {
        if (auto *login = delegate.window()->logInView(); login && icon == TrayState::Icon::Online) {
            login->usernameField()->setText(QStringLiteral("demo"));
            login->passwordField()->setText(QStringLiteral("demo123"));
        }
        delegate.tray()->connectAction()->trigger();
        return waitFor([&] { return !icons.empty() && icons.back() == icon; });
    }
};

using TrayOnBus = Fixture;

// The item reaches the host on the bus; the menu's connect and disconnect reach the controller,
// and the icon (and the tooltip the host reads) follows 3, 2, 5. Closing while online hides
// the window and tells the user.
TEST_F(TrayOnBus, IconFollowsTheLinkAndTheMenuDials)
{
    ASSERT_TRUE(TrayIcon::available());
    Launched app;
    const QString watcher = QStringLiteral("org.kde.StatusNotifierWatcher");
    QString item;
    ASSERT_TRUE(waitFor([&] {
        item = QRegularExpression(QStringLiteral("\\['([^']+)'")) // the item's bus name
                   .match(busProperty(watcher, QStringLiteral("/StatusNotifierWatcher"), watcher,
                                      QStringLiteral("RegisteredStatusNotifierItems")))
                   .captured(1);
        return !item.isEmpty();
    }));
    const auto toolTip = [&] {
        return busProperty(item, QStringLiteral("/StatusNotifierItem"), QStringLiteral("org.kde.StatusNotifierItem"),
                           QStringLiteral("ToolTip"));
    };
    EXPECT_TRUE(toolTip().contains(QStringLiteral("未连接")));

    ASSERT_TRUE(app.menuTo(TrayState::Icon::Online));
    EXPECT_EQ(app.icons.front(), TrayState::Icon::Connecting);
    EXPECT_TRUE(toolTip().contains(QStringLiteral("已连接")));
    EXPECT_EQ(app.delegate.tray()->connectAction()->text(), QStringLiteral("断开连接"));
    ASSERT_TRUE(app.menuTo(TrayState::Icon::Offline));
    EXPECT_TRUE(toolTip().contains(QStringLiteral("未连接")));

    ASSERT_TRUE(app.menuTo(TrayState::Icon::Online));
    app.delegate.window()->close();
    EXPECT_FALSE(waitFor([&] { return app.icons.back() != TrayState::Icon::Online; }, 300)); // still up
    EXPECT_FALSE(app.delegate.window()->isVisible());
    EXPECT_TRUE(toolTip().contains(QStringLiteral("仍在运行"))); // the notice, as the host shows it
}

using TrayAbsent = Fixture;

// Without a tray host, closing the window while online hangs up and quits as it always did.
TEST_F(TrayAbsent, ClosingQuits)
{
    ASSERT_FALSE(TrayIcon::available());
    Launched app;
    ASSERT_TRUE(app.menuTo(TrayState::Icon::Online));
    QEventLoop loop; // QCoreApplication::exit ends every running loop
    QTimer::singleShot(10000, &loop, [&loop] { loop.exit(99); });
    QTimer::singleShot(0, &loop, [&app] { app.delegate.window()->close(); });
    EXPECT_EQ(loop.exec(), 0);
    EXPECT_EQ(app.icons.back(), TrayState::Icon::Offline); // hung up first
}

using TrayScreenshots = Fixture;

// The tray menu offline and online, opened with a right click on the icon in the panel.
TEST_F(TrayScreenshots, MenuInThePanel)
{
    const QString dir = qEnvironmentVariable("DORVIK_SCREENSHOT_DIR", QStringLiteral(DORVIK_SCREENSHOT_DEFAULT_DIR));
    QDir().mkpath(dir);
    Launched app;
    QSystemTrayIcon *icon = app.delegate.tray()->icon();
    ASSERT_TRUE(waitFor([icon] { return icon->geometry().isValid(); })) << "no XEmbed tray";
    for (const bool online : {false, true}) {
        if (online) {
            ASSERT_TRUE(app.menuTo(TrayState::Icon::Online));
        }
        // The icon's own window, embedded in the panel.
        QString window;
        for (QWidget *widget : QApplication::topLevelWidgets())
            if (widget->inherits("QSystemTrayIconSys"))
                window = QString::number(widget->winId());
        ASSERT_FALSE(window.isEmpty());
        QProcess::execute(QStringLiteral("xdotool"),
                          {QStringLiteral("mousemove"), QStringLiteral("--window"), window, QStringLiteral("8"),
                           QStringLiteral("8"), QStringLiteral("click"), QStringLiteral("3")});
        ASSERT_TRUE(waitFor([&] { return app.delegate.tray()->menu()->isVisible(); }));
        waitFor([] { return false; }, 300); // painted
        const QString file = dir + (online ? QStringLiteral("/tray-online.png") : QStringLiteral("/tray-offline.png"));
        EXPECT_EQ(QProcess::execute(QStringLiteral("import"),
                                    {QStringLiteral("-window"), QStringLiteral("root"), QStringLiteral("-crop"),
                                     QStringLiteral("360x130+500+0"), file}),
                  0);
        app.delegate.tray()->menu()->hide();
    }
}

} // namespace
