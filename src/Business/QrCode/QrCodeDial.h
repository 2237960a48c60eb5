#pragma once

#include "Util/Clock.h"
#include "Util/DVError.h"

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>

class QNetworkAccessManager;
class QNetworkReply;
class QObject;
class QThread;

// Log-in by QR code. doRequest() asks the service for a fresh code; doCheck() waits (one long
// GET) until the phone has confirmed, then delivers the decrypted account name and password.
// Both results are posted as DVNotificationNameQRcode from the object's own network thread
// (user info NotificationInfoKeyQrCodeGet / NotificationInfoKeyQrCodeCheck).
//
// The object owns that thread and an ephemeral HTTP session (in-memory cookies, no cache).
// Call it from one thread (the view's); do not destroy it from inside a notification handler
// that runs on its network thread.
class QrCodeDial
{
public:
    // From the "qrcode" and "login" sections and the machine's addresses.
    static std::unique_ptr<QrCodeDial> initFromConf();
    QrCodeDial(const std::optional<QString> &host, const std::optional<QString> &encodeKey,
               const std::optional<QString> &decodeKey, const std::optional<QString> &dialType,
               const std::optional<QString> &ip, const std::optional<QString> &mac);
    ~QrCodeDial();

    QrCodeDial(const QrCodeDial &) = delete;
    QrCodeDial &operator=(const QrCodeDial &) = delete;

    // True when every value a request needs is there; logs the first that is not.
    bool checkProperty() const;
    // Asks for a new code. With bad properties the "get" notification comes at once, from the
    // calling thread, with err ID 0 and no content (the view tells failure by the content).
    void doRequest();
    // Starts the long wait for the scan; false (nothing sent) without a session.
    bool doCheck();
    // Aborts the running check request; its notification then carries the cancellation.
    void cancel();

    std::optional<QString> sessionId() const;
    std::optional<QString> token() const;

    // The time stamp of the signed request comes from here (tests fix it).
    void setClock(std::shared_ptr<Clock> clock) { _clock = std::move(clock); }

    // The request body of "getQrcode" for a time stamp (signature included).
    QByteArray makeRequestParam(qint64 timestamp) const;
    // The query text of "checkQrcode" for the current session; nullopt without one.
    std::optional<QString> makeCheckParam() const;
    // Decodes, decrypts and splits the encrypted user information. Fills both texts and
    // returns true on success; false means ID 5.
    bool decryptUserInfo(const QString &entryptData, QString *username, QString *password) const;

private:
    void handleGetReply(QNetworkReply *reply);
    void handleCheckReply(QNetworkReply *reply);
    void praseCheckRespData(const QByteArray &data, int status, const std::optional<DVError> &transportError);
    void runOnNetworkThread(std::function<void()> work, bool wait = false);

    std::optional<QUrl> _url;
    std::optional<QString> _decodeKey;
    std::optional<QString> _encodeKey;
    std::optional<QString> _dialType;
    std::optional<QString> _ip;
    std::optional<QString> _mac;
    std::shared_ptr<Clock> _clock = Clock::system();

    mutable std::mutex _mutex; // guards sessionId and token
    std::optional<QString> _sessionId;
    std::optional<QString> _token;

    // Network side: lives in _thread; touched only there.
    QThread *_thread = nullptr;
    QObject *_context = nullptr;
    QNetworkAccessManager *_urlSession = nullptr;
    QNetworkReply *_currentTask = nullptr;
};
