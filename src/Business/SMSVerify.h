#pragma once

#include "Net/UDPEcho.h"
#include "Util/Clock.h"
#include "Util/DVError.h"
#include "Util/DVNotification.h"
#include "Util/OperationQueue.h"

#include <QByteArray>
#include <QString>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>

// Asks the SMS-verification server, after a connection came up, whether the account must
// confirm the log-in with a code sent by text message; if so, hands the question to the user
// interface and sends the typed code back for checking.
//
// The user interface side: observe DVNotificationNameSMSVerifyToUI (payload
// SMSVerifyToUINotificationInfo under NotificationInfoKeySMSVerifyToUI, posted on the
// operation's worker thread). An error with code 0 means "ask the user" (description: the
// server's message, timeoutSeconds: how long the operation waits); any other error means the
// verification failed and the client should disconnect; no error means verified or nothing to
// verify. Answer with DVNotificationNameSMSVerifyFromUI carrying an
// SMSVerifyFromUINotificationInfo (possibly empty code) under NotificationInfoKeySMSVerifyFromUI.
//
// Run it on a worker queue, never on the main thread: it blocks while the user types.
class SMSVerify : public Operation, private UDPEchoDelegate
{
public:
    // One parsed reply; every field copied verbatim from the reply's "returnInfo" attributes.
    struct Result
    {
        std::optional<QString> resCode, titleMsg, resMsg, isBind, sendSuccess;
    };

    static inline const QString ErrorDomain = QStringLiteral("SMSVerify");
    // How long each exchange with the server may take.
    static constexpr qint64 kTransportWaitMs = 10000;

    // Configured from the `sms` section: host:port, shared key, waiting time.
    explicit SMSVerify(const QString &username);
    SMSVerify(std::optional<QString> host, qint64 port, QString username, std::optional<QString> shareKey,
              quint64 timeoutSeconds);
    ~SMSVerify() override;

    void main() override;

    // True when the operation may run; logs why not.
    bool checkProperties() const;
    // Takes the user's answer (any thread).
    void onNotification(const DVNotificationMessage &message);
    // Ends the current event-loop run and tells the user interface.
    void notifyWithError(const std::optional<DVError> &error);

    // The request texts and the check code.
    QByteArray makeRequestParam() const;
    QByteArray makeVerifyParam() const;
    QString getCheckCodeWithName(const QString &name) const;
    // Parses one reply: nullopt when it holds no "op" element. A parse error is logged and
    // whatever was read before it counts.
    static std::optional<Result> parseReply(const QByteArray &xml);

    // Waits: each exchange with the server, and (when given) the user's answer instead of
    // timeoutSeconds. For tests; the defaults are the product's.
    void setWaits(qint64 transportWaitMs, std::optional<qint64> userWaitMs = std::nullopt);
    void setClock(std::shared_ptr<Clock> clock) { _clock = std::move(clock); }

    const std::optional<QString> &host() const { return _host; }
    qint64 port() const { return _port; }
    const QString &username() const { return _username; }
    quint64 timeoutSeconds() const { return _timeoutSeconds; }
    std::optional<Result> result() const;
    std::optional<QString> code() const;

private:
    void echoDidReceiveData(UDPEcho *echo, const QByteArray &data, const QByteArray &address) override;
    void echoDidReceiveError(UDPEcho *echo, const DVError &error) override;
    void echoDidFailToSendData(UDPEcho *echo, const QByteArray &data, const QByteArray &address,
                               const DVError &error) override;
    void echoDidStartWithAddress(UDPEcho *echo, const QByteArray &address) override;
    void echoDidStopWithError(UDPEcho *echo, const DVError &error) override;
    void runMain();

    std::optional<QString> _host;
    qint64 _port = 0;
    QString _username;
    std::optional<QString> _key;
    quint64 _timeoutSeconds = 0;

    qint64 _transportWaitMs = kTransportWaitMs;
    std::optional<qint64> _userWaitMs;
    std::shared_ptr<Clock> _clock = Clock::system();

    std::unique_ptr<UDPEcho> _echo; // lives on the worker thread while main() runs
    std::optional<DVNotificationCenter::Token> _observer;

    mutable std::mutex _mutex; // guards what the user-interface thread touches
    bool _semaphore = false;   // the operation's semaphore is in use for the user's answer
    std::optional<Result> _result;
    std::optional<QString> _code;
};
