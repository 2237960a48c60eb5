#include "areaConfViewController.h"

#include "MessageBox.h"

#include "Conf/UIConf.h"
#include "Util/UserDefaults.h"

#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

areaConfViewController::areaConfViewController(QWidget *parent)
    : QWidget(parent)
{
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel(QStringLiteral("选择所在地区"), this));
    _code = new QLineEdit(UIConf::shared().getArea(), this);
    layout->addWidget(_code);
    auto *commit = new QPushButton(QStringLiteral("确定"), this);
    layout->addWidget(commit);
    layout->addStretch();
    connect(commit, &QPushButton::clicked, this, [this] {
        const QString code = _code->text().trimmed();
        if (code.isEmpty()) {
            MessageBox::information(this, QStringLiteral("提示"), QStringLiteral("提示"),
                                    QStringLiteral("至少需要选择所在的省"));
            return;
        }
        UIConf::shared().setArea(code);
        UserDefaults::saveValue(code, QStringLiteral("areacode"));
        Q_EMIT committed(code);
    });
}
