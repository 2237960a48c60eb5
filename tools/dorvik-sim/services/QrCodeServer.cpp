#include "QrCodeServer.h"

#include "BusinessServer.h"

#include "Util/DVUtils.h"

#include <QHttpServerResponse>
#include <QTcpSocket>
#include <QTextStream>

#include <algorithm>

using nlohmann::ordered_json;
using Status = QHttpServerResponder::StatusCode;

namespace {
const QStringList kOutcomes = {QStringLiteral("confirmed"), QStringLiteral("expired"), QStringLiteral("failed"),
                               QStringLiteral("garbled")};
}

QrCodeServer::QrCodeServer(QObject *parent)
    : SimService(parent)
{}

QrCodeServer::~QrCodeServer() = default;

bool QrCodeServer::start(const SimOptions &options)
{
    _options = options;
    _scenario = options.scenario(QStringLiteral("qrcode"));
    if (_scenario.startsWith(QLatin1String("auto-confirm"))) {
        const qsizetype colon = _scenario.indexOf(QLatin1Char(':'));
        _autoConfirm = true;
        _autoConfirmSeconds = colon < 0 ? 5 : qMax(0, _scenario.mid(colon + 1).toInt());
    }
    const QString area = options.area;
    const auto host = options.setting("qrcode", "host", area);
    _hashKey = options.setting("qrcode", "hash_key", area).value_or(QString());
    _decodeKey = options.setting("qrcode", "decodekey", area).value_or(QString());
    _path = QUrl(host.value_or(QString())).path();
    while (_path.endsWith(QLatin1Char('/')))
        _path.chop(1);
    // The configured address itself takes the signed POST; checks go to "<address>/<session>".
    _http.route(_path.isEmpty() ? QStringLiteral("/") : _path, QHttpServerRequest::Method::Post,
                [this](const QHttpServerRequest &r) { return handleGet(r); });
    _http.route(_path + QStringLiteral("/<arg>"), QHttpServerRequest::Method::Get,
                [this](const QString &sid, const QHttpServerRequest &r, QHttpServerResponder &&responder) {
                    handleCheck(sid, r, std::move(responder));
                });
    _http.route(_path + QStringLiteral("/scan/<arg>"), [this](const QString &sid) {
        const bool known = _sessions.count(sid) > 0;
        if (known)
            release(QStringLiteral("confirmed"));
        return QHttpServerResponse(QByteArrayLiteral("text/html; charset=utf-8"),
                                   (known ? QStringLiteral("<html><body><h1>已确认登录</h1></body></html>")
                                          : QStringLiteral("<html><body><h1>二维码无效</h1></body></html>"))
                                       .toUtf8());
    });
    _http.route(QStringLiteral("/sim/qrcode/release"), QHttpServerRequest::Method::Post,
                [this](const QHttpServerRequest &r) {
                    const QString outcome = r.query().queryItemValue(QStringLiteral("outcome"));
                    if (!release(outcome))
                        return BusinessSim::jsonResponse({{"error", "outcome is confirmed|expired|failed|garbled"}},
                                                         Status::BadRequest);
                    return BusinessSim::jsonResponse({{"ok", true}});
                });

    const quint16 wanted = options.listenPort(host, 18083);
    _port = _http.listen(QHostAddress::LocalHost, wanted);
    if (_port == 0) {
        QTextStream(stderr) << "qrcode: cannot listen on port " << wanted << '\n';
        return false;
    }
    return true;
}

QHttpServerResponse QrCodeServer::handleGet(const QHttpServerRequest &request)
{
    ++_getRequests;
    std::map<QString, QString> p;
    for (const auto &[k, v] : BusinessSim::formPairs(request.body()))
        p[k] = v;
    const QString base = QStringList{p[QStringLiteral("strMAC")], p[QStringLiteral("dialType")],
                                     p[QStringLiteral("ip")], p[QStringLiteral("timestamp")]}
                             .join(QLatin1Char('$'));
    _lastSignatureOk = p[QStringLiteral("type")] == QLatin1String("getQrcode") && !_hashKey.isEmpty()
                       && DVUtils::hamacSha1ofString(base, _hashKey) == p[QStringLiteral("signature")];
    if (!_lastSignatureOk) {
        ++_badSignatures;
        return BusinessSim::jsonResponse({{"success", "2"}, {"checkMessage", "signature error"}});
    }
    const QString sid = QStringLiteral("s%1").arg(++_counter, 6, 10, QLatin1Char('0'));
    const QString token = DVUtils::md5OfString(sid + QStringLiteral("#token")).left(16);
    _sessions[sid] = token;
    ordered_json answer{
        {"success", "1"}, {"checkMessage", "ok"}, {"sessionid", sid.toStdString()}, {"token", token.toStdString()}};
    if (_scenario != QLatin1String("no-url"))
        answer["url"] = QStringLiteral("http://127.0.0.1:%1%2/scan/%3").arg(_port).arg(_path, sid).toStdString();
    return BusinessSim::jsonResponse(answer);
}

void QrCodeServer::handleCheck(const QString &sessionId, const QHttpServerRequest &request,
                               QHttpServerResponder &&responder)
{
    ++_checkRequests;
    if (_scenario == QLatin1String("http500-empty")) {
        responder.write(Status::InternalServerError);
        return;
    }
    const auto q = request.query();
    const auto known = _sessions.find(sessionId);
    if (q.queryItemValue(QStringLiteral("type")) != QLatin1String("checkQrcode") || known == _sessions.end()
        || q.queryItemValue(QStringLiteral("token")) != known->second
        || q.queryItemValue(QStringLiteral("sessionid")) != sessionId) {
        responder.write(QByteArray::fromStdString(answerFor(QStringLiteral("failed"), sessionId).dump()),
                        QByteArrayLiteral("application/json"));
        return;
    }
    auto waiting = std::make_unique<Waiting>();
    waiting->sessionId = sessionId;
    waiting->socket = responder.socket();
    waiting->responder = std::make_unique<QHttpServerResponder>(std::move(responder));
    if (_nextOutcome) {
        const QString outcome = *_nextOutcome;
        _nextOutcome.reset();
        answer(*waiting, outcome);
        return;
    }
    _waiting.push_back(std::move(waiting));
    if (_autoConfirm)
        QTimer::singleShot(_autoConfirmSeconds * 1000, this, [this] { release(QStringLiteral("confirmed")); });
}

ordered_json QrCodeServer::answerFor(const QString &outcome, const QString &sessionId) const
{
    const std::string sid = sessionId.toStdString();
    if (outcome == QLatin1String("expired"))
        return {{"truncated", "0"}, {"sessionid", sid}, {"checkMessage", "二维码已过期"}};
    if (outcome == QLatin1String("failed"))
        return {{"truncated", "0"}, {"success", "2"}, {"checkMessage", "扫码登录被拒绝"}};
    QString plain;
    if (outcome == QLatin1String("garbled")) {
        plain = QStringLiteral("a$b$c");
    } else {
        const auto first = _options.accounts.begin();
        plain = first == _options.accounts.end() ? QStringLiteral("demo$demo123")
                                                 : first->first + QLatin1Char('$') + first->second;
    }
    const auto cipher = DVUtils::aesEcbEncode(plain.toUtf8(), _decodeKey);
    return {{"truncated", "0"},
            {"success", "1"},
            {"sessionid", sid},
            {"checkMessage", "ok"},
            {"entryptData", cipher ? cipher->toBase64().toStdString() : std::string()}};
}

void QrCodeServer::answer(Waiting &waiting, const QString &outcome)
{
    if (!waiting.socket || waiting.socket->state() != QAbstractSocket::ConnectedState)
        return;
    waiting.responder->write(QByteArray::fromStdString(answerFor(outcome, waiting.sessionId).dump()),
                             QByteArrayLiteral("application/json"));
    ++_answered;
}

void QrCodeServer::dropGone()
{
    _waiting.erase(std::remove_if(_waiting.begin(), _waiting.end(),
                                  [](const std::unique_ptr<Waiting> &w) {
                                      return !w->socket || w->socket->state() != QAbstractSocket::ConnectedState;
                                  }),
                   _waiting.end());
}

bool QrCodeServer::release(const QString &outcome)
{
    if (!kOutcomes.contains(outcome))
        return false;
    dropGone();
    if (_waiting.empty()) {
        _nextOutcome = outcome;
        return true;
    }
    auto waiting = std::move(_waiting);
    _waiting.clear();
    for (auto &w : waiting)
        answer(*w, outcome);
    return true;
}

int QrCodeServer::waitingChecks()
{
    dropGone();
    return static_cast<int>(_waiting.size());
}

ordered_json QrCodeServer::stats() const
{
    return {{"getQrcode", _getRequests},
            {"checkQrcode", _checkRequests},
            {"answered", _answered},
            {"badSignatures", _badSignatures},
            {"waiting", _waiting.size()}};
}
