#pragma once

#include "SimService.h"

#include <QHttpServer>
#include <QPointer>
#include <QTimer>

#include <nlohmann/json.hpp>

#include <map>
#include <memory>
#include <optional>
#include <vector>

class QTcpSocket;

// The provider's QR-code service at the configured address (the "qrcode" host).
//
// POST <path> (type=getQrcode, signed with the hash key over "mac$dialType$ip$timestamp")
// answers a fresh session: {"success": "1", "checkMessage", "sessionid", "token", "url"}.
// GET <path>/<sessionid>?type=checkQrcode&… is a long poll: it stays open until the code is
// released, then answers one of
//   confirmed — the first known account, "name$password" AES-encrypted with the decode key;
//   expired   — the session id without credentials (the client asks for a fresh code);
//   failed    — success "2";
//   garbled   — credentials that do not split into name and password.
// Release with POST /sim/qrcode/release?outcome=… (or release() in-process); a release with
// nothing waiting applies to the next check. GET <url>/scan/<sessionid> (the address inside
// the code) confirms that session, as a phone would.
//
// Scenarios ("qrcode" scenario): "auto-confirm" or "auto-confirm:N" (confirm N seconds after
// a check arrives, 5 by default), "no-url" (getQrcode succeeds without "url"),
// "http500-empty" (checks are answered with status 500 and no body).
class QrCodeServer : public SimService
{
    Q_OBJECT
public:
    explicit QrCodeServer(QObject *parent = nullptr);
    ~QrCodeServer() override;

    bool start(const SimOptions &options) override;
    quint16 port() const override { return _port; }
    nlohmann::ordered_json stats() const override;

    // Answers every waiting check (or the next one) with the outcome; false for an unknown name.
    bool release(const QString &outcome);
    // Checks waiting for an answer now (connections that went away are not counted).
    int waitingChecks();
    bool lastSignatureOk() const { return _lastSignatureOk; }

private:
    struct Waiting
    {
        QString sessionId;
        std::unique_ptr<QHttpServerResponder> responder;
        QPointer<QTcpSocket> socket;
    };

    QHttpServerResponse handleGet(const QHttpServerRequest &request);
    void handleCheck(const QString &sessionId, const QHttpServerRequest &request, QHttpServerResponder &&responder);
    nlohmann::ordered_json answerFor(const QString &outcome, const QString &sessionId) const;
    void answer(Waiting &waiting, const QString &outcome);
    void dropGone();

    QHttpServer _http;
    quint16 _port = 0;
    SimOptions _options;
    QString _scenario, _path, _hashKey, _decodeKey;
    bool _autoConfirm = false;
    int _autoConfirmSeconds = 0;

    std::map<QString, QString> _sessions; // session id -> token
    std::vector<std::unique_ptr<Waiting>> _waiting;
    std::optional<QString> _nextOutcome;
    quint64 _counter = 0;
    int _getRequests = 0, _checkRequests = 0, _answered = 0, _badSignatures = 0;
    bool _lastSignatureOk = false;
};
