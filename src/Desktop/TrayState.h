#pragma once

#include <QString>
#include <QtGlobal>

// What the tray shows and what closing the window does, kept apart from the widgets so that it
// can be checked without a display.
//
// The icon follows the dial-status values: 5 offline, 3 connecting (also while hanging up),
// 2 online; 0 (unknown) leaves the icon as it was.
class TrayState
{
public:
    enum class Icon { Offline, Connecting, Online };
    enum class CloseAction { HangUpAndQuit, HideToTray };

    // Takes a dial state; true when the icon changed.
    bool onDialState(qint64 dialState);

    Icon icon() const { return _icon; }
    bool online() const { return _icon == Icon::Online; }

    // The user closed the main window. While online and with a tray to come back through, the
    // program stays in the tray; otherwise it hangs up and quits as it always did.
    CloseAction onWindowClose(bool trayAvailable);
    // True once: after the first hide into the tray, the user is told where the program went.
    bool takeHiddenNotice();

    // The connect/disconnect entry of the tray menu: disconnect while a link is up or coming up.
    bool offersDisconnect() const { return _icon != Icon::Offline; }
    QString connectActionText() const;
    QString toolTip() const;
    // Resource path of the icon for the current state.
    QString iconPath() const;

private:
    Icon _icon = Icon::Offline;
    bool _noticeDue = false;
    bool _noticeGiven = false;
};
