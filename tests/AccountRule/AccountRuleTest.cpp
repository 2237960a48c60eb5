// The account rules and the PIN generators under them, against the known answers in
// tests/data/pins.json and tests/data/dialnames.json.

#include "AccountRule/DVAccountRule.h"
#include "AccountRule/DVRuleException.h"
#include "AccountRule/PINRule.h"
#include "AccountRule/PinCodec.h"

#include "support/QtPrinters.h"
#include "support/TestData.h"

#include <QDateTime>

#include <gtest/gtest.h>

#include <clocale>
#include <cstring>
#include <ctime>

using namespace Qt::StringLiterals;

namespace {

using TestData::json;
using TestData::opt;
using TestData::text;

const json &pins()
{
    static const json data = TestData::load("pins.json");
    return data;
}

const json &dialNames()
{
    static const json data = TestData::load("dialnames.json");
    return data;
}

std::shared_ptr<Clock> clockAt(qint64 secs)
{
    return std::make_shared<ManualClock>(QDateTime::fromSecsSinceEpoch(secs, Qt::UTC));
}

QByteArray utf8(const json &c, const char *key)
{
    return QByteArray::fromStdString(c.at(key).get<std::string>());
}

TEST(PinCodec, ChecksumMacDigitsAndUserPart)
{
    for (const json &c : pins().at("checksum")) {
        SCOPED_TRACE(c.dump());
        const QByteArray buf = TestData::hex(c, "hex");
        const auto sum = GetSumWithChar(reinterpret_cast<const unsigned char *>(buf.constData()), c.at("len"));
        EXPECT_EQ(sum & 0xFFFFu, text(c, "sum").toUInt(nullptr, 16));
    }
    for (const json &c : pins().at("mac")) {
        SCOPED_TRACE(c.dump());
        char dest[13] = {};
        const auto digits = opt(c, "digits");
        EXPECT_EQ(toTargetMACADDR(utf8(c, "mac").constData(), dest), digits ? 0 : -1);
        if (digits) {
            EXPECT_EQ(QLatin1String(dest), *digits);
        }
        EXPECT_EQ(dest[12], '\0');
    }
    for (const json &c : pins().at("username")) {
        SCOPED_TRACE(c.dump());
        QByteArray src = utf8(c, "src");
        const QByteArray user = utf8(c, "user");
        char dest[65] = {};
        EXPECT_EQ(toUsername(dest, c.at("destSize"), src.data()), user.size());
        EXPECT_EQ(QByteArray(dest), user);
        // The source itself now ends where the user part ends.
        const qsizetype at = utf8(c, "src").indexOf('@');
        EXPECT_EQ(qsizetype(std::strlen(src.constData())), at < 0 ? src.size() : at);
    }
    char dest[13] = {};
    EXPECT_EQ(toTargetMACADDR(nullptr, dest), -1);
    EXPECT_EQ(toUsername(dest, sizeof dest, nullptr), 0);
}

// Every byte the encoders write is checked against a sentinel-filled buffer: what must stay
// untouched (no terminator when the output is full) matters as much as what is written.
TEST(PinCodec, EncodersWritesAndCapacityStops)
{
    for (const json &c : pins().at("encoders")) {
        SCOPED_TRACE(c.dump());
        const QByteArray in = TestData::hex(c, "hex");
        const auto *bytes = reinterpret_cast<const unsigned char *>(in.constData());
        char out[16];
        std::memset(out, 0xaa, sizeof out);
        base_encode(bytes, c.at("len"), out, c.at("cap"));
        EXPECT_EQ(QByteArray(out, 16).toHex(), utf8(c, "a"));
        std::memset(out, 0xaa, sizeof out);
        customBase64Encode(bytes, c.at("len"), out, c.at("cap"));
        EXPECT_EQ(QByteArray(out, 16).toHex(), utf8(c, "b"));
    }
}

TEST(PinCodec, GenpinAnswersAndFailureCodes)
{
    for (const json &c : pins().at("genpin")) {
        SCOPED_TRACE(c.dump());
        char out[16];
        std::memset(out, 0, 13);
        std::memset(out + 13, 0x5a, 3);
        QByteArray name = utf8(c, "name");
        ASSERT_EQ(genpin(out, name.data(), utf8(c, "key").constData(), utf8(c, "mac").constData(), c.at("t")), 0);
        EXPECT_EQ(QByteArray(out), utf8(c, "pin"));
        EXPECT_EQ(out[13], 0x5a); // nothing written past the 13-byte buffer
    }
    for (const json &c : pins().at("genpinFailures")) {
        SCOPED_TRACE(c.dump());
        char out[13] = {};
        QByteArray name = c.contains("name") ? utf8(c, "name") : QByteArray();
        const QByteArray key = c.contains("key") ? utf8(c, "key") : QByteArray();
        const QByteArray mac = c.contains("mac") ? utf8(c, "mac") : QByteArray();
        EXPECT_EQ(genpin(out, c.contains("name") ? name.data() : nullptr, c.contains("key") ? key.constData() : nullptr,
                         c.contains("mac") ? mac.constData() : nullptr, 1700000000),
                  c.at("rc").get<int>());
        EXPECT_STREQ(out, "");
    }
}

TEST(PINRule, TimeCodesAndQuanta)
{
    for (const json &c : pins().at("timeCode")) {
        SCOPED_TRACE(c.dump());
        char out[6];
        PINRule::timeCode(c.at("quantum"), out);
        EXPECT_EQ(QByteArray(out, 6), utf8(c, "code"));
    }
    for (const json &c : pins().at("timeQuantum")) {
        SCOPED_TRACE(c.dump());
        const qint64 old = c.value("old", qint64(0));
        EXPECT_EQ(PINRule::timeQuantum(c.at("now"), c.contains("old") ? &old : nullptr), c.at("quantum").get<qint64>());
    }
    // Dial names are split at "@" later: no time code may contain one.
    for (qint64 q = 0; q < (qint64(1) << 32); q += 7919 * 13) {
        char out[6];
        PINRule::timeCode(q, out);
        ASSERT_EQ(std::memchr(out, '@', 6), nullptr) << q;
    }
}

TEST(PINRule, BothTimePinVariantsAndTheFlag)
{
    for (const json &c : pins().at("createPin")) {
        SCOPED_TRACE(c.dump());
        const QString key = text(c, "key");
        const QString user = text(c, "user");
        if (const auto v0 = opt(c, "v0")) {
            const qint64 old = c.at("old");
            EXPECT_EQ(PINRule::createPinWithKey(key, &old, user, c.at("now")), *v0);
            EXPECT_EQ(old, c.at("old").get<qint64>()); // only V1 writes the time back
        }
        qint64 old = c.at("old");
        EXPECT_EQ(PINRule::createPinV1WithKey(key, &old, user, c.at("now")), opt(c, "v1"));
        EXPECT_EQ(old, c.at("v1Old").get<qint64>());
    }
    for (const json &c : pins().at("geneFlag")) {
        SCOPED_TRACE(c.dump());
        EXPECT_EQ(PINRule::geneFlagWithKey(opt(c, "key"), utf8(c, "name").constData(), ".1AW, "), utf8(c, "flag"));
    }
    // Raw key bytes of 0xff (not reachable from UTF-8 text) through the byte-level form.
    char out[8];
    const QByteArray key(20, '\xff');
    PINRule::flagBytes(key.constData(), key.size(), "\x80\x81", 2, ".1AW, ", out);
    EXPECT_EQ(QByteArray(out, 8), QByteArray(".1AW, 71"));

    // A missing or empty key gives the user name back, and not even V1 writes the time back.
    for (const std::optional<QString> &k : {std::optional<QString>(), std::optional<QString>(QString())}) {
        for (const std::optional<QString> &user : {std::optional<QString>(), std::optional<QString>(u"张三"_s)}) {
            qint64 old = 12345;
            EXPECT_EQ(PINRule::createPinWithKey(k, &old, user, 1700000000), user);
            EXPECT_EQ(PINRule::createPinV1WithKey(k, &old, user, 1700000000), user);
            EXPECT_EQ(old, 12345);
        }
    }
}

void checkDialNames()
{
    const qint64 now = dialNames().at("clock");
    for (const json &c : dialNames().at("cases")) {
        SCOPED_TRACE(text(c, "label").toStdString());
        const QString rules = text(c, "rules");
        qint64 time = c.value("callerTime", now);
        DVAccountRule rule(rules.isEmpty() ? QStringList() : rules.split(u','), opt(c, "prefix"), opt(c, "suffix"),
                           opt(c, "key"), &time, opt(c, "mac"), clockAt(now));
        EXPECT_EQ(rule.getAccountFromName(opt(c, "account")), opt(c, "dialName"));
        if (c.contains("time")) {
            EXPECT_EQ(time, c.at("time").get<qint64>());
        }
    }
}

TEST(DVAccountRule, MacBoundRuleFailureRaisesAndGivesNoDialName)
{
    static QStringList criticals;
    const QtMessageHandler previous =
        qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &m) {
            if (type == QtCriticalMsg)
                criticals.append(m);
        });
    for (const json &c : dialNames().at("failures")) {
        SCOPED_TRACE(text(c, "label").toStdString());
        qint64 time = 1700000003;
        // A rule before the failing one has already run: still no name may come out.
        DVAccountRule rule(QStringList{u"suffix"_s, u"timepinV2"_s, u"prefix"_s}, u"p"_s, u"@s"_s, opt(c, "key"), &time,
                           opt(c, "mac"), clockAt(time));
        try {
            ADD_FAILURE() << "no exception, got " << rule.getAccountFromName(opt(c, "account")).value_or(QString());
        } catch (const DVRuleException &e) {
            EXPECT_EQ(e.name(), u"生成pin时错误"_s);
            EXPECT_STREQ(e.what(), "fatal error while, gen pinv2 faild");
        }
        ASSERT_FALSE(criticals.isEmpty());
        EXPECT_EQ(criticals.takeLast(), u"fatal error while, gen pinv2 faild."_s);
    }
    qInstallMessageHandler(previous);
}

TEST(DVAccountRule, MissingRuleListOrTimePointer)
{
    qint64 time = 1700000003;
    EXPECT_EQ(DVAccountRule(std::nullopt, std::nullopt, std::nullopt, std::nullopt, &time, std::nullopt, clockAt(time))
                  .getAccountFromName(u"alice"_s),
              u"alice"_s);
    // No time pointer: as if the caller had passed the clock's seconds.
    EXPECT_EQ(DVAccountRule(QStringList{u"timepin"_s, u"timepinV2"_s}, std::nullopt, std::nullopt, u"secret"_s, nullptr,
                            u"AA:BB:CC:DD:EE:FF"_s, clockAt(time))
                  .getAccountFromName(u"alice"_s),
              u"MDQf4:TitHFj.1AW, 8falice"_s);
}

// Every case of dialnames.json, in several time zones and locales: the result must not depend
// on them, the quantum is Unix time.
TEST(DVAccountRule, RuleListsToDialNamesInAnyTimeZoneAndLocale)
{
    const QByteArray tz = qgetenv("TZ");
    for (const char *zone : {"Asia/Shanghai", "America/New_York", "Pacific/Kiritimati"}) {
        for (const char *lc : {"C.UTF-8", "tr_TR.UTF-8", "zh_CN.UTF-8"}) {
            SCOPED_TRACE(std::string(zone) + " " + lc);
            qputenv("TZ", zone);
            qputenv("LC_ALL", lc);
            tzset();
            std::setlocale(LC_ALL, "");
            checkDialNames();
        }
    }
    tz.isNull() ? qunsetenv("TZ") : qputenv("TZ", tz);
    qunsetenv("LC_ALL");
    tzset();
    std::setlocale(LC_ALL, "C");
}

} // namespace
