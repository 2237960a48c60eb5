// The application delegate's life on the desktop: the tray icon, closing into the tray, and
// the "start at log-in" menu item.

#include "AppDelegate.h"
#include "MessageBox.h"
#include "TrayIcon.h"
#include "baseWindow.h"

#include "App/DVAppHost.h"
#include "Conf/UIConf.h"
#include "Desktop/Autostart.h"
#include "Util/Log.h"

#include <QAction>
#include <QCheckBox>
#include <QCoreApplication>
#include <QLineEdit>
#include <QMenu>

void AppDelegate::setUpTray()
{
    _tray = std::make_unique<TrayIcon>();
    connect(_host, &DVAppHost::dialStateChanged, _tray.get(), &TrayIcon::onDialState);
    connect(_tray.get(), &TrayIcon::showWindowRequested, this, [this] { applicationShouldHandleReopen(); });
    connect(_tray.get(), &TrayIcon::connectRequested, this, &AppDelegate::connectFromTray);
    connect(_tray.get(), &TrayIcon::disconnectRequested, this, [this] { _host->stopConn(); });
    connect(_tray.get(), &TrayIcon::quitRequested, this, [this] { terminate(); });
}

void AppDelegate::onCloseRequested()
{
    if (_tray && _tray->state().onWindowClose(TrayIcon::available()) == TrayState::CloseAction::HideToTray) {
        DVLOG() << "window closed while online: staying in the tray";
        _window->hide();
        _tray->notifyHidden();
        return;
    }
    terminate();
}

void AppDelegate::connectFromTray()
{
    // Dialling needs the account and password the log-in view holds (typed or remembered);
    // without them, or on another view, the window asks the user.
    logInViewController *login = _window ? _window->logInView() : nullptr;
    if (!login || login->usernameField()->text().isEmpty() || login->passwordField()->text().isEmpty()
        || login->isBusy()) {
        applicationShouldHandleReopen();
        return;
    }
    login->connect_();
}

void AppDelegate::addAutostartItem(QMenu *menu)
{
    _autostartAction = menu->addAction(QStringLiteral("开机自动登录"));
    _autostartAction->setCheckable(true);
    _autostartAction->setChecked(Autostart::isEnabled());
    connect(_autostartAction, &QAction::toggled, this, &AppDelegate::setAutostart);
}

void AppDelegate::setAutostart(bool on)
{
    DVError error;
    const bool done =
        on ? Autostart::enable(QCoreApplication::applicationFilePath(), &error) : Autostart::disable(&error);
    if (!done) {
        const QSignalBlocker blocker(_autostartAction);
        _autostartAction->setChecked(Autostart::isEnabled());
        setAlert(QStringLiteral("确定"), QStringLiteral("错误"), error.localizedDescription);
        return;
    }
    if (!on)
        return;
    // Logging in at session start is the automatic log-in: switch it on the way the log-in
    // view's box does (it also remembers the password and the interface).
    if (auto *login = _window ? _window->logInView() : nullptr) {
        login->autoLogInBox()->setChecked(true);
    } else {
        UIConf::shared().setAutoLogin(true);
        UIConf::shared().setRememberPWd(true);
        UIConf::shared().setRememberInterface(true);
    }
}
