#pragma once

#include <QWidget>

class QLineEdit;

// The area selection. After a successful commit the area is stored and committed() is emitted.
class areaConfViewController : public QWidget
{
    Q_OBJECT
public:
    explicit areaConfViewController(QWidget *parent = nullptr);

Q_SIGNALS:
    void committed(const QString &areaCode);

private:
    QLineEdit *_code = nullptr;
};
