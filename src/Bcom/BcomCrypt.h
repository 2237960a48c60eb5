#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <nlohmann/json.hpp>

#include <optional>

// The server's choices for the keyed proof of a NOTIFY, one set per heartbeat. They arrive
// with OFFER and ACKNOWLEDGE.
class BcomCryptData
{
public:
    std::optional<QString> offer;  // transformation name: "AES", "MD5" or "SHA1"
    std::optional<QString> cipher; // key of the transformation and of the final keyed hash
    QString saltName;              // "PREFIX", "SUFFIX" or "DYNAMIC"
    QString saltKey;               // salt text, or the script key of DYNAMIC
    // The server's "additional" object, in the order its keys arrived; for DYNAMIC it holds "key1".
    std::optional<nlohmann::ordered_json> additional;

    // True when a proof can be computed from these values; each missing value is logged.
    bool checkProperty() const;
};

// The salt operations. Each takes (salt key, origin text, additional) and gives the salted
// text, or nothing when it cannot salt.
class BcomOpSalt
{
public:
    using SaltFn = std::optional<QString> (*)(const QString &saltKey, const std::optional<QString> &origin,
                                              const std::optional<nlohmann::ordered_json> &additional);
    struct Entry
    {
        const char *selector; // "<NAME>:originString:additional:"
        SaltFn fn;
    };
    // In declaration order; the names proposed to the server are derived from this table.
    static const std::vector<Entry> &operations();

    static std::optional<QString> PREFIX(const QString &saltKey, const std::optional<QString> &origin,
                                         const std::optional<nlohmann::ordered_json> &additional);
    static std::optional<QString> SUFFIX(const QString &saltKey, const std::optional<QString> &origin,
                                         const std::optional<nlohmann::ordered_json> &additional);
    static std::optional<QString> DYNAMIC(const QString &saltKey, const std::optional<QString> &origin,
                                          const std::optional<nlohmann::ordered_json> &additional);
};

// The script runner behind the DYNAMIC salt. No script engine is shipped, so it never has a
// result; the salt is still proposed so that servers see the full list.
class LuaExecute
{
public:
    std::optional<QString> runScript(const QString &script, const QString &arg) const;
};

// Signature, proof and the transformations of the heartbeat. Stateless.
class BcomCrypt
{
public:
    // "PREFIX", "SUFFIX", "DYNAMIC": the salt operations' names cut at their first ':'.
    static QStringList allSaltMethod();

    // A hook for key derivation; gives the key unchanged.
    QString getBcomKeyFrom(const QString &key) const { return key; }
    // Lower-case hex HMAC-SHA1 of the data keyed with the key as an ASCII C string; nullopt
    // without data, "" when the key is refused.
    std::optional<QString> getSignatureFromData(const std::optional<QByteArray> &data, const QString &key) const;
    // The NOTIFY proof of a proof input text: 40 hex digits, or "" when it cannot be computed.
    QString getDatafrom(const QString &text, const BcomCryptData *cryptData) const;
    // The salted text; "" for an unknown salt name, nullopt when the salt itself fails.
    std::optional<QString> addSalt(const QString &saltName, const QString &saltKey, const std::optional<QString> &text,
                                   const std::optional<nlohmann::ordered_json> &additional) const;
    // The transformation called `offer`; nullopt when no transformation has that name.
    std::optional<QByteArray> transform(const QString &offer, const std::optional<QString> &text,
                                        const QString &key) const;

    // The three transformations; an empty result means no bytes.
    static QByteArray AES(const std::optional<QString> &text, const QString &key);
    static QByteArray MD5(const std::optional<QString> &text, const QString &key);
    static QByteArray SHA1(const std::optional<QString> &text, const QString &key);

    // Base64 that drops every character outside the alphabet and '=' first; nullopt when the
    // rest is not valid padded Base64.
    static std::optional<QByteArray> base64DecodeIgnoringUnknown(const QString &text);
};
