#pragma once

#include "UdpSimService.h"

#include <QSet>

#include <nlohmann/json.hpp>

#include <map>

// The provider's dynamic-password server: one datagram in (a 4-byte header that must be zero,
// then "TEL=<account>&SEQ=<UUID>" under AES-128-ECB with the request key), one status
// datagram out (same layout, the reply key). It never sends a password back; a real one would
// text it to the subscriber's phone.
//
// Scenarios ("dynpwd"): "ok" (default: "RESULT=SUCCESS" for a known account, or for any
// account when the simulator knows none; "RESULT=ERROR&INFO=..." for an unknown one),
// "error" ("RESULT=ERROR&INFO=<reason>"), "error-noinfo" ("RESULT=ERROR"), "garbage" (a
// reply that does not decrypt), "short" (a 2-byte reply), "other" ("RESULT=PENDING"),
// "silence" (no reply). Requests that do not check out are counted and not answered.
class DynPwdServer : public UdpSimService
{
    Q_OBJECT
public:
    using UdpSimService::UdpSimService;

    bool start(const SimOptions &options) override;
    nlohmann::ordered_json stats() const override;

    // The reason that error replies carry after "RESULT=ERROR&".
    static const char *errorInfo() { return "INFO=该号码未开通动态密码业务"; }

private:
    QByteArray answer(const QByteArray &request) override;
    QByteArray seal(const QByteArray &plain) const;

    QString _scenario;
    QString _requestKey; // "encodeKey": what the client encrypts with
    QString _replyKey;   // "decodeKey": what the client decrypts with
    std::map<QString, QString> _accounts;

    int _requests = 0;
    int _badHeader = 0; // first four bytes not zero, or a length that is not 4 + n*16
    int _undecryptable = 0;
    int _badText = 0;    // decrypted, but not "TEL=...&SEQ=<UUID>"
    int _accepted = 0;   // everything checked out
    QSet<QString> _seqs; // to see that every request carries a fresh sequence
    QString _lastTel, _lastSeq, _lastProblem;
};
