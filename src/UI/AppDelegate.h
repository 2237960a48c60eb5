#pragma once

#include <QObject>

#include <functional>
#include <memory>

class DVAppHost;
class QAction;
class QMenu;
class QWidget;
class TrayIcon;
class baseWindow;
class checkUpdateViewController;

// The application's start and end: creates the main window once logging is in place, offers
// the menu commands (check for updates, forget the remembered interface, quit) and hangs up
// before the process ends.
class AppDelegate : public QObject
{
    Q_OBJECT
public:
    explicit AppDelegate(DVAppHost *host, QObject *parent = nullptr);
    ~AppDelegate() override;

    // Resets "isconnected", creates the main window, centres it and brings it to the front.
    void applicationDidFinishLaunching();
    // The user asks for the application again: show the window if it is not visible.
    bool applicationShouldHandleReopen();
    // Hangs up (when a link may be up) and quits; quits anyway after `graceMs`.
    void terminate(int graceMs = 3000);

    void checkUpdate();
    void onRestDefaultInterfaceBtnClick();
    void setAlert(const QString &button, const QString &message, const QString &info);

    // Builds the update dialog on its first use (tests give one with a prepared presenter).
    void setUpdateDialogFactory(std::function<checkUpdateViewController *(QWidget *mainWindow)> factory)
    {
        _makeUpdateDialog = std::move(factory);
    }
    checkUpdateViewController *updateDialog() const { return checkUpdateVC; }

    baseWindow *window() const { return _window.get(); }

    // --- desktop integration (AppDelegateDesktop.cpp) ---
    // Started by the session's autostart entry: keep the window hidden; the tray and the
    // remembered automatic log-in carry on.
    void setStartHidden(bool hidden) { _startHidden = hidden; }
    TrayIcon *tray() const { return _tray.get(); }
    QAction *autostartAction() const { return _autostartAction; }
    // The main window was closed: into the tray while online with a tray, else hang up and quit.
    void onCloseRequested();
    // The tray's "连接": dial with what the log-in view holds, or show the window to ask.
    void connectFromTray();
    // The menu's "开机自动登录".
    void setAutostart(bool on);

private:
    void buildMenu();
    void setUpTray();
    void addAutostartItem(QMenu *menu);

    DVAppHost *_host;
    std::unique_ptr<baseWindow> _window;
    bool _terminating = false;
    std::function<checkUpdateViewController *(QWidget *)> _makeUpdateDialog;
    checkUpdateViewController *checkUpdateVC = nullptr; // owned by the main window
    bool _startHidden = false;
    std::unique_ptr<TrayIcon> _tray;
    QAction *_autostartAction = nullptr;
};
