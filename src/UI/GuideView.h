#pragma once

#include <QPixmap>
#include <QWidget>

// The first-run guide: a picture covering the whole online view that points at its parts.
// It takes the keyboard focus, and a click anywhere on it or any key dismisses it for good
// (it is shown once per user: the preference "time" remembers that it was seen).
class GuideView : public QWidget
{
    Q_OBJECT
public:
    explicit GuideView(QWidget *parent);

    void dismiss();

Q_SIGNALS:
    void dismissed();

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QPixmap _image;
    bool _dismissed = false;
};
