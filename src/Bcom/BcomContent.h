#pragma once

#include "BcomData.h"

#include <QString>
#include <QStringList>

#include <nlohmann/json.hpp>

#include <optional>

// What every content kind does when a reply (or the request itself) decides the next request:
// prepares `next` and the shared operation data; false stops the heartbeat.
class BcomContentProtocol
{
public:
    virtual ~BcomContentProtocol() = default;
    virtual bool updateBcomData(BcomData &next, BcomOperationData &operationData) = 0;
    virtual nlohmann::ordered_json toJson() const = 0;
};

// Kinds the client sends.
class BcomContentRequestProtocol : public BcomContentProtocol
{
};

// Kinds the server sends.
class BcomContentResponseProtocol : public BcomContentProtocol
{
};

class BcomNegotiationContent : public BcomContentRequestProtocol
{
public:
    QString ip, username, client_version, code;
    QString mac;
    QStringList proposals;
    std::optional<QString> os, os_version, timestamp;

    // `name` is the Base64 dial name.
    static BcomNegotiationContent initWithName(const QString &name, const QString &timestamp, const QString &macAddress,
                                               const QString &ipAddress);
    static std::optional<BcomNegotiationContent> fromJson(const nlohmann::ordered_json &json, QString *error);
    nlohmann::ordered_json toJson() const override;
    bool updateBcomData(BcomData &next, BcomOperationData &operationData) override;
};

class BcomNotificationContent : public BcomContentRequestProtocol
{
public:
    QString session;
    QString data;
    std::optional<nlohmann::ordered_json> additional;

    static BcomNotificationContent initWithReqSeq(quint64 reqSeq, quint64 respSeq,
                                                  const BcomOperationData &operationData);
    // The text the proof is computed over: session, both sequence numbers in decimal, then
    // every value of `additional` in the order its keys arrived, nothing in between.
    static QString proofInput(const QString &session, quint64 reqSeq, quint64 respSeq,
                              const std::optional<nlohmann::ordered_json> &additional);
    static std::optional<BcomNotificationContent> fromJson(const nlohmann::ordered_json &json, QString *error);
    nlohmann::ordered_json toJson() const override;
    bool updateBcomData(BcomData &next, BcomOperationData &operationData) override;
};

class BcomOfferContent : public BcomContentResponseProtocol
{
public:
    QString session, cipher, offer, salt_name, salt_key;
    std::optional<nlohmann::ordered_json> additional;
    std::optional<qint32> interval;

    static std::optional<BcomOfferContent> fromJson(const nlohmann::ordered_json &json, QString *error);
    nlohmann::ordered_json toJson() const override;
    bool updateBcomData(BcomData &next, BcomOperationData &operationData) override;
};

class BcomAckContent : public BcomContentResponseProtocol
{
public:
    std::optional<QString> cipher, offer;
    QString salt_name, salt_key;
    std::optional<nlohmann::ordered_json> additional;
    std::optional<qint32> interval;

    static std::optional<BcomAckContent> fromJson(const nlohmann::ordered_json &json, QString *error);
    nlohmann::ordered_json toJson() const override;
    bool updateBcomData(BcomData &next, BcomOperationData &operationData) override;
};

class BcomRejectNotice
{
public:
    QString layout;
    QString desc; // "description"

    static std::optional<BcomRejectNotice> fromJson(const nlohmann::ordered_json &json, QString *error);
    nlohmann::ordered_json toJson() const;
};

class BcomRejectContent : public BcomContentResponseProtocol
{
public:
    enum Status { NAK = 1, Terminal = 2 };

    nlohmann::ordered_json error = 0; // the server's error code, a JSON number
    int type = Terminal;              // "action_type"
    std::optional<BcomRejectNotice> notice;
    QString desc; // "description"
    QString url;

    // Exactly "NAK" retries; every other text is terminal.
    void setTypeWithNSString(const QString &text) { type = text == QLatin1String("NAK") ? NAK : Terminal; }
    static QString JSONObjectForStatus(int status)
    {
        return status == NAK ? QStringLiteral("NAK") : QStringLiteral("TERMINAL");
    }

    static std::optional<BcomRejectContent> fromJson(const nlohmann::ordered_json &json, QString *error);
    nlohmann::ordered_json toJson() const override;
    bool updateBcomData(BcomData &next, BcomOperationData &operationData) override;
};
