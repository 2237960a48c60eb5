#pragma once

#include "SimService.h"

#include <QHttpServer>
#include <QTcpServer>

#include <nlohmann/json.hpp>

#include <deque>
#include <map>
#include <memory>
#include <vector>

class QTcpSocket;

// The provider's heartbeat server. It checks the "signature" header of every request and the
// proof of every NOTIFY from the raw message parts, answers NEGOTIATE with OFFER and NOTIFY
// with ACKNOWLEDGE, and rotates the transformation (AES, MD5, SHA1) and the salt (PREFIX,
// SUFFIX) with every answer.
//
// Fault scenarios ("heart" scenario): "nak-storm" (NAK every request), "reject" (a terminal
// REJECT), "http500" (status 500 with a valid body), "garbage" (bodies that are not JSON),
// "silence" (requests are read and never answered), "lowercase-offer" (the OFFER's type
// written "offer"), "deep" (every answer's content holds arrays nested 100,000 deep).
// Under every scenario the signature and a NOTIFY's proof are still checked and counted, so
// that a run that switches scenarios can tell whether every beat the client sent was right.
// All but "silence" can be switched on and off while running.
class HeartServer : public SimService
{
    Q_OBJECT
public:
    explicit HeartServer(QObject *parent = nullptr);
    ~HeartServer() override;

    bool start(const SimOptions &options) override;
    quint16 port() const override { return _port; }
    nlohmann::ordered_json stats() const override;
    bool setScenario(const QString &name) override;

private:
    // The keys a session was last given; a NOTIFY's proof must be made with them.
    struct Session
    {
        QString id;
        QString cipher, offer, saltName, saltKey;
        nlohmann::ordered_json additional = nlohmann::ordered_json::object();
        quint64 lastResponseSequence = 0;
    };
    struct Reply
    {
        int status = 200;
        QByteArray body;
    };

    Reply handle(const QByteArray &path, const QList<QPair<QByteArray, QByteArray>> &headers, const QByteArray &body);
    Reply answerNegotiate(const nlohmann::ordered_json &request);
    Reply answerNotify(const nlohmann::ordered_json &request);
    // Checks a NOTIFY against its session and counts the proof; null (with the refusal to send
    // in `refusal`) when it does not hold. Leaves the session's keys as they are.
    Session *verifyNotify(const nlohmann::ordered_json &request, Reply *refusal);
    Reply reject(const nlohmann::ordered_json &request, bool nak, const QString &why);
    nlohmann::ordered_json envelope(const char *type, const nlohmann::ordered_json &request,
                                    nlohmann::ordered_json content);
    // Picks the next transformation, salt and keys for a session; fills the content keys.
    void rotate(Session &session, nlohmann::ordered_json &content, bool keepCipher);
    bool checkNegotiation(const nlohmann::ordered_json &content, QString *why) const;
    // The proof a client holding the session's keys must send, computed from its parts.
    QString expectedProof(const Session &session, quint64 reqSeq, quint64 respSeq) const;
    void fail(const QString &why);
    void onSilentConnection();

    QHttpServer _http;
    QTcpServer _silent;
    std::vector<QTcpSocket *> _silentSockets;
    quint16 _port = 0;
    QString _scenario;
    QByteArray _key;
    QByteArray _negotiatePath, _heartbeatPath;
    std::optional<qint64> _interval;

    std::map<QString, Session> _sessions;
    quint64 _responseSequence = 100;
    quint64 _rotation = 0;
    quint64 _sessionCounter = 0;

    // What was seen and verified.
    quint64 _requests = 0, _negotiations = 0, _notifications = 0;
    quint64 _signaturesOk = 0, _signaturesBad = 0;
    quint64 _proofsOk = 0, _proofsBad = 0;
    std::map<QString, quint64> _proofsBy; // by transformation and by salt
    std::map<QString, quint64> _replies;  // by reply type
    quint64 _failures = 0;
    std::deque<QString> _failureReasons;   // the last few
    std::deque<quint64> _requestSequences; // the last few, in arrival order
};
