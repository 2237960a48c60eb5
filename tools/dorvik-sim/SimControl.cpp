#include "SimControl.h"

#include "SimHost.h"

#include <QHttpServerRequest>
#include <QHttpServerResponse>

namespace {
using json = nlohmann::ordered_json;

QHttpServerResponse answer(const json &body,
                           QHttpServerResponder::StatusCode status = QHttpServerResponder::StatusCode::Ok)
{
    return QHttpServerResponse(QByteArrayLiteral("application/json"), QByteArray::fromStdString(body.dump()), status);
}
} // namespace

SimControl::SimControl(SimHost &host)
    : _host(host)
{}

bool SimControl::start(quint16 port)
{
    _http.route(QStringLiteral("/sim/stats"), QHttpServerRequest::Method::Get,
                [this] { return answer(_host.stats()); });
    _http.route(
        QStringLiteral("/sim/scenario"), QHttpServerRequest::Method::Post, [this](const QHttpServerRequest &request) {
            const QByteArray raw = request.body();
            const json body = json::parse(raw.constData(), raw.constData() + raw.size(), nullptr, false);
            if (!body.is_object() || !body.contains("service") || !body["service"].is_string()
                || !body.contains("scenario") || !body["scenario"].is_string())
                return answer({{"error", "wants {\"service\": name, \"scenario\": name}"}},
                              QHttpServerResponder::StatusCode::BadRequest);
            const QString name = QString::fromStdString(body["service"].get<std::string>());
            SimService *service = _host.service(name);
            if (!service)
                return answer({{"error", "no such service running"}}, QHttpServerResponder::StatusCode::NotFound);
            if (!service->setScenario(QString::fromStdString(body["scenario"].get<std::string>())))
                return answer({{"error", "this service cannot switch to that scenario while running"}},
                              QHttpServerResponder::StatusCode::BadRequest);
            return answer({{"ok", true}});
        });
    _port = _http.listen(QHostAddress::LocalHost, port);
    return _port != 0;
}
