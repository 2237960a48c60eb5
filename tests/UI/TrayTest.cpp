// The tray, run by tests/rigs/tray-session.sh on a virtual X server with a private session bus:
// TrayOnBus with a StatusNotifier host on that bus, TrayAbsent with no tray at all, and
// TrayScreenshots with an XEmbed panel (trayer) whose menu is opened by a real right click.

#include "UiTestSupport.h"

#include "AppDelegate.h"
#include "TrayIcon.h"

#include <QAction>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>
#include <QDir>
#include <QEventLoop>
#include <QLineEdit>
#include <QMenu>
#include <QProcess>
#include <QSystemTrayIcon>
#include <QTimer>

#include <gtest/gtest.h>

using namespace UiTest;

namespace {

// One call on the bus, answered while the event loop runs (the tray item is served by this
// very process).
QVariant busProperty(const QString &service, const QString &path, const QString &interface, const QString &name)
{
    QDBusMessage call = QDBusMessage::createMethodCall(service, path, QStringLiteral("org.freedesktop.DBus.Properties"),
                                                       QStringLiteral("Get"));
    call << interface << name;
    QDBusPendingCallWatcher watcher(QDBusConnection::sessionBus().asyncCall(call));
    waitFor([&watcher] { return watcher.isFinished(); });
    const QDBusMessage reply = watcher.reply();
    return reply.arguments().isEmpty() ? QVariant() : reply.arguments().first().value<QDBusVariant>().variant();
}

// The title of the item's ToolTip property, (sa(iiay)ss).
QString toolTipOnBus(const QString &item)
{
    const int slash = item.indexOf(u'/');
    const QString service = slash < 0 ? item : item.left(slash);
    const QString path = slash < 0 ? QStringLiteral("/StatusNotifierItem") : item.mid(slash);
    const QVariant value =
        busProperty(service, path, QStringLiteral("org.kde.StatusNotifierItem"), QStringLiteral("ToolTip"));
    if (!value.canConvert<QDBusArgument>())
        return {};
    const QDBusArgument arg = value.value<QDBusArgument>();
    QString icon, title, text;
    arg.beginStructure();
    arg >> icon;
    arg.beginArray();
    while (!arg.atEnd()) {
        int w = 0, h = 0;
        QByteArray pixels;
        arg.beginStructure();
        arg >> w >> h >> pixels;
        arg.endStructure();
    }
    arg.endArray();
    arg >> title >> text;
    arg.endStructure();
    return title + text;
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
        auto *login = delegate.window()->logInView();
        login->usernameField()->setText(QStringLiteral("demo"));
        login->passwordField()->setText(QStringLiteral("demo123"));
    }
    bool waitForIcon(TrayState::Icon icon)
    {
        return waitFor([&] { return !icons.empty() && icons.back() == icon; });
    }
};

using TrayOnBus = Fixture;

// The item reaches the host on the bus; the menu's connect and disconnect reach the controller,
// and the icon (also as the host reads it) follows the states 3, 2, 5. Closing the window
// while online keeps the program in the tray.
TEST_F(TrayOnBus, IconFollowsTheLinkAndTheMenuDials)
{
    ASSERT_TRUE(TrayIcon::available());
    Launched app;
    const QString watcher = QStringLiteral("org.kde.StatusNotifierWatcher");
    QStringList items;
    ASSERT_TRUE(waitFor([&] {
        items = busProperty(watcher, QStringLiteral("/StatusNotifierWatcher"), watcher,
                            QStringLiteral("RegisteredStatusNotifierItems"))
                    .toStringList();
        return !items.isEmpty();
    }));
    EXPECT_TRUE(toolTipOnBus(items.first()).contains(QStringLiteral("未连接")));

    QAction *connectAction = app.delegate.tray()->connectAction();
    EXPECT_EQ(connectAction->text(), QStringLiteral("连接"));
    connectAction->trigger();
    ASSERT_TRUE(app.waitForIcon(TrayState::Icon::Online));
    EXPECT_EQ(app.icons.front(), TrayState::Icon::Connecting);
    EXPECT_TRUE(waitFor([&] { return toolTipOnBus(items.first()).contains(QStringLiteral("已连接")); }));
    EXPECT_EQ(connectAction->text(), QStringLiteral("断开连接"));

    app.delegate.window()->close();
    waitFor([] { return false; }, 200);
    EXPECT_FALSE(app.delegate.window()->isVisible());
    EXPECT_EQ(app.icons.back(), TrayState::Icon::Online); // still connected, still running

    connectAction->trigger();
    ASSERT_TRUE(app.waitForIcon(TrayState::Icon::Offline));
    EXPECT_TRUE(waitFor([&] { return toolTipOnBus(items.first()).contains(QStringLiteral("未连接")); }));
    EXPECT_EQ(connectAction->text(), QStringLiteral("连接"));
}

using TrayAbsent = Fixture;

// Without a tray host, closing the window while online hangs up and quits as it always did.
TEST_F(TrayAbsent, ClosingQuits)
{
    ASSERT_FALSE(TrayIcon::available());
    Launched app;
    app.delegate.tray()->connectAction()->trigger();
    ASSERT_TRUE(app.waitForIcon(TrayState::Icon::Online));

    QEventLoop loop; // QCoreApplication::exit ends every running loop
    QTimer::singleShot(10000, &loop, [&loop] { loop.exit(99); });
    QTimer::singleShot(0, &loop, [&app] { app.delegate.window()->close(); });
    EXPECT_EQ(loop.exec(), 0);
    EXPECT_EQ(app.icons.back(), TrayState::Icon::Offline); // hung up before quitting
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
    const auto shoot = [&](const QString &name) {
        const QPoint at = icon->geometry().center();
        QProcess::execute(QStringLiteral("xdotool"),
                          {QStringLiteral("mousemove"), QString::number(at.x()), QString::number(at.y()),
                           QStringLiteral("click"), QStringLiteral("3")});
        ASSERT_TRUE(waitFor([&] { return app.delegate.tray()->menu()->isVisible(); }));
        waitFor([] { return false; }, 300); // let the menu paint
        EXPECT_EQ(QProcess::execute(QStringLiteral("import"),
                                    {QStringLiteral("-window"), QStringLiteral("root"), QStringLiteral("-crop"),
                                     QStringLiteral("420x260+860+0"), dir + u'/' + name}),
                  0);
        app.delegate.tray()->menu()->hide();
    };
    shoot(QStringLiteral("tray-offline.png"));
    app.delegate.tray()->connectAction()->trigger();
    ASSERT_TRUE(app.waitForIcon(TrayState::Icon::Online));
    shoot(QStringLiteral("tray-online.png"));
}

} // namespace
