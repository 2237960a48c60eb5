#include "SMSVerifyViewController.h"

#include "MessageBox.h"

#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

SMSVerifyViewController::SMSVerifyViewController(quint64 timeoutSeconds, const QString &msg, QWidget *parent,
                                                 std::unique_ptr<TickSource> ticks)
    : QDialog(parent)
    , _presenter(std::make_unique<SMSVerifyPresenter>(timeoutSeconds, msg,
                                                      ticks ? std::move(ticks) : std::make_unique<TimerTickSource>()))
{
    setObjectName(QStringLiteral("SMSVerifyViewController"));
    setWindowTitle(QStringLiteral("短信验证"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(24, 20, 24, 20);
    layout->setSpacing(14);
    _label = new QLabel(_presenter->labelText(), this);
    _label->setWordWrap(true);
    _label->setMinimumWidth(280);
    checkCodeFiled = new QLineEdit(this);
    checkCodeFiled->setObjectName(QStringLiteral("checkCodeFiled"));
    checkCodeFiled->setPlaceholderText(QStringLiteral("6位数字验证码"));
    checkCodeFiled->setMaxLength(32);
    commitBtn = new QPushButton(this);
    commitBtn->setObjectName(QStringLiteral("commitBtn"));
    commitBtn->setDefault(true);
    layout->addWidget(_label);
    layout->addWidget(checkCodeFiled);
    layout->addWidget(commitBtn);
    connect(commitBtn, &QPushButton::clicked, this, &SMSVerifyViewController::onCommit);
    setFocusProxy(checkCodeFiled);
}

SMSVerifyViewController::~SMSVerifyViewController()
{
    // Destroyed without being closed (its parent went): the verification still gets its answer.
    _presenter->finish(checkCodeFiled->text());
}

void SMSVerifyViewController::showEvent(QShowEvent *event)
{
    QDialog::showEvent(event);
    checkCodeFiled->setFocus();
    if (_started)
        return;
    _started = true;
    _presenter->start({[this](const QString &title) { commitBtn->setText(title); }, [this] { reject(); }});
}

void SMSVerifyViewController::onCommit()
{
    if (!SMSVerifyPresenter::isValidCode(checkCodeFiled->text())) {
        MessageBox::information(this, QStringLiteral("非法的验证码"), QStringLiteral("非法的验证码"),
                                QStringLiteral("验证码应该为6位数字"));
        checkCodeFiled->setFocus();
        return;
    }
    accept();
}

void SMSVerifyViewController::done(int result)
{
    _presenter->finish(checkCodeFiled->text());
    QDialog::done(result);
}
