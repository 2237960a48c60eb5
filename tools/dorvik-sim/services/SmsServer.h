#pragma once

#include "UdpSimService.h"

#include <nlohmann/json.hpp>

// The provider's SMS-verification server: UDP, one XML document per datagram. It checks every
// request (element, attribute names and order, the check code made with the shared key, a
// numeric time stamp) and answers as its scenario says.
//
// Scenarios ("sms"): "none" (default: no verification needed), "code" (a code is sent and
// "123456" is accepted; "code=<digits>" accepts another), "code-error" (a code is sent, and
// every check is answered "ERROR007" without a message), "silence" (nothing is answered),
// "garbage" (answers that are not XML).
class SmsServer : public UdpSimService
{
    Q_OBJECT
public:
    using UdpSimService::UdpSimService;

    bool start(const SimOptions &options) override;
    nlohmann::ordered_json stats() const override;
    bool setScenario(const QString &name) override;

private:
    QByteArray answer(const QByteArray &request) override;

    QString _scenario;
    QString _acceptedCode = QStringLiteral("123456");
    QString _shareKey;

    int _requests = 0;     // "accountInfo" datagrams
    int _checks = 0;       // "validateAccount" datagrams
    int _verified = 0;     // checks with the accepted code
    int _wrongCodes = 0;   // checks with another code
    int _badCheckCode = 0; // check code not made from the account and the shared key
    int _malformed = 0;    // not a well-formed request
    nlohmann::ordered_json _last = nlohmann::ordered_json::object();
    QString _lastProblem;
};
