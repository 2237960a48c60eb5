#include "DVUtils.h"

#include "Crypto.h"
#include "HexAdditions.h"
#include "Log.h"

#include <QFile>

#include <limits>

#include <openssl/evp.h>

QString stringWithHexBytes(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes.toHex());
}

QByteArray DVUtils::md5(const QByteArray &data)
{
    return Crypto::md5(data);
}

QString DVUtils::md5OfString(const QString &text)
{
    return stringWithHexBytes(Crypto::md5(text.toUtf8()));
}

std::optional<QString> DVUtils::getFileMD5WithPath(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> ctx(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    if (!ctx || EVP_DigestInit_ex(ctx.get(), EVP_md5(), nullptr) != 1)
        return std::nullopt;
    constexpr qint64 chunk = 65536;
    while (!file.atEnd()) {
        const QByteArray part = file.read(chunk);
        if (part.isEmpty() && file.error() != QFile::NoError)
            return std::nullopt;
        EVP_DigestUpdate(ctx.get(), part.constData(), static_cast<size_t>(part.size()));
    }
    unsigned char buf[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    EVP_DigestFinal_ex(ctx.get(), buf, &len);
    return stringWithHexBytes(QByteArray(reinterpret_cast<const char *>(buf), static_cast<int>(len)));
}

std::optional<QByteArray> DVUtils::asciiCString(const QString &text)
{
    QByteArray out;
    out.reserve(text.size());
    for (const QChar c : text) {
        if (c.unicode() == 0)
            break;
        if (c.unicode() > 0x7f) {
            DVLOG() << "text is not ASCII, refused";
            return std::nullopt;
        }
        out.append(static_cast<char>(c.unicode()));
    }
    return out;
}

QString DVUtils::hamacSha1ofString(const QString &message, const QString &key)
{
    const auto m = asciiCString(message);
    if (!m)
        return {};
    return hamacSha1ofData(*m, key);
}

QString DVUtils::hamacSha1ofData(const QByteArray &message, const QString &key)
{
    const QByteArray raw = hamacSha1ofDataToData(message, key);
    return raw.isEmpty() ? QString() : stringWithHexBytes(raw);
}

QByteArray DVUtils::hamacSha1ofDataToData(const QByteArray &message, const QString &key)
{
    const auto k = asciiCString(key);
    if (!k)
        return {};
    return Crypto::hmacSha1(message, *k);
}

QByteArray DVUtils::aesKeyBlock(const QString &key)
{
    QByteArray block = key.toUtf8().left(16);
    block.append(QByteArray(16 - block.size(), '\0'));
    return block;
}

std::optional<QByteArray> DVUtils::aesEcbEncode(const QByteArray &data, const QString &key)
{
    return aesEcb(data, key, AesOp::Encrypt);
}

std::optional<QByteArray> DVUtils::aesEcbDecode(const QByteArray &data, const QString &key)
{
    return aesEcb(data, key, AesOp::Decrypt);
}

std::optional<QByteArray> DVUtils::aesEcb(const QByteArray &data, const QString &key, AesOp op)
{
    if (data.isNull() || key.isNull())
        return std::nullopt;
    return Crypto::aes128(data, aesKeyBlock(key), {}, op == AesOp::Encrypt ? Crypto::Op::Encrypt : Crypto::Op::Decrypt);
}

QString DVUtils::encodeToPercentEscapeString(const QString &text)
{
    if (text.isNull())
        return {};
    static const char hex[] = "0123456789ABCDEF";
    const QByteArray utf8 = text.toUtf8();
    QString out;
    out.reserve(utf8.size() * 3);
    for (const char ch : utf8) {
        const auto c = static_cast<unsigned char>(ch);
        const bool keep = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-'
                          || c == '.' || c == '_' || c == '~';
        if (keep) {
            out.append(QLatin1Char(static_cast<char>(c)));
        } else {
            out.append(QLatin1Char('%'));
            out.append(QLatin1Char(hex[c >> 4]));
            out.append(QLatin1Char(hex[c & 0xf]));
        }
    }
    return out;
}

QByteArray DVUtils::getBodyFromParm(const DVParams &params)
{
    QStringList parts;
    parts.reserve(static_cast<qsizetype>(params.size()));
    for (const auto &[k, v] : params)
        parts.append(k + QLatin1Char('=') + v);
    return parts.join(QLatin1Char('&')).toUtf8();
}

QStringConverter::Encoding DVUtils::nsStringEncodingByName(const QString &name)
{
    const auto e = QStringConverter::encodingForName(name.toLatin1().constData());
    return e.value_or(QStringConverter::Utf8);
}

void DVUtils::getHostAndPortByAddress(const QString &address, QString *outHost, quint16 *outPort)
{
    if (!outHost || !outPort)
        return;
    const QStringList parts = address.split(QLatin1Char(':'));
    if (parts.size() == 1) {
        *outHost = address;
        *outPort = 80;
    } else if (parts.size() == 2) {
        *outHost = parts[0];
        // The port is a 32-bit integer value (saturating like intValue on a 32-bit int) cut
        // to 16 bits, so an out-of-range port wraps exactly as a C assignment would.
        const qint64 wide = intValue(parts[1]);
        constexpr qint64 lo = std::numeric_limits<qint32>::min();
        constexpr qint64 hi = std::numeric_limits<qint32>::max();
        const auto port32 = static_cast<qint32>(qBound(lo, wide, hi));
        *outPort = static_cast<quint16>(port32);
    } else {
        *outHost = QString();
        *outPort = 0;
    }
}

qint64 DVUtils::intValue(const QString &text)
{
    qsizetype i = 0;
    while (i < text.size() && text[i].isSpace())
        ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == QLatin1Char('-') || text[i] == QLatin1Char('+'))) {
        negative = text[i] == QLatin1Char('-');
        ++i;
    }
    qint64 value = 0;
    for (; i < text.size() && text[i] >= QLatin1Char('0') && text[i] <= QLatin1Char('9'); ++i) {
        if (value > (std::numeric_limits<qint64>::max() - 9) / 10)
            return negative ? std::numeric_limits<qint64>::min() : std::numeric_limits<qint64>::max();
        value = value * 10 + (text[i].unicode() - '0');
    }
    return negative ? -value : value;
}
