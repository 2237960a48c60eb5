#include "Util/DVUtils.h"
#include "Util/Crypto.h"
#include "Util/DVError.h"
#include "Util/HexAdditions.h"
#include "Util/QtPrinters.h"
#include "support/TestSupport.h"

#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <netdb.h>

namespace {

QByteArray hex(const char *h)
{
    return QByteArray::fromHex(h);
}

QString s(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

// Runs the openssl command line tool with `input` on stdin; its stdout.
QByteArray openssl(const QStringList &args, const QByteArray &input = {})
{
    QProcess p;
    p.start(QStringLiteral("openssl"), args);
    if (!p.waitForStarted(10000)) {
        ADD_FAILURE() << "openssl did not start";
        return {};
    }
    p.write(input);
    p.closeWriteChannel();
    p.waitForFinished(30000);
    EXPECT_EQ(p.exitCode(), 0) << args.join(QLatin1Char(' ')).toStdString() << ": "
                               << p.readAllStandardError().toStdString();
    return p.readAllStandardOutput();
}

// The hex digest in a line of `openssl dgst` output.
QString digestOf(const QByteArray &out)
{
    const auto m = QRegularExpression(QStringLiteral("([0-9a-f]{32,40})\\s*$")).match(QString::fromLatin1(out));
    return m.hasMatch() ? m.captured(1) : QString();
}

QByteArray randomBytes(QRandomGenerator &rng, int n)
{
    QByteArray b(n, Qt::Uninitialized);
    for (char &c : b)
        c = static_cast<char>(rng.bounded(256));
    return b;
}

// Printable ASCII without characters a shell or an option parser would treat specially.
QString randomAsciiText(QRandomGenerator &rng, int n)
{
    static const char alphabet[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_.,;:=+";
    QString t;
    for (int i = 0; i < n; ++i)
        t.append(QLatin1Char(alphabet[rng.bounded(int(sizeof alphabet - 1))]));
    return t;
}

} // namespace

TEST(Digests, Rfc1321Md5Suite)
{
    const struct
    {
        const char *text;
        const char *md5;
    } cases[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(DVUtils::md5OfString(s(c.text)), QLatin1String(c.md5)) << c.text;
        EXPECT_EQ(DVUtils::md5(QByteArray(c.text)), hex(c.md5)) << c.text;
    }
}

TEST(Digests, Rfc2202HmacSha1Cases)
{
    const struct
    {
        QByteArray key;
        QByteArray data;
        const char *mac;
        bool asciiKey; // the text form of the helpers takes only ASCII keys
    } cases[] = {
        {QByteArray(20, '\x0b'), "Hi There", "b617318655057264e28bc0b6fb378c8ef146be00", true},
        {"Jefe", "what do ya want for nothing?", "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79", true},
        {QByteArray(20, '\xaa'), QByteArray(50, '\xdd'), "125d7342b9ac11cd91a39af48aa17b4f63f175d3", false},
        {hex("0102030405060708090a0b0c0d0e0f10111213141516171819"), QByteArray(50, '\xcd'),
         "4c9007f4026250c6bc8414f9bf50c86c2d7235da", true},
        {QByteArray(20, '\x0c'), "Test With Truncation", "4c1a03424b55e07fe7f27be1d58bb9324a9a5a04", true},
        {QByteArray(80, '\xaa'), "Test Using Larger Than Block-Size Key - Hash Key First",
         "aa4ae5e15272d00e95705637ce8a3b55ed402112", false},
        {QByteArray(80, '\xaa'), "Test Using Larger Than Block-Size Key and Larger Than One Block-Size Data",
         "e8e99d0f45237d786d6bbaa7965c7808bbff1a91", false},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(Crypto::hmacSha1(c.data, c.key), hex(c.mac)) << c.mac;
        if (!c.asciiKey)
            continue;
        const QString key = QString::fromLatin1(c.key);
        EXPECT_EQ(DVUtils::hamacSha1ofData(c.data, key), QLatin1String(c.mac));
        EXPECT_EQ(DVUtils::hamacSha1ofDataToData(c.data, key), hex(c.mac));
        if (c.data.at(0) < 0x7f && c.data.at(0) > 0) {
            EXPECT_EQ(DVUtils::hamacSha1ofString(QString::fromLatin1(c.data), key), QLatin1String(c.mac));
        }
    }
}

TEST(Digests, TextHmacIsAnAsciiCString)
{
    const QString mac = DVUtils::hamacSha1ofString(s("abc"), s("key"));
    ASSERT_EQ(mac.size(), 40);
    const struct
    {
        QString message;
        QString key;
        QString expected;
    } cases[] = {
        // an embedded NUL ends the text, as in a C string
        {QStringLiteral("abc") + QChar(0) + QStringLiteral("def"), s("key"), mac},
        {s("abc"), QStringLiteral("key") + QChar(0) + QStringLiteral("zzz"), mac},
        // non-ASCII text is refused
        {s("abc"), s("ключ"), QString()},
        {s("naïve"), s("key"), QString()},
    };
    for (const auto &c : cases)
        EXPECT_EQ(DVUtils::hamacSha1ofString(c.message, c.key), c.expected) << c.message.toStdString();
    EXPECT_TRUE(DVUtils::hamacSha1ofDataToData("abc", s("ключ")).isEmpty());
    EXPECT_TRUE(DVUtils::hamacSha1ofData("abc", s("ключ")).isEmpty());
}

TEST(Aes, Fips197AndSp80038aEcbVectors)
{
    const struct
    {
        const char *key;
        const char *plain;
        const char *cipher;
    } cases[] = {
        {"000102030405060708090a0b0c0d0e0f", "00112233445566778899aabbccddeeff", "69c4e0d86a7b0430d8cdb78070b4c55a"},
        {"2b7e151628aed2a6abf7158809cf4f3c",
         "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
         "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710",
         "3ad77bb40d7a3660a89ecaf32466ef97f5d3d58503b9699de785895a96fdbaaf"
         "43b1cd7f598ece23881b00e3ed0306887b0c785e27e8ad3f8223207104725dd4"},
    };
    for (const auto &c : cases) {
        const auto enc = Crypto::aes128(hex(c.plain), hex(c.key), {}, Crypto::Op::Encrypt);
        ASSERT_TRUE(enc);
        // Whole blocks of input are followed by one block of padding.
        ASSERT_EQ(enc->size(), hex(c.plain).size() + 16);
        EXPECT_EQ(enc->left(hex(c.cipher).size()), hex(c.cipher)) << c.cipher;
        EXPECT_EQ(Crypto::aes128(*enc, hex(c.key), {}, Crypto::Op::Decrypt), hex(c.plain));
    }
}

TEST(Aes, KeyTextIsCutOrZeroPaddedTo16Bytes)
{
    const QByteArray data = "sixteen byte msg and more";
    const struct
    {
        QString key;
        QByteArray block;
    } cases[] = {
        {s("0123456789abcdefWXYZ"), "0123456789abcdef"},
        {s("abcde"), QByteArray("abcde") + QByteArray(11, '\0')},
        {QString(), QByteArray(16, '\0')},
        {s("密钥密钥密钥"), s("密钥密钥密钥").toUtf8().left(16)},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(DVUtils::aesKeyBlock(c.key), c.block);
        if (c.key.isNull())
            continue;
        EXPECT_EQ(DVUtils::aesEcbEncode(data, c.key), Crypto::aes128(data, c.block, {}, Crypto::Op::Encrypt));
    }
    EXPECT_FALSE(DVUtils::aesEcbEncode(data, QString()));
    EXPECT_FALSE(DVUtils::aesEcbEncode(QByteArray(), s("k")));
}

TEST(Aes, DecryptRefusesMalformedInput)
{
    const QString key = s("decrypt-key");
    // ECB: the first block of an encryption is the bare cipher of the first 16 input bytes,
    // so it decrypts to them, and they are then read as padding.
    const struct
    {
        QByteArray lastBytes;
        std::optional<QByteArray> plain;
    } padding[] = {
        {"\x01", QByteArray(15, 'p')},
        {"\x03\x03\x03", QByteArray(13, 'p')},
        {QByteArray("\x03\x02\x03"), std::nullopt},
        {QByteArray(1, '\0'), std::nullopt},
        {"\x11", std::nullopt},
    };
    for (const auto &c : padding) {
        const QByteArray block = QByteArray(16 - c.lastBytes.size(), 'p') + c.lastBytes;
        const auto enc = DVUtils::aesEcbEncode(block, key);
        ASSERT_TRUE(enc);
        EXPECT_EQ(DVUtils::aesEcbDecode(enc->left(16), key), c.plain) << c.lastBytes.toHex().toStdString();
    }
    const auto good = DVUtils::aesEcbEncode("hello", key);
    ASSERT_TRUE(good);
    for (const QByteArray &bad : {good->left(15), QByteArray(*good + 'x'), QByteArray(""), QByteArray()})
        EXPECT_FALSE(DVUtils::aesEcbDecode(bad, key)) << bad.size();
}

TEST(Tools, RandomInputsAgreeWithOpensslCommandLine)
{
    QRandomGenerator rng(20240611);
    for (int i = 0; i < 12; ++i) {
        const QByteArray data = randomBytes(rng, int(rng.bounded(100)));
        const QString key = randomAsciiText(rng, 1 + int(rng.bounded(33)));
        const QString tag = QStringLiteral("len %1 key %2").arg(data.size()).arg(key);

        const QString keyHex = QString::fromLatin1(DVUtils::aesKeyBlock(key).toHex());
        const auto enc = DVUtils::aesEcbEncode(data, key);
        ASSERT_TRUE(enc) << tag.toStdString();
        EXPECT_EQ(*enc, openssl({s("enc"), s("-aes-128-ecb"), s("-K"), keyHex, s("-nosalt")}, data))
            << tag.toStdString();
        EXPECT_EQ(DVUtils::aesEcbDecode(*enc, key), data);
        EXPECT_EQ(openssl({s("enc"), s("-d"), s("-aes-128-ecb"), s("-K"), keyHex, s("-nosalt")}, *enc), data);

        EXPECT_EQ(stringWithHexBytes(DVUtils::md5(data)), digestOf(openssl({s("dgst"), s("-md5")}, data)));
        EXPECT_EQ(DVUtils::hamacSha1ofData(data, key),
                  digestOf(openssl({s("dgst"), s("-sha1"), s("-hmac"), key}, data)))
            << tag.toStdString();
    }
    const QString text = s("中文 text ✓");
    EXPECT_EQ(DVUtils::md5OfString(text), digestOf(openssl({s("dgst"), s("-md5")}, text.toUtf8())));
}

TEST(Tools, FileMd5ReadsAcrossChunks)
{
    QRandomGenerator rng(7);
    const QString path = TestSupport::sandboxDir() + QStringLiteral("/big.bin");
    for (const int size : {0, 65536, 65536 * 3 + 123}) {
        QFile f(path);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
        f.write(randomBytes(rng, size));
        f.close();
        EXPECT_EQ(DVUtils::getFileMD5WithPath(path), digestOf(openssl({s("dgst"), s("-md5"), path}))) << size;
    }
    EXPECT_FALSE(DVUtils::getFileMD5WithPath(path + QStringLiteral(".missing")));
}

TEST(Encoding, PercentEscapes)
{
    const struct
    {
        const char *in;
        const char *out;
    } cases[] = {
        {"/a b", "%2Fa%20b"},
        {"-._~AZaz09", "-._~AZaz09"},
        {"!*'();:@&=+$,/?%#[]", "%21%2A%27%28%29%3B%3A%40%26%3D%2B%24%2C%2F%3F%25%23%5B%5D"},
        {"é中😀", "%C3%A9%E4%B8%AD%F0%9F%98%80"},
        {"", ""},
    };
    for (const auto &c : cases)
        EXPECT_EQ(DVUtils::encodeToPercentEscapeString(s(c.in)), QLatin1String(c.out)) << c.in;
    EXPECT_TRUE(DVUtils::encodeToPercentEscapeString(QString()).isNull());
}

TEST(Encoding, FormBodyKeepsOrderUnescaped)
{
    EXPECT_EQ(DVUtils::getBodyFromParm({{s("b"), s("1")}, {s("a"), s("x y&")}, {s("名"), s("")}}),
              s("b=1&a=x y&&名=").toUtf8());
    EXPECT_TRUE(DVUtils::getBodyFromParm({}).isEmpty());
    EXPECT_EQ(stringWithHexBytes(QByteArray("\x00\xab", 2)), s("00ab"));
    EXPECT_EQ(stringWithHexBytes(QByteArray()), QString());
}

TEST(Encoding, HostAndPort)
{
    const struct
    {
        const char *address;
        std::optional<QString> host; // nullopt: null text
        quint16 port;
    } cases[] = {
        {"example.com", s("example.com"), 80},
        {"", s(""), 80},
        {"10.0.0.1:8080", s("10.0.0.1"), 8080},
        {"host:", s("host"), 0},
        {"host:abc", s("host"), 0},
        {"host: 12x", s("host"), 12},
        {"host:70000", s("host"), quint16(70000 & 0xffff)},
        {"host:-1", s("host"), 65535},
        {"host:99999999999", s("host"), 65535},
        {"a:b:c", std::nullopt, 0},
        {"[::1]:80", std::nullopt, 0},
    };
    for (const auto &c : cases) {
        QString host = s("untouched");
        quint16 port = 1;
        DVUtils::getHostAndPortByAddress(s(c.address), &host, &port);
        if (c.host) {
            EXPECT_EQ(host, *c.host) << c.address;
        } else {
            EXPECT_TRUE(host.isNull()) << c.address;
        }
        EXPECT_EQ(port, c.port) << c.address;
    }
    QString host = s("untouched");
    DVUtils::getHostAndPortByAddress(s("a:1"), &host, nullptr);
    EXPECT_EQ(host, s("untouched"));
}

TEST(Encoding, IntValueAndCharsets)
{
    const struct
    {
        const char *text;
        qint64 value;
    } ints[] = {{"42", 42}, {"  -7x", -7}, {"+3", 3}, {"abc", 0}, {"", 0}, {"1.9", 1}};
    for (const auto &c : ints)
        EXPECT_EQ(DVUtils::intValue(s(c.text)), c.value) << c.text;
    EXPECT_EQ(DVUtils::nsStringEncodingByName(s("ISO-8859-1")), QStringConverter::Latin1);
    EXPECT_EQ(DVUtils::nsStringEncodingByName(s("no-such-charset")), QStringConverter::Utf8);
}

TEST(Errors, ReadableText)
{
    QVariantMap gai{{kCFGetAddrInfoFailureKey, EAI_NONAME}};
    QVariantMap zero{{kCFGetAddrInfoFailureKey, 0}};
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
