// Which files are accepted, and which JSON key each getter reads.
#include "ConfTestSupport.h"

#include <gtest/gtest.h>

#include <functional>

using namespace ConfTest;

namespace {

class ConfSchemaTest : public ::testing::Test
{
protected:
    void SetUp() override { Conf::setArea(QString()); }
};

// A rejected file: no configuration, and exactly one log line that names what is wrong.
void expectRejected(const ordered_json &root, const QString &mentioned)
{
    LogCapture log;
    EXPECT_EQ(load(root), nullptr);
    const QStringList lines = log.lines();
    ASSERT_EQ(lines.size(), 1) << lines.join(QLatin1Char('\n')).toStdString();
    EXPECT_TRUE(lines.first().contains(mentioned)) << lines.first().toStdString();
}

TEST_F(ConfSchemaTest, CompleteFileLoadsSilentlyAndListsEverySetting)
{
    LogCapture log;
    EXPECT_NE(load(completeConfig()), nullptr);
    EXPECT_TRUE(log.lines().isEmpty());

    QStringList expected;
    for (const std::string &p : kAllPaths)
        expected << QString::fromStdString(p);
    EXPECT_EQ(Conf::fieldPaths(), expected);
}

TEST_F(ConfSchemaTest, ShippedSourceIsComplete)
{
    LogCapture log;
    EXPECT_NE(load(shippedSource()), nullptr);
    EXPECT_TRUE(log.lines().isEmpty()) << log.lines().join(QLatin1Char('\n')).toStdString();
}

TEST_F(ConfSchemaTest, OneMissingSettingRejectsTheWholeFile)
{
    for (const std::string &path : kAllPaths) {
        SCOPED_TRACE(path);
        ordered_json root = completeConfig();
        erasePath(root, path);
        expectRejected(root, QString::fromStdString(path));
    }
}

TEST_F(ConfSchemaTest, OneMissingSectionRejectsTheWholeFile)
{
    const std::vector<std::string> sections = {"app",   "app.website", "app.password", "heart",     "accountrule",
                                               "logo",  "tab",         "update",       "route",     "business",
                                               "token", "login",       "qrcode",       "dynmicpwd", "sms"};
    for (const std::string &section : sections) {
        SCOPED_TRACE(section);
        ordered_json root = completeConfig();
        erasePath(root, section);
        expectRejected(root, QString::fromStdString(section));
    }
}

TEST_F(ConfSchemaTest, WrongKindRejectsTheWholeFile)
{
    // Every setting must be an object keyed by area; each wrong kind in turn.
    const std::vector<ordered_json> wrongKinds = {"text", 5, true, ordered_json::array({"a"}), nullptr};
    for (const std::string &path : kAllPaths)
        for (const ordered_json &wrong : wrongKinds) {
            SCOPED_TRACE(path + " = " + wrong.dump());
            ordered_json root = completeConfig();
            setPath(root, path, wrong);
            expectRejected(root, QString::fromStdString(path));
        }

    struct Case
    {
        const char *path;
        ordered_json value;
    };
    const std::vector<Case> sectionCases = {
        {"heart", ordered_json::array()},
        {"app.website", "http://example.com"},
        {"sms", 1},
        {"login", nullptr},
    };
    for (const Case &c : sectionCases) {
        SCOPED_TRACE(c.path);
        ordered_json root = completeConfig();
        setPath(root, c.path, c.value);
        expectRejected(root, QLatin1String(c.path));
    }
}

TEST_F(ConfSchemaTest, TextThatIsNoConfigurationObjectIsRejected)
{
    const std::vector<QByteArray> texts = {"", "{", "not json", "[]", "\"text\"", "42", "null", "{\"app\": }"};
    for (const QByteArray &text : texts) {
        SCOPED_TRACE(text.toStdString());
        LogCapture log;
        EXPECT_EQ(Conf::fromJson(text), nullptr);
        EXPECT_EQ(log.lines().size(), 1);
    }

    // With somewhere to put it, the description is handed back and nothing is logged.
    LogCapture log;
    QString error;
    EXPECT_EQ(Conf::fromJson("[]", &error), nullptr);
    EXPECT_FALSE(error.isEmpty());
    EXPECT_TRUE(log.lines().isEmpty());
}

TEST_F(ConfSchemaTest, ExtraKeysAndAnyEntryKindsAreAccepted)
{
    ordered_json root = completeConfig();
    root["user"] = {{"defaultInterface", "eth9"}};
    root["unknown"] = 1;
    setPath(root, "heart.extra", {{"default", 1}});
    setPath(root, "heart.interval", {{"default", 20}, {"1001", nullptr}, {"1002", {1, 2}}});
    setPath(root, "tab.url", ordered_json::object()); // no entry at all is still an object
    EXPECT_NE(load(root), nullptr);
}

TEST_F(ConfSchemaTest, EachGetterReadsItsOwnKey)
{
    using Getter = std::function<std::optional<QString>(const Conf &)>;
    const std::vector<std::pair<std::string, Getter>> getters = {
        {"app.taskBarName", [](const Conf &c) { return c.app.getTaskBarName(); }},
        {"app.weichatPic", [](const Conf &c) { return c.app.getWeiChatPic(); }},
        {"app.website.name", [](const Conf &c) { return c.app.website.getWebName(); }},
        {"app.website.host", [](const Conf &c) { return c.app.website.getWebHost(); }},
        {"app.password.name", [](const Conf &c) { return c.app.password.getWebName(); }},
        {"app.password.host", [](const Conf &c) { return c.app.password.getWebHost(); }},
        {"heart.interval", [](const Conf &c) { return c.heart.getInterval(); }},
        {"heart.negotiateurl", [](const Conf &c) { return c.heart.getNegotiateUrl(); }},
        {"heart.hearbeaturl", [](const Conf &c) { return c.heart.getHearbeatUrl(); }},
        {"heart.key", [](const Conf &c) { return c.heart.getKey(); }},
        {"heart.client_id", [](const Conf &c) { return c.heart.getClientId(); }},
        {"heart.request_timeout", [](const Conf &c) { return c.heart.getRequestTimeout(); }},
        {"heart.response_timeout", [](const Conf &c) { return c.heart.getResponseTimeout(); }},
        {"accountrule.timepin-psk", [](const Conf &c) { return c.accountrule.getPsk(); }},
        {"accountrule.timepin-prefix", [](const Conf &c) { return c.accountrule.getPrefix(); }},
        {"accountrule.suffix", [](const Conf &c) { return c.accountrule.getSufix(); }},
        {"logo.image", [](const Conf &c) { return c.logo.getImage(); }},
        {"tab.url", [](const Conf &c) { return c.tab.getUrl(); }},
        {"update.host", [](const Conf &c) { return c.update.getHost(); }},
        {"route.version", [](const Conf &c) { return c.route.getVersion(); }},
        {"business.host", [](const Conf &c) { return c.business.getHost(); }},
        {"token.host", [](const Conf &c) { return c.token.getHost(); }},
        {"token.path", [](const Conf &c) { return c.token.getUrlPath(); }},
        {"token.user", [](const Conf &c) { return c.token.getAuthName(); }},
        {"token.pwd", [](const Conf &c) { return c.token.getAuthPassword(); }},
        {"token.key", [](const Conf &c) { return c.token.getPskkey(); }},
        {"qrcode.host", [](const Conf &c) { return c.qrcode.getHost(); }},
        {"qrcode.decodekey", [](const Conf &c) { return c.qrcode.getDeCodeKey(); }},
        {"qrcode.hash_key", [](const Conf &c) { return c.qrcode.getHashKey(); }},
        {"qrcode.timepin_prefix", [](const Conf &c) { return c.qrcode.getPrefix(); }},
        {"dynmicpwd.host", [](const Conf &c) { return c.dynmicpwd.getHost(); }},
        {"dynmicpwd.decodeKey", [](const Conf &c) { return c.dynmicpwd.getDecodeKey(); }},
        {"dynmicpwd.encodeKey", [](const Conf &c) { return c.dynmicpwd.getEncodeKey(); }},
        {"sms.host", [](const Conf &c) { return c.sms.getHost(); }},
        {"sms.shareKey", [](const Conf &c) { return c.sms.getShareKey(); }},
    };
    const auto conf = load(completeConfig());
    ASSERT_NE(conf, nullptr);
    for (const auto &[path, getter] : getters) {
        SCOPED_TRACE(path);
        EXPECT_EQ(getter(*conf), QString::fromStdString(path));
        const AreaValue *value = conf->valueAt(QString::fromStdString(path));
        ASSERT_NE(value, nullptr);
        EXPECT_EQ(value->text(), QString::fromStdString(path));
    }
    EXPECT_EQ(conf->valueAt(QStringLiteral("heart")), nullptr);
    EXPECT_EQ(conf->valueAt(QStringLiteral("accountrule.timepin_psk")), nullptr);
}

TEST_F(ConfSchemaTest, RuleAndQrPrefixKeysAreSpelledDifferently)
{
    // The account rule's keys are hyphenated, the QR section's prefix is not; a file that
    // swaps the spellings is missing a setting in each section.
    struct Case
    {
        const char *right;
        const char *wrong;
    };
    const std::vector<Case> cases = {
        {"accountrule.timepin-psk", "accountrule.timepin_psk"},
        {"accountrule.timepin-prefix", "accountrule.timepin_prefix"},
        {"qrcode.timepin_prefix", "qrcode.timepin-prefix"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.right);
        ordered_json root = completeConfig();
        erasePath(root, c.right);
        setPath(root, c.wrong, {{"default", "x"}});
        expectRejected(root, QLatin1String(c.right));
    }
}

} // namespace
