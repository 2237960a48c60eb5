#include "Bcom/BcomCrypt.h"
#include "Bcom/BcomContent.h"
#include "Util/Crypto.h"
#include "Util/DVUtils.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

using ordered_json = nlohmann::ordered_json;

namespace {

BcomCryptData crypt(const char *offer, const char *cipher, const char *saltName, const char *saltKey,
                    std::optional<ordered_json> additional = std::nullopt)
{
    BcomCryptData d;
    if (offer)
        d.offer = QString::fromUtf8(offer);
    if (cipher)
        d.cipher = QString::fromUtf8(cipher);
    d.saltName = QString::fromUtf8(saltName);
    d.saltKey = QString::fromUtf8(saltKey);
    d.additional = std::move(additional);
    return d;
}

// A DYNAMIC "key1": the script JSON sealed with the salt key, as the server sends it.
QString sealedScript(const QString &saltKey)
{
    const QByteArray json = R"({"script_data":")" + QByteArrayLiteral("return arg").toBase64() + R"("})";
    return QString::fromLatin1(DVUtils::aesEcbEncode(json, saltKey)->toBase64());
}

} // namespace

TEST(BcomSalt, SaltOperationsGiveTheServerChosenText)
{
    const ordered_json goodKey1 = {{"key1", sealedScript(QStringLiteral("sk")).toStdString()}};
    struct Case
    {
        const char *name;
        QString saltName;
        ordered_json additional;
        std::optional<QString> expected;
        const char *logLine;
    };
    const Case cases[] = {
        {"unknown name gives empty text", QStringLiteral("MIDDLE"), {}, QString(), nullptr},
        {"names are case-sensitive", QStringLiteral("prefix"), {}, QString(), nullptr},
        {"dynamic, script cannot run", QStringLiteral("DYNAMIC"), goodKey1, std::nullopt, "run script failed"},
        {"dynamic, key1 not decodable",
         QStringLiteral("DYNAMIC"),
         {{"key1", "@@@@"}},
         std::nullopt,
         "decode script failed"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        LogCapture log;
        const QString saltKey = c.saltName == QLatin1String("DYNAMIC") ? QStringLiteral("sk") : QStringLiteral("k9");
        const auto salted = BcomCrypt().addSalt(c.saltName, saltKey, QStringLiteral("s123"), c.additional);
        ASSERT_EQ(salted.has_value(), c.expected.has_value());
        if (c.expected) {
            EXPECT_EQ(*salted, *c.expected);
        }
        if (c.logLine) {
            EXPECT_TRUE(log.has(QLatin1String(c.logLine))) << log.lines().join(QLatin1Char('|')).toStdString();
        }
    }
}

// Arrival order of the additional values is checked by the heart server (BcomOperationTest),
// which always sends some; a provider may send none.
TEST(BcomSalt, ProofInputWithoutAdditional)
{
    EXPECT_EQ(BcomNotificationContent::proofInput(QStringLiteral("s1"), 2, 3, std::nullopt), QStringLiteral("s123"));
    EXPECT_EQ(BcomNotificationContent::proofInput(QStringLiteral("s1"), 2, 3, ordered_json::object()),
              QStringLiteral("s123"));
}

// The heart server checks the proofs of every transformation and salt (BcomOperationTest);
// these are the inputs for which there is no proof, or a surprising one.
TEST(BcomProof, ProofsOfUnusualInputs)
{
    const QString input = QStringLiteral("s123");
    const ordered_json dyn = {{"key1", sealedScript(QStringLiteral("sk")).toStdString()}};
    const auto hmac = [](const QByteArray &m) { return QString::fromLatin1(Crypto::hmacSha1(m, "c1").toHex()); };
    struct Case
    {
        const char *name;
        BcomCryptData data;
        QString expected;
    };
    const Case cases[] = {
        {"AES, key over 16 bytes is unusable", crypt("AES", "0123456789abcdefX", "PREFIX", "k9"), QString()},
        {"lower-case offer is no transformation", crypt("sha1", "c1", "PREFIX", "k9"), QString()},
        {"unknown salt: MD5 of empty text", crypt("MD5", "c1", "OTHER", "k9"), hmac(Crypto::md5("").toHex())},
        {"dynamic: MD5 of no text gives no proof", crypt("MD5", "c1", "DYNAMIC", "sk", dyn), QString()},
        {"dynamic: SHA1 keys the empty message", crypt("SHA1", "c1", "DYNAMIC", "sk", dyn),
         hmac(Crypto::hmacSha1("", "c1"))},
        {"non-ASCII cipher is refused", crypt("SHA1", "cl\xc3\xa9", "PREFIX", "k9"), QString()},
        {"no cipher", crypt("MD5", nullptr, "PREFIX", "k9"), QString()},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(BcomCrypt().getDatafrom(input, &c.data), c.expected);
    }
    EXPECT_EQ(BcomCrypt().getDatafrom(input, nullptr), QString());
    // Padding a short key with zeros is not the same as any other padding.
    EXPECT_NE(BcomCrypt::AES(QStringLiteral("x"), QStringLiteral("short")),
              BcomCrypt::AES(QStringLiteral("x"), QStringLiteral("short           ")));
}

TEST(BcomProof, AesReadsAsManyBytesAsTheTextHasUtf16Units)
{
    const QByteArray key = QByteArray("k") + QByteArray(15, '\0');
    // "aé" is 3 UTF-8 bytes but 2 UTF-16 units: only "a\xc3" is enciphered.
    EXPECT_EQ(BcomCrypt::AES(QString::fromUtf8("a\xc3\xa9"), QStringLiteral("k")),
              *Crypto::aes128(QByteArray("a\xc3"), key, {}, Crypto::Op::Encrypt));
    EXPECT_EQ(BcomCrypt::AES(QStringLiteral("abc"), QStringLiteral("k")),
              *Crypto::aes128(QByteArray("abc"), key, {}, Crypto::Op::Encrypt));
    EXPECT_EQ(BcomCrypt::AES(std::nullopt, QStringLiteral("k")).size(), 16);
}

TEST(BcomProof, CheckPropertyNamesTheMissingValue)
{
    struct Case
    {
        const char *name;
        BcomCryptData data;
        bool ok;
        const char *logLine; // nullptr: no line at all
    };
    const Case cases[] = {
        {"complete", crypt("AES", "c", "PREFIX", "k"), true, nullptr},
        {"no cipher", crypt("AES", nullptr, "PREFIX", "k"), false, "heart error, cipher is nil or empty"},
        {"empty cipher", crypt("AES", "", "PREFIX", "k"), false, "heart error, cipher is nil or empty"},
        {"no salt key", crypt("AES", "c", "PREFIX", ""), false, "heart error, saltKey is nil or empty"},
        {"no salt name", crypt("AES", "c", "", "k"), false, "heart error, saltName is nil or empty"},
        {"no offer", crypt(nullptr, "c", "PREFIX", "k"), false, "heart error, offer is nil or empty"},
        {"dynamic without additional", crypt("AES", "c", "DYNAMIC", "k"), false, nullptr},
        {"dynamic with empty key1", crypt("AES", "c", "DYNAMIC", "k", ordered_json{{"key1", ""}}), false, nullptr},
        {"dynamic with key1", crypt("AES", "c", "DYNAMIC", "k", ordered_json{{"key1", "x"}}), true, nullptr},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        LogCapture log;
        EXPECT_EQ(c.data.checkProperty(), c.ok);
        if (c.logLine) {
            EXPECT_EQ(log.lines(), QStringList{QLatin1String(c.logLine)});
        } else {
            EXPECT_TRUE(log.lines().isEmpty());
        }
    }
}

// The heart server verifies every signature (BcomOperationTest); these are the keys it never uses.
TEST(BcomSignature, UnusualKeys)
{
    const BcomCrypt c;
    EXPECT_EQ(c.getSignatureFromData(std::nullopt, QStringLiteral("key")), std::nullopt);
    // A key is a C string: it ends at its first NUL.
    EXPECT_EQ(c.getSignatureFromData(QByteArray("m"), QStringLiteral("key") + QChar(0) + QStringLiteral("tail")),
              c.getSignatureFromData(QByteArray("m"), QStringLiteral("key")));
    LogCapture log;
    EXPECT_EQ(c.getSignatureFromData(QByteArray("m"), QString::fromUtf8("cl\xc3\xa9")), QString());
    EXPECT_FALSE(log.lines().isEmpty());
}
