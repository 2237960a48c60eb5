// Dial names from rule lists, with the time value the controller keeps afterwards. The clock
// stands at 1,700,000,003 s (quantum 340,000,000) and the caller's time is the same second.
// Expected names were computed independently from the algorithm.

#include "AccountRule/DVAccountRule.h"
#include "AccountRule/DVRuleException.h"

#include <QDateTime>

#include "QtPrinters.h"

#include <gtest/gtest.h>

#include <clocale>
#include <ctime>

namespace {

constexpr qint64 kNow = 1700000003;

std::shared_ptr<Clock> fixedClock(qint64 secs = kNow)
{
    return std::make_shared<ManualClock>(QDateTime::fromSecsSinceEpoch(secs, Qt::UTC));
}

QString s(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

// A null pointer stands for a missing value.
std::optional<QString> opt(const char *utf8)
{
    return utf8 ? std::optional<QString>(s(utf8)) : std::nullopt;
}

const QString kMac = QStringLiteral("AA:BB:CC:DD:EE:FF");
constexpr const char *kSecret = "secret";
constexpr const char *kMacText = "AA:BB:CC:DD:EE:FF";

struct RuleCase
{
    const char *label;
    const char *rules; // comma separated
    const char *key;
    const char *account;
    const char *prefix;
    const char *suffix;
    const char *mac;
    const char *dialName;
    qint64 time;
};

// clang-format off
const RuleCase kRuleCases[] = {
    {"empty list keeps name and time", "", kSecret, "alice@isp", nullptr, nullptr, kMacText, "alice@isp", kNow},
    {"unknown, differently cased and empty names are skipped", "TimePin,bogus,timepinv2,", kSecret, "alice@isp",
     nullptr, nullptr, kMacText, "alice@isp", kNow},
    {"prefix", "prefix", kSecret, "alice", "pre-", nullptr, nullptr, "pre-alice", kNow},
    {"empty prefix", "prefix", kSecret, "alice", "", nullptr, nullptr, "alice", kNow},
    {"missing prefix and suffix", "prefix,suffix", kSecret, "alice", nullptr, nullptr, nullptr, "alice", kNow},
    {"suffix", "suffix", kSecret, "alice", nullptr, "@suf", nullptr, "alice@suf", kNow},
    {"timepin", "timepin", kSecret, "alice@isp", nullptr, nullptr, nullptr, ".1AW, 8falice@isp", 340000000},
    {"timepin then prefix", "timepin,prefix", kSecret, "alice@isp", "pre-", nullptr, nullptr,
     "pre-.1AW, 8falice@isp", 340000000},
    {"prefix then timepin: PIN of the prefixed user part", "prefix,timepin", kSecret, "alice@isp", "pre-", nullptr,
     nullptr, ".1AW, 24pre-alice@isp", 340000000},
    {"timepin twice: seconds / 25 afterwards", "timepin,timepin", kSecret, "alice@isp", nullptr, nullptr, nullptr,
     ".1AW, 03.1AW, 8falice@isp", 68000000},
    {"several at signs", "timepin", kSecret, "alice@a@b", nullptr, nullptr, nullptr, ".1AW, 8falice@a@b", 340000000},
    {"timepin, empty key doubles the user part", "timepin", "", "abc@isp", nullptr, nullptr, nullptr, "abcabc@isp",
     340000000},
    {"timepinV1, missing key doubles the user part", "timepinV1", nullptr, "abc@isp", nullptr, nullptr, nullptr,
     "abcabc@isp", 340000000},
    {"timepinV1", "timepinV1", kSecret, "alice@isp", nullptr, nullptr, nullptr, ".1AW, fbalice@isp", 340000000},
    {"timepinV1 non-ASCII", "timepinV1", "密钥", "张三@isp", nullptr, nullptr, nullptr, ".1AW, f8张三@isp", 340000000},
    {"timepinV2 keeps the seconds", "timepinV2", kSecret, "alice@isp", nullptr, nullptr, kMacText,
     "koV7iyUglDehalice@isp", kNow},
    {"timepinV2 then suffix", "timepinV2,suffix", kSecret, "alice", nullptr, "@isp", "aa-bb-cc-dd-ee-ff",
     "koV7iyUglDehalice@isp", kNow},
    {"timepinV3", "timepinV3", kSecret, "alice@isp", nullptr, nullptr, nullptr, "4zaU4c4sfG69alice@isp", 340000000},
    {"timepinV3, 5 characters: 9, ending in =", "timepinV3", kSecret, "alice", nullptr, nullptr, nullptr,
     "4zaU4c4s=alice", 340000000},
    {"timepinV3, 6 characters", "timepinV3", kSecret, "alice@", nullptr, nullptr, nullptr, "4zaU4c4sfalice@",
     340000000},
    {"timepinV3, 7 characters: 12, ending in =", "timepinV3", kSecret, "alice@x", nullptr, nullptr, nullptr,
     "4zaU4c4sfGz=alice@x", 340000000},
    {"timepinV3, 1 character", "timepinV3", kSecret, "a", nullptr, nullptr, nullptr, "4z=a", 340000000},
    {"timepinV3, empty key: the user part, zeros past it", "timepinV3", "", "abc@isp", nullptr, nullptr, nullptr,
     "G49GGMMMMMM=abc@isp", 340000000},
    {"timepinV3, empty key: non-ASCII user part as UTF-8", "timepinV3", "", "张三四五@isp", nullptr, nullptr,
     nullptr, "RTh1ZdcQtRTJ张三四五@isp", 340000000},
    {"timepinV3, empty key: bytes of 0x80 and above", "timepinV3", "", "éàüöéà", nullptr, nullptr, nullptr,
     "zuvzufzuhéàüöéà", 340000000},
    {"every rule in one list", "prefix,timepin,timepinV1,timepinV2,timepinV3,suffix", kSecret, "alice@isp", "p",
     "s", "aabbccddeeff", "4zaU4c4sfGUoMDQTKGTitToJ.1AW, a2.1AW, 94palice@isps", 340000000},
};
// clang-format on

void checkRuleCases()
{
    for (const RuleCase &c : kRuleCases) {
        SCOPED_TRACE(c.label);
        const QString rules = s(c.rules);
        qint64 time = kNow;
        DVAccountRule rule(rules.isEmpty() ? QStringList() : rules.split(u','), opt(c.prefix), opt(c.suffix),
                           opt(c.key), &time, opt(c.mac), fixedClock());
        EXPECT_EQ(rule.getAccountFromName(s(c.account)), s(c.dialName));
        EXPECT_EQ(time, c.time);
    }
}

TEST(DVAccountRule, RuleListsToDialNames)
{
    checkRuleCases();
}

TEST(DVAccountRule, MissingRuleListKeepsTheName)
{
    qint64 time = kNow;
    DVAccountRule rule(std::nullopt, std::nullopt, std::nullopt, std::nullopt, &time, std::nullopt, fixedClock());
    EXPECT_EQ(rule.getAccountFromName(s("alice")), s("alice"));
    EXPECT_EQ(time, kNow);
}

TEST(DVAccountRule, MissingTimePointerWorksOnTheClock)
{
    // As if the caller had passed the clock's seconds: the second rule sees the first's quantum.
    DVAccountRule rule(QStringList{s("timepin"), s("timepinV2")}, std::nullopt, std::nullopt, s("secret"), nullptr,
                       kMac, fixedClock());
    EXPECT_EQ(rule.getAccountFromName(s("alice")), s("MDQf4:TitHFj.1AW, 8falice"));
}

TEST(DVAccountRule, CallerTimeAheadOfTheClock)
{
    // V1 leaves the quantum it used (caller's quantum + 1); the plain variant only the division.
    struct Case
    {
        const char *rule;
        QString dialName;
        qint64 time;
    };
    const qint64 ahead = kNow + 100; // quantum 340000020 > clock's 340000000
    const Case cases[] = {
        {"timepin", s("_1CW, d3alice"), 340000020},
        {"timepinV1", s("_1CW, 25alice"), 340000021},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.rule);
        qint64 time = ahead;
        DVAccountRule rule(QStringList{s(c.rule)}, std::nullopt, std::nullopt, s("secret"), &time, std::nullopt,
                           fixedClock());
        EXPECT_EQ(rule.getAccountFromName(s("alice")), c.dialName);
        EXPECT_EQ(time, c.time);
    }
}

QStringList *g_criticals = nullptr;

void captureCriticals(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (g_criticals && type == QtCriticalMsg)
        g_criticals->append(message);
}

TEST(DVAccountRule, MacBoundRuleFailureRaisesAndGivesNoDialName)
{
    QStringList criticals;
    g_criticals = &criticals;
    const QtMessageHandler previous = qInstallMessageHandler(captureCriticals);
    struct Case
    {
        const char *label;
        std::optional<QString> account;
        std::optional<QString> key;
        std::optional<QString> mac;
    };
    const Case cases[] = {
        {"trailing blank after the MAC", s("alice"), s("secret"), s("AA:BB:CC:DD:EE:FF ")},
        {"missing MAC", s("alice"), s("secret"), std::nullopt},
        {"missing key", s("alice"), std::nullopt, kMac},
        {"empty key", s("alice"), s(""), kMac},
        {"missing account name", std::nullopt, s("secret"), kMac},
        {"account name is only a domain", s("@isp"), s("secret"), kMac},
        {"user part of 64 bytes", QString(64, u'u') + s("@isp"), s("secret"), kMac},
        {"user part of 22 Chinese characters (66 bytes)", QString(22, QChar(0x5f20)), s("secret"), kMac},
        {"name and key too long", QString(60, u'u'), QString(61, u'k'), kMac},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.label);
        qint64 time = kNow;
        // A rule before the failing one has already run (its "@" leaves the user part as it
        // was): still no name may come out.
        DVAccountRule rule(QStringList{s("suffix"), s("timepinV2"), s("prefix")}, s("p"), s("@s"), c.key, &time, c.mac,
                           fixedClock());
        std::optional<QString> dialName;
        try {
            dialName = rule.getAccountFromName(c.account);
            ADD_FAILURE() << "no exception, got " << dialName.value_or(QString()).toStdString();
        } catch (const DVRuleException &e) {
            EXPECT_EQ(e.name(), s("生成pin时错误"));
            EXPECT_EQ(e.reason(), s("fatal error while, gen pinv2 faild"));
            EXPECT_STREQ(e.what(), "fatal error while, gen pinv2 faild");
        }
        EXPECT_FALSE(dialName.has_value());
        ASSERT_FALSE(criticals.isEmpty());
        EXPECT_EQ(criticals.takeLast(), s("fatal error while, gen pinv2 faild."));
    }
    qInstallMessageHandler(previous);
    g_criticals = nullptr;
}

TEST(DVAccountRule, MissingAccountNameWithoutMacBoundRule)
{
    struct Case
    {
        const char *label;
        QStringList rules;
        std::optional<QString> dialName;
    };
    const Case cases[] = {
        {"no rules", {}, std::nullopt},
        {"prefix counts the name as empty", {s("prefix")}, s("p")},
        {"timepin over an empty user part", {s("timepin")}, s(".1AW, f5")},
        {"timepinV3 of no characters writes nothing", {s("timepinV3")}, std::nullopt},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.label);
        qint64 time = kNow;
        DVAccountRule rule(c.rules, s("p"), std::nullopt, s("k"), &time, std::nullopt, fixedClock());
        EXPECT_EQ(rule.getAccountFromName(std::nullopt), c.dialName);
    }
}

// The result must not depend on the machine's time zone or locale: the quantum is Unix time.
class Environment
{
public:
    Environment(const char *tz, const char *lcAll)
        : _tz(qgetenv("TZ"))
        , _hadTz(qEnvironmentVariableIsSet("TZ"))
        , _lc(qgetenv("LC_ALL"))
        , _hadLc(qEnvironmentVariableIsSet("LC_ALL"))
    {
        qputenv("TZ", tz);
        qputenv("LC_ALL", lcAll);
        tzset();
        std::setlocale(LC_ALL, "");
    }
    ~Environment()
    {
        _hadTz ? qputenv("TZ", _tz) : qunsetenv("TZ");
        _hadLc ? qputenv("LC_ALL", _lc) : qunsetenv("LC_ALL");
        tzset();
        std::setlocale(LC_ALL, "C");
    }

private:
    QByteArray _tz;
    bool _hadTz;
    QByteArray _lc;
    bool _hadLc;
};

TEST(DVAccountRule, IndependentOfTimeZoneAndLocale)
{
    const char *const zones[] = {"Asia/Shanghai", "America/New_York", "UTC", "Pacific/Kiritimati"};
    const char *const locales[] = {"C", "C.UTF-8", "tr_TR.UTF-8", "zh_CN.UTF-8"};
    for (const char *tz : zones) {
        for (const char *lc : locales) {
            SCOPED_TRACE(std::string(tz) + " " + lc);
            Environment env(tz, lc);
            checkRuleCases();

            // The system clock, read through the default and through Clock::system(), gives
            // the same names as the fixed clock at the same second (retried across a boundary).
            for (const std::shared_ptr<Clock> &clock : {std::shared_ptr<Clock>(), Clock::system()}) {
                bool compared = false;
                for (int attempt = 0; attempt < 5 && !compared; ++attempt) {
                    const qint64 before = QDateTime::currentSecsSinceEpoch();
                    const QStringList rules{s("timepin"), s("timepinV1"), s("timepinV3"), s("timepinV2")};
                    qint64 live = before;
                    DVAccountRule liveRule(rules, std::nullopt, std::nullopt, s("secret"), &live, kMac, clock);
                    const auto liveName = liveRule.getAccountFromName(s("alice@isp"));
                    if (QDateTime::currentSecsSinceEpoch() / 5 != before / 5)
                        continue;
                    qint64 fixed = before;
                    DVAccountRule fixedRule(rules, std::nullopt, std::nullopt, s("secret"), &fixed, kMac,
                                            fixedClock(before));
                    EXPECT_EQ(liveName, fixedRule.getAccountFromName(s("alice@isp")));
                    EXPECT_EQ(live, fixed);
                    compared = true;
                }
                EXPECT_TRUE(compared);
            }
        }
    }
}

} // namespace
