#include "wifiViewController.h"

#include "App/DVAppHost.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

wifiViewController::wifiViewController(DVAppHost *host, QWidget *parent)
    : QWidget(parent)
    , _host(host)
{
    setObjectName(QStringLiteral("wifi"));
    auto *layout = new QVBoxLayout(this);
    auto *bar = new QHBoxLayout;
    timeLab = new QLabel(clockText(0), this);
    disconnBtn = new QPushButton(QStringLiteral("断开连接"), this);
    bar->addWidget(timeLab);
    bar->addStretch();
    bar->addWidget(disconnBtn);
    layout->addLayout(bar);
    auto *online = new QLabel(QStringLiteral("已连接到互联网"), this);
    online->setAlignment(Qt::AlignCenter);
    online->setStyleSheet(QStringLiteral("font-size: 28px; color: #2a7d2e;"));
    layout->addWidget(online, 1);
    timer = new QTimer(this);
    timer->setInterval(1000);
    connect(timer, &QTimer::timeout, this, [this] {
        ++currentTime;
        upData();
    });
    connect(disconnBtn, &QPushButton::clicked, this, [this] {
        disconnBtn->setEnabled(false);
        _host->stopConn([self = QPointer<wifiViewController>(this)](bool) {
            if (self)
                self->disconnBtn->setEnabled(true);
        });
    });
}

QString wifiViewController::clockText(qint32 seconds)
{
    const qint32 hours = seconds / 3600;
    const qint32 minutes = seconds / 60 - hours * 60;
    const qint32 rest = seconds % 60; // the remainder of the total, as the clock shows it
    return QStringLiteral("上网时长  %1:%2:%3")
        .arg(hours, 2, 10, QLatin1Char('0'))
        .arg(minutes, 2, 10, QLatin1Char('0'))
        .arg(rest, 2, 10, QLatin1Char('0'));
}

void wifiViewController::upData()
{
    timeLab->setText(clockText(currentTime));
}

void wifiViewController::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    _host->getConnTime([self = QPointer<wifiViewController>(this)](qint32 seconds) {
        if (!self)
            return;
        self->currentTime = seconds;
        self->upData();
        self->timer->start();
    });
}

void wifiViewController::hideEvent(QHideEvent *event)
{
    timer->stop();
    QWidget::hideEvent(event);
}
