#include "GuideView.h"

#include <QEvent>
#include <QPainter>

GuideView::GuideView(QWidget *parent)
    : QWidget(parent)
    , _image(QStringLiteral(":/dorvik/guide_back1.png"))
{
    setObjectName(QStringLiteral("guide"));
    setFocusPolicy(Qt::StrongFocus);
    setCursor(Qt::PointingHandCursor);
    // Follows the view's size.
    parent->installEventFilter(this);
    setGeometry(parent->rect());
    raise();
}

void GuideView::dismiss()
{
    if (_dismissed)
        return;
    _dismissed = true;
    hide();
    Q_EMIT dismissed();
    deleteLater();
}

void GuideView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawPixmap(rect(), _image);
}

void GuideView::mousePressEvent(QMouseEvent *)
{
    dismiss();
}

void GuideView::keyPressEvent(QKeyEvent *)
{
    dismiss();
}

bool GuideView::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == parent() && event->type() == QEvent::Resize)
        setGeometry(parentWidget()->rect());
    return QWidget::eventFilter(watched, event);
}
