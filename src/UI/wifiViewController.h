#pragma once

#include <QWidget>

class DVAppHost;
class QLabel;
class QPushButton;
class QTimer;

// The view shown while online: the time spent online and the disconnect button.
class wifiViewController : public QWidget
{
    Q_OBJECT
public:
    explicit wifiViewController(DVAppHost *host, QWidget *parent = nullptr);

    // "上网时长  HH:MM:SS"; hours are not wrapped.
    static QString clockText(qint32 seconds);

    QPushButton *disconnButton() const { return disconnBtn; }
    QLabel *clockLabel() const { return timeLab; }

protected:
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    void upData();

    DVAppHost *_host;
    QLabel *timeLab = nullptr;
    QPushButton *disconnBtn = nullptr;
    QTimer *timer = nullptr;
    qint32 currentTime = 0;
};
