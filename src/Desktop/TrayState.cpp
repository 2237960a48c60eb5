#include "TrayState.h"

bool TrayState::onDialState(qint64 dialState)
{
    Icon next = _icon;
    switch (dialState) {
    case 5:
        next = Icon::Offline;
        break;
    case 3:
        next = Icon::Connecting;
        break;
    case 2:
        next = Icon::Online;
        break;
    default:
        break; // 0 and anything unexpected: nothing new is known
    }
    const bool changed = next != _icon;
    _icon = next;
    return changed;
}

TrayState::CloseAction TrayState::onWindowClose(bool trayAvailable)
{
    if (!trayAvailable || !online())
        return CloseAction::HangUpAndQuit;
    if (!_noticeGiven)
        _noticeDue = true;
    return CloseAction::HideToTray;
}

bool TrayState::takeHiddenNotice()
{
    if (!_noticeDue)
        return false;
    _noticeDue = false;
    _noticeGiven = true;
    return true;
}

QString TrayState::connectActionText() const
{
    return offersDisconnect() ? QStringLiteral("断开连接") : QStringLiteral("连接");
}

QString TrayState::toolTip() const
{
    switch (_icon) {
    case Icon::Online:
        return QStringLiteral("dorvik：已连接");
    case Icon::Connecting:
        return QStringLiteral("dorvik：正在连接");
    case Icon::Offline:
        break;
    }
    return QStringLiteral("dorvik：未连接");
}

QString TrayState::iconPath() const
{
    switch (_icon) {
    case Icon::Online:
        return QStringLiteral(":/tray/online.png");
    case Icon::Connecting:
        return QStringLiteral(":/tray/connecting.png");
    case Icon::Offline:
        break;
    }
    return QStringLiteral(":/tray/offline.png");
}
