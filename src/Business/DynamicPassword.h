#pragma once

#include "Net/UDPEcho.h"
#include "Util/DVError.h"
#include "Util/OperationQueue.h"

#include <QByteArray>
#include <QString>

#include <memory>
#include <optional>

// Asks the password server to send a one-time password to the subscriber's phone: one
// encrypted datagram naming the account, one status datagram back. The outcome is posted as
// DVNotificationNameDyPwd with a DyPwdCheckNotificationInfo under
// NotificationInfoKeyDyPwdCheck (no error: the password is on its way). No password ever
// comes back over this channel.
//
// Meant for the main queue: it runs the current thread's event loop for at most 10 seconds.
class DynamicPassword : public Operation, private UDPEchoDelegate
{
public:
    static inline const QString ErrorDomain = QStringLiteral("dynamicPwd");
    static constexpr qint64 kReplyWaitMs = 10000;

    // Configured from the `dynmicpwd` section (host:port, request and reply keys).
    explicit DynamicPassword(const QString &username);
    DynamicPassword(std::optional<QString> host, qint64 port, QString username, QString decodeKey, QString encodeKey);
    ~DynamicPassword() override;

    void main() override;

    // Ends the current event-loop run and posts the outcome.
    void notifyWithError(const std::optional<DVError> &error);

    // The request datagram: a 4-byte length header, then "TEL=<username>&SEQ=<seq>" under
    // AES-128-ECB with `encodeKey`.
    static QByteArray makeRequestDatagram(const QString &username, const QString &seq, const QString &encodeKey);
    // The outcome a reply datagram stands for: nullopt for success, else the error to post.
    static std::optional<DVError> classifyReply(const QByteArray &datagram, const QString &decodeKey);

    // How long to wait for the exchange (for tests; the product waits 10 seconds).
    void setReplyWaitMs(qint64 ms) { _replyWaitMs = ms; }

    const std::optional<QString> &host() const { return _host; }
    qint64 port() const { return _port; }
    const QString &username() const { return _username; }

private:
    void echoDidReceiveData(UDPEcho *echo, const QByteArray &data, const QByteArray &address) override;
    void echoDidReceiveError(UDPEcho *echo, const DVError &error) override;
    void echoDidFailToSendData(UDPEcho *echo, const QByteArray &data, const QByteArray &address,
                               const DVError &error) override;
    void echoDidStartWithAddress(UDPEcho *echo, const QByteArray &address) override;
    void echoDidStopWithError(UDPEcho *echo, const DVError &error) override;

    std::optional<QString> _host;
    qint64 _port = 0;
    QString _username;
    QString _decodeKey;
    QString _encodeKey;
    qint64 _replyWaitMs = kReplyWaitMs;
    std::unique_ptr<UDPEcho> _echo; // lives on the running thread while main() runs
};
