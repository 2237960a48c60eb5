#include "BcomContent.h"

#include "BcomCrypt.h"
#include "BcomJson.h"
#include "BcomOperationData.h"
#include "BcomPlatform.h"
#include "Util/Log.h"

using ordered_json = nlohmann::ordered_json;
using BcomJson::Reader;
using BcomJson::str;

namespace {

template<typename T> std::optional<T> finish(Reader &reader, T value, QString *error)
{
    if (reader.ok())
        return value;
    if (error)
        *error = reader.error();
    return std::nullopt;
}

} // namespace

// ---- NEGOTIATE ----

BcomNegotiationContent BcomNegotiationContent::initWithName(const QString &name, const QString &timestamp,
                                                            const QString &macAddress, const QString &ipAddress)
{
    BcomNegotiationContent c;
    c.ip = ipAddress;
    c.username = name;
    c.client_version = BcomPlatform::clientVersion();
    c.code = QStringLiteral("xl");
    c.mac = macAddress;
    c.proposals = BcomCrypt::allSaltMethod();
    // The server may check this text, so it names the protocol's platform on every system;
    // the version tells the truth about this machine.
    c.os = QStringLiteral("macOS");
    c.os_version = BcomPlatform::osDescription();
    c.timestamp = timestamp;
    return c;
}

std::optional<BcomNegotiationContent> BcomNegotiationContent::fromJson(const ordered_json &json, QString *error)
{
    Reader r(json, "BcomNegotiationContent");
    BcomNegotiationContent c;
    c.ip = r.requiredString("ip");
    c.username = r.requiredString("username");
    c.client_version = r.requiredString("client_version");
    c.code = r.requiredString("code");
    c.mac = r.requiredString("mac");
    c.proposals = r.requiredStringArray("proposals");
    c.os = r.optionalString("os");
    c.os_version = r.optionalString("os_version");
    c.timestamp = r.optionalString("timestamp");
    return finish(r, std::move(c), error);
}

ordered_json BcomNegotiationContent::toJson() const
{
    ordered_json j = ordered_json::object();
    j["ip"] = str(ip);
    j["username"] = str(username);
    j["client_version"] = str(client_version);
    j["code"] = str(code);
    j["mac"] = str(mac);
    j["proposals"] = ordered_json::array();
    for (const QString &p : proposals)
        j["proposals"].push_back(str(p));
    if (os)
        j["os"] = str(*os);
    if (os_version)
        j["os_version"] = str(*os_version);
    if (timestamp)
        j["timestamp"] = str(*timestamp);
    return j;
}

bool BcomNegotiationContent::updateBcomData(BcomData &, BcomOperationData &)
{
    // A negotiation goes out again as it is.
    return true;
}

// ---- NOTIFY ----

QString BcomNotificationContent::proofInput(const QString &session, quint64 reqSeq, quint64 respSeq,
                                            const std::optional<ordered_json> &additional)
{
    QString text = session + QString::number(reqSeq) + QString::number(respSeq);
    if (additional && additional->is_object()) {
        for (const auto &item : additional->items()) {
            // Values are texts; anything else a server puts there takes part as its JSON text.
            const auto &v = item.value();
            text += v.is_string() ? QString::fromStdString(v.get<std::string>()) : QString::fromStdString(v.dump());
        }
    }
    return text;
}

BcomNotificationContent BcomNotificationContent::initWithReqSeq(quint64 reqSeq, quint64 respSeq,
                                                                const BcomOperationData &operationData)
{
    BcomNotificationContent c;
    // Before the first OFFER there is no session (an ACKNOWLEDGE answered a NEGOTIATE); the
    // notification then quotes an empty one.
    c.session = operationData.session.value_or(QString());
    c.additional = operationData.bcomCryptData.additional;
    const QString input = proofInput(c.session, reqSeq, respSeq, c.additional);
    c.data = BcomCrypt().getDatafrom(input, &operationData.bcomCryptData);
    return c;
}

std::optional<BcomNotificationContent> BcomNotificationContent::fromJson(const ordered_json &json, QString *error)
{
    Reader r(json, "BcomNotificationContent");
    BcomNotificationContent c;
    c.session = r.requiredString("session");
    c.data = r.requiredString("data");
    c.additional = r.object("additional", false);
    return finish(r, std::move(c), error);
}

ordered_json BcomNotificationContent::toJson() const
{
    ordered_json j = ordered_json::object();
    j["session"] = str(session);
    j["data"] = str(data);
    if (additional)
        j["additional"] = *additional;
    return j;
}

bool BcomNotificationContent::updateBcomData(BcomData &next, BcomOperationData &operationData)
{
    next.content = initWithReqSeq(next.request_sequence, next.response_sequence, operationData).toJson();
    return true;
}

// ---- OFFER ----

std::optional<BcomOfferContent> BcomOfferContent::fromJson(const ordered_json &json, QString *error)
{
    Reader r(json, "BcomOfferContent");
    BcomOfferContent c;
    c.session = r.requiredString("session");
    c.cipher = r.requiredString("cipher");
    c.offer = r.requiredString("offer");
    c.salt_name = r.requiredString("salt_name");
    c.salt_key = r.requiredString("salt_key");
    c.additional = r.object("additional", false);
    if (const auto n = r.number("interval", false))
        c.interval = BcomJson::toInt32(*n);
    return finish(r, std::move(c), error);
}

ordered_json BcomOfferContent::toJson() const
{
    ordered_json j = ordered_json::object();
    j["session"] = str(session);
    j["cipher"] = str(cipher);
    j["offer"] = str(offer);
    j["salt_name"] = str(salt_name);
    j["salt_key"] = str(salt_key);
    if (additional)
        j["additional"] = *additional;
    if (interval)
        j["interval"] = *interval;
    return j;
}

bool BcomOfferContent::updateBcomData(BcomData &next, BcomOperationData &operationData)
{
    operationData.updateWithOfferContent(*this);
    next.type = BcomTypeName::Notify;
    next.content =
        BcomNotificationContent::initWithReqSeq(next.request_sequence, next.response_sequence, operationData).toJson();
    return true;
}

// ---- ACKNOWLEDGE ----

std::optional<BcomAckContent> BcomAckContent::fromJson(const ordered_json &json, QString *error)
{
    Reader r(json, "BcomAckContent");
    BcomAckContent c;
    c.cipher = r.optionalString("cipher");
    c.offer = r.optionalString("offer");
    c.salt_name = r.requiredString("salt_name");
    c.salt_key = r.requiredString("salt_key");
    c.additional = r.object("additional", false);
    if (const auto n = r.number("interval", false))
        c.interval = BcomJson::toInt32(*n);
    return finish(r, std::move(c), error);
}

ordered_json BcomAckContent::toJson() const
{
    ordered_json j = ordered_json::object();
    if (cipher)
        j["cipher"] = str(*cipher);
    if (offer)
        j["offer"] = str(*offer);
    j["salt_name"] = str(salt_name);
    j["salt_key"] = str(salt_key);
    if (additional)
        j["additional"] = *additional;
    if (interval)
        j["interval"] = *interval;
    return j;
}

bool BcomAckContent::updateBcomData(BcomData &next, BcomOperationData &operationData)
{
    operationData.updateWithAckContent(*this);
    // The type stays what it was: an ACKNOWLEDGE to a NEGOTIATE leaves a NEGOTIATE carrying a
    // notification, which goes to the negotiation endpoint.
    next.content =
        BcomNotificationContent::initWithReqSeq(next.request_sequence, next.response_sequence, operationData).toJson();
    return true;
}

// ---- REJECT ----

std::optional<BcomRejectNotice> BcomRejectNotice::fromJson(const ordered_json &json, QString *error)
{
    Reader r(json, "BcomRejectNotice");
    BcomRejectNotice n;
    n.layout = r.requiredString("layout");
    n.desc = r.requiredString("description");
    return finish(r, std::move(n), error);
}

ordered_json BcomRejectNotice::toJson() const
{
    ordered_json j = ordered_json::object();
    j["layout"] = str(layout);
    j["description"] = str(desc);
    return j;
}

std::optional<BcomRejectContent> BcomRejectContent::fromJson(const ordered_json &json, QString *error)
{
    Reader r(json, "BcomRejectContent");
    BcomRejectContent c;
    if (const auto n = r.number("error", true))
        c.error = *n;
    c.setTypeWithNSString(r.requiredString("action_type"));
    if (const auto notice = r.object("notice", false)) {
        QString noticeError;
        c.notice = BcomRejectNotice::fromJson(*notice, &noticeError);
        if (!c.notice) {
            if (error)
                *error = noticeError;
            return std::nullopt;
        }
    }
    c.desc = r.requiredString("description");
    c.url = r.requiredString("url");
    return finish(r, std::move(c), error);
}

ordered_json BcomRejectContent::toJson() const
{
    ordered_json j = ordered_json::object();
    j["error"] = error;
    j["action_type"] = str(JSONObjectForStatus(type));
    if (notice)
        j["notice"] = notice->toJson();
    j["description"] = str(desc);
    j["url"] = str(url);
    return j;
}

bool BcomRejectContent::updateBcomData(BcomData &next, BcomOperationData &operationData)
{
    if (type != NAK) {
        DVLOG() << "heart is terminal";
        DVLOG() << desc;
        return false;
    }
    DVLOG() << "reject";
    operationData.retryTimes += 1;
    // The count runs over the whole heartbeat: good replies in between do not reset it.
    if (operationData.retryTimes >= 11) {
        DVLOG() << "faile after " << operationData.retryTimes << " retry attempt";
        return false;
    }
    auto own = next.getContentObject();
    if (dynamic_cast<BcomContentRequestProtocol *>(own.get())) {
        DVLOG() << "retry " << operationData.retryTimes << " attempt";
        return own->updateBcomData(next, operationData);
    }
    DVLOG() << "response content type error";
    return false;
}
