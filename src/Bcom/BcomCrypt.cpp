#include "BcomCrypt.h"

#include "Util/Crypto.h"
#include "Util/DVJson.h"
#include "Util/DVUtils.h"
#include "Util/HexAdditions.h"
#include "Util/Log.h"

#include <cstring>

using ordered_json = nlohmann::ordered_json;

namespace {

QString jsonString(const ordered_json &value)
{
    if (value.is_string())
        return QString::fromStdString(value.get<std::string>());
    return {};
}

} // namespace

bool BcomCryptData::checkProperty() const
{
    if (!cipher || cipher->isEmpty()) {
        DVLOG() << "heart error, cipher is nil or empty";
        return false;
    }
    if (saltKey.isEmpty()) {
        DVLOG() << "heart error, saltKey is nil or empty";
        return false;
    }
    if (saltName.isEmpty()) {
        DVLOG() << "heart error, saltName is nil or empty";
        return false;
    }
    if (!offer || offer->isEmpty()) {
        DVLOG() << "heart error, offer is nil or empty";
        return false;
    }
    if (saltName == QLatin1String("DYNAMIC")) {
        if (!additional || !additional->is_object())
            return false;
        const auto it = additional->find("key1");
        return it != additional->end() && !jsonString(*it).isEmpty();
    }
    return true;
}

const std::vector<BcomOpSalt::Entry> &BcomOpSalt::operations()
{
    static const std::vector<Entry> table{
        {"PREFIX:originString:additional:", &BcomOpSalt::PREFIX},
        {"SUFFIX:originString:additional:", &BcomOpSalt::SUFFIX},
        {"DYNAMIC:originString:additional:", &BcomOpSalt::DYNAMIC},
    };
    return table;
}

std::optional<QString> BcomOpSalt::PREFIX(const QString &saltKey, const std::optional<QString> &origin,
                                          const std::optional<ordered_json> &)
{
    return saltKey + origin.value_or(QString());
}

std::optional<QString> BcomOpSalt::SUFFIX(const QString &saltKey, const std::optional<QString> &origin,
                                          const std::optional<ordered_json> &)
{
    return origin.value_or(QString()) + saltKey;
}

std::optional<QString> BcomOpSalt::DYNAMIC(const QString &saltKey, const std::optional<QString> &origin,
                                           const std::optional<ordered_json> &additional)
{
    QString key1;
    if (additional && additional->is_object()) {
        const auto it = additional->find("key1");
        if (it != additional->end())
            key1 = jsonString(*it);
    }
    // The script travels AES-encrypted under the salt key, as JSON with the Base64 script text.
    const auto sealed = BcomCrypt::base64DecodeIgnoringUnknown(key1);
    const auto plain = sealed ? DVUtils::aesEcbDecode(*sealed, saltKey) : std::nullopt;
    QString why;
    const std::optional<ordered_json> parsed = plain ? DVJson::parse(*plain, &why) : std::nullopt;
    if (!parsed) {
        DVLOG() << "decode script failed" << why;
        return std::nullopt;
    }
    const ordered_json &doc = *parsed;
    QString scriptData;
    if (doc.is_object()) {
        const auto it = doc.find("script_data");
        if (it != doc.end())
            scriptData = jsonString(*it);
    }
    const QString script = QString::fromUtf8(BcomCrypt::base64DecodeIgnoringUnknown(scriptData).value_or(QByteArray()));
    const auto result = LuaExecute().runScript(script, origin.value_or(QString()));
    if (!result) {
        DVLOG() << "run script failed";
        return std::nullopt;
    }
    return *result + saltKey;
}

std::optional<QString> LuaExecute::runScript(const QString &, const QString &) const
{
    return std::nullopt;
}

QStringList BcomCrypt::allSaltMethod()
{
    QStringList names;
    for (const auto &op : BcomOpSalt::operations()) {
        const char *colon = std::strchr(op.selector, ':');
        const auto len = colon ? colon - op.selector : static_cast<qsizetype>(std::strlen(op.selector));
        names.append(QString::fromLatin1(op.selector, len));
    }
    return names;
}

std::optional<QString> BcomCrypt::getSignatureFromData(const std::optional<QByteArray> &data, const QString &key) const
{
    if (!data)
        return std::nullopt;
    return DVUtils::hamacSha1ofData(*data, key);
}

QString BcomCrypt::getDatafrom(const QString &text, const BcomCryptData *cryptData) const
{
    if (!cryptData || !cryptData->checkProperty())
        return QString();
    const auto salted = addSalt(cryptData->saltName, cryptData->saltKey, text, cryptData->additional);
    const auto transformed = transform(*cryptData->offer, salted, *cryptData->cipher);
    if (!transformed || transformed->isEmpty())
        return QString();
    return DVUtils::hamacSha1ofData(*transformed, *cryptData->cipher);
}

std::optional<QString> BcomCrypt::addSalt(const QString &saltName, const QString &saltKey,
                                          const std::optional<QString> &text,
                                          const std::optional<ordered_json> &additional) const
{
    const QByteArray selector = saltName.toUtf8() + QByteArrayLiteral(":originString:additional:");
    for (const auto &op : BcomOpSalt::operations()) {
        if (selector == op.selector)
            return op.fn(saltKey, text, additional);
    }
    // An unknown salt gives empty text (not a missing one): MD5 still digests it.
    return QString(QLatin1String(""));
}

std::optional<QByteArray> BcomCrypt::transform(const QString &offer, const std::optional<QString> &text,
                                               const QString &key) const
{
    using Fn = QByteArray (*)(const std::optional<QString> &, const QString &);
    static const std::pair<const char *, Fn> table[] = {
        {"AES:withkey:", &BcomCrypt::AES},
        {"MD5:withkey:", &BcomCrypt::MD5},
        {"SHA1:withkey:", &BcomCrypt::SHA1},
    };
    const QByteArray selector = offer.toUtf8() + QByteArrayLiteral(":withkey:");
    for (const auto &[name, fn] : table) {
        if (selector == name)
            return fn(text, key);
    }
    return std::nullopt;
}

QByteArray BcomCrypt::AES(const std::optional<QString> &text, const QString &key)
{
    // The key goes into a 17-byte zeroed buffer: 16 key bytes and a terminator. A shorter key
    // is padded with zero bytes; a longer one does not fit and makes the key unusable (unlike
    // the shared AES helper, which cuts keys at 16 bytes).
    const QByteArray keyUtf8 = key.toUtf8();
    if (keyUtf8.size() > 16) {
        DVLOG() << "heart error, cipher longer than 16 bytes";
        return {};
    }
    QByteArray keyBlock(16, '\0');
    std::memcpy(keyBlock.data(), keyUtf8.constData(), static_cast<size_t>(keyUtf8.size()));
    // The cipher reads as many bytes as the text has UTF-16 units: the whole text when it is
    // ASCII, a cut-off UTF-8 tail otherwise. Servers compute it the same way.
    const QString plain = text.value_or(QString());
    const QByteArray input = plain.toUtf8().left(plain.size());
    return Crypto::aes128(input, keyBlock, {}, Crypto::Op::Encrypt).value_or(QByteArray());
}

QByteArray BcomCrypt::MD5(const std::optional<QString> &text, const QString &)
{
    if (!text)
        return {};
    return DVUtils::md5OfString(*text).toLatin1();
}

QByteArray BcomCrypt::SHA1(const std::optional<QString> &text, const QString &key)
{
    return DVUtils::hamacSha1ofDataToData(text.value_or(QString()).toUtf8(), key);
}

std::optional<QByteArray> BcomCrypt::base64DecodeIgnoringUnknown(const QString &text)
{
    QByteArray kept;
    kept.reserve(text.size());
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        const bool inAlphabet = (u >= 'A' && u <= 'Z') || (u >= 'a' && u <= 'z') || (u >= '0' && u <= '9') || u == '+'
                                || u == '/' || u == '=';
        if (inAlphabet)
            kept.append(static_cast<char>(u));
    }
    if (kept.size() % 4 != 0)
        return std::nullopt;
    const auto result = QByteArray::fromBase64Encoding(kept, QByteArray::AbortOnBase64DecodingErrors);
    if (!result)
        return std::nullopt;
    return result.decoded;
}
