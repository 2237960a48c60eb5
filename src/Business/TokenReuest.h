#pragma once

#include "Util/DVNotification.h"
#include "Util/DVUtils.h"
#include "Util/OperationQueue.h"

#include <QByteArray>
#include <QString>

#include <map>
#include <optional>

// The token service's settings (the "token" section).
struct TokenSettings
{
    std::optional<QString> authName; // user
    std::optional<QString> authPwd;  // pwd
    std::optional<QString> host;
    std::optional<QString> key; // signing key
    std::optional<QString> path;

    static TokenSettings fromConf();
};

// Asks the token service for an access token with one signed POST and posts the parsed
// answer as DVNotificationNameToken ({NotificationInfoKeyToken: TokenNotificationInfo}).
// Only a parsed answer is posted; every failure is one log line.
class TokenReuest : public Operation
{
public:
    using Headers = std::vector<std::pair<QString, QString>>;

    TokenReuest(const QString &username, const QString &password);
    TokenReuest(TokenSettings settings, const QString &username, const QString &password);

    // A request cancelled before its turn (the link went down) still tells its outcome, so a
    // caller waiting for the answer is not left to its own time-out.
    void start() override;
    void main() override;

    // Told the outcome of start() once, on the operation's thread: the parsed answer, or why
    // there is none. For callers that need an answer either way (diagnostics, tools).
    std::function<void(const std::optional<TokenNotificationInfo> &info, const QString &why)> onOutcome;

    // account, then pwd (MD5 of the password): the body and the signature list them so.
    DVParams makeParams() const;
    std::optional<QString> getSignatureFromParam(const DVParams &params) const;
    // The base string the signature is computed over; nullopt without a path.
    std::optional<QString> signatureBaseString(const DVParams &params) const;
    static std::optional<Headers> getBasicAuthHeaderFromUserName(const QString &name, const QString &password);
    void doRquestWithBody(const QByteArray &body, const Headers &header);

    // The answer as a notification payload; nullopt with the reason when it does not parse.
    static std::optional<TokenNotificationInfo> parseTokenInfo(const QByteArray &body, QString *why);

private:
    void fail(const QString &why);

    std::optional<QString> _authName;
    std::optional<QString> _authPwd;
    std::optional<QString> _host;
    std::optional<QString> _key;
    std::optional<QString> _path;
    QString _username;
    QString _password;
};
