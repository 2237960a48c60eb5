#include "QrCodeModels.h"

#include "QrCodeError.h"
#include "Util/DVJson.h"
#include "Util/Log.h"

#include <nlohmann/json.hpp>

using ordered_json = nlohmann::ordered_json;

namespace {

// Reads one text member. Absent and null both count as absent; any other kind is a
// malformed answer.
bool readText(const ordered_json &object, const char *key, bool required, std::optional<QString> &out, QString &why)
{
    const auto it = object.find(key);
    if (it == object.end() || it->is_null()) {
        if (required)
            why = QStringLiteral("missing key %1").arg(QLatin1String(key));
        return !required;
    }
    if (!it->is_string()) {
        why = QStringLiteral("key %1 is not text").arg(QLatin1String(key));
        return false;
    }
    out = QString::fromStdString(it->get<std::string>());
    return true;
}

std::optional<ordered_json> parseObject(const QByteArray &body, DVError *error)
{
    QString why;
    std::optional<ordered_json> json = DVJson::parse(body, &why);
    if (!json) {
        setError(error, QrCodeError::createErrorWithID(QrCodeError::ParseFailed, why));
        return std::nullopt;
    }
    if (!json->is_object()) {
        setError(error, QrCodeError::createErrorWithID(QrCodeError::ParseFailed, QStringLiteral("not an object")));
        return std::nullopt;
    }
    return json;
}

bool refuseWithoutErrorPlace(const DVError *error)
{
    if (error)
        return false;
    DVLOG() << "qrcode nil error pointer ref";
    return true;
}

} // namespace

std::optional<QrcodeGetResult> QrcodeGetResult::fromJson(const QByteArray &body, DVError *error)
{
    const auto json = parseObject(body, error);
    if (!json)
        return std::nullopt;
    QrcodeGetResult r;
    std::optional<QString> success, checkMessage;
    QString why;
    const bool ok = readText(*json, "success", true, success, why)
                    && readText(*json, "checkMessage", true, checkMessage, why)
                    && readText(*json, "sessionid", false, r.sessionid, why)
                    && readText(*json, "token", false, r.token, why) && readText(*json, "url", false, r.url, why);
    if (!ok) {
        setError(error, QrCodeError::createErrorWithID(QrCodeError::ParseFailed, why));
        return std::nullopt;
    }
    r.success = *success;
    r.checkMessage = *checkMessage;
    return r;
}

bool QrcodeGetResult::validate(DVError *error) const
{
    if (refuseWithoutErrorPlace(error))
        return false;
    if (success == QLatin1String("2")) {
        *error = QrCodeError::createErrorWithID(QrCodeError::ServerFailed, checkMessage);
        return false;
    }
    if (success == QLatin1String("1") && !(token && sessionid && url)) {
        *error = QrCodeError::createErrorWithID(QrCodeError::ParseFailed, checkMessage);
        return false;
    }
    return true;
}

std::optional<QrcodeCheckResult> QrcodeCheckResult::fromJson(const QByteArray &body, DVError *error)
{
    const auto json = parseObject(body, error);
    if (!json)
        return std::nullopt;
    QrcodeCheckResult r;
    std::optional<QString> truncated;
    QString why;
    const bool ok = readText(*json, "truncated", true, truncated, why)
                    && readText(*json, "success", false, r.success, why)
                    && readText(*json, "sessionid", false, r.sessionid, why)
                    && readText(*json, "checkMessage", false, r.checkMessage, why)
                    && readText(*json, "entryptData", false, r.entryptData, why);
    if (!ok) {
        setError(error, QrCodeError::createErrorWithID(QrCodeError::ParseFailed, why));
        return std::nullopt;
    }
    r.truncated = *truncated;
    return r;
}

bool QrcodeCheckResult::validate(DVError *error) const
{
    if (refuseWithoutErrorPlace(error))
        return false;
    // A session id without credentials is how the service says nobody scanned in time.
    if (sessionid && !entryptData) {
        *error = QrCodeError::createErrorWithID(QrCodeError::ScanTimeout, checkMessage);
        return false;
    }
    if (success == QLatin1String("1")) {
        if (entryptData)
            return true;
        *error = QrCodeError::createErrorWithID(QrCodeError::ParseFailed, checkMessage);
        return false;
    }
    if (success == QLatin1String("2") || success == QLatin1String("3")) {
        *error = QrCodeError::createErrorWithID(QrCodeError::ServerFailed, checkMessage);
        return false;
    }
    return true;
}
