// Token request against the simulated token service.

#include "BusinessTestSupport.h"

#include "services/TokenServer.h"

#include "Business/TokenReuest.h"
#include "support/TestData.h"

#include <gtest/gtest.h>

using Logs = LogCapture;

namespace {

class TokenService : public ::testing::Test
{
protected:
    void start(const QString &authUser, const QString &scenario = {})
    {
        config = BizTest::demoConfig();
        BizTest::setDefault(config, "token", "user", authUser);
        server = BizTest::startService<TokenServer>(host, config, QStringLiteral("token"), scenario);
        ASSERT_TRUE(server);
        BizTest::setDefault(config, "token", "host", BizTest::local(server->port()));
        BizTest::useConfig(config);
    }
    static void run(std::shared_ptr<Operation> op) { BizTest::runToEnd(op); }

    SimHost host;
    TokenServer *server = nullptr;
    ordered_json config;
};

TEST_F(TokenService, SignedRequestIsAnsweredAndPosted)
{
    start(QStringLiteral("dorvik-demo"));
    BizTest::Observed posted(DVNotification::DVNotificationNameToken);
    run(std::make_shared<TokenReuest>(QStringLiteral("demo"), QStringLiteral("demo123")));
    const auto seen = server->lastRequest();
    EXPECT_EQ(seen.body, QByteArray("account=demo&pwd=") + BizTest::md5Hex(QStringLiteral("demo123")).toLatin1());
    EXPECT_TRUE(seen.signatureOk);
    EXPECT_EQ(seen.authorization, "Basic " + QByteArray("dorvik-demo:7e52c0d9a13f48b6").toBase64());
    ASSERT_EQ(posted.count(), 1u);
    const auto info = posted.payload<TokenNotificationInfo>(0, DVNotification::NotificationInfoKeyToken);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->code, 0);
    EXPECT_EQ(info->message, QStringLiteral("ok"));
    EXPECT_TRUE(info->token && !info->token->isEmpty());
    EXPECT_TRUE(info->redirect_uri);
}

TEST_F(TokenService, EmptyAuthUserSendsNoAuthorizationButStillSigns)
{
    start(QString());
    BizTest::Observed posted(DVNotification::DVNotificationNameToken);
    run(std::make_shared<TokenReuest>(QStringLiteral("demo"), QStringLiteral("wrong")));
    ASSERT_EQ(server->requests(), 1);
    const auto seen = server->lastRequest();
    EXPECT_FALSE(seen.hadAuthorization);
    EXPECT_TRUE(seen.signatureOk);
    ASSERT_EQ(posted.count(), 1u);
    EXPECT_EQ(posted.payload<TokenNotificationInfo>(0, DVNotification::NotificationInfoKeyToken)->code, 1);
}

TEST_F(TokenService, AnswersThatAreNotPostedAndRequestsNotSent)
{
    const struct
    {
        const char *name, *scenario;
        const char *noValue; // a token setting without a value for the area
        int requests;
        size_t posted;
        const char *logLine;
    } cases[] = {
        {"missing key", "", "key", 0, 0, "get sign failed"},
        {"missing auth user", "", "user", 0, 0, nullptr},
        {"answer without message", "no-message", nullptr, 1, 0, nullptr},
        {"status 500 with a readable body", "http500", nullptr, 1, 1, nullptr},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        host = SimHost();
        start(QStringLiteral("dorvik-demo"), QString::fromUtf8(c.scenario));
        if (c.noValue)
            config["token"][c.noValue] = ordered_json{{"2999", "x"}};
        BizTest::useConfig(config);
        BizTest::Observed posted(DVNotification::DVNotificationNameToken);
        Logs logs;
        run(std::make_shared<TokenReuest>(QStringLiteral("demo"), QStringLiteral("demo123")));
        EXPECT_EQ(server->requests(), c.requests);
        EXPECT_EQ(posted.count(), c.posted);
        if (c.logLine) {
            EXPECT_TRUE(logs.has(QString::fromUtf8(c.logLine))) << logs.all().join(u'|').toStdString();
        }
    }
}

TEST_F(TokenService, CancelledBeforeItsTurnStillAnswersAndSendsNothing)
{
    start(QStringLiteral("dorvik-demo"));
    auto request = std::make_shared<TokenReuest>(QStringLiteral("demo"), QStringLiteral("demo123"));
    QString why;
    request->onOutcome = [&why](const std::optional<TokenNotificationInfo> &info, const QString &w) {
        why = info ? QStringLiteral("answered") : w;
    };
    request->cancel();
    request->start();
    EXPECT_EQ(why, QStringLiteral("连接已断开，令牌请求已取消"));
    EXPECT_EQ(server->requests(), 0);
}

TEST(TokenAnswer, ParsingRules)
{
    const auto data = TestData::load("business.json"); // the loop must not outlive the document
    for (const auto &c : data.at("tokenAnswers")) {
        QString why;
        EXPECT_EQ(TokenReuest::parseTokenInfo(TestData::text(c, "body").toUtf8(), &why).has_value(),
                  c.at("parses").get<bool>())
            << c.dump() << why.toStdString();
    }
}

} // namespace
