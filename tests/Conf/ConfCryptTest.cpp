// The configuration cipher and reading configuration files.
#include "ConfTestSupport.h"

#include "Conf/ConfCrypt.h"
#include "support/TestSupport.h"

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
    EXPECT_TRUE(TestSupport::writeFile(dir.filePath(name), bytes));
    return dir.filePath(name);
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

TEST(ConfCryptTest, RoundTripsEverySizeWithOnePaddingBlock)
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
    // Damaged cipher text is refused by the cipher itself (DVUtilsTest, Aes) and named as such
    // when it comes from a file (below).
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

} // namespace
