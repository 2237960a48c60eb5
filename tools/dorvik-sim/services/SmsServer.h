#pragma once

#include "SimService.h"

#include <QUdpSocket>

#include <nlohmann/json.hpp>

// The provider's SMS-verification server: UDP, one XML document per datagram. It checks every
// request (element, attribute names and order, the check code made with the shared key, a
// numeric time stamp) and answers as its scenario says.
//
// Scenarios ("sms"): "none" (default: no verification needed), "code" (a code is sent and
// "123456" is accepted; "code=<digits>" accepts another), "code-error" (a code is sent, and
// every check is answered "ERROR007" without a message), "silence" (nothing is answered),
// "garbage" (answers that are not XML).
class SmsServer : public SimService
{
    Q_OBJECT
public:
    using SimService::SimService;

    bool start(const SimOptions &options) override;
    quint16 port() const override { return _socket.localPort(); }
    nlohmann::ordered_json stats() const override;

private:
    void readPending();
    // The reply to one request; empty for none.
    QByteArray answer(const QByteArray &request);

    QUdpSocket _socket;
    QString _scenario;
    QString _acceptedCode = QStringLiteral("123456");
    QString _shareKey;

    int _requests = 0;     // "accountInfo" datagrams
    int _checks = 0;       // "validateAccount" datagrams
    int _verified = 0;     // checks with the accepted code
    int _wrongCodes = 0;   // checks with another code
    int _badCheckCode = 0; // check code not made from the account and the shared key
    int _malformed = 0;    // not a well-formed request
    int _replies = 0;
    nlohmann::ordered_json _last = nlohmann::ordered_json::object();
    QString _lastProblem;
};
