#pragma once

#include "Desktop/TrayState.h"

#include <QObject>

#include <memory>

class QAction;
class QMenu;
class QSystemTrayIcon;

// The program's tray icon: the link's state (offline, connecting, online) and a menu to show the
// window, connect or disconnect, and quit. Qt's system tray talks to StatusNotifier hosts on
// the session bus as well as to XEmbed trays. What it shows comes from TrayState.
class TrayIcon : public QObject
{
    Q_OBJECT
public:
    explicit TrayIcon(QObject *parent = nullptr);
    ~TrayIcon() override;

    // A tray host is there to show the icon (asked each time: a panel may come or go).
    static bool available();

    void onDialState(qint64 dialState);
    // Shows "dorvik is still running" the first time the window is hidden into the tray.
    void notifyHidden();

    TrayState &state() { return _state; }
    QSystemTrayIcon *icon() const { return _icon.get(); }
    QMenu *menu() const { return _menu.get(); }
    QAction *connectAction() const { return _connect; }

Q_SIGNALS:
    void showWindowRequested();
    void connectRequested();
    void disconnectRequested();
    void quitRequested();

private:
    void refresh();

    TrayState _state;
    std::unique_ptr<QMenu> _menu;
    std::unique_ptr<QSystemTrayIcon> _icon;
    QAction *_connect = nullptr;
};
