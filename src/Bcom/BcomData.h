#pragma once

#include <QByteArray>
#include <QString>

#include <nlohmann/json.hpp>

#include <memory>
#include <optional>

class BcomContentProtocol;
class BcomOperationData;

// Message types; the numbering (REJECT before OFFER) is the protocol's own.
enum class BcomType { Unknown = 0, Negotiate = 1, Notify = 2, Reject = 3, Offer = 4, Acknowledge = 5 };

// One heartbeat message, request or reply: an envelope with a type-specific "content" object.
class BcomData
{
public:
    QString type;
    quint64 request_sequence = 0;
    quint64 response_sequence = 0;
    std::optional<QString> client_id;
    std::optional<QString> version;
    // Kept as received; content objects are built from it on demand.
    nlohmann::ordered_json content = nlohmann::ordered_json::object();

    // nullopt (and the reason in `error`) when a required key is missing or of the wrong kind.
    static std::optional<BcomData> fromJson(const nlohmann::ordered_json &json, QString *error = nullptr);
    static std::optional<BcomData> fromData(const QByteArray &body, QString *error = nullptr);
    nlohmann::ordered_json toJson() const;
    // The serialisation that goes on the wire (compact JSON, UTF-8).
    QByteArray toData() const;

    // A first NEGOTIATE: "client_id" from the heart section of the configuration.
    static BcomData MakeNegotiationWithName(const QString &name, const QString &timestamp, const QString &macAddress,
                                            const QString &ipAddress);
    // The same with the client id given.
    static BcomData MakeNegotiationWithName(const QString &name, const QString &timestamp, const QString &macAddress,
                                            const QString &ipAddress, const std::optional<QString> &clientId);

    BcomType getBcomType() const;
    // The content object of this message's type; null for an unknown type ("error content
    // type") or a content that does not fit its model (the parse error is logged).
    std::unique_ptr<BcomContentProtocol> getContentObject() const;
    // Lower-case hex HMAC-SHA1 of toData() with the key; "" when the key is refused.
    std::optional<QString> getSignatureWithKey(const QString &key) const;

    // The next request after this one (a NEGOTIATE or NOTIFY that was just sent), given the
    // reply or nullopt after a transport failure; nullopt when the heartbeat must stop.
    std::optional<BcomData> nextWithOpeartionData(BcomOperationData &operationData,
                                                  const std::optional<BcomData> &responseBcomData);
};

// Texts of the message types.
namespace BcomTypeName {
inline const QString Negotiate = QStringLiteral("NEGOTIATE");
inline const QString Notify = QStringLiteral("NOTIFY");
inline const QString Reject = QStringLiteral("REJECT");
inline const QString Offer = QStringLiteral("OFFER");
inline const QString Acknowledge = QStringLiteral("ACKNOWLEDGE");
} // namespace BcomTypeName
