#include "wifiViewController.h"

#include "GuideView.h"
#include "MessageBox.h"
#include "OnlinePresenter.h"
#include "SMSVerifyViewController.h"
#include "qrCodeViewController.h"

#include "App/DVAppHost.h"
#include "Conf/UIConf.h"
#include "Util/UserDefaults.h"

#include <QDesktopServices>
#include <QDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPainter>
#include <QPointer>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

#include <cstdio>

wifiViewController::wifiViewController(DVAppHost *host, QWidget *parent)
    : wifiViewController(host, Options{}, parent)
{}

wifiViewController::wifiViewController(DVAppHost *host, Options options, QWidget *parent)
    : QWidget(parent)
    , _host(host)
    , _options(std::move(options))
{
    setObjectName(QStringLiteral("wifi"));
    if (!_options.openUrl)
        _options.openUrl = [](const QUrl &url) { QDesktopServices::openUrl(url); };
    setUpView();
    if (_options.webPage)
        setWebView();
    timer = new QTimer(this);
    timer->setInterval(1000);
    connect(timer, &QTimer::timeout, this, [this] {
        ++currentTime;
        upData();
    });
}

wifiViewController::~wifiViewController() = default;

QString wifiViewController::clockText(qint32 seconds)
{
    return OnlinePresenter::clockText(seconds);
}

void wifiViewController::setUpView()
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    titleBar = new QWidget(this);
    titleBar->setObjectName(QStringLiteral("titleBarImg"));
    titleBar->setFixedHeight(64);
    auto *bar = new QHBoxLayout(titleBar);
    bar->setContentsMargins(64, 10, 16, 10);
    bar->setSpacing(10);
    timeLab = new QLabel(clockText(0), titleBar);
    timeLab->setStyleSheet(QStringLiteral("color: white; font-size: 16px;"));
    search = new QLineEdit(titleBar);
    search->setObjectName(QStringLiteral("search"));
    search->setPlaceholderText(QStringLiteral("搜索"));
    search->setClearButtonEnabled(true);
    search->setFixedWidth(260);
    search->setStyleSheet(QStringLiteral("QLineEdit { color: #1d3c5e; background: white; border: none;"
                                         " border-radius: 12px; padding: 4px 10px; }"));
    qrCodeBtn = new QPushButton(QStringLiteral("公众号"), titleBar);
    disconnBtn = new QPushButton(QStringLiteral("断开连接"), titleBar);
    bar->addWidget(timeLab);
    bar->addStretch();
    bar->addWidget(search);
    bar->addWidget(qrCodeBtn);
    bar->addWidget(disconnBtn);
    layout->addWidget(titleBar);

    customview = new QWidget(this);
    customview->setObjectName(QStringLiteral("customview"));
    auto *content = new QVBoxLayout(customview);
    content->setContentsMargins(12, 12, 12, 12);
    layout->addWidget(customview, 1);

    // Only Return starts a search: the whole text at once, never while typing.
    connect(search, &QLineEdit::returnPressed, this, &wifiViewController::searchFieldDidStartSearching);
    connect(qrCodeBtn, &QPushButton::clicked, this, &wifiViewController::showQRcode);
    connect(disconnBtn, &QPushButton::clicked, this, [this] {
        disconnBtn->setEnabled(false);
        _host->stopConn([self = QPointer<wifiViewController>(this)](bool) {
            if (self)
                self->disconnBtn->setEnabled(true);
        });
    });
}

void wifiViewController::setWebView()
{
    webView = OnlinePage::create(_options.openUrl, customview);
    customview->layout()->addWidget(webView);
    webView->load(QUrl(UIConf::shared().getAdAddress().value_or(QString())));
}

void wifiViewController::paintEvent(QPaintEvent *)
{
    static const QPixmap back(QStringLiteral(":/dorvik/online_back.png"));
    static const QPixmap bar(QStringLiteral(":/dorvik/title_bar.png"));
    QPainter painter(this);
    painter.drawPixmap(rect(), back);
    painter.drawPixmap(titleBar->geometry(), bar);
}

void wifiViewController::searchFieldDidStartSearching()
{
    const QString text = search->text();
    // An empty field has nothing to look for.
    if (text.isEmpty())
        return;
    const QString address = OnlinePresenter::searchAddress(text);
    std::fprintf(stdout, "%s\n", qUtf8Printable(address));
    std::fflush(stdout);
    _options.openUrl(QUrl(address));
}

void wifiViewController::showQRcode()
{
    if (!qrCode) {
        qrCode = new qrCodeViewController(this);
        qrCode->setWindowTitle(QStringLiteral("微信公众号"));
        qrCode->setWindowModality(Qt::ApplicationModal);
    }
    qrCode->setQrImgName(UIConf::shared().getWichatPic().value_or(QString()));
    qrCode->show();
    qrCode->raise();
}

void wifiViewController::showGuideView()
{
    if (guide)
        return;
    setTitleBarButtonsHidden(true);
    guide = new GuideView(this);
    connect(guide, &GuideView::dismissed, this, [this] {
        guide = nullptr; // it deletes itself later
        setTitleBarButtonsHidden(false);
    });
    guide->show();
    guide->setFocus();
}

void wifiViewController::setTitleBarButtonsHidden(bool hidden)
{
    QWidget *top = window();
    if (top == this)
        return;
    const bool visible = top->isVisible();
    Qt::WindowFlags flags = top->windowFlags();
    if (hidden)
        flags = (flags & ~(Qt::WindowCloseButtonHint | Qt::WindowMinMaxButtonsHint)) | Qt::CustomizeWindowHint
                | Qt::WindowTitleHint;
    else
        flags = (flags & ~Qt::CustomizeWindowHint) | Qt::WindowCloseButtonHint | Qt::WindowMinimizeButtonHint;
    if (flags == top->windowFlags())
        return;
    // New flags take effect on a re-created native window, which hides it and the dialogs it
    // holds (an SMS question may be open): show them all again where they were.
    QList<QPointer<QDialog>> dialogs;
    for (QDialog *dialog : top->findChildren<QDialog *>())
        if (dialog->isVisible())
            dialogs << dialog;
    const QPoint where = top->pos();
    top->setWindowFlags(flags);
    if (visible) {
        top->move(where);
        top->show();
    }
    for (const QPointer<QDialog> &dialog : std::as_const(dialogs))
        if (dialog) {
            dialog->hide(); // lost its native window with its parent's; Qt still counts it shown
            dialog->show();
            dialog->raise();
        }
}

void wifiViewController::onNotification(const DVNotificationMessage &message)
{
    OnlinePresenter::Actions actions;
    actions.stopConn = [this] { _host->stopConn(); };
    actions.showError = [this](const QString &text) {
        MessageBox::warning(window(), QStringLiteral("错误"), QStringLiteral("错误"), text);
    };
    actions.askCode = [this](quint64 timeoutSeconds, const QString &msg) {
        if (_smsDialog)
            _smsDialog->close(); // an earlier question is answered as it stands
        auto *dialog = new SMSVerifyViewController(timeoutSeconds, msg, window(),
                                                   _options.smsTicks ? _options.smsTicks() : nullptr);
        dialog->setAttribute(Qt::WA_DeleteOnClose);
        dialog->setWindowModality(Qt::WindowModal);
        _smsDialog = dialog;
        dialog->show();
        dialog->raise();
        dialog->activateWindow();
    };
    OnlinePresenter::onSmsVerifyResult(message, actions);
}

void wifiViewController::upData()
{
    timeLab->setText(clockText(currentTime));
}

void wifiViewController::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    if (!_welcomeChecked) {
        _welcomeChecked = true;
        // After the window has finished showing: hiding its title-bar buttons re-creates it.
        if (UserDefaults::showWelcome())
            QTimer::singleShot(0, this, &wifiViewController::showGuideView);
    }
    _host->getConnTime([self = QPointer<wifiViewController>(this)](qint32 seconds) {
        if (!self)
            return;
        self->currentTime = seconds;
        self->upData();
        self->timer->start();
    });
}

void wifiViewController::hideEvent(QHideEvent *event)
{
    timer->stop();
    // The view itself hidden (not its window minimised or re-created): the online state is
    // over, and a question still open is answered with what was typed.
    if (isHidden() && _smsDialog)
        _smsDialog->close();
    QWidget::hideEvent(event);
}

void wifiViewController::mousePressEvent(QMouseEvent *event)
{
    if (QWidget *focused = window()->focusWidget())
        focused->clearFocus();
    QWidget::mousePressEvent(event);
}
