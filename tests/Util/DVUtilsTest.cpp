// Our wrappers around the digest and cipher library (one known answer each, plus the rules we
// add: C-string keys, ASCII-only text, key blocks) and the text helpers (tests/data/util.json).
#include "Util/DVUtils.h"
#include "Util/Crypto.h"
#include "Util/DVError.h"
#include "Util/HexAdditions.h"
#include "support/QtPrinters.h"
#include "support/TestData.h"

#include <QCryptographicHash>
#include <QFile>

#include <gtest/gtest.h>

#include <netdb.h>

namespace {

QString s(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

TEST(Digests, OneKnownAnswerPerWrapperAndCStringRules)
{
    EXPECT_EQ(DVUtils::md5OfString(s("abc")), QLatin1String("900150983cd24fb0d6963f7d28e17f72"));
    EXPECT_EQ(DVUtils::md5("abc").toHex(), QByteArray("900150983cd24fb0d6963f7d28e17f72"));
    // RFC 2202, case 2.
    const QString mac = QStringLiteral("effcdf6ae5eb2fa2d27416d5f184df9c259a7c79");
    // The string form goes through the other two, refusals included.
    EXPECT_EQ(DVUtils::hamacSha1ofString(s("what do ya want for nothing?"), s("Jefe")), mac);

    const QString abc = DVUtils::hamacSha1ofString(s("abc"), s("key"));
    ASSERT_EQ(abc.size(), 40);
    const struct
    {
        QString message;
        QString key;
        QString expected;
    } cases[] = {
        // an embedded NUL ends the text, as in a C string
        {QStringLiteral("abc") + QChar(0) + QStringLiteral("def"), s("key"), abc},
        {s("abc"), QStringLiteral("key") + QChar(0) + QStringLiteral("zzz"), abc},
        // non-ASCII text is refused
        {s("abc"), s("ключ"), QString()},
        {s("naïve"), s("key"), QString()},
    };
    for (const auto &c : cases)
        EXPECT_EQ(DVUtils::hamacSha1ofString(c.message, c.key), c.expected) << c.message.toStdString();
}

TEST(Aes, KnownAnswerKeyBlocksAndRefusals)
{
    // FIPS-197 C.1; whole blocks of input are followed by one block of padding.
    const QByteArray key = QByteArray::fromHex("000102030405060708090a0b0c0d0e0f");
    const QByteArray plain = QByteArray::fromHex("00112233445566778899aabbccddeeff");
    const auto enc = Crypto::aes128(plain, key, {}, Crypto::Op::Encrypt);
    ASSERT_TRUE(enc);
    EXPECT_EQ(enc->toHex().left(32), QByteArray("69c4e0d86a7b0430d8cdb78070b4c55a"));
    EXPECT_EQ(enc->size(), 32);
    EXPECT_EQ(Crypto::aes128(*enc, key, {}, Crypto::Op::Decrypt), plain);

    const QByteArray data = "sixteen byte msg and more";
    const struct
    {
        QString key;
        QByteArray block;
    } blocks[] = {
        {s("0123456789abcdefWXYZ"), "0123456789abcdef"},
        {s("abcde"), QByteArray("abcde") + QByteArray(11, '\0')},
        {s("密钥密钥密钥"), s("密钥密钥密钥").toUtf8().left(16)},
    };
    for (const auto &c : blocks) {
        EXPECT_EQ(DVUtils::aesKeyBlock(c.key), c.block);
        EXPECT_EQ(DVUtils::aesEcbEncode(data, c.key), Crypto::aes128(data, c.block, {}, Crypto::Op::Encrypt));
        EXPECT_EQ(DVUtils::aesEcbDecode(*DVUtils::aesEcbEncode(data, c.key), c.key), data);
    }
    EXPECT_FALSE(DVUtils::aesEcbEncode(data, QString()));
    EXPECT_FALSE(DVUtils::aesEcbEncode(QByteArray(), s("k")));

    const auto good = DVUtils::aesEcbEncode("hello", s("k"));
    QByteArray badPadding = *good;
    badPadding[15] = char(badPadding[15] ^ 0x5a);
    for (const QByteArray &bad : {good->left(15), QByteArray(*good + 'x'), QByteArray(), badPadding})
        EXPECT_FALSE(DVUtils::aesEcbDecode(bad, s("k"))) << bad.size();
}

TEST(Digests, FileMd5ReadsAcrossChunks)
{
    const QString path = TestSupport::sandboxDir() + QStringLiteral("/big.bin");
    for (const int size : {0, 65536, 65536 * 3 + 123}) {
        QByteArray bytes(size, Qt::Uninitialized);
        for (int i = 0; i < size; ++i)
            bytes[i] = char(i * 31 + i / 251);
        QFile f(path);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
        f.write(bytes);
        f.close();
        EXPECT_EQ(DVUtils::getFileMD5WithPath(path),
                  QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Md5).toHex()))
            << size;
    }
    EXPECT_FALSE(DVUtils::getFileMD5WithPath(path + QStringLiteral(".missing")));
}

TEST(Encoding, TextHelpersAgainstKnownAnswers)
{
    const TestData::json data = TestData::load("util.json");
    ASSERT_TRUE(data.is_object());
    for (const auto &c : data.at("percent"))
        EXPECT_EQ(DVUtils::encodeToPercentEscapeString(TestData::text(c, "in")), TestData::text(c, "out")) << c.dump();
    EXPECT_TRUE(DVUtils::encodeToPercentEscapeString(QString()).isNull());
    for (const auto &c : data.at("hostPort")) {
        QString host = s("untouched");
        quint16 port = 1;
        DVUtils::getHostAndPortByAddress(TestData::text(c, "address"), &host, &port);
        EXPECT_EQ(host, TestData::opt(c, "host").value_or(QString())) << c.dump();
        EXPECT_EQ(host.isNull(), c.at("host").is_null()) << c.dump();
        EXPECT_EQ(port, c.at("port").get<quint16>()) << c.dump();
    }
    QString host = s("untouched");
    DVUtils::getHostAndPortByAddress(s("a:1"), &host, nullptr);
    EXPECT_EQ(host, s("untouched"));
    for (const auto &c : data.at("intValue"))
        EXPECT_EQ(DVUtils::intValue(TestData::text(c, "text")), c.at("value").get<qint64>()) << c.dump();

    EXPECT_EQ(DVUtils::getBodyFromParm({{s("b"), s("1")}, {s("a"), s("x y&")}, {s("名"), s("")}}),
              s("b=1&a=x y&&名=").toUtf8());
    EXPECT_EQ(stringWithHexBytes(QByteArray("\x00\xab", 2)), s("00ab"));
    EXPECT_EQ(DVUtils::nsStringEncodingByName(s("ISO-8859-1")), QStringConverter::Latin1);
    EXPECT_EQ(DVUtils::nsStringEncodingByName(s("no-such-charset")), QStringConverter::Utf8);
}

TEST(Errors, ReadableText)
{
    const QVariantMap gai{{kCFGetAddrInfoFailureKey, EAI_NONAME}};
    const QVariantMap zero{{kCFGetAddrInfoFailureKey, 0}};
    const struct
    {
        DVError error;
        QString text;
    } cases[] = {
        {DVError(DVErrorDomain::CFNetwork, 2, s("d"), s("r"), gai), QString::fromUtf8(gai_strerror(EAI_NONAME))},
        {DVError(DVErrorDomain::CFNetwork, 2, s("d"), s("r"), zero), s("r")},
        {DVError(DVErrorDomain::CFNetwork, 3, s("d"), QString(), gai), s("d")},
        {DVError(DVErrorDomain::POSIX, 2, s("d"), s("r"), gai), s("r")},
        {DVError(s("X"), 5, s("d")), s("d")},
        {DVError(s("X"), 5), s("Error Domain=X Code=5 \"\"")},
    };
    for (const auto &c : cases)
        EXPECT_EQ(stringWithError(c.error), c.text) << c.error.description().toStdString();
}

} // namespace
