#include "HeartServer.h"
#include "HostileJson.h"

#include "Util/Crypto.h"

#include <QHttpServerRequest>
#include <QHttpServerResponder>
#include <QHttpServerResponse>
#include <QTcpSocket>
#include <QTextStream>
#include <QUrl>

using ordered_json = nlohmann::ordered_json;

namespace {

const char *const kTransformations[] = {"AES", "MD5", "SHA1"};
const char *const kSalts[] = {"PREFIX", "SUFFIX"};
constexpr size_t kKeepLast = 32;

// The value of `section.key` for the area, else the "default" entry.
QByteArray headerValue(const QList<QPair<QByteArray, QByteArray>> &headers, const QByteArray &name)
{
    for (const auto &h : headers) {
        if (h.first.compare(name, Qt::CaseInsensitive) == 0)
            return h.second;
    }
    return {};
}

QString text(const ordered_json &object, const char *key)
{
    if (!object.is_object())
        return {};
    const auto it = object.find(key);
    return it != object.end() && it->is_string() ? QString::fromStdString(it->get<std::string>()) : QString();
}

quint64 sequence(const ordered_json &object, const char *key)
{
    const auto it = object.find(key);
    return it != object.end() && it->is_number_unsigned() ? it->get<quint64>() : 0;
}

template<typename T> void keepLast(std::deque<T> &list, T value)
{
    list.push_back(std::move(value));
    while (list.size() > kKeepLast)
        list.pop_front();
}

} // namespace

HeartServer::HeartServer(QObject *parent)
    : SimService(parent)
{}

HeartServer::~HeartServer()
{
    for (QTcpSocket *s : _silentSockets)
        delete s;
}

bool HeartServer::start(const SimOptions &options)
{
    _scenario = options.scenario(QStringLiteral("heart"));
    const QString area = options.area;
    const QUrl negotiate(options.setting("heart", "negotiateurl", area).value_or(QString()));
    const QUrl heartbeat(options.setting("heart", "hearbeaturl", area).value_or(QString()));
    _key = options.setting("heart", "key", area).value_or(QString()).toUtf8();
    if (const auto interval = options.setting("heart", "interval", area))
        _interval = interval->toLongLong();
    _negotiatePath = negotiate.path().toUtf8();
    _heartbeatPath = heartbeat.path().toUtf8();
    if (_negotiatePath.isEmpty())
        _negotiatePath = QByteArrayLiteral("/negotiate");
    if (_heartbeatPath.isEmpty())
        _heartbeatPath = QByteArrayLiteral("/heartbeat");

    const quint16 wanted = options.ephemeralPorts ? 0 : static_cast<quint16>(negotiate.port(0));
    if (!options.ephemeralPorts && wanted == 0) {
        QTextStream(stderr) << "heart: the configuration has no negotiateurl with a port\n";
        return false;
    }

    if (_scenario == QLatin1String("silence")) {
        // Reads every request and never answers: the client's time-outs must end the wait.
        QObject::connect(&_silent, &QTcpServer::newConnection, this, &HeartServer::onSilentConnection);
        if (!_silent.listen(QHostAddress::LocalHost, wanted)) {
            QTextStream(stderr) << "heart: cannot listen: " << _silent.errorString() << '\n';
            return false;
        }
        _port = _silent.serverPort();
        return true;
    }

    const auto route = [this](const QByteArray &path) {
        _http.route(QString::fromUtf8(path), QHttpServerRequest::Method::Post,
                    [this, path](const QHttpServerRequest &request) {
                        const Reply reply = handle(path, request.headers(), request.body());
                        return QHttpServerResponse(QByteArrayLiteral("application/json"), reply.body,
                                                   static_cast<QHttpServerResponder::StatusCode>(reply.status));
                    });
    };
    route(_negotiatePath);
    if (_heartbeatPath != _negotiatePath)
        route(_heartbeatPath);
    _http.setMissingHandler([this](const QHttpServerRequest &request, QHttpServerResponder &&responder) {
        ++_requests;
        fail(QStringLiteral("request to an unknown endpoint: ") + request.url().path());
        responder.write(QHttpServerResponder::StatusCode::NotFound);
    });
    _port = _http.listen(QHostAddress::LocalHost, wanted);
    if (_port == 0) {
        QTextStream(stderr) << "heart: cannot listen on port " << wanted << '\n';
        return false;
    }
    return true;
}

void HeartServer::onSilentConnection()
{
    while (QTcpSocket *socket = _silent.nextPendingConnection()) {
        socket->setParent(nullptr);
        _silentSockets.push_back(socket);
        auto buffer = std::make_shared<QByteArray>();
        QObject::connect(socket, &QTcpSocket::readyRead, this, [this, socket, buffer] {
            buffer->append(socket->readAll());
            // Count each complete request; the answer never comes.
            for (;;) {
                const qsizetype end = buffer->indexOf("\r\n\r\n");
                if (end < 0)
                    return;
                qsizetype length = 0;
                for (const QByteArray &line : buffer->left(end).split('\n')) {
                    if (line.trimmed().toLower().startsWith("content-length:"))
                        length = line.mid(line.indexOf(':') + 1).trimmed().toLongLong();
                }
                if (buffer->size() < end + 4 + length)
                    return;
                const QByteArray body = buffer->mid(end + 4, length);
                buffer->remove(0, end + 4 + length);
                ++_requests;
                const ordered_json json = ordered_json::parse(body.toStdString(), nullptr, false);
                if (json.is_object())
                    keepLast(_requestSequences, sequence(json, "request_sequence"));
            }
        });
    }
}

HeartServer::Reply HeartServer::handle(const QByteArray &path, const QList<QPair<QByteArray, QByteArray>> &headers,
                                       const QByteArray &body)
{
    ++_requests;
    const ordered_json request = ordered_json::parse(body.toStdString(), nullptr, false);
    if (!request.is_object()) {
        fail(QStringLiteral("request body is not a JSON object"));
        return {400, QByteArray()};
    }
    keepLast(_requestSequences, sequence(request, "request_sequence"));

    if (headerValue(headers, QByteArrayLiteral("Content-Type")) != "application/json")
        fail(QStringLiteral("Content-Type is not application/json"));
    const QByteArray expected = Crypto::hmacSha1(body, _key).toHex();
    const bool signed_ = headerValue(headers, QByteArrayLiteral("signature")) == expected;
    if (signed_) {
        ++_signaturesOk;
    } else {
        ++_signaturesBad;
        fail(QStringLiteral("bad signature"));
    }

    const QString type = text(request, "type");
    const bool refusing = _scenario == QLatin1String("garbage") || _scenario == QLatin1String("reject")
                          || _scenario == QLatin1String("nak-storm");
    if (refusing && signed_ && type == QLatin1String("NOTIFY")) {
        ++_notifications;
        Reply ignored;
        verifyNotify(request, &ignored);
    }
    if (_scenario == QLatin1String("garbage"))
        return {200, QByteArrayLiteral("\x01<html>this is not the JSON you are looking for")};
    if (_scenario == QLatin1String("reject"))
        return reject(request, false, QStringLiteral("account suspended"));
    if (_scenario == QLatin1String("nak-storm"))
        return reject(request, true, QStringLiteral("busy, try again"));
    if (!signed_)
        return reject(request, false, QStringLiteral("bad signature"));

    Reply reply;
    if (type == QLatin1String("NEGOTIATE")) {
        if (path != _negotiatePath)
            fail(QStringLiteral("NEGOTIATE sent to ") + QString::fromUtf8(path));
        reply = answerNegotiate(request);
    } else if (type == QLatin1String("NOTIFY")) {
        if (path != _heartbeatPath)
            fail(QStringLiteral("NOTIFY sent to ") + QString::fromUtf8(path));
        reply = answerNotify(request);
    } else {
        fail(QStringLiteral("request of type ") + type);
        reply = reject(request, false, QStringLiteral("unexpected message type"));
    }
    if (_scenario == QLatin1String("http500"))
        reply.status = 500;
    if (_scenario == QLatin1String("deep"))
        reply.body.replace(QByteArrayLiteral("\"content\":{"),
                           QByteArray(QByteArrayLiteral("\"content\":{\"deep\":") + HostileJson::deepArrays() + ','));
    return reply;
}

bool HeartServer::checkNegotiation(const ordered_json &content, QString *why) const
{
    for (const char *key : {"ip", "username", "client_version", "code", "mac"}) {
        if (text(content, key).isEmpty()) {
            *why = QStringLiteral("negotiation without ") + QLatin1String(key);
            return false;
        }
    }
    const auto name =
        QByteArray::fromBase64Encoding(text(content, "username").toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
    if (!name || name.decoded.isEmpty()) {
        *why = QStringLiteral("username is not Base64");
        return false;
    }
    if (text(content, "code") != QLatin1String("xl") || text(content, "os") != QLatin1String("macOS")) {
        *why = QStringLiteral("negotiation with a wrong code or os");
        return false;
    }
    const auto proposals = content.find("proposals");
    bool prefix = false, suffix = false;
    if (proposals != content.end() && proposals->is_array()) {
        for (const auto &p : *proposals) {
            prefix = prefix || p == "PREFIX";
            suffix = suffix || p == "SUFFIX";
        }
    }
    if (!prefix || !suffix) {
        *why = QStringLiteral("negotiation does not propose PREFIX and SUFFIX");
        return false;
    }
    return true;
}

HeartServer::Reply HeartServer::answerNegotiate(const ordered_json &request)
{
    ++_negotiations;
    QString why;
    const auto content = request.find("content");
    if (content == request.end() || !checkNegotiation(*content, &why)) {
        fail(why.isEmpty() ? QStringLiteral("negotiation without content") : why);
        return reject(request, false, why);
    }
    Session session;
    session.id = QStringLiteral("sess-%1").arg(++_sessionCounter);
    ordered_json offer = ordered_json::object();
    offer["session"] = session.id.toStdString();
    rotate(session, offer, false);
    ordered_json reply = envelope(_scenario == QLatin1String("lowercase-offer") ? "offer" : "OFFER", request, offer);
    session.lastResponseSequence = reply["response_sequence"].get<quint64>();
    _sessions[session.id] = session;
    return {200, QByteArray::fromStdString(reply.dump())};
}

HeartServer::Reply HeartServer::answerNotify(const ordered_json &request)
{
    ++_notifications;
    Reply refusal;
    Session *checked = verifyNotify(request, &refusal);
    if (!checked)
        return refusal;
    Session &session = *checked;
    ordered_json ack = ordered_json::object();
    // Now and then an acknowledgement leaves the cipher out: the old one stays in force.
    rotate(session, ack, _rotation % 4 == 3);
    ordered_json reply = envelope("ACKNOWLEDGE", request, ack);
    session.lastResponseSequence = reply["response_sequence"].get<quint64>();
    return {200, QByteArray::fromStdString(reply.dump())};
}

HeartServer::Session *HeartServer::verifyNotify(const ordered_json &request, Reply *refusal)
{
    const auto content = request.find("content");
    const QString id = content != request.end() ? text(*content, "session") : QString();
    const auto it = _sessions.find(id);
    if (it == _sessions.end()) {
        fail(QStringLiteral("notification for an unknown session ") + id);
        *refusal = reject(request, false, QStringLiteral("unknown session"));
        return nullptr;
    }
    Session &session = it->second;
    const quint64 req = sequence(request, "request_sequence");
    const quint64 resp = sequence(request, "response_sequence");
    if (resp != session.lastResponseSequence)
        fail(QStringLiteral("response_sequence %1 does not echo %2").arg(resp).arg(session.lastResponseSequence));
    const auto additional = content->find("additional");
    if (additional == content->end() || *additional != session.additional)
        fail(QStringLiteral("additional not echoed as sent"));

    const QString proof = text(*content, "data");
    if (proof.isEmpty() || proof != expectedProof(session, req, resp)) {
        ++_proofsBad;
        fail(QStringLiteral("proof mismatch (%1/%2)").arg(session.offer, session.saltName));
        *refusal = reject(request, true, QStringLiteral("proof mismatch"));
        return nullptr;
    }
    ++_proofsOk;
    ++_proofsBy[session.offer];
    ++_proofsBy[session.saltName];
    return &session;
}

bool HeartServer::setScenario(const QString &name)
{
    // "silence" listens with a plain TCP server of its own: it is chosen at start only.
    static const QStringList switchable = {QString(),
                                           QStringLiteral("nak-storm"),
                                           QStringLiteral("reject"),
                                           QStringLiteral("http500"),
                                           QStringLiteral("garbage"),
                                           QStringLiteral("lowercase-offer"),
                                           QStringLiteral("deep")};
    if (_scenario == QLatin1String("silence") || !switchable.contains(name))
        return false;
    _scenario = name;
    return true;
}

HeartServer::Reply HeartServer::reject(const ordered_json &request, bool nak, const QString &why)
{
    ordered_json content = ordered_json::object();
    content["error"] = nak ? 503 : 403;
    content["action_type"] = nak ? "NAK" : "TERMINAL";
    content["notice"] = {{"layout", "banner"}, {"description", why.toStdString()}};
    content["description"] = why.toStdString();
    content["url"] = "http://127.0.0.1/help";
    ordered_json reply = envelope("REJECT", request, std::move(content));
    // A NAKed notification is rebuilt by the client with the new response sequence.
    const auto c = request.find("content");
    if (c != request.end()) {
        const auto it = _sessions.find(text(*c, "session"));
        if (it != _sessions.end())
            it->second.lastResponseSequence = reply["response_sequence"].get<quint64>();
    }
    return {200, QByteArray::fromStdString(reply.dump())};
}

ordered_json HeartServer::envelope(const char *type, const ordered_json &request, ordered_json content)
{
    ++_replies[QString::fromLatin1(type)];
    ordered_json reply = ordered_json::object();
    reply["type"] = type;
    reply["request_sequence"] = sequence(request, "request_sequence");
    reply["response_sequence"] = ++_responseSequence;
    reply["version"] = "v1.1";
    reply["content"] = std::move(content);
    return reply;
}

void HeartServer::rotate(Session &session, ordered_json &content, bool keepCipher)
{
    const quint64 k = _rotation++;
    session.offer = QLatin1String(kTransformations[k % 3]);
    session.saltName = QLatin1String(kSalts[k % 2]);
    if (!keepCipher || session.cipher.isEmpty()) {
        // Full 16-byte keys and short ones (zero-padded by the AES key rule) take turns.
        session.cipher = k % 2 == 0 ? QStringLiteral("K%1").arg(k, 15, 10, QLatin1Char('0'))
                                    : QStringLiteral("c%1").arg(k % 10000, 4, 10, QLatin1Char('0'));
        content["cipher"] = session.cipher.toStdString();
    }
    content["offer"] = session.offer.toStdString();
    session.saltKey = QStringLiteral("salt-%1").arg(k);
    content["salt_name"] = session.saltName.toStdString();
    content["salt_key"] = session.saltKey.toStdString();
    // Keys deliberately out of alphabetical order: the proof takes the values as they arrive.
    session.additional = ordered_json::object();
    session.additional["zeta"] = QStringLiteral("z%1").arg(k).toStdString();
    session.additional["alpha"] = QStringLiteral("a%1").arg(k).toStdString();
    content["additional"] = session.additional;
    if (_interval)
        content["interval"] = *_interval;
}

QString HeartServer::expectedProof(const Session &session, quint64 reqSeq, quint64 respSeq) const
{
    QByteArray input = session.id.toUtf8() + QByteArray::number(reqSeq) + QByteArray::number(respSeq);
    for (const auto &item : session.additional.items())
        input += QByteArray::fromStdString(item.value().get<std::string>());
    const QByteArray saltKey = session.saltKey.toUtf8();
    const QByteArray salted = session.saltName == QLatin1String("PREFIX") ? saltKey + input : input + saltKey;
    const QByteArray cipher = session.cipher.toLatin1();

    QByteArray transformed;
    if (session.offer == QLatin1String("AES")) {
        const QByteArray key = cipher + QByteArray(16 - cipher.size(), '\0');
        transformed = Crypto::aes128(salted, key, {}, Crypto::Op::Encrypt).value_or(QByteArray());
    } else if (session.offer == QLatin1String("MD5")) {
        transformed = Crypto::md5(salted).toHex();
    } else {
        transformed = Crypto::hmacSha1(salted, cipher);
    }
    return QString::fromLatin1(Crypto::hmacSha1(transformed, cipher).toHex());
}

void HeartServer::fail(const QString &why)
{
    ++_failures;
    keepLast(_failureReasons, why);
}

ordered_json HeartServer::stats() const
{
    ordered_json s = ordered_json::object();
    s["service"] = "heart";
    s["scenario"] = _scenario.toStdString();
    s["requests"] = _requests;
    s["negotiations"] = _negotiations;
    s["notifications"] = _notifications;
    s["signatures"] = {{"verified", _signaturesOk}, {"failed", _signaturesBad}};
    ordered_json proofs = {{"verified", _proofsOk}, {"failed", _proofsBad}};
    for (const char *name : {"AES", "MD5", "SHA1", "PREFIX", "SUFFIX"}) {
        const auto it = _proofsBy.find(QLatin1String(name));
        proofs[name] = it == _proofsBy.end() ? 0 : it->second;
    }
    s["proofs"] = proofs;
    ordered_json replies = ordered_json::object();
    for (const auto &[type, n] : _replies)
        replies[type.toStdString()] = n;
    s["replies"] = replies;
    s["failures"] = _failures;
    s["failureReasons"] = ordered_json::array();
    for (const QString &r : _failureReasons)
        s["failureReasons"].push_back(r.toStdString());
    s["requestSequences"] = ordered_json::array();
    for (quint64 n : _requestSequences)
        s["requestSequences"].push_back(n);
    return s;
}
