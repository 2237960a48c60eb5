#pragma once

#include "SimService.h"

#include <QHttpServer>
#include <QMutex>
#include <QUrl>

#include <nlohmann/json.hpp>

#include <optional>

// Helpers shared by the business, token and QR-code simulators.
namespace BusinessSim {
// "k=v&k=v" in order, without unescaping (the clients do not escape).
std::vector<std::pair<QString, QString>> formPairs(const QByteArray &body);
QHttpServerResponse jsonResponse(const nlohmann::ordered_json &body,
                                 QHttpServerResponder::StatusCode status = QHttpServerResponder::StatusCode::Ok);
} // namespace BusinessSim

// The provider's business server: "/config.action" answers with a tab page address and two
// bubbles (a text one and a web one), "/register.action" with the area's server addresses.
// Both check the request's "ReqType". "/tab" and "/notice" serve the small pages the
// addresses point to ("/tab" and "/ad/index.html" the online view's page).
//
// Tests (or a person, with POST /sim/business/answer?kind=config|register and a JSON body)
// can replace the next answers. Fault scenarios ("business" scenario): "http500" (every
// request gets status 500), "wrong-resptype" (answers carry another "RespType"), "deep" (the
// configuration answer's bubble list and a registration info hold arrays nested 100,000 deep).
class BusinessServer : public SimService
{
    Q_OBJECT
public:
    explicit BusinessServer(QObject *parent = nullptr);

    bool start(const SimOptions &options) override;
    quint16 port() const override { return _port; }
    nlohmann::ordered_json stats() const override;
    bool setScenario(const QString &name) override;

    // Replaces the answers from now on (nullopt: back to the built-in ones).
    void setConfigAnswer(std::optional<nlohmann::ordered_json> answer);
    void setRegisterAnswer(std::optional<nlohmann::ordered_json> answer);
    // The raw bodies of the last requests.
    QByteArray lastConfigBody() const;
    QByteArray lastRegisterBody() const;
    int configRequests() const;
    int registerRequests() const;

    nlohmann::ordered_json defaultConfigAnswer(const QString &area) const;
    nlohmann::ordered_json defaultRegisterAnswer(const QString &area) const;
    QString tabAddress(const QString &area) const;
    QString adPage(const QString &area) const;

private:
    QHttpServerResponse handle(const QHttpServerRequest &request, bool config);

    QHttpServer _http;
    quint16 _port = 0;
    SimOptions _options;
    QString _scenario;

    mutable QMutex _mutex;
    std::optional<nlohmann::ordered_json> _configAnswer, _registerAnswer;
    QByteArray _lastConfigBody, _lastRegisterBody;
    int _configRequests = 0, _registerRequests = 0, _badRequests = 0;
};
