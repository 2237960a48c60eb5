#pragma once

#include "GuideView.h"
#include "OnlinePage.h"
#include "SMSVerifyViewController.h"
#include "Util/DVNotification.h"

#include <QPointer>
#include <QWidget>

#include <functional>
#include <memory>

class DVAppHost;
class QLabel;
class QLineEdit;
class QPushButton;
class QTimer;
class qrCodeViewController;

// The view shown while online: the time spent online, the provider's page, a web search, the
// disconnect and picture buttons, the first-run guide, and the SMS-verification questions that
// arrive while online.
class wifiViewController : public QWidget
{
    Q_OBJECT
public:
    struct Options
    {
        // Opens an address in the default browser (tests record instead).
        OnlinePage::OpenExternally openUrl;
        // The countdown of each SMS dialog (null: a one-second timer).
        std::function<std::unique_ptr<TickSource>()> smsTicks;
        // The provider's page; off in tests that do not look at it.
        bool webPage = true;
    };

    explicit wifiViewController(DVAppHost *host, QWidget *parent = nullptr);
    wifiViewController(DVAppHost *host, Options options, QWidget *parent);
    ~wifiViewController() override;

    static QString clockText(qint32 seconds);

    QPushButton *disconnButton() const { return disconnBtn; }
    QPushButton *qrCodeButton() const { return qrCodeBtn; }
    QLabel *clockLabel() const { return timeLab; }
    QLineEdit *searchField() const { return search; }
    OnlinePage *webPage() const { return webView; }
    GuideView *guideView() const { return guide; }
    qrCodeViewController *qrCodeDialog() const { return qrCode; }
    SMSVerifyViewController *smsDialog() const { return _smsDialog; }

    void showGuideView();
    void showQRcode();
    // A result of the text-message verification, passed on by the window.
    void onNotification(const DVNotificationMessage &message);

protected:
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    void setUpView();
    void setWebView();
    void searchFieldDidStartSearching();
    void upData();
    void setTitleBarButtonsHidden(bool hidden);

    DVAppHost *_host;
    Options _options;
    QWidget *customview = nullptr;
    OnlinePage *webView = nullptr;
    QLabel *timeLab = nullptr;
    QPushButton *disconnBtn = nullptr;
    QPushButton *qrCodeBtn = nullptr;
    QLineEdit *search = nullptr;
    QWidget *titleBar = nullptr;
    QTimer *timer = nullptr;
    qint32 currentTime = 0;
    qrCodeViewController *qrCode = nullptr;
    QPointer<GuideView> guide;
    QPointer<SMSVerifyViewController> _smsDialog;
    bool _welcomeChecked = false;
};
