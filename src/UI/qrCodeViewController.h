#pragma once

#include <QDialog>

class QLabel;

// A fixed picture in a small window of its own: the provider's messaging-app account code.
class qrCodeViewController : public QDialog
{
    Q_OBJECT
public:
    explicit qrCodeViewController(QWidget *parent = nullptr);

    // The picture's name: a resource of the program (":/dorvik/<name>") or a file path.
    void setQrImgName(const QString &name);
    const QString &qrImgName() const { return _qrImgName; }
    QLabel *imageView() const { return qrImg; }

private:
    QString _qrImgName;
    QLabel *qrImg = nullptr;
};
