#pragma once

#include <QString>
#include <QStringList>

#include <nlohmann/json.hpp>

#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

using ordered_json = nlohmann::ordered_json;

// One setting of the configuration file: a JSON object keyed by area code plus "default".
// Resolution happens at every call, against the process's current area (Conf::area()).
class AreaValue
{
public:
    AreaValue() = default;
    explicit AreaValue(ordered_json object);

    // The entry of the current area, else the "default" entry, else nullopt.
    std::optional<ordered_json> getValueOfArea() const;
    // The resolved value as text: a string as it is, a number or boolean as its JSON text;
    // nullopt when absent, null, an array or an object.
    std::optional<QString> text() const;

    const ordered_json &json() const { return _object; }

private:
    ordered_json _object = ordered_json::object();
    // Member positions of a large object (one entry per area of a big deployment), so that a
    // read does not scan every area code; null for small objects.
    std::shared_ptr<const std::unordered_map<std::string, std::size_t>> _index;
};

class Web
{
public:
    AreaValue name, host;
    std::optional<QString> getWebName() const { return name.text(); }
    std::optional<QString> getWebHost() const { return host.text(); }
};

class AppConf
{
public:
    AreaValue taskBarName, weichatPic;
    Web website, password;
    std::optional<QString> getTaskBarName() const { return taskBarName.text(); }
    std::optional<QString> getWeiChatPic() const { return weichatPic.text(); }
};

class HeartConf
{
public:
    AreaValue interval, negotiateurl, hearbeaturl, key, client_id, request_timeout, response_timeout;
    std::optional<QString> getInterval() const { return interval.text(); }
    std::optional<QString> getNegotiateUrl() const { return negotiateurl.text(); }
    std::optional<QString> getHearbeatUrl() const { return hearbeaturl.text(); }
    std::optional<QString> getKey() const { return key.text(); }
    std::optional<QString> getClientId() const { return client_id.text(); }
    std::optional<QString> getRequestTimeout() const { return request_timeout.text(); }
    std::optional<QString> getResponseTimeout() const { return response_timeout.text(); }
};

// JSON keys: "order", "timepin-psk", "timepin-prefix", "suffix".
class AccountRuleConf
{
public:
    AreaValue order, timepin_psk, timepin_prefix, suffix;
    // The rule names in order; nullopt when absent or not an array of strings.
    std::optional<QStringList> getOrder() const;
    std::optional<QString> getPsk() const { return timepin_psk.text(); }
    std::optional<QString> getPrefix() const { return timepin_prefix.text(); }
    std::optional<QString> getSufix() const { return suffix.text(); }
};

class LogoConf
{
public:
    AreaValue image;
    std::optional<QString> getImage() const { return image.text(); }
};

class TabConf
{
public:
    AreaValue url;
    // The address received from the server when it parses as a URL, else the file's value.
    std::optional<QString> getUrl() const;
    // Stores a server-sent address in the received configuration, never in the file.
    void setTabUrl(const QString &url) const;
};

class Update
{
public:
    AreaValue host;
    std::optional<QString> getHost() const { return host.text(); }
};

class Route
{
public:
    AreaValue version;
    std::optional<QString> getVersion() const { return version.text(); }
};

class Business
{
public:
    AreaValue host;
    std::optional<QString> getHost() const { return host.text(); }
};

class Token
{
public:
    AreaValue host, path, user, pwd, key;
    std::optional<QString> getHost() const { return host.text(); }
    std::optional<QString> getUrlPath() const { return path.text(); }
    std::optional<QString> getAuthName() const { return user.text(); }
    std::optional<QString> getAuthPassword() const { return pwd.text(); }
    std::optional<QString> getPskkey() const { return key.text(); }
};

class Login
{
public:
    AreaValue isDynamic, isQrcodeEnable, ifQrCodeOnly;
    // Boolean conversion: true, a non-zero number, or a text whose integer value is non-zero
    // or that reads "true"/"yes" (case-insensitive).
    bool isDynamicDial() const;
    bool isQrcCodeDial() const;
    bool ifQrCodeAlone() const;
    QString dialMethod() const { return QStringLiteral("PPPoE"); }
};

class QrCode
{
public:
    AreaValue host, decodekey, hash_key, timepin_prefix;
    std::optional<QString> getHost() const { return host.text(); }
    std::optional<QString> getDeCodeKey() const { return decodekey.text(); }
    std::optional<QString> getHashKey() const { return hash_key.text(); }
    std::optional<QString> getPrefix() const { return timepin_prefix.text(); }
};

class Dynmicpwd
{
public:
    AreaValue host, decodeKey, encodeKey;
    std::optional<QString> getHost() const { return host.text(); }
    std::optional<QString> getDecodeKey() const { return decodeKey.text(); }
    std::optional<QString> getEncodeKey() const { return encodeKey.text(); }
};

class SMS
{
public:
    AreaValue host, shareKey, timeout;
    std::optional<QString> getHost() const { return host.text(); }
    std::optional<QString> getShareKey() const { return shareKey.text(); }
    // Unsigned integer conversion of the value; nullopt when absent.
    std::optional<quint64> getTimeOutSeconds() const;
};

// Not read from the file: the remembered interface, kept in the preferences.
class UserConf
{
public:
    std::optional<QString> getDefaultInterface() const;
    // nullopt clears it.
    void setDefaultInterface(const std::optional<QString> &bsdName) const;
};

// The shipped configuration, decrypted and parsed once.
class Conf
{
public:
    // The parsed shipped file, or null when it could not be read, decrypted or parsed (the
    // reason is logged once). Loaded on first call.
    static Conf *shared();

    // Parses decrypted JSON text. Null (and one log line with the parser's description)
    // when the text is not JSON or a required key is missing or of the wrong kind. When
    // `error` is given the description goes there instead of the log.
    static std::unique_ptr<Conf> fromJson(const QByteArray &plaintext, QString *error = nullptr);
    // Reads, decrypts and parses a file; failures as for fromJson.
    static std::unique_ptr<Conf> fromFile(const QString &path, QString *error = nullptr);
    // The shipped (encrypted) form, or plain JSON as a deployer edits it (the tools' --config).
    static std::unique_ptr<Conf> fromEncryptedOrPlainFile(const QString &path, QString *error = nullptr);
    // Makes `conf` what shared() returns from now on (tools that take --config, tests).
    static void setShared(std::unique_ptr<Conf> conf);

    // The current area code; empty when none was chosen.
    static QString area();
    // Stores the code only when it differs from the current one.
    static void setArea(const QString &area);
    // Sets the area from the preference "areacode" (start-up).
    static void restoreArea();

    // Where the shipped files live: the build tree's share/dorvik next to the program when run
    // from a build, else the installed data directory.
    static QString resourceDirectory();
    static QString systemConfigPath(); // <resourceDirectory>/system.cfg
    static QString areaTreePath();     // <resourceDirectory>/area.cfg

    // The JSON path of every required setting, in file order: "app.taskBarName",
    // "app.website.host", "accountrule.timepin-psk", "qrcode.timepin_prefix", ...
    static const QStringList &fieldPaths();
    // The setting at one of those paths; null for any other path.
    const AreaValue *valueAt(const QString &path) const;

    // Whether a text is a usable absolute address: a strictly valid URL with a scheme and a
    // host. Server-sent and link addresses are checked with this.
    static bool parsesAsUrl(const std::optional<QString> &text);

    AppConf app;
    HeartConf heart;
    AccountRuleConf accountrule;
    LogoConf logo;
    TabConf tab;
    Update update;
    Route route;
    Business business;
    Token token;
    Login login;
    QrCode qrcode;
    Dynmicpwd dynmicpwd;
    SMS sms;
    UserConf user;
};
