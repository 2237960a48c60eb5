#pragma once

#include "DVError.h"
#include "OperationQueue.h"

#include <QString>

#include <any>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

// Names and user-info keys of the side channels' notifications.
namespace DVNotification {
inline const QString DVNotificationNameToken = QStringLiteral("DVNotificationNameToken");
inline const QString DVNotificationNameQRcode = QStringLiteral("DVNotificationNameQRcode");
inline const QString DVNotificationNameDyPwd = QStringLiteral("DVNotificationNameDyPwd");
inline const QString DVNotificationNameSMSVerifyToUI = QStringLiteral("DVNotificationNameSMSVerifyToUI");
inline const QString DVNotificationNameSMSVerifyFromUI = QStringLiteral("DVNotificationNameSMSVerifyFromUI");

inline const QString NotificationInfoKeyToken = QStringLiteral("NotificationInfoKeyToken");
inline const QString NotificationInfoKeyQrCodeGet = QStringLiteral("NotificationInfoKeyQrCodeGet");
inline const QString NotificationInfoKeyQrCodeCheck = QStringLiteral("NotificationInfoKeyQrCodeCheck");
inline const QString NotificationInfoKeyDyPwdCheck = QStringLiteral("NotificationInfoKeyDyPwdCheck");
inline const QString NotificationInfoKeySMSVerifyToUI = QStringLiteral("NotificationInfoKeySMSVerifyToUI");
inline const QString NotificationInfoKeySMSVerifyFromUI = QStringLiteral("NotificationInfoKeySMSVerifyFromUI");
} // namespace DVNotification

// Payloads. They hold data only.
struct TokenNotificationInfo
{
    qint32 code = 0;
    std::optional<QString> token;
    std::optional<QString> redirect_uri;
    QString message;
};

struct QrCodeGetNotificationInfo
{
    std::optional<DVError> err;
    QString qrCodeContent;
};

struct QrCodeCheckNotificationInfo
{
    std::optional<DVError> err;
    QString username;
    QString password;
};

struct DyPwdCheckNotificationInfo
{
    std::optional<DVError> err; // absent means success
};

struct SMSVerifyToUINotificationInfo
{
    std::optional<DVError> err;
    quint64 timeoutSeconds = 0;
};

struct SMSVerifyFromUINotificationInfo
{
    QString code;
};

// User info of a notification: key → payload (one of the structs above).
using DVUserInfo = std::map<QString, std::any>;

struct DVNotificationMessage
{
    QString name;
    DVUserInfo userInfo;

    // The payload under `key`, or null when absent or of another type.
    template<typename T> const T *payload(const QString &key) const
    {
        const auto it = userInfo.find(key);
        return it == userInfo.end() ? nullptr : std::any_cast<T>(&it->second);
    }
};

// The process's notification centre. An observer registered without a queue is called
// synchronously on the posting thread; one registered with a queue gets each notification as
// an operation on that queue (skipped if the observer is removed before it runs).
class DVNotificationCenter
{
public:
    using Token = quint64;
    using Handler = std::function<void(const DVNotificationMessage &)>;

    static DVNotificationCenter &defaultCenter();

    Token addObserverForName(const QString &name, std::shared_ptr<OperationQueue> queue, Handler handler);
    void removeObserver(Token token);
    void postNotificationName(const QString &name, DVUserInfo userInfo = {});

private:
    DVNotificationCenter() = default;

    struct Entry
    {
        Token token;
        QString name;
        std::shared_ptr<OperationQueue> queue;
        Handler handler;
    };

    bool isRegistered(const std::shared_ptr<Entry> &entry);

    std::mutex _mutex;
    Token _next = 1;
    std::vector<std::shared_ptr<Entry>> _entries;
};
