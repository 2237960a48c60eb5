#include "baseWindow.h"

#include "areaConfViewController.h"

#include "App/DVAppHost.h"
#include "Conf/Conf.h"
#include "Util/Log.h"
#include "Util/UserDefaults.h"

#include <QApplication>
#include <QCloseEvent>
#include <QLineEdit>
#include <QScreen>
#include <QTimer>

#include <utility>

baseWindow::baseWindow(DVAppHost *host, LogInFactory factory, QWidget *parent)
    : QMainWindow(parent)
    , _host(host)
    , _factory(std::move(factory))
{
    setWindowTitle(QStringLiteral("dorvik"));
    if (!_factory) {
        _factory = [](DVAppHost *h, bool firstView, QWidget *p) {
            logInViewController::Options options;
            options.allowAutoLogin = firstView;
            return new logInViewController(h, std::move(options), p);
        };
    }
    DVEvent::shared().addObserver(
        this, [this](const DVEventObjectPtr &object) { stateChange(object); }, DVEventIdDialStatus,
        OperationQueue::mainQueue());
    _smsObserver = DVNotificationCenter::defaultCenter().addObserverForName(
        DVNotification::DVNotificationNameSMSVerifyToUI, OperationQueue::mainQueue(),
        [this](const DVNotificationMessage &message) {
            if (wifiViewController *online = onlineView())
                online->onNotification(message);
            else if (_linkUp)
                _pendingSmsQuestion = message;
            else
                DVLOG() << "text-message verification message dropped: the link is down";
        });
}

baseWindow::~baseWindow()
{
    DVNotificationCenter::defaultCenter().removeObserver(_smsObserver);
    DVEvent::shared().removeObserver(this, DVEventIdDialStatus);
}

void baseWindow::setContent(QWidget *view, QSize size)
{
    QWidget *old = takeCentralWidget();
    setCentralWidget(view);
    _currentView = view;
    if (old) {
        old->hide();
        retire(old);
    }
    // Fixed: minimum and maximum are both the state's size. The window keeps its centre, so
    // that the larger online size does not run off the screen.
    const QPoint centre = geometry().center();
    setFixedSize(size);
    if (isVisible() && screen()) {
        QRect placed(QPoint(), size);
        placed.moveCenter(centre);
        const QRect available = screen()->availableGeometry();
        placed.moveLeft(
            qBound(available.left(), placed.left(), qMax(available.left(), available.right() - size.width())));
        placed.moveTop(
            qBound(available.top(), placed.top(), qMax(available.top(), available.bottom() - size.height())));
        move(placed.topLeft());
    }
    view->setFocus();
    if (auto *login = qobject_cast<logInViewController *>(view))
        login->usernameField()->setFocus();
}

void baseWindow::retire(QPointer<QWidget> view)
{
    // A view may go while one of its alerts is open (the link came up meanwhile); the alert's
    // code still runs on the view's stack. Deleting under it would pull the view away from
    // that code, so wait until no modal window is open.
    if (!view)
        return;
    if (QApplication::activeModalWidget()) {
        QTimer::singleShot(200, this, [this, view] { retire(view); });
        return;
    }
    view->deleteLater();
}

void baseWindow::showFirstView()
{
    if (Conf::area().isEmpty())
        showArea();
    else
        showLogIn();
}

void baseWindow::showLogIn()
{
    logInViewController *login = _factory(_host, _firstLogIn, this);
    _firstLogIn = false;
    connect(login, &logInViewController::areaRequested, this, &baseWindow::showArea);
    setContent(login, LogInSize);
}

void baseWindow::showArea()
{
    auto *area = new areaConfViewController(this);
    connect(area, &areaConfViewController::committed, this, [this] { showLogIn(); });
    setContent(area, LogInSize);
}

void baseWindow::showOnline()
{
    auto *online = new wifiViewController(_host, _onlineOptions, this);
    setContent(online, OnlineSize);
    if (auto question = std::exchange(_pendingSmsQuestion, std::nullopt))
        online->onNotification(*question);
}

void baseWindow::stateChange(const DVEventObjectPtr &object)
{
    const auto *event = dynamic_cast<const DVDialStatusEvent *>(object.get());
    if (!event) {
        DVLOG() << "状态为空";
        return;
    }
    switch (event->dialState) {
    case DVDialStateConnected:
        _linkUp = true;
        if (!qobject_cast<wifiViewController *>(_currentView)) {
            if (auto *login = logInView())
                login->saveUserInfo();
            showOnline();
            UserDefaults::saveConf(true, QStringLiteral("isconnected"));
        }
        break;
    case DVDialStateDisconnected:
        _linkUp = false;
        _pendingSmsQuestion.reset(); // asked of a link that is gone
        if (auto *login = logInView())
            login->btnStateOn();
        else
            showLogIn();
        UserDefaults::saveConf(false, QStringLiteral("isconnected"));
        break;
    case DVDialStateInProgress:
        if (auto *login = logInView())
            login->btnStateOff();
        break;
    default:
        break;
    }
}

void baseWindow::closeEvent(QCloseEvent *event)
{
    event->ignore();
    Q_EMIT closeRequested();
}
