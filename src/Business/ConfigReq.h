#pragma once

#include "Util/OperationQueue.h"

#include <nlohmann/json.hpp>

#include <QByteArray>
#include <QString>

#include <optional>

class BubbleCenter;

// Reports account, area and client version to the business server right after a connection
// comes up, and applies what comes back: a tab page address and bubbles. Fire and forget:
// every failure is one log line.
class ConfigReq : public Operation
{
public:
    // `host` is the business host; "/config.action" is appended as it stands. Bubbles go to
    // `bubbles` (the default centre when null).
    ConfigReq(const QString &host, const std::optional<QString> &username, BubbleCenter *bubbles = nullptr);

    void main() override;

    // The JSON body, pretty-printed; nullopt when it cannot be serialised.
    std::optional<QByteArray> makeParam() const;
    void request();
    void handleResponseData(const std::optional<QByteArray> &data);
    void popBubbleWithDictionary(const nlohmann::ordered_json &bubble);

    // The version reported; the client's own unless replaced (absent means unknown).
    void setClientVersion(const std::optional<QString> &version) { _version = version; }

    const QString &host() const { return _host; }

private:
    const QString _host;
    const std::optional<QString> _username;
    std::optional<QString> _version;
    BubbleCenter *_bubbles;
};
