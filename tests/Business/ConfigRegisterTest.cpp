// Configuration request and registration report against the simulated business server.

#include "BusinessTestSupport.h"

#include "services/BusinessServer.h"

#include "Business/ConfigReq.h"
#include "Business/Register.h"
#include "Conf/ReceivedConf.h"
#include "Util/DVEnv.h"
#include "Util/OperationQueue.h"

#include <gtest/gtest.h>

using Logs = LogCapture;

namespace {

class BusinessRequests : public ::testing::Test
{
protected:
    void SetUp() override
    {
        config = BizTest::demoConfig();
        ASSERT_TRUE(BizTest::startServices(host, config, {QStringLiteral("business")}));
        server = static_cast<BusinessServer *>(host.service(QStringLiteral("business")));
        base = BizTest::local(server->port());
        BizTest::setDefault(config, "business", "host", base);
        BizTest::useConfig(config);
        Conf::setArea(QStringLiteral("1001"));
    }

    // Runs the operation as the controller does: on a work queue.
    void run(std::shared_ptr<Operation> op)
    {
        auto queue = OperationQueue::create();
        queue->addOperation(op);
        ASSERT_TRUE(TestSupport::spinUntil([&] { return queue->operationCount() == 0; }, 15000));
    }

    SimHost host;
    BusinessServer *server = nullptr;
    ordered_json config;
    QString base;
};

struct ConfigBodyCase
{
    const char *name;
    std::optional<QString> user;
    QString area;
    std::optional<QString> version;
    bool routerPresent;
    const char *expected;
};

TEST_F(BusinessRequests, ConfigBodyStopsAtFirstAbsentValue)
{
    const ConfigBodyCase cases[] = {
        {"complete", QStringLiteral("demo"), QStringLiteral("1001"), QStringLiteral("9.9.9"), true,
         "{\n  \"ReqType\": \"ConfigReq\",\n  \"User\": \"demo\",\n  \"AreaCode\": \"1001\",\n"
         "  \"ClientVersion\": \"9.9.9\",\n  \"router\": \"1.0.0\"\n}"},
        {"no user", std::nullopt, QStringLiteral("1001"), QStringLiteral("9.9.9"), true,
         "{\n  \"ReqType\": \"ConfigReq\"\n}"},
        {"no area", QStringLiteral("demo"), QString(), QStringLiteral("9.9.9"), true,
         "{\n  \"ReqType\": \"ConfigReq\",\n  \"User\": \"demo\"\n}"},
        {"no version becomes empty", QStringLiteral("demo"), QStringLiteral("1001"), std::nullopt, true,
         "{\n  \"ReqType\": \"ConfigReq\",\n  \"User\": \"demo\",\n  \"AreaCode\": \"1001\",\n"
         "  \"ClientVersion\": \"\",\n  \"router\": \"1.0.0\"\n}"},
        {"no router", QStringLiteral("张三"), QStringLiteral("1001"), QStringLiteral("9.9.9"), false,
         "{\n  \"ReqType\": \"ConfigReq\",\n  \"User\": \"张三\",\n  \"AreaCode\": \"1001\",\n"
         "  \"ClientVersion\": \"9.9.9\"\n}"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        auto conf = config;
        if (!c.routerPresent)
            conf["route"]["version"] = ordered_json{{"2999", "x"}};
        BizTest::useConfig(conf);
        Conf::setArea(c.area);
        auto op = std::make_shared<ConfigReq>(base, c.user);
        op->setClientVersion(c.version);
        const int before = server->configRequests();
        run(op);
        EXPECT_EQ(server->configRequests(), before + 1);
        EXPECT_EQ(server->lastConfigBody().toStdString(), std::string(c.expected));
    }
}

struct TabCase
{
    const char *name;
    const char *answer;
    bool applied;
    const char *logLine; // expected among the log lines, or null
};

TEST_F(BusinessRequests, TabAddressComesFromTopLevelOnlyWhenInfosHasAnArray)
{
    const TabCase cases[] = {
        {"both arrays", R"({"RespType":"ConfigResp","Infos":{"TabConfig":[],"BubbleConfig":[]},
            "TabConfig":[{"name":"x"},{"hiturl":"http://tab.example/a"},{"hiturl":"http://tab.example/b"}]})",
         true, nullptr},
        {"only under Infos", R"({"RespType":"ConfigResp","Infos":{"TabConfig":[{"hiturl":"http://tab.example/a"}],
            "BubbleConfig":[]}})",
         false, nullptr},
        {"Infos entry not an array", R"({"RespType":"ConfigResp","Infos":{"TabConfig":{"hiturl":"x"}},
            "TabConfig":[{"hiturl":"http://tab.example/a"}]})",
         false, "config request,no Tab Config"},
        {"other RespType", R"({"RespType":"RegisterResp","Infos":{"TabConfig":[]},
            "TabConfig":[{"hiturl":"http://tab.example/a"}]})",
         false, nullptr},
        {"Infos not an object",
         R"({"RespType":"ConfigResp","Infos":[],"TabConfig":[{"hiturl":"http://tab.example/a"}]})", false,
         "config request failed, response no infos"},
        {"not JSON", R"(<html>)", false, nullptr},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        ReceivedConf::shared().saveAreaObject({});
        const ordered_json answer = ordered_json::parse(c.answer, nullptr, false);
        if (answer.is_discarded()) {
            // Not JSON: the simulator cannot send it as an answer object; feed it directly.
            Logs logs;
            ConfigReq(base, QStringLiteral("demo")).handleResponseData(QByteArray(c.answer));
            EXPECT_TRUE(logs.contains(QStringLiteral("config request failed, ")))
                << logs.all().join(u'|').toStdString();
            EXPECT_FALSE(ReceivedConf::shared().getTabHost());
            continue;
        }
        server->setConfigAnswer(answer);
        Logs logs;
        run(std::make_shared<ConfigReq>(base, QStringLiteral("demo")));
        if (c.applied) {
            EXPECT_EQ(ReceivedConf::shared().getTabHost(), QStringLiteral("http://tab.example/a"));
        } else
            EXPECT_FALSE(ReceivedConf::shared().getTabHost());
        if (c.logLine) {
            EXPECT_TRUE(logs.has(QString::fromUtf8(c.logLine))) << logs.all().join(u'|').toStdString();
        }
        if (QByteArray(c.name) == "other RespType") {
            EXPECT_TRUE(logs.all().isEmpty()) << logs.all().join(u'|').toStdString();
        }
    }
}

TEST_F(BusinessRequests, TransportAndStatusFailuresAreOneLogLine)
{
    {
        Logs logs;
        run(std::make_shared<ConfigReq>(QStringLiteral("http://127.0.0.1:1"), QStringLiteral("demo")));
        EXPECT_TRUE(logs.contains(QStringLiteral("config request failed,"))) << logs.all().join(u'|').toStdString();
    }
    {
        Logs logs;
        run(std::make_shared<ConfigReq>(QStringLiteral("http://[bad"), QStringLiteral("demo")));
        EXPECT_TRUE(logs.has(QStringLiteral("url init failed")));
    }
    {
        Logs logs;
        run(std::make_shared<ConfigReq>(base + QStringLiteral("/nowhere"), QStringLiteral("demo")));
        EXPECT_TRUE(logs.has(QStringLiteral("config request failed, http status code 404")))
            << logs.all().join(u'|').toStdString();
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
        run(op);
        const QByteArray raw = server->lastRegisterBody();
        const ordered_json body = ordered_json::parse(raw.constBegin(), raw.constEnd());
        EXPECT_EQ(raw.toStdString(), body.dump(2));
        std::vector<std::string> keys;
        for (const auto &[k, v] : body.items())
            keys.push_back(k);
        EXPECT_EQ(keys, c.keys);
        if (!body.contains("Infos"))
            continue;
        const DVEnv &env = DVEnv::shared();
        const ordered_json expected = {
            {"ClientIp", "10.64.0.2"},
            {"lastConnectionTimeLong", 0},
            {"lastConnectionBeginTime", ""},
            {"lastConnectionEndTime", ""},
            {"OSType", env.getOSType().toStdString()},
            {"OSLanguage", env.getOSLang().toStdString()},
            {"IEVersion", env.getSafariVersion().toStdString()},
            {"MemorySize", env.getMemorySize()},
            {"CPUInfo", env.getCpuInfo().toStdString()},
            {"NetcardType", "以太网 (eth0)"},
            {"NetcardMac", "52:54:00:12:34:56"},
        };
        EXPECT_EQ(body["Infos"].dump(), expected.dump());
    }
}

TEST_F(BusinessRequests, RegisterAnswerReplacesTheAreaObject)
{
    const RegisterLinkFacts link{QStringLiteral("10.64.0.2"), QString(), QString()};
    ReceivedConf::shared().saveValue(QStringLiteral("kept?"), QStringLiteral("old"));
    run(std::make_shared<Register>(base, link, QStringLiteral("demo")));
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
        run(std::make_shared<Register>(base, link, QStringLiteral("demo")));
        EXPECT_TRUE(logs.has(QString::fromUtf8(b.logLine))) << logs.all().join(u'|').toStdString();
        EXPECT_EQ(ReceivedConf::shared().getTabHost(), server->tabAddress(QStringLiteral("1001")));
    }
}

} // namespace
