// The configuration cipher and reading configuration files.
#include "ConfTestSupport.h"

#include "Conf/ConfCrypt.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace ConfTest;

namespace {

QByteArray readFile(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

QString writeFile(const QTemporaryDir &dir, const QString &name, const QByteArray &bytes)
{
    const QString path = dir.filePath(name);
    QFile f(path);
    EXPECT_TRUE(f.open(QIODevice::WriteOnly));
    f.write(bytes);
    return path;
}

TEST(ConfCryptTest, ShippedFileDecryptsToItsSourceAndLoads)
{
    // The shipped file is produced at build time by an independent AES implementation; both
    // must agree on key, IV, mode and padding.
    const QByteArray cipher = readFile(QStringLiteral(DORVIK_SHIPPED_SYSTEM_CFG));
    ASSERT_FALSE(cipher.isEmpty());
    const auto plain = ConfCrypt::decodeData(cipher);
    ASSERT_TRUE(plain.has_value());
    EXPECT_EQ(*plain, readFile(QStringLiteral(DORVIK_SYSTEM_JSON_SOURCE)));
    EXPECT_EQ(ConfCrypt::encodeData(*plain), cipher);

    LogCapture log;
    EXPECT_NE(Conf::fromFile(QStringLiteral(DORVIK_SHIPPED_SYSTEM_CFG)), nullptr);
    EXPECT_TRUE(log.lines().isEmpty());
}

TEST(ConfCryptTest, OnlyTheFirstSixteenKeyCharactersCount)
{
    const QString key = ConfCrypt::keyText();
    ASSERT_EQ(key.size(), 32);
    ASSERT_EQ(ConfCrypt::initialisationVector().size(), 16);
    const QByteArray plain = "{\"app\": \"only the first half of the key matters\"}";

    auto withTail = [&](const QString &tail) -> QString { return key.left(16) + tail; };
    auto flipped = [&](int index) {
        QString k = key;
        k[index] = k[index] == QLatin1Char('0') ? QLatin1Char('1') : QLatin1Char('0');
        return k;
    };
    struct Case
    {
        const char *name;
        QString encryptKey;
        bool decrypts;
    };
    const std::vector<Case> cases = {
        {"same key", key, true},
        {"all of the last 16 differ", withTail(QStringLiteral("zzzzzzzzzzzzzzzz")), true},
        {"last character differs", flipped(31), true},
        {"17th character differs", flipped(16), true},
        {"16th character differs", flipped(15), false},
        {"first character differs", flipped(0), false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        const auto cipher = ConfCrypt::aesopeartion(plain, c.encryptKey, Crypto::Op::Encrypt, 32);
        ASSERT_TRUE(cipher.has_value());
        const auto back = ConfCrypt::decodeData(*cipher);
        EXPECT_EQ(back.has_value() && *back == plain, c.decrypts);
    }
}

TEST(ConfCryptTest, ShortKeyTextsAreZeroPadded)
{
    const QByteArray plain = "short keys";
    const QByteArray iv = ConfCrypt::initialisationVector();
    struct Case
    {
        QString key;
        int keyLen;
        QByteArray keyBytes;
    };
    const std::vector<Case> cases = {
        {QStringLiteral("0123456789abcdef"), 16, "0123456789abcdef"},
        {QStringLiteral("0123456789abcdef"), 8, QByteArray("01234567") + QByteArray(8, '\0')},
        {QStringLiteral("abc"), 32, QByteArray("abc") + QByteArray(13, '\0')},
        {QStringLiteral("abc"), 0, QByteArray(16, '\0')},
        {QStringLiteral("abc"), -4, QByteArray(16, '\0')},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.key.toStdString() + "/" + std::to_string(c.keyLen));
        EXPECT_EQ(ConfCrypt::aesopeartion(plain, c.key, Crypto::Op::Encrypt, c.keyLen),
                  Crypto::aes128(plain, c.keyBytes, iv, Crypto::Op::Encrypt));
    }
}

TEST(ConfCryptTest, RoundTripsAndRefusesDamagedInput)
{
    for (int size : {0, 1, 15, 16, 17, 31, 32, 1000}) {
        SCOPED_TRACE(size);
        QByteArray plain(size, '\0');
        for (int i = 0; i < size; ++i)
            plain[i] = static_cast<char>(i * 7 + 3);
        const auto cipher = ConfCrypt::encodeData(plain);
        ASSERT_TRUE(cipher.has_value());
        EXPECT_EQ(cipher->size(), (size / 16 + 1) * 16);
        EXPECT_EQ(ConfCrypt::decodeData(*cipher), plain);
    }

    const QByteArray good = *ConfCrypt::encodeData("{\"a\": 1}");
    QByteArray badPadding = good;
    badPadding[badPadding.size() - 1] = static_cast<char>(badPadding.back() ^ 0x5a);
    struct Case
    {
        const char *name;
        QByteArray data;
    };
    const std::vector<Case> cases = {
        {"empty", QByteArray()},
        {"one byte short", good.left(good.size() - 1)},
        {"one byte extra", good + 'x'},
        {"padding destroyed", badPadding},
        {"plain text", QByteArray("{\"app\": {}}     ")},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        const auto plain = ConfCrypt::decodeData(c.data);
        EXPECT_FALSE(plain.has_value() && plain->startsWith('{'));
    }
    EXPECT_EQ(ConfCrypt::decodeData(QByteArray()), std::nullopt);
    EXPECT_EQ(ConfCrypt::decodeData(good.left(good.size() - 1)), std::nullopt);
}

TEST(ConfCryptTest, UnreadableFilesFailWithOneLogLine)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    ordered_json incomplete = completeConfig();
    erasePath(incomplete, "sms.shareKey");

    struct Case
    {
        const char *name;
        QString path;
        const char *mentioned;
    };
    const std::vector<Case> cases = {
        {"missing file", dir.filePath(QStringLiteral("absent.cfg")), "could not be read"},
        {"not encrypted", writeFile(dir, QStringLiteral("plain.cfg"), completeConfig().dump().c_str()),
         "could not be decrypted"},
        {"encrypted non-JSON",
         writeFile(dir, QStringLiteral("text.cfg"), *ConfCrypt::encodeData("this is not a configuration")),
         "not valid JSON"},
        {"encrypted incomplete",
         writeFile(dir, QStringLiteral("incomplete.cfg"),
                   *ConfCrypt::encodeData(QByteArray::fromStdString(incomplete.dump()))),
         "sms.shareKey"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        LogCapture log;
        EXPECT_EQ(Conf::fromFile(c.path), nullptr);
        const QStringList lines = log.lines();
        ASSERT_EQ(lines.size(), 1);
        EXPECT_TRUE(lines.first().contains(QLatin1String(c.mentioned))) << lines.first().toStdString();
        EXPECT_TRUE(lines.first().contains(c.path)) << lines.first().toStdString();
    }

    const QString good = writeFile(dir, QStringLiteral("good.cfg"),
                                   *ConfCrypt::encodeData(QByteArray::fromStdString(completeConfig().dump())));
    EXPECT_NE(Conf::fromFile(good), nullptr);
}

TEST(ConfCryptTest, SharedConfigurationCanBeReplaced)
{
    auto first = load(completeConfig());
    ASSERT_NE(first, nullptr);
    Conf *firstPointer = first.get();
    Conf::setShared(std::move(first));
    EXPECT_EQ(Conf::shared(), firstPointer);

    ordered_json root = completeConfig();
    setPath(root, "logo.image", {{"default", "second.png"}});
    Conf::setShared(load(root));
    EXPECT_EQ(Conf::shared()->logo.getImage(), QStringLiteral("second.png"));
    // Whoever still holds the earlier pointer can keep using it.
    EXPECT_EQ(firstPointer->logo.getImage(), QStringLiteral("logo.image"));

    Conf::setShared(nullptr);
    EXPECT_EQ(Conf::shared(), nullptr);
}

} // namespace
