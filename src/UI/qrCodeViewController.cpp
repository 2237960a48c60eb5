#include "qrCodeViewController.h"

#include "Util/Log.h"

#include <QFileInfo>
#include <QLabel>
#include <QPixmap>
#include <QVBoxLayout>

qrCodeViewController::qrCodeViewController(QWidget *parent)
    : QDialog(parent)
{
    setObjectName(QStringLiteral("qrCodeViewController"));
    setAutoFillBackground(true);
    QPalette white = palette();
    white.setColor(QPalette::Window, Qt::white);
    setPalette(white);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 16, 16, 16);
    qrImg = new QLabel(this);
    qrImg->setAlignment(Qt::AlignCenter);
    qrImg->setMinimumSize(240, 240);
    layout->addWidget(qrImg);
}

void qrCodeViewController::setQrImgName(const QString &name)
{
    _qrImgName = name;
    QPixmap picture;
    if (!name.isEmpty()) {
        const QString resource = QStringLiteral(":/dorvik/") + name;
        picture.load(QFileInfo::exists(resource) ? resource : name);
    }
    if (picture.isNull()) {
        DVLOG() << "qr picture not found: " << name;
        qrImg->setText(QStringLiteral("图片缺失"));
        return;
    }
    qrImg->setPixmap(picture.scaled(280, 280, Qt::KeepAspectRatio, Qt::SmoothTransformation));
}
