#pragma once

#include "SMSVerifyPresenter.h"

#include <QDialog>

#include <memory>

class QLabel;
class QLineEdit;
class QPushButton;

// The SMS-code dialog: the server's message, a field for the six-digit code (it has the
// keyboard focus; Return presses the button) and the button whose title counts down. Every
// way it goes away (the button with a valid code, the countdown, the window closed, Escape)
// sends the field's text back once.
class SMSVerifyViewController : public QDialog
{
    Q_OBJECT
public:
    // `ticks` null: a one-second timer.
    SMSVerifyViewController(quint64 timeoutSeconds, const QString &msg, QWidget *parent = nullptr,
                            std::unique_ptr<TickSource> ticks = nullptr);
    ~SMSVerifyViewController() override;

    QLabel *label() const { return _label; }
    QLineEdit *checkCodeField() const { return checkCodeFiled; }
    QPushButton *commitButton() const { return commitBtn; }
    SMSVerifyPresenter &presenter() { return *_presenter; }

    void done(int result) override;

protected:
    void showEvent(QShowEvent *event) override;

private:
    void onCommit();

    std::unique_ptr<SMSVerifyPresenter> _presenter;
    QLabel *_label = nullptr;
    QLineEdit *checkCodeFiled = nullptr;
    QPushButton *commitBtn = nullptr;
    bool _started = false;
};
