#pragma once

#include <QByteArray>
#include <QString>
#include <QStringConverter>

#include <optional>
#include <utility>
#include <vector>

// Ordered text parameters: form bodies and signed parameter lists keep the order given.
using DVParams = std::vector<std::pair<QString, QString>>;

// Stateless helpers for hashing, message authentication, AES, URL and form encoding.
class DVUtils
{
public:
    enum class AesOp { Encrypt, Decrypt };

    // MD5 digest (16 bytes).
    static QByteArray md5(const QByteArray &data);
    // MD5 of the UTF-8 bytes, 32 lower-case hex digits.
    static QString md5OfString(const QString &text);
    // MD5 of a file read in 64 KiB chunks, lower-case hex; nullopt when it cannot be read.
    static std::optional<QString> getFileMD5WithPath(const QString &path);

    // HMAC-SHA1. Keys and text messages are taken as ASCII C strings up to their first NUL;
    // a non-ASCII text is refused with a logged error and an empty result.
    static QString hamacSha1ofString(const QString &message, const QString &key);
    static QString hamacSha1ofData(const QByteArray &message, const QString &key);
    static QByteArray hamacSha1ofDataToData(const QByteArray &message, const QString &key);

    // AES-128-ECB with PKCS#7 padding. The key's UTF-8 bytes are cut or zero-padded to 16.
    static std::optional<QByteArray> aesEcbEncode(const QByteArray &data, const QString &key);
    static std::optional<QByteArray> aesEcbDecode(const QByteArray &data, const QString &key);
    static std::optional<QByteArray> aesEcb(const QByteArray &data, const QString &key, AesOp op);

    // Percent-encodes every UTF-8 byte except ASCII letters, digits and "-._~" as "%XX".
    static QString encodeToPercentEscapeString(const QString &text);
    // "k=v" pairs joined with "&", unescaped, in the given order, as UTF-8.
    static QByteArray getBodyFromParm(const DVParams &params);
    // IANA character-set name to an encoding; unknown names give UTF-8.
    static QStringConverter::Encoding nsStringEncodingByName(const QString &name);
    // "host" → host, 80; "host:port" → host, port (16-bit); more colons → null host, 0.
    // Does nothing unless both out-places are given.
    static void getHostAndPortByAddress(const QString &address, QString *outHost, quint16 *outPort);

    // The integer value of a text as the platform's intValue reads it: leading white space,
    // an optional sign, then digits up to the first non-digit; 0 when there are none.
    static qint64 intValue(const QString &text);

    // The 16-byte AES key block of a key text (UTF-8, cut or zero-padded).
    static QByteArray aesKeyBlock(const QString &key);
    // An ASCII C string of a text (cut at the first NUL); nullopt (and a log line) when the
    // text is not ASCII.
    static std::optional<QByteArray> asciiCString(const QString &text);
};
