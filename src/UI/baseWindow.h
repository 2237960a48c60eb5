#pragma once

#include "logInViewController.h"
#include "wifiViewController.h"

#include "Util/DVEvent.h"
#include "Util/DVNotification.h"

#include <QMainWindow>
#include <QPointer>

#include <functional>
#include <optional>

class DVAppHost;

// The main window: one content view at a time, switched by the dial-status event (delivered on
// the main queue): the online view at 900 × 610 while connected, the log-in view at 280 × 470
// otherwise. The sizes are those of the window itself, menu bar included.
class baseWindow : public QMainWindow
{
    Q_OBJECT
public:
    // Makes each new log-in view (tests inject timers and a keychain).
    using LogInFactory = std::function<logInViewController *(DVAppHost *host, bool firstView, QWidget *parent)>;

    explicit baseWindow(DVAppHost *host, LogInFactory factory = {}, QWidget *parent = nullptr);
    ~baseWindow() override;

    static constexpr QSize OnlineSize{900, 610};
    static constexpr QSize LogInSize{280, 470};

    void stateChange(const DVEventObjectPtr &object);
    // The first view: the area selection when no area was ever chosen, else the log-in view.
    void showFirstView();
    void showLogIn();
    void showArea();
    void showOnline();

    // How each new online view is made (tests record the browser and drive the countdowns).
    void setOnlineOptions(wifiViewController::Options options) { _onlineOptions = std::move(options); }

    QWidget *currentView() const { return _currentView; }
    wifiViewController *onlineView() const { return qobject_cast<wifiViewController *>(_currentView); }
    logInViewController *logInView() const { return qobject_cast<logInViewController *>(_currentView); }

Q_SIGNALS:
    // The user closed the window: the owner hangs up and quits.
    void closeRequested();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void setContent(QWidget *view, QSize size);
    void retire(QPointer<QWidget> view);

    DVAppHost *_host;
    LogInFactory _factory;
    wifiViewController::Options _onlineOptions;
    QPointer<QWidget> _currentView;
    bool _firstLogIn = true;
    // The verification asks for the text-message code as soon as the link is up, which can be
    // before the online view exists (setting up its web page runs the event loop): the window
    // takes the question and hands it to the online view once that is shown. Messages that
    // arrive after the link went down are dropped, so none can end a later connection.
    DVNotificationCenter::Token _smsObserver = 0;
    std::optional<DVNotificationMessage> _pendingSmsQuestion;
    bool _linkUp = false;
};
