#pragma once

#include "Util/DVError.h"

#include <QByteArray>
#include <QString>

#include <optional>

// Answer to "getQrcode". success and checkMessage are required texts; the rest may be absent.
struct QrcodeGetResult
{
    QString success;
    QString checkMessage;
    std::optional<QString> sessionid;
    std::optional<QString> token;
    std::optional<QString> url;

    // Parses a JSON object; nullopt with `error` filled (ID 1 with the reason) when the body is
    // not an object or a required key is missing or not text.
    static std::optional<QrcodeGetResult> fromJson(const QByteArray &body, DVError *error);
    // The service's own verdict. Without a place for the error it refuses to judge.
    bool validate(DVError *error) const;
};

// Answer to "checkQrcode". Only truncated is required. "entryptData" is the wire spelling.
struct QrcodeCheckResult
{
    QString truncated;
    std::optional<QString> success;
    std::optional<QString> sessionid;
    std::optional<QString> checkMessage;
    std::optional<QString> entryptData;

    static std::optional<QrcodeCheckResult> fromJson(const QByteArray &body, DVError *error);
    bool validate(DVError *error) const;
};
