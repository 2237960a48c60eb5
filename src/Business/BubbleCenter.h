#pragma once

#include <QMap>
#include <QObject>
#include <QString>
#include <QUrl>
#include <QVariantMap>

#include <functional>
#include <mutex>
#include <optional>
#include <vector>

// One pop-up message ("bubble") as scheduled: what the notification service is asked to show
// and the user information that decides what activating it does.
struct UserNotification
{
    QString title;
    QString informativeText;
    bool hasActionButton = false;
    QString actionButtonTitle;
    QVariantMap userInfo;
    double deliveryDelaySeconds = 0;
    // The notification service's id once shown; 0 before.
    quint32 identifier = 0;
};

// Delivers bubbles as desktop notifications through the freedesktop notification service
// (org.freedesktop.Notifications on the session bus) and answers for the user's clicks:
// a bubble is shown only while the client is connected, and activating a web bubble opens its
// address. The controller sets the connected predicate; nothing else needs to be wired.
//
// Lives on the main thread. scheduleNotification() may be called from any thread. Every
// D-Bus call is asynchronous: without a notification service the bubble is logged and dropped.
class BubbleCenter : public QObject
{
    Q_OBJECT
public:
    using ConnectedPredicate = std::function<bool()>;
    using UrlOpener = std::function<void(const QUrl &)>;

    // The process's centre, created on first use on the main thread's side.
    static BubbleCenter *defaultCenter();

    explicit BubbleCenter(QObject *parent = nullptr);
    ~BubbleCenter() override;

    // Whether the client is connected now. Until set, nothing is presented.
    void setConnectedPredicate(ConnectedPredicate predicate);
    // Opens a web bubble's address. Default: xdg-open, started detached.
    void setUrlOpener(UrlOpener opener);

    // Shows the notification after its delay (thread-safe).
    void scheduleNotification(const UserNotification &notification);

    // The decisions of the notification delegate.
    bool shouldPresentNotification(const UserNotification &notification) const;
    void didActivateNotification(const UserNotification &notification);
    void didDeliverNotification(const UserNotification &notification);
    // Takes a shown notification off the screen and forgets it.
    void removeDeliveredNotification(const UserNotification &notification);

    // Notifications shown and not yet activated or closed (main thread).
    std::vector<UserNotification> deliveredNotifications() const;

    // The default opener.
    static void openWithDesktop(const QUrl &url);

    // The action key of a web bubble's button.
    static inline const QString OpenActionKey = QStringLiteral("open");

Q_SIGNALS:
    // A bubble is about to be shown (it passed the connected check); main thread. Lets a
    // program without a desktop show it its own way.
    void presenting(const UserNotification &notification);

private Q_SLOTS:
    void onActionInvoked(uint id, const QString &actionKey);
    void onNotificationClosed(uint id, uint reason);

private:
    void deliver(const UserNotification &notification);
    void ensureSignalsConnected();

    mutable std::mutex _mutex; // guards the two hooks
    ConnectedPredicate _connected;
    UrlOpener _opener;
    bool _signalsConnected = false;
    QMap<quint32, UserNotification> _delivered;
};
