#include "AppDelegate.h"

#include "LinkTools.h"
#include "MessageBox.h"
#include "TrayIcon.h"
#include "baseWindow.h"
#include "checkUpdateViewController.h"

#include "App/DVAppHost.h"
#include "Conf/UIConf.h"
#include "Util/Log.h"
#include "Util/UserDefaults.h"

#include <QApplication>
#include <QCheckBox>
#include <QMenuBar>
#include <QScreen>
#include <QTimer>

AppDelegate::AppDelegate(DVAppHost *host, QObject *parent)
    : QObject(parent)
    , _host(host)
{}

AppDelegate::~AppDelegate() = default;

void AppDelegate::applicationDidFinishLaunching()
{
    UserDefaults::saveConf(false, QStringLiteral("isconnected"));
    _window = std::make_unique<baseWindow>(_host);
    buildMenu();
    setUpTray();
    connect(_window.get(), &baseWindow::closeRequested, this, &AppDelegate::onCloseRequested);
    _window->showFirstView();
    if (const QScreen *screen = _window->screen()) {
        const QRect area = screen->availableGeometry();
        _window->move(area.center() - QPoint(_window->width() / 2, _window->height() / 2));
    }
    if (_startHidden)
        return;
    _window->show();
    _window->raise();
    _window->activateWindow();
}

bool AppDelegate::applicationShouldHandleReopen()
{
    if (_window && !_window->isVisible()) {
        _window->show();
        _window->raise();
        _window->activateWindow();
    }
    return true;
}

void AppDelegate::buildMenu()
{
    QMenu *menu = _window->menuBar()->addMenu(QStringLiteral("dorvik"));
    menu->addAction(QStringLiteral("检查更新"), this, &AppDelegate::checkUpdate);
    menu->addAction(QStringLiteral("重置网卡"), this, &AppDelegate::onRestDefaultInterfaceBtnClick);
    addAutostartItem(menu);
    LinkTools::install(menu, _host, _window.get());
    menu->addSeparator();
    QAction *quit = menu->addAction(QStringLiteral("退出"), this, [this] { terminate(); });
    quit->setShortcut(QKeySequence::Quit);
}

void AppDelegate::checkUpdate()
{
    if (!UserDefaults::getConf(QStringLiteral("isconnected"))) {
        setAlert(QStringLiteral("确定"), QStringLiteral("提示"), QStringLiteral("请连接后再尝试更新"));
        return;
    }
    // Created once and kept: a later opening starts a new check in the same dialog.
    if (!checkUpdateVC)
        checkUpdateVC =
            _makeUpdateDialog ? _makeUpdateDialog(_window.get()) : new checkUpdateViewController(_window.get());
    checkUpdateVC->setWindowTitle(QStringLiteral("检查更新"));
    checkUpdateVC->open();
}

void AppDelegate::onRestDefaultInterfaceBtnClick()
{
    // Forgets the remembered interface (which also clears it) and, as it depends on that,
    // automatic log-in. The remembered password stays.
    UIConf::shared().setRememberInterface(false);
    UIConf::shared().setAutoLogin(false);
    if (auto *login = _window ? _window->logInView() : nullptr)
        login->autoLogInBox()->setChecked(false);
}

void AppDelegate::setAlert(const QString &button, const QString &message, const QString &info)
{
    MessageBox::show(_window.get(), {MessageBox::Style::Informational, message, message, info, {button}});
}

void AppDelegate::terminate(int graceMs)
{
    if (_terminating)
        return;
    _terminating = true;
    // Quit once the link reports its end, or when there was nothing to hang up, or after the
    // grace time whatever happens.
    connect(_host, &DVAppHost::dialStateChanged, qApp, [](qint64 state) {
        if (state == 5)
            QCoreApplication::exit(0);
    });
    _host->stopConn([](bool hangingUp) {
        if (!hangingUp)
            QCoreApplication::exit(0);
    });
    QTimer::singleShot(graceMs, qApp, [] { QCoreApplication::exit(0); });
}
