#include "BcomData.h"

#include "BcomContent.h"
#include "BcomCrypt.h"
#include "BcomJson.h"
#include "Conf/Conf.h"
#include "Util/DVJson.h"
#include "Util/Log.h"

#include <cstdlib>

using ordered_json = nlohmann::ordered_json;
using BcomJson::str;

std::optional<BcomData> BcomData::fromJson(const ordered_json &json, QString *error)
{
    BcomJson::Reader r(json, "BcomData");
    BcomData d;
    d.type = r.requiredString("type");
    d.request_sequence = r.requiredUInt64("request_sequence");
    d.response_sequence = r.requiredUInt64("response_sequence");
    d.client_id = r.optionalString("client_id");
    d.version = r.optionalString("version");
    if (auto c = r.object("content", true))
        d.content = std::move(*c);
    if (!r.ok()) {
        if (error)
            *error = r.error();
        return std::nullopt;
    }
    return d;
}

std::optional<BcomData> BcomData::fromData(const QByteArray &body, QString *error)
{
    QString why;
    const std::optional<ordered_json> json = DVJson::parse(body, &why);
    if (!json) {
        if (error)
            *error = QStringLiteral("BcomData is not valid JSON: ") + why;
        return std::nullopt;
    }
    return fromJson(*json, error);
}

ordered_json BcomData::toJson() const
{
    ordered_json j = ordered_json::object();
    j["type"] = str(type);
    j["request_sequence"] = request_sequence;
    j["response_sequence"] = response_sequence;
    if (client_id)
        j["client_id"] = str(*client_id);
    if (version)
        j["version"] = str(*version);
    j["content"] = content;
    return j;
}

QByteArray BcomData::toData() const
{
    // Texts from servers may carry invalid UTF-8 sequences; replace them rather than throw.
    return QByteArray::fromStdString(toJson().dump(-1, ' ', false, ordered_json::error_handler_t::replace));
}

BcomData BcomData::MakeNegotiationWithName(const QString &name, const QString &timestamp, const QString &macAddress,
                                           const QString &ipAddress)
{
    const Conf *conf = Conf::shared();
    return MakeNegotiationWithName(name, timestamp, macAddress, ipAddress,
                                   conf ? conf->heart.getClientId() : std::nullopt);
}

BcomData BcomData::MakeNegotiationWithName(const QString &name, const QString &timestamp, const QString &macAddress,
                                           const QString &ipAddress, const std::optional<QString> &clientId)
{
    BcomData d;
    d.client_id = clientId;
    d.type = BcomTypeName::Negotiate;
    d.version = QStringLiteral("v1.1");
    d.request_sequence = 1;
    d.response_sequence = 0;
    d.content = BcomNegotiationContent::initWithName(name, timestamp, macAddress, ipAddress).toJson();
    return d;
}

BcomType BcomData::getBcomType() const
{
    if (type == BcomTypeName::Negotiate)
        return BcomType::Negotiate;
    if (type == BcomTypeName::Notify)
        return BcomType::Notify;
    if (type == BcomTypeName::Reject)
        return BcomType::Reject;
    if (type == BcomTypeName::Offer)
        return BcomType::Offer;
    if (type == BcomTypeName::Acknowledge)
        return BcomType::Acknowledge;
    return BcomType::Unknown;
}

namespace {

template<typename T> std::unique_ptr<BcomContentProtocol> build(const ordered_json &content)
{
    QString error;
    auto parsed = T::fromJson(content, &error);
    if (!parsed) {
        DVLOG() << error;
        return nullptr;
    }
    return std::make_unique<T>(std::move(*parsed));
}

} // namespace

std::unique_ptr<BcomContentProtocol> BcomData::getContentObject() const
{
    switch (getBcomType()) {
    case BcomType::Negotiate:
        return build<BcomNegotiationContent>(content);
    case BcomType::Notify:
        return build<BcomNotificationContent>(content);
    case BcomType::Reject:
        return build<BcomRejectContent>(content);
    case BcomType::Offer:
        return build<BcomOfferContent>(content);
    case BcomType::Acknowledge:
        return build<BcomAckContent>(content);
    case BcomType::Unknown:
        break;
    }
    DVLOG() << "error content type";
    return nullptr;
}

std::optional<QString> BcomData::getSignatureWithKey(const QString &key) const
{
    const BcomCrypt crypt;
    return crypt.getSignatureFromData(toData(), crypt.getBcomKeyFrom(key));
}

std::optional<BcomData> BcomData::nextWithOpeartionData(BcomOperationData &operationData,
                                                        const std::optional<BcomData> &responseBcomData)
{
    const BcomType own = getBcomType();
    if (own != BcomType::Negotiate && own != BcomType::Notify)
        qFatal("[self getBcomType] == Negotiate || [self getBcomType] == Notify");

    BcomData next = *this;
    next.request_sequence += 1;

    if (responseBcomData) {
        next.response_sequence = responseBcomData->response_sequence;
        auto reply = responseBcomData->getContentObject();
        if (!reply || !reply->updateBcomData(next, operationData))
            return std::nullopt;
        return next;
    }

    // After a transport failure the request's own content is refreshed on the request that was
    // sent, while the copy (made before) goes out again with only its sequence raised. The
    // resend therefore carries exactly what the server may already have seen.
    if (auto content = getContentObject())
        content->updateBcomData(*this, operationData);
    return next;
}
