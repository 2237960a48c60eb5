// Configuration request and registration report against the simulated business server.

#include "BusinessTestSupport.h"

#include "Business/ConfigReq.h"
#include "Business/Register.h"
#include "Conf/ReceivedConf.h"
#include "Util/DVEnv.h"
#include "support/TestData.h"

#include <gtest/gtest.h>

using Logs = LogCapture;

namespace {

using BusinessRequests = BizTest::BusinessServerTest;
using BizTest::runToEnd;

TEST_F(BusinessRequests, ConfigBodyStopsAtFirstAbsentValueAndTabAddressRules)
{
    const TestData::json data = TestData::load("business.json");
    for (const auto &c : data.at("configBody")) {
        SCOPED_TRACE(c.dump());
        auto conf = config;
        if (!c.at("router").get<bool>())
            conf["route"]["version"] = ordered_json{{"2999", "x"}};
        BizTest::useConfig(conf);
        Conf::setArea(TestData::text(c, "area"));
        auto op = std::make_shared<ConfigReq>(base, TestData::opt(c, "user"));
        op->setClientVersion(TestData::opt(c, "version"));
        const int before = server->configRequests();
        runToEnd(op);
        EXPECT_EQ(server->configRequests(), before + 1);
        EXPECT_EQ(QString::fromUtf8(server->lastConfigBody()), TestData::text(c, "body"));
    }
    BizTest::useConfig(config);
    Conf::setArea(QStringLiteral("1001"));
    // The tab address is taken from the top level only when "Infos" has an array for it.
    for (const auto &c : data.at("tabAddress")) {
        SCOPED_TRACE(c.dump());
        ReceivedConf::shared().saveAreaObject({});
        server->setConfigAnswer(c.at("answer"));
        Logs logs;
        runToEnd(std::make_shared<ConfigReq>(base, QStringLiteral("demo")));
        EXPECT_EQ(ReceivedConf::shared().getTabHost(),
                  c.at("applied").get<bool>() ? std::optional<QString>(QStringLiteral("http://tab.example/a"))
                                              : std::nullopt);
        const QString line = TestData::text(c, "log");
        if (line == QLatin1String("@nothing")) {
            EXPECT_TRUE(logs.all().isEmpty()) << logs.all().join(u'|').toStdString();
        } else if (!line.isEmpty()) {
            EXPECT_TRUE(logs.has(line)) << logs.all().join(u'|').toStdString();
        }
    }
    // Not JSON at all.
    Logs logs;
    ConfigReq(base, QStringLiteral("demo")).handleResponseData(QByteArray("<html>"));
    EXPECT_TRUE(logs.contains(QStringLiteral("config request failed, "))) << logs.all().join(u'|').toStdString();
}

TEST_F(BusinessRequests, TransportAndStatusFailuresAreOneLogLine)
{
    const std::pair<QString, QString> cases[] = {
        {QStringLiteral("http://127.0.0.1:1"), QStringLiteral("config request failed,")},
        {QStringLiteral("http://[bad"), QStringLiteral("url init failed")},
        {base + QStringLiteral("/nowhere"), QStringLiteral("config request failed, http status code 404")},
    };
    for (const auto &[address, line] : cases) {
        Logs logs;
        runToEnd(std::make_shared<ConfigReq>(address, QStringLiteral("demo")));
        EXPECT_TRUE(logs.contains(line)) << logs.all().join(u'|').toStdString();
    }
}

TEST_F(BusinessRequests, RegisterBodyAndInfos)
{
    const RegisterLinkFacts link{QStringLiteral("10.64.0.2"), QStringLiteral("以太网 (eth0)"),
                                 QStringLiteral("52:54:00:12:34:56")};
    struct Case
    {
        const char *name;
        std::optional<QString> version;
        bool withIp;
        std::vector<std::string> keys;
    };
    const Case cases[] = {
        {"complete", QStringLiteral("9.9.9"), true, {"ReqType", "User", "AreaCode", "ClientVersion", "Infos"}},
        {"no address, no facts", QStringLiteral("9.9.9"), false, {"ReqType", "User", "AreaCode", "ClientVersion"}},
        {"no version ends the body", std::nullopt, true, {"ReqType", "User", "AreaCode"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        RegisterLinkFacts facts = link;
        if (!c.withIp)
            facts.clientIp.reset();
        auto op = std::make_shared<Register>(base, facts, QStringLiteral("demo"));
        op->setClientVersion(c.version);
        runToEnd(op);
        const QByteArray raw = server->lastRegisterBody();
        const ordered_json body = ordered_json::parse(raw.constBegin(), raw.constEnd());
        EXPECT_EQ(raw.toStdString(), body.dump(2));
        std::vector<std::string> keys;
        for (const auto &[k, v] : body.items())
            keys.push_back(k);
        EXPECT_EQ(keys, c.keys);
        if (!body.contains("Infos"))
            continue;
        // Eleven facts: the machine's (from DVEnv), the connection record's and the link's.
        const ordered_json &infos = body["Infos"];
        EXPECT_EQ(infos.size(), 11u);
        EXPECT_EQ(infos["ClientIp"], "10.64.0.2");
        EXPECT_EQ(infos["NetcardType"], "以太网 (eth0)");
        EXPECT_EQ(infos["NetcardMac"], "52:54:00:12:34:56");
    }
}

TEST_F(BusinessRequests, RegisterAnswerReplacesTheAreaObject)
{
    const RegisterLinkFacts link{QStringLiteral("10.64.0.2"), QString(), QString()};
    ReceivedConf::shared().saveValue(QStringLiteral("kept?"), QStringLiteral("old"));
    runToEnd(std::make_shared<Register>(base, link, QStringLiteral("demo")));
    EXPECT_EQ(ReceivedConf::shared().getHeartServerAddress(), QStringLiteral("http://127.0.0.1:18080/negotiate"));
    EXPECT_EQ(ReceivedConf::shared().getUpdateServerAddress(), QStringLiteral("http://127.0.0.1:18084"));
    EXPECT_EQ(ReceivedConf::shared().getTabHost(), server->tabAddress(QStringLiteral("1001")));
    EXPECT_FALSE(ReceivedConf::shared().getValueOfKey(QStringLiteral("old")).isValid());

    // Another area keeps its own object.
    Conf::setArea(QStringLiteral("1002"));
    EXPECT_FALSE(ReceivedConf::shared().getHeartServerAddress());
    Conf::setArea(QStringLiteral("1001"));

    struct Bad
    {
        const char *answer;
        const char *logLine;
    };
    const Bad bad[] = {
        {R"({"RespType":"RegisterResp","Infos":{"hiturl":"http://x/"}})", "config request failed, infos format error"},
        {R"({"RespType":"RegisterResp","infos":"x"})", "config request failed, infos format error"},
        {R"({"RespType":"ConfigResp","infos":{}})", "config request failed, response format error"},
    };
    for (const auto &b : bad) {
        SCOPED_TRACE(b.answer);
        server->setRegisterAnswer(ordered_json::parse(b.answer));
        Logs logs;
        runToEnd(std::make_shared<Register>(base, link, QStringLiteral("demo")));
        EXPECT_TRUE(logs.has(QString::fromUtf8(b.logLine))) << logs.all().join(u'|').toStdString();
        EXPECT_EQ(ReceivedConf::shared().getTabHost(), server->tabAddress(QStringLiteral("1001")));
    }
}

} // namespace
