#pragma once

#include <QObject>

#include <functional>
#include <memory>

class DVAppHost;
class QWidget;
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

private:
    void buildMenu();

    DVAppHost *_host;
    std::unique_ptr<baseWindow> _window;
    bool _terminating = false;
    std::function<checkUpdateViewController *(QWidget *)> _makeUpdateDialog;
    checkUpdateViewController *checkUpdateVC = nullptr; // owned by the main window
};
