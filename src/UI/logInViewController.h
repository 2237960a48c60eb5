#pragma once

#include "DyPwdCountdown.h"
#include "netList.h"

#include "Util/DVError.h"
#include "Util/DVNotification.h"

#include <QPointer>
#include <QWidget>

#include <memory>
#include <vector>

class DVAppHost;
class Keychain;
class QCheckBox;
class QLabel;
class QLineEdit;
class QMovie;
class QProgressBar;
class QPushButton;
class QStackedWidget;
class QrCodeDial;

// The log-in view: account and password, the checks before a dial, the choice of interface,
// every dial error, remembered credentials and automatic log-in, the dynamic password and the
// QR-code log-in. All dialling goes through the controller's host, so the view keeps painting
// while the system works; the connect button shows that it is busy meanwhile.
class logInViewController : public QWidget
{
    Q_OBJECT
public:
    struct Options
    {
        // The dynamic-password countdown's tick; null means a one-second timer.
        std::unique_ptr<TickSource> countdownTicks;
        // Where remembered credentials live; null means the platform's keychain.
        std::shared_ptr<Keychain> keychain;
        // Whether this view may log in by itself (only the first log-in view of a run does).
        bool allowAutoLogin = true;
    };

    explicit logInViewController(DVAppHost *host, QWidget *parent = nullptr);
    logInViewController(DVAppHost *host, Options options, QWidget *parent = nullptr);
    ~logInViewController() override;

    // The connect button (after the checks).
    void connect_();
    void doConnectWithName(const QString &name, const QString &pwd);
    void tryAutoLogin();
    void saveUserInfo();
    void btnStateOff();
    void btnStateOn();

    // For the main window and tests.
    QLineEdit *usernameField() const { return usernameTF; }
    QLineEdit *passwordField() const { return passworldTF; }
    QPushButton *connectButton() const { return connBtn; }
    QPushButton *dynamicPasswordButton() const { return dyPwdBtn; }
    QCheckBox *rememberPasswordBox() const { return _remember; }
    QCheckBox *autoLogInBox() const { return _autoLogIn; }
    QPushButton *dialTypeSwitchButton() const { return DailTypeSwitchBtn; }
    QLabel *qrImageView() const { return qrView; }
    netList *interfaceChoice() const { return netTb; }
    // Shown busy: a request in flight or the link going up or down.
    bool isBusy() const;
    QString dialType() const;
    QString passwordType() const;

Q_SIGNALS:
    // The area button: the main window shows the area selection.
    void areaRequested();

private:
    void setUpView();
    void loadConf();
    void setUpQrCode();
    void onDialTypeBtnClick();
    void onDynamicPwdClick();
    void onNotificationOfQr(const DVNotificationMessage &message);
    void onNotificationOfDyPwd(const DVNotificationMessage &message);
    void onAutoLogInToggled(bool on);
    void onRememberPwdToggled(bool on);
    void dialIndex(const QString &name, const QString &pwd, quint64 index);
    void showInterfaceChoice(const QString &name, const QString &pwd, const std::vector<QVariantMap> &list);
    void showDialError(const DVError &error);
    void setAlert(const QString &button, const QString &message, const QString &info);
    void showPlaceholder();
    void updateBusy();

    DVAppHost *_host;
    Options _options;
    QLineEdit *usernameTF = nullptr;
    QLineEdit *passworldTF = nullptr;
    QPushButton *connBtn = nullptr;
    QProgressBar *loading = nullptr;
    QPushButton *webBnt = nullptr;
    QPushButton *pwdBtn = nullptr;
    QStackedWidget *pwdTypeTab = nullptr;        // "manual", "dynamic"
    QStackedWidget *dialTypeTab = nullptr;       // "pwd", "qrcode"
    QStackedWidget *dialTypeSwitchTab = nullptr; // "self-help", "qrcode-switch"
    QPushButton *DailTypeSwitchBtn = nullptr;
    QPushButton *dyPwdBtn = nullptr;
    QLabel *qrView = nullptr;
    QMovie *_placeholder = nullptr;
    QPushButton *areaConfBtn = nullptr;
    QCheckBox *_remember = nullptr;
    QCheckBox *_autoLogIn = nullptr;
    std::unique_ptr<QrCodeDial> qrCodeDial;
    std::unique_ptr<DyPwdCountdown> _countdown;
    QPointer<netList> netTb;
    std::vector<DVNotificationCenter::Token> _observers;
    bool _linkBusy = false; // between "connecting" and the next state
};
