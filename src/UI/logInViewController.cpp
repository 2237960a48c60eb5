#include "logInViewController.h"

#include "MessageBox.h"
#include "netList.h"

#include "App/DVAppHost.h"
#include "App/LoginInput.h"
#include "Business/DynamicPassword.h"
#include "Business/QrCode/QrCodeDial.h"
#include "Business/QrCode/QrCodeGenerator.h"
#include "Conf/UIConf.h"
#include "Util/Log.h"
#include "Util/UserDefaults.h"
#include "Util/userSecurityInfo.h"

#include <QCheckBox>
#include <QDesktopServices>
#include <QHBoxLayout>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QMovie>
#include <QPixmap>
#include <QProgressBar>
#include <QPushButton>
#include <QStackedWidget>
#include <QUrl>
#include <QVBoxLayout>

// The view's images are compiled into the library; a static library must register them.
static void initUiResources()
{
    Q_INIT_RESOURCE(dorvik_ui);
}

namespace {
const QString Manual = QStringLiteral("manual");
const QString Dynamic = QStringLiteral("dynamic");
const QString Pwd = QStringLiteral("pwd");
const QString QrCode = QStringLiteral("qrcode");
const QString SelfHelp = QStringLiteral("self-help");
const QString QrCodeSwitch = QStringLiteral("qrcode-switch");

// Tab views are stacks whose pages carry their identifier as object name.
QWidget *addTab(QStackedWidget *tabs, const QString &identifier)
{
    auto *page = new QWidget(tabs);
    page->setObjectName(identifier);
    tabs->addWidget(page);
    return page;
}

bool selectTab(QStackedWidget *tabs, const QString &identifier)
{
    for (int i = 0; i < tabs->count(); ++i) {
        if (tabs->widget(i)->objectName() == identifier) {
            tabs->setCurrentIndex(i);
            return true;
        }
    }
    return false;
}

QString selectedTab(const QStackedWidget *tabs)
{
    return tabs->currentWidget() ? tabs->currentWidget()->objectName() : QString();
}
} // namespace

logInViewController::logInViewController(DVAppHost *host, QWidget *parent)
    : logInViewController(host, Options{}, parent)
{}

logInViewController::logInViewController(DVAppHost *host, Options options, QWidget *parent)
    : QWidget(parent)
    , _host(host)
    , _options(std::move(options))
{
    setObjectName(QStringLiteral("login"));
    initUiResources();
    if (!_options.countdownTicks)
        _options.countdownTicks = std::make_unique<TimerTickSource>();
    _countdown = std::make_unique<DyPwdCountdown>(std::move(_options.countdownTicks),
                                                  [this](const QString &title, bool enabled) {
                                                      dyPwdBtn->setText(title);
                                                      dyPwdBtn->setEnabled(enabled);
                                                  });
    setUpView();
    connect(_host, &DVAppHost::busyChanged, this, &logInViewController::updateBusy);
    loadConf();
    updateBusy();
    if (_options.allowAutoLogin)
        tryAutoLogin();
}

logInViewController::~logInViewController()
{
    for (const auto token : _observers)
        DVNotificationCenter::defaultCenter().removeObserver(token);
}

void logInViewController::setUpView()
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(24, 12, 24, 16);

    auto *top = new QHBoxLayout;
    auto *logo = new QLabel(UIConf::shared().getAppName().value_or(QStringLiteral("dorvik")), this);
    logo->setStyleSheet(QStringLiteral("font-size: 20px; font-weight: bold;"));
    areaConfBtn = new QPushButton(QStringLiteral("地区"), this);
    areaConfBtn->setFlat(true);
    areaConfBtn->setFocusPolicy(Qt::NoFocus);
    top->addWidget(logo);
    top->addStretch();
    top->addWidget(areaConfBtn);
    layout->addLayout(top);

    dialTypeTab = new QStackedWidget(this);
    QWidget *pwdPage = addTab(dialTypeTab, Pwd);
    QWidget *qrPage = addTab(dialTypeTab, QrCode);
    layout->addWidget(dialTypeTab, 1);

    auto *form = new QVBoxLayout(pwdPage);
    form->setContentsMargins(0, 8, 0, 0);
    usernameTF = new QLineEdit(pwdPage);
    usernameTF->setPlaceholderText(QStringLiteral("账号"));
    passworldTF = new QLineEdit(pwdPage);
    passworldTF->setPlaceholderText(QStringLiteral("密码"));
    passworldTF->setEchoMode(QLineEdit::Password);
    form->addWidget(usernameTF);
    pwdTypeTab = new QStackedWidget(pwdPage);
    addTab(pwdTypeTab, Manual);
    QWidget *dynamicPage = addTab(pwdTypeTab, Dynamic);
    auto *dynamicRow = new QHBoxLayout(dynamicPage);
    dynamicRow->setContentsMargins(0, 0, 0, 0);
    dyPwdBtn = new QPushButton(DyPwdCountdown::idleTitle(), dynamicPage);
    dyPwdBtn->setFocusPolicy(Qt::NoFocus);
    dynamicRow->addStretch();
    dynamicRow->addWidget(dyPwdBtn);
    pwdTypeTab->setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Maximum);
    form->addWidget(passworldTF);
    form->addWidget(pwdTypeTab);
    auto *boxes = new QHBoxLayout;
    _remember = new QCheckBox(QStringLiteral("记住密码"), pwdPage);
    _autoLogIn = new QCheckBox(QStringLiteral("自动登录"), pwdPage);
    _remember->setFocusPolicy(Qt::NoFocus);
    _autoLogIn->setFocusPolicy(Qt::NoFocus);
    boxes->addWidget(_remember);
    boxes->addWidget(_autoLogIn);
    form->addLayout(boxes);
    connBtn = new QPushButton(QStringLiteral("登录"), pwdPage);
    connBtn->setMinimumHeight(34);
    connBtn->setFocusPolicy(Qt::NoFocus);
    form->addWidget(connBtn);
    loading = new QProgressBar(pwdPage);
    loading->setRange(0, 0); // busy: no end known
    loading->setTextVisible(false);
    loading->setMaximumHeight(6);
    loading->setVisible(false);
    form->addWidget(loading);
    form->addStretch();

    auto *qrLayout = new QVBoxLayout(qrPage);
    qrView = new QLabel(qrPage);
    qrView->setAlignment(Qt::AlignCenter);
    qrView->setFixedSize(180, 180);
    qrLayout->addWidget(qrView, 0, Qt::AlignHCenter);
    auto *scanHint = new QLabel(QStringLiteral("请使用手机扫码登录"), qrPage);
    scanHint->setAlignment(Qt::AlignCenter);
    qrLayout->addWidget(scanHint);
    qrLayout->addStretch();
    _placeholder = new QMovie(QStringLiteral(":/dorvik/anim_trans.gif"), QByteArray(), this);

    dialTypeSwitchTab = new QStackedWidget(this);
    addTab(dialTypeSwitchTab, SelfHelp);
    QWidget *switchPage = addTab(dialTypeSwitchTab, QrCodeSwitch);
    auto *switchRow = new QHBoxLayout(switchPage);
    switchRow->setContentsMargins(0, 0, 0, 0);
    DailTypeSwitchBtn = new QPushButton(QStringLiteral("扫码登录"), switchPage);
    DailTypeSwitchBtn->setCheckable(true);
    DailTypeSwitchBtn->setFocusPolicy(Qt::NoFocus);
    switchRow->addWidget(DailTypeSwitchBtn);
    dialTypeSwitchTab->setMaximumHeight(40);
    layout->addWidget(dialTypeSwitchTab);

    auto *links = new QHBoxLayout; // the stack of the two links, sharing the width equally
    webBnt = new QPushButton(this);
    pwdBtn = new QPushButton(this);
    for (QPushButton *link : {webBnt, pwdBtn}) {
        link->setFlat(true);
        link->setFocusPolicy(Qt::NoFocus);
        link->setStyleSheet(QStringLiteral("color: #1a5fb4;"));
        links->addWidget(link, 1);
    }
    layout->addLayout(links);

    // Keyboard: the account first, Tab to the password, Return there connects.
    setTabOrder(usernameTF, passworldTF);
    usernameTF->setFocus();
    connect(usernameTF, &QLineEdit::returnPressed, passworldTF, qOverload<>(&QWidget::setFocus));
    connect(passworldTF, &QLineEdit::returnPressed, this, &logInViewController::connect_);
    connect(connBtn, &QPushButton::clicked, this, &logInViewController::connect_);
    connect(dyPwdBtn, &QPushButton::clicked, this, &logInViewController::onDynamicPwdClick);
    connect(DailTypeSwitchBtn, &QPushButton::clicked, this, &logInViewController::onDialTypeBtnClick);
    connect(areaConfBtn, &QPushButton::clicked, this, &logInViewController::areaRequested);
    connect(webBnt, &QPushButton::clicked, this,
            [] { QDesktopServices::openUrl(QUrl(UIConf::shared().getWebSiteHost().value_or(QString()))); });
    connect(pwdBtn, &QPushButton::clicked, this,
            [] { QDesktopServices::openUrl(QUrl(UIConf::shared().getPwdLinkHost().value_or(QString()))); });
    connect(_remember, &QCheckBox::toggled, this, &logInViewController::onRememberPwdToggled);
    connect(_autoLogIn, &QCheckBox::toggled, this, &logInViewController::onAutoLogInToggled);
}

void logInViewController::loadConf()
{
    UIConf &ui = UIConf::shared();
    const QSignalBlocker rememberBlocker(_remember);
    const QSignalBlocker autoBlocker(_autoLogIn);
    _remember->setChecked(ui.ifRememberPWd());
    _autoLogIn->setChecked(ui.ifAutoLogin());

    bool filled = false;
    if (UserDefaults::getConf(QStringLiteral("remenberpass"))) {
        const userSecurityInfo stored(_options.keychain);
        if (const auto user = stored.loadUser()) {
            usernameTF->setText(*user);
            passworldTF->setText(stored.loadPass().value_or(QString()));
            filled = stored.loadPass().has_value();
        }
    }
    if (!filled)
        usernameTF->setText(_host->username());

    webBnt->setText(ui.getWebSiteName().value_or(QString()));
    pwdBtn->setText(ui.getPwdLinkName().value_or(QString()));
    webBnt->setVisible(!ui.ifWebSiteHidden());
    pwdBtn->setVisible(!ui.ifPwdLinkHidden());

    selectTab(pwdTypeTab, ui.isDynamicDial() ? Dynamic : Manual);
    if (ui.isDynamicDial()) {
        _observers.push_back(DVNotificationCenter::defaultCenter().addObserverForName(
            DVNotification::DVNotificationNameDyPwd, OperationQueue::mainQueue(),
            [self = QPointer<logInViewController>(this)](const DVNotificationMessage &m) {
                if (self)
                    self->onNotificationOfDyPwd(m);
            }));
    }
    if (!ui.isQrCodeDial()) {
        selectTab(dialTypeTab, Pwd);
        selectTab(dialTypeSwitchTab, SelfHelp);
    } else {
        setUpQrCode();
    }
}

void logInViewController::setUpQrCode()
{
    UIConf &ui = UIConf::shared();
    DailTypeSwitchBtn->setChecked(dialTypeTab->currentIndex() == 0);
    const QString last = ui.getLastDilType().toString();
    if (last.isEmpty() || !selectTab(dialTypeTab, last))
        selectTab(dialTypeTab, QrCode);
    if (ui.ifQrCodeAlone()) {
        DailTypeSwitchBtn->setVisible(false);
        selectTab(dialTypeTab, QrCode);
    }
    selectTab(dialTypeSwitchTab, QrCodeSwitch);
    _observers.push_back(DVNotificationCenter::defaultCenter().addObserverForName(
        DVNotification::DVNotificationNameQRcode, OperationQueue::mainQueue(),
        [self = QPointer<logInViewController>(this)](const DVNotificationMessage &m) {
            if (self)
                self->onNotificationOfQr(m);
        }));
    qrCodeDial = QrCodeDial::initFromConf();
    showPlaceholder();
    DailTypeSwitchBtn->setText(dialType() == QrCode ? QStringLiteral("密码登录") : QStringLiteral("扫码登录"));
    if (last == QrCode || ui.ifQrCodeAlone()) {
        if (qrCodeDial)
            qrCodeDial->doRequest();
        DailTypeSwitchBtn->setEnabled(false);
    }
}

void logInViewController::showPlaceholder()
{
    qrView->setMovie(_placeholder);
    _placeholder->start();
}

void logInViewController::onDialTypeBtnClick()
{
    const QString type = dialType() == QrCode ? Pwd : QrCode;
    UIConf::shared().setLastDialType(type);
    selectTab(dialTypeTab, type);
    DailTypeSwitchBtn->setText(type == QrCode ? QStringLiteral("密码登录") : QStringLiteral("扫码登录"));
    if (type == QrCode) {
        showPlaceholder();
        if (qrCodeDial)
            qrCodeDial->doRequest();
        DailTypeSwitchBtn->setEnabled(false);
    } else {
        if (qrCodeDial)
            qrCodeDial->cancel();
        DailTypeSwitchBtn->setEnabled(true);
    }
}

void logInViewController::onNotificationOfQr(const DVNotificationMessage &message)
{
    if (dialType() != QrCode)
        return;
    if (const auto *got = message.payload<QrCodeGetNotificationInfo>(DVNotification::NotificationInfoKeyQrCodeGet)) {
        DailTypeSwitchBtn->setEnabled(true);
        if (got->qrCodeContent.isEmpty()) {
            setAlert(QStringLiteral("确定"), QStringLiteral("错误"),
                     got->err ? got->err->localizedDescription : QString());
            return;
        }
        if (const auto bitmap = QrCodeGenerator::getQRCodeWithInfo(got->qrCodeContent, qrView->height())) {
            const QImage image(reinterpret_cast<const uchar *>(bitmap->grey.constData()), bitmap->width, bitmap->height,
                               bitmap->width, QImage::Format_Grayscale8);
            _placeholder->stop();
            qrView->setPixmap(QPixmap::fromImage(image.copy()));
        }
        if (qrCodeDial)
            qrCodeDial->doCheck();
    } else if (const auto *check =
                   message.payload<QrCodeCheckNotificationInfo>(DVNotification::NotificationInfoKeyQrCodeCheck)) {
        if (!check->username.isEmpty() && !check->password.isEmpty()) {
            doConnectWithName(check->username, check->password);
        } else if (check->err && check->err->code == 4) {
            if (qrCodeDial)
                qrCodeDial->doRequest();
        } else {
            setAlert(QStringLiteral("确定"), QStringLiteral("错误"),
                     check->err ? check->err->localizedDescription : QString());
        }
    }
}

void logInViewController::onDynamicPwdClick()
{
    const QString name = usernameTF->text();
    if (name.isEmpty()) {
        setAlert(QStringLiteral("确定"), QStringLiteral("错误"), QStringLiteral("用户名不能为空"));
        return;
    }
    dyPwdBtn->setEnabled(false);
    OperationQueue::mainQueue()->addOperation(std::make_shared<DynamicPassword>(name));
    _countdown->start();
}

void logInViewController::onNotificationOfDyPwd(const DVNotificationMessage &message)
{
    if (dialType() != Pwd || passwordType() != Dynamic)
        return;
    const auto *info = message.payload<DyPwdCheckNotificationInfo>(DVNotification::NotificationInfoKeyDyPwdCheck);
    if (!info)
        return;
    QString text = QStringLiteral("发送动态密码成功");
    if (info->err)
        text = info->err->localizedDescription.isEmpty() ? QStringLiteral("发送动态密码失败")
                                                         : info->err->localizedDescription;
    setAlert(QStringLiteral("确定"), QStringLiteral("动态密码"), text);
}

void logInViewController::onAutoLogInToggled(bool on)
{
    // The box stands for the stored setting. Logging in by itself needs both the password
    // and the interface remembered; switching it off leaves those alone.
    UIConf::shared().setAutoLogin(on);
    if (!on)
        return;
    UIConf::shared().setRememberPWd(true);
    UIConf::shared().setRememberInterface(true);
    const QSignalBlocker blocker(_remember);
    _remember->setChecked(true);
}

void logInViewController::onRememberPwdToggled(bool on)
{
    UIConf::shared().setRememberPWd(on);
    if (on)
        return;
    UIConf::shared().setAutoLogin(false);
    {
        const QSignalBlocker blocker(_autoLogIn);
        _autoLogIn->setChecked(false);
    }
    if (!usernameTF->text().isEmpty()) {
        DVError error;
        if (!userSecurityInfo::deleteSecurityInfoOfnName(usernameTF->text(), &error, _options.keychain))
            DVLOG() << "could not forget the stored password: " << error.localizedDescription;
    }
}

void logInViewController::connect_()
{
    if (const auto failure = checkLoginInput(usernameTF->text(), passworldTF->text())) {
        setAlert(QStringLiteral("确定"), QStringLiteral("提示"), *failure);
        return;
    }
    doConnectWithName(usernameTF->text(), passworldTF->text());
}

void logInViewController::doConnectWithName(const QString &name, const QString &pwd)
{
    QPointer<logInViewController> self(this);
    _host->getInterfaceList([self, name, pwd](const std::vector<QVariantMap> &list) {
        if (!self)
            return;
        if (list.size() < 2) {
            // With no interface the dial itself reports the empty list.
            self->dialIndex(name, pwd, 0);
            return;
        }
        if (!UIConf::shared().ifRememberInterface()) {
            self->showInterfaceChoice(name, pwd, list);
            return;
        }
        self->_host->getLastInterfaceIndex([self, name, pwd, list](quint64 index) {
            if (!self)
                return;
            if (index != DVApp::NotFound)
                self->dialIndex(name, pwd, index);
            else
                self->showInterfaceChoice(name, pwd, list);
        });
    });
}

void logInViewController::dialIndex(const QString &name, const QString &pwd, quint64 index)
{
    _host->dial(name, pwd, index, [self = QPointer<logInViewController>(this)](bool, const DVError &error) {
        if (self && !error.domain.isEmpty())
            self->showDialError(error);
    });
}

void logInViewController::showInterfaceChoice(const QString &name, const QString &pwd,
                                              const std::vector<QVariantMap> &list)
{
    if (netTb)
        return; // already asking
    netTb = new netList(this);
    netTb->setAttribute(Qt::WA_DeleteOnClose);
    netTb->setUser(name);
    netTb->setPass(pwd);
    netTb->setNetArr(list);
    netTb->setWindowTitle(QStringLiteral("网卡选择"));
    connect(netTb, &netList::dialRequested, this, [this](const QString &user, const QString &pass, quint64 index) {
        QPointer<netList> choice = netTb;
        _host->dial(user, pass, index, [choice](bool, const DVError &error) {
            if (choice)
                choice->dialFinished(error, !error.domain.isEmpty());
        });
    });
    connect(netTb, &QDialog::finished, netTb, &QWidget::close);
    netTb->open();
}

void logInViewController::showDialError(const DVError &error)
{
    DVLOG() << QStringLiteral("domain: %1\nlocalizedDescription: %2\ncode:%3")
                   .arg(error.domain, error.localizedDescription)
                   .arg(error.code);
    MessageBox::show(window(), {MessageBox::Style::Informational,
                                QStringLiteral("错误"),
                                QStringLiteral("错误号:%1").arg(error.code),
                                QStringLiteral("%1\n%2").arg(error.domain, error.localizedDescription),
                                {QStringLiteral("确定")}});
}

void logInViewController::tryAutoLogin()
{
    const QString name = usernameTF->text();
    const QString pwd = passworldTF->text();
    UIConf &ui = UIConf::shared();
    if (name.isEmpty() || pwd.isEmpty() || !ui.ifAutoLogin() || !ui.ifRememberInterface())
        return;
    _host->getLastInterfaceIndex([self = QPointer<logInViewController>(this), name, pwd](quint64 index) {
        if (self && index != DVApp::NotFound)
            self->doConnectWithName(name, pwd);
    });
}

void logInViewController::saveUserInfo()
{
    if (dialType() != Pwd || passwordType() != Manual || !UserDefaults::getConf(QStringLiteral("remenberpass")))
        return;
    DVError error;
    if (!userSecurityInfo::saveUser(usernameTF->text(), passworldTF->text(), &error, _options.keychain))
        DVLOG() << "could not store the password: " << error.localizedDescription;
}

void logInViewController::btnStateOff()
{
    _linkBusy = true;
    updateBusy();
}

void logInViewController::btnStateOn()
{
    _linkBusy = false;
    updateBusy();
}

bool logInViewController::isBusy() const
{
    return _linkBusy || _host->pendingCalls() > 0;
}

void logInViewController::updateBusy()
{
    const bool busy = isBusy();
    loading->setVisible(busy);
    connBtn->setEnabled(!busy);
}

QString logInViewController::dialType() const
{
    return selectedTab(dialTypeTab);
}

QString logInViewController::passwordType() const
{
    return selectedTab(pwdTypeTab);
}

void logInViewController::setAlert(const QString &button, const QString &message, const QString &info)
{
    MessageBox::show(window(), {MessageBox::Style::Informational, message, message, info, {button}});
}
