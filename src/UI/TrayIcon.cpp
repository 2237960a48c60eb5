#include "TrayIcon.h"

#include <QIcon>
#include <QMenu>
#include <QSystemTrayIcon>

TrayIcon::TrayIcon(QObject *parent)
    : QObject(parent)
    , _menu(std::make_unique<QMenu>())
    , _icon(std::make_unique<QSystemTrayIcon>())
{
    _menu->addAction(QStringLiteral("显示窗口"), this, &TrayIcon::showWindowRequested);
    _connect = _menu->addAction(QString(), this, [this] {
        if (_state.offersDisconnect())
            Q_EMIT disconnectRequested();
        else
            Q_EMIT connectRequested();
    });
    _menu->addSeparator();
    _menu->addAction(QStringLiteral("退出"), this, &TrayIcon::quitRequested);
    _icon->setContextMenu(_menu.get());
    // A click on the icon itself brings the window, as desktops usually do.
    connect(_icon.get(), &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::DoubleClick)
            Q_EMIT showWindowRequested();
    });
    refresh();
    _icon->show();
}

TrayIcon::~TrayIcon() = default;

bool TrayIcon::available()
{
    return QSystemTrayIcon::isSystemTrayAvailable();
}

void TrayIcon::onDialState(qint64 dialState)
{
    if (_state.onDialState(dialState))
        refresh();
}

void TrayIcon::notifyHidden()
{
    if (_state.takeHiddenNotice())
        _icon->showMessage(QStringLiteral("dorvik"),
                           QStringLiteral("dorvik 仍在运行并保持连接，可从托盘图标打开窗口或断开连接。"),
                           QSystemTrayIcon::Information);
}

void TrayIcon::refresh()
{
    _icon->setIcon(QIcon(_state.iconPath()));
    _icon->setToolTip(_state.toolTip());
    _connect->setText(_state.connectActionText());
}
