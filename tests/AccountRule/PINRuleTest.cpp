// The time code and the two time-PIN generators. Expected PINs come from an independent
// computation of the algorithm, not from this code.

#include "AccountRule/PINRule.h"
#include "AccountRule/Utf8Buffer.h"

#include <QDateTime>

#include "QtPrinters.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string code(qint64 quantum)
{
    char out[6];
    PINRule::timeCode(quantum, out);
    return std::string(out, 6);
}

TEST(TimeCode, QuantaToSixCharacters)
{
    struct Case
    {
        qint64 quantum;
        const char *code;
    };
    const Case cases[] = {
        {340000000, ".1AW, "}, // 1,700,000,000 s: the sixth character is a blank
        {340000001, "O1AW, "},
        {0, "      "},
        {1, "A     "},
        {5, "A \"   "},
        {0x7FFFFFFF, "`````A"},
        {0xFFFFFFFF, "`````Q"},
        {-1, "`````Q"}, // only the low 32 bits count
        {(qint64(1) << 32) + 5, "A \"   "},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.quantum);
        EXPECT_EQ(code(c.quantum), c.code);
    }
}

TEST(TimeCode, NeverContainsAtAndStaysInItsTwoRanges)
{
    for (qint64 q = 0; q < (qint64(1) << 32); q += 7919 * 13) {
        const std::string c = code(q);
        for (char ch : c) {
            ASSERT_NE(ch, '@') << q;
            ASSERT_TRUE((ch >= 32 && ch <= 63) || (ch >= 65 && ch <= 96)) << q;
        }
    }
}

TEST(TimeQuantum, FiveSecondStepsTruncatedAndNeverBehindTheCaller)
{
    struct Case
    {
        qint64 now;
        std::optional<qint64> old;
        qint64 quantum;
    };
    const Case cases[] = {
        {1700000000, std::nullopt, 340000000},
        {1700000004, std::nullopt, 340000000},
        {1700000005, std::nullopt, 340000001},
        {-7, std::nullopt, -1}, // toward zero, not floor
        {-5, std::nullopt, -1},
        {1700000000, 340000000, 340000000},
        {1700000000, 340000010, 340000011},
        {1700000000, -3, 340000000},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.now);
        EXPECT_EQ(PINRule::timeQuantum(c.now, c.old ? &*c.old : nullptr), c.quantum);
    }
}

struct PinCase
{
    QString key;
    QString user;
    qint64 now;
    qint64 old;
    QString pinV0;
    QString pinV1;
    qint64 v1WrittenBack;
};

const QString kAheadCode = QStringLiteral("O9AWM "); // the code of quantum 340000011

TEST(CreatePin, BothVariantsAgainstReferenceValues)
{
    const PinCase cases[] = {
        {QStringLiteral("secret"), QStringLiteral("alice"), 1700000000, 340000000, QStringLiteral(".1AW, 8f"),
         QStringLiteral(".1AW, fb"), 340000000},
        // same quantum four seconds later
        {QStringLiteral("secret"), QStringLiteral("alice"), 1700000004, 340000000, QStringLiteral(".1AW, 8f"),
         QStringLiteral(".1AW, fb"), 340000000},
        // caller ahead of the clock: quantum = old + 1, and only V1 writes it back
        {QStringLiteral("secret"), QStringLiteral("alice"), 1700000000, 340000010, kAheadCode + QStringLiteral("46"),
         kAheadCode + QStringLiteral("ee"), 340000011},
        {QStringLiteral("密钥"), QStringLiteral("张三"), 1700000000, 0, QStringLiteral(".1AW, 6f"),
         QStringLiteral(".1AW, f8"), 340000000},
        {QStringLiteral("k"), QStringLiteral(""), 1700000000, 0, QStringLiteral(".1AW, f5"), QStringLiteral(".1AW, 77"),
         340000000},
        // a 16-byte key and a longer one with the same start give the same V1 PIN
        {QStringLiteral("0123456789abcdef"), QStringLiteral("alice"), 1700000000, 0, QString(),
         QStringLiteral(".1AW, bf"), 340000000},
        {QStringLiteral("0123456789abcdefXYZ"), QStringLiteral("alice"), 1700000000, 0, QString(),
         QStringLiteral(".1AW, bf"), 340000000},
    };
    for (const PinCase &c : cases) {
        SCOPED_TRACE(c.key.toStdString() + "/" + c.user.toStdString() + " " + std::to_string(c.now));
        if (!c.pinV0.isNull()) {
            const qint64 old = c.old;
            EXPECT_EQ(PINRule::createPinWithKey(c.key, &old, c.user, c.now), c.pinV0);
            EXPECT_EQ(old, c.old);
        }
        qint64 old = c.old;
        EXPECT_EQ(PINRule::createPinV1WithKey(c.key, &old, c.user, c.now), c.pinV1);
        EXPECT_EQ(old, c.v1WrittenBack);
    }
}

TEST(CreatePin, MissingOrEmptyKeyReturnsTheUserName)
{
    const std::optional<QString> keys[] = {std::nullopt, QString(), QStringLiteral("")};
    const std::optional<QString> users[] = {std::nullopt, QStringLiteral("abc"), QStringLiteral("张三")};
    for (const auto &key : keys) {
        for (const auto &user : users) {
            SCOPED_TRACE(user.value_or(QStringLiteral("<nil>")).toStdString());
            qint64 old = 12345;
            EXPECT_EQ(PINRule::createPinWithKey(key, &old, user, 1700000000), user);
            EXPECT_EQ(PINRule::createPinV1WithKey(key, &old, user, 1700000000), user);
            EXPECT_EQ(old, 12345); // not even V1 writes the time back
        }
    }
}

TEST(CreatePin, MissingUserNameCountsAsEmptyAndMissingOldTimeAsNoFloor)
{
    EXPECT_EQ(PINRule::createPinWithKey(QStringLiteral("k"), nullptr, std::nullopt, 1700000000),
              QStringLiteral(".1AW, f5"));
    EXPECT_EQ(PINRule::createPinV1WithKey(QStringLiteral("k"), nullptr, std::nullopt, 1700000000),
              QStringLiteral(".1AW, 77"));
}

TEST(CreatePin, SystemClockOverloadFollowsTheClock)
{
    // Retried when a 5-second boundary falls between the reads.
    for (int attempt = 0; attempt < 5; ++attempt) {
        const qint64 before = QDateTime::currentSecsSinceEpoch();
        qint64 old = 0;
        const auto v0 = PINRule::createPinWithKey(QStringLiteral("secret"), &old, QStringLiteral("alice"));
        const auto v1 = PINRule::createPinV1WithKey(QStringLiteral("secret"), &old, QStringLiteral("alice"));
        const qint64 after = QDateTime::currentSecsSinceEpoch();
        if (before / 5 != after / 5)
            continue;
        qint64 expectOld = 0;
        EXPECT_EQ(v0, PINRule::createPinWithKey(QStringLiteral("secret"), &expectOld, QStringLiteral("alice"), before));
        EXPECT_EQ(v1,
                  PINRule::createPinV1WithKey(QStringLiteral("secret"), &expectOld, QStringLiteral("alice"), before));
        EXPECT_EQ(old, before / 5);
        return;
    }
    FAIL() << "clock kept crossing 5-second boundaries";
}

TEST(GeneFlag, KeyBlockPaddingMixLimitAndHighBytes)
{
    const char flag6[] = ".1AW, ";
    const QByteArray name30 = "abcdefghijklmnopqrstuvwxyz0123";
    struct Case
    {
        const char *label;
        std::optional<QString> key;
        QByteArray name;
        const char *flag;
    };
    const Case cases[] = {
        {"one-byte key, 31 padding bytes", QStringLiteral("k"), "alice", ".1AW, 8f"},
        {"empty key: padding only", QStringLiteral(""), "alice", ".1AW, 36"},
        {"missing key: padding only", std::nullopt, "alice", ".1AW, 36"},
        {"15-byte key", QStringLiteral("0123456789abcde"), "alice", ".1AW, a8"},
        {"16-byte key", QStringLiteral("0123456789abcdef"), "alice", ".1AW, bf"},
        {"40-byte key, same first 16", QStringLiteral("0123456789abcdefxxxxxxxxxxxxxxxxxxxxxxxx"), "alice", ".1AW, bf"},
        {"30-character name", QStringLiteral("secret"), name30, ".1AW, 0f"},
        {"its first 22 characters", QStringLiteral("secret"), name30.left(22), ".1AW, 0f"},
        {"its first 21 characters", QStringLiteral("secret"), name30.left(21), ".1AW, 3c"},
        {"empty name", QStringLiteral("secret"), "", ".1AW, ad"},
        {"non-ASCII key and name", QStringLiteral("ключ"), QStringLiteral("Ärger").toUtf8(), ".1AW, 2e"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.label);
        const QByteArray flag = PINRule::geneFlagWithKey(c.key, c.name.constData(), flag6);
        EXPECT_EQ(flag, QByteArray(c.flag));
    }
    // Raw key bytes of 0xff (not reachable from UTF-8 text) through the byte-level form.
    char out[8];
    const QByteArray key(20, '\xff');
    PINRule::flagBytes(key.constData(), key.size(), "\x80\x81", 2, flag6, out);
    EXPECT_EQ(QByteArray(out, 8), QByteArray(".1AW, 71"));
    EXPECT_EQ(PINRule::geneFlagWithKey(QStringLiteral("k"), nullptr, flag6),
              PINRule::geneFlagWithKey(QStringLiteral("k"), "", flag6));
}

TEST(Utf8Buffer, SameBytesAsQtForEveryKindOfCharacter)
{
    const QString texts[] = {
        QString(),
        QStringLiteral("alice"),
        QStringLiteral("Ärger ß"),                    // two-byte sequences
        QStringLiteral("张三 密钥"),                  // three-byte sequences
        QString::fromUtf8("\xf0\x9f\x98\x80x"),       // a surrogate pair, four bytes
        QString(QChar(0xD800)) + QStringLiteral("a"), // lone high surrogate
        QStringLiteral("a") + QChar(0xDC00),          // lone low surrogate at the end
        QString(QChar(0xDC00)) + QChar(0xD800),       // reversed pair
        QString(300, QChar(0x4E2D)),                  // longer than the stack part
        QStringLiteral("a") + QChar(0) + QStringLiteral("b"),
    };
    for (const QString &t : texts) {
        SCOPED_TRACE(t.toStdString());
        const Utf8Buffer b(t);
        EXPECT_EQ(QByteArray(b.data(), b.size()), t.toUtf8());
        EXPECT_EQ(b.data()[b.size()], '\0');
    }
    const QString withNul = QStringLiteral("a") + QChar(0) + QStringLiteral("b");
    EXPECT_EQ(Utf8Buffer(withNul).cLength(), 1);
}

} // namespace
