#include "BubbleCenter.h"

#include "Util/Log.h"
#include "Util/ThreadHandoff.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QProcess>
#include <QThread>
#include <QTimer>

#include <cmath>

namespace {
const QString kService = QStringLiteral("org.freedesktop.Notifications");
const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
const QString kInterface = QStringLiteral("org.freedesktop.Notifications");
} // namespace

BubbleCenter *BubbleCenter::defaultCenter()
{
    static BubbleCenter *center = [] {
        auto *c = new BubbleCenter;
        if (QCoreApplication::instance() && c->thread() != QCoreApplication::instance()->thread())
            c->moveToThread(QCoreApplication::instance()->thread());
        return c;
    }();
    return center;
}

BubbleCenter::BubbleCenter(QObject *parent)
    : QObject(parent)
    , _opener(&BubbleCenter::openWithDesktop)
{}

BubbleCenter::~BubbleCenter() = default;

void BubbleCenter::setConnectedPredicate(ConnectedPredicate predicate)
{
    std::lock_guard<std::mutex> lock(_mutex);
    _connected = std::move(predicate);
}

void BubbleCenter::setUrlOpener(UrlOpener opener)
{
    std::lock_guard<std::mutex> lock(_mutex);
    _opener = std::move(opener);
}

void BubbleCenter::openWithDesktop(const QUrl &url)
{
    if (!QProcess::startDetached(QStringLiteral("xdg-open"), {url.toString(QUrl::FullyEncoded)}))
        DVLOG() << "open url failed, xdg-open could not be started: " << url.toString();
}

void BubbleCenter::scheduleNotification(const UserNotification &notification)
{
    ThreadHandoff::post(this, [this, notification] {
        const double delay = notification.deliveryDelaySeconds;
        const int ms = (std::isfinite(delay) && delay > 0) ? static_cast<int>(qMin(delay * 1000.0, 2.0e9)) : 0;
        QTimer::singleShot(ms, this, [this, notification] { deliver(notification); });
    });
}

bool BubbleCenter::shouldPresentNotification(const UserNotification &) const
{
    ConnectedPredicate connected;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        connected = _connected;
    }
    return connected && connected();
}

void BubbleCenter::didActivateNotification(const UserNotification &notification)
{
    const QString type = notification.userInfo.value(QStringLiteral("type")).toString();
    const QString address = notification.userInfo.value(QStringLiteral("url")).toString();
    const QUrl url(address, QUrl::StrictMode);
    if (type == QLatin1String("web") && !address.isEmpty() && url.isValid()) {
        UrlOpener opener;
        {
            std::lock_guard<std::mutex> lock(_mutex);
            opener = _opener;
        }
        if (opener)
            opener(url);
    }
    removeDeliveredNotification(notification);
}

void BubbleCenter::didDeliverNotification(const UserNotification &) {}

void BubbleCenter::removeDeliveredNotification(const UserNotification &notification)
{
    const quint32 id = notification.identifier; // `notification` may live in the map
    if (!_delivered.remove(id))
        return;
    QDBusMessage close =
        QDBusMessage::createMethodCall(kService, kPath, kInterface, QStringLiteral("CloseNotification"));
    close << id;
    QDBusConnection::sessionBus().asyncCall(close);
}

std::vector<UserNotification> BubbleCenter::deliveredNotifications() const
{
    return {_delivered.cbegin(), _delivered.cend()};
}

void BubbleCenter::ensureSignalsConnected()
{
    if (_signalsConnected)
        return;
    QDBusConnection bus = QDBusConnection::sessionBus();
    _signalsConnected = bus.connect(QString(), kPath, kInterface, QStringLiteral("ActionInvoked"), this,
                                    SLOT(onActionInvoked(uint, QString)))
                        && bus.connect(QString(), kPath, kInterface, QStringLiteral("NotificationClosed"), this,
                                       SLOT(onNotificationClosed(uint, uint)));
}

void BubbleCenter::deliver(const UserNotification &notification)
{
    if (!shouldPresentNotification(notification)) {
        DVLOG() << "bubble held back, not connected: " << notification.title;
        return;
    }
    Q_EMIT presenting(notification);
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        DVLOG() << "pop bubble failed, no session bus: " << bus.lastError().message();
        return;
    }
    ensureSignalsConnected();

    QStringList actions;
    if (notification.hasActionButton)
        actions << OpenActionKey << notification.actionButtonTitle;
    QVariantMap hints;
    hints.insert(QStringLiteral("sound-name"), QStringLiteral("message-new-instant"));
    QDBusMessage notify = QDBusMessage::createMethodCall(kService, kPath, kInterface, QStringLiteral("Notify"));
    notify << QCoreApplication::applicationName() << quint32(0) << QString() << notification.title
           << notification.informativeText << actions << hints << qint32(-1);

    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(notify), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, notification](QDBusPendingCallWatcher *w) {
        w->deleteLater();
        const QDBusPendingReply<quint32> reply = *w;
        if (reply.isError()) {
            DVLOG() << "pop bubble failed, notification service: " << reply.error().message();
            return;
        }
        UserNotification shown = notification;
        shown.identifier = reply.value();
        _delivered.insert(shown.identifier, shown);
        didDeliverNotification(shown);
    });
}

void BubbleCenter::onActionInvoked(uint id, const QString &)
{
    const auto it = _delivered.constFind(id);
    if (it == _delivered.cend())
        return; // another program's notification
    const UserNotification activated = *it;
    didActivateNotification(activated);
}

void BubbleCenter::onNotificationClosed(uint id, uint)
{
    _delivered.remove(id);
}
