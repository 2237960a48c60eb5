#pragma once

#include "SimService.h"

#include <QHttpServer>
#include <QMutex>

#include <nlohmann/json.hpp>

// The provider's token service. A POST to the configured path must carry the form body
// "account=…&pwd=<md5 of the password>", a "Signature" header (HMAC-SHA1 with the
// configured key over "POST&<escaped path>&account=…&pwd=…") and, when the configuration
// names an authentication user, "Authorization: Basic …" for it. Answers
// {"code", "token", "redirect_uri", "message"}; code 0 means a token was issued.
//
// Fault scenarios ("token" scenario): "http500" (status 500 with a valid answer),
// "no-message" (the answer lacks "message"), "refuse" (code 3, "token quota exceeded").
class TokenServer : public SimService
{
    Q_OBJECT
public:
    explicit TokenServer(QObject *parent = nullptr);

    bool start(const SimOptions &options) override;
    quint16 port() const override { return _port; }
    nlohmann::ordered_json stats() const override;

    // What the last request carried.
    struct Seen
    {
        QByteArray body;
        QByteArray authorization; // empty when absent
        QByteArray signature;
        QByteArray contentType;
        bool hadAuthorization = false;
        bool signatureOk = false;
    };
    Seen lastRequest() const;
    int requests() const;

private:
    QHttpServerResponse handle(const QHttpServerRequest &request);

    QHttpServer _http;
    quint16 _port = 0;
    SimOptions _options;
    QString _scenario, _path, _key, _authUser, _authPwd;

    mutable QMutex _mutex;
    Seen _last;
    int _requests = 0, _issued = 0, _refused = 0;
};
