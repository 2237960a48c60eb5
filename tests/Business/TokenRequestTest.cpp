// Token request against the simulated token service.

#include "BusinessTestSupport.h"

#include "services/TokenServer.h"

#include "Business/TokenReuest.h"
#include "Util/Crypto.h"
#include "Util/OperationQueue.h"

#include <gtest/gtest.h>

using Logs = LogCapture;

namespace {

const QString kKey = QStringLiteral("b6f03a9d27e14c58a0d9e3f71c2b4a86");

QString md5Hex(const QString &s)
{
    return QString::fromLatin1(Crypto::md5(s.toUtf8()).toHex());
}

TEST(TokenSignature, BaseStringAndSignatureForAKnownAccount)
{
    struct Case
    {
        QString path;
        QString account;
        QString expectedBase; // with H for the hashed password
    };
    const Case cases[] = {
        {QStringLiteral("/token"), QStringLiteral("A"), QStringLiteral("POST&%2Ftoken&account=A&pwd=H")},
        {QStringLiteral("/oauth/token?x=1"), QStringLiteral("demo"),
         QStringLiteral("POST&%2Foauth%2Ftoken%3Fx%3D1&account=demo&pwd=H")},
        {QStringLiteral("a b"), QStringLiteral("u@x"), QStringLiteral("POST&a%20b&account=u@x&pwd=H")},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.path.toStdString());
        TokenSettings s;
        s.path = c.path;
        s.key = kKey;
        TokenReuest op(s, c.account, QStringLiteral("secret"));
        const DVParams params = op.makeParams();
        const QString hashed = md5Hex(QStringLiteral("secret"));
        ASSERT_EQ(params.size(), 2u);
        EXPECT_EQ(params[0], std::make_pair(QStringLiteral("account"), c.account));
        EXPECT_EQ(params[1], std::make_pair(QStringLiteral("pwd"), hashed));
        QString base = c.expectedBase;
        base.replace(QStringLiteral("pwd=H"), QStringLiteral("pwd=") + hashed);
        EXPECT_EQ(op.signatureBaseString(params), base);
        const QString expected = QString::fromLatin1(Crypto::hmacSha1(base.toLatin1(), kKey.toLatin1()).toHex());
        EXPECT_EQ(op.getSignatureFromParam(params), expected);
    }
    TokenSettings noPath;
    noPath.key = kKey;
    Logs logs;
    EXPECT_FALSE(TokenReuest(noPath, QStringLiteral("A"), QStringLiteral("p")).getSignatureFromParam({}));
    EXPECT_TRUE(logs.has(QStringLiteral("token host is nil")));
}

TEST(TokenSignature, BasicAuthorisation)
{
    Logs logs;
    EXPECT_FALSE(TokenReuest::getBasicAuthHeaderFromUserName(QString(), QStringLiteral("p")));
    EXPECT_FALSE(TokenReuest::getBasicAuthHeaderFromUserName(QStringLiteral("u"), QString()));
    EXPECT_TRUE(logs.has(QStringLiteral("empty name or pwd")));
    const auto h =
        TokenReuest::getBasicAuthHeaderFromUserName(QStringLiteral("Aladdin"), QStringLiteral("open sesame"));
    ASSERT_TRUE(h);
    ASSERT_EQ(h->size(), 1u);
    EXPECT_EQ(h->front().first, QStringLiteral("Authorization"));
    EXPECT_EQ(h->front().second, QStringLiteral("Basic QWxhZGRpbjpvcGVuIHNlc2FtZQ=="));
}

class TokenService : public ::testing::Test
{
protected:
    void start(const QString &authUser, const QString &scenario = {})
    {
        config = BizTest::demoConfig();
        BizTest::setDefault(config, "token", "user", authUser);
        std::map<QString, QString> scenarios;
        if (!scenario.isEmpty())
            scenarios[QStringLiteral("token")] = scenario;
        ASSERT_TRUE(BizTest::startServices(host, config, {QStringLiteral("token")}, scenarios));
        server = static_cast<TokenServer *>(host.service(QStringLiteral("token")));
        BizTest::setDefault(config, "token", "host", BizTest::local(server->port()));
        BizTest::useConfig(config);
    }
    void run(std::shared_ptr<Operation> op)
    {
        auto queue = OperationQueue::create();
        queue->addOperation(op);
        ASSERT_TRUE(TestSupport::spinUntil([&] { return queue->operationCount() == 0; }, 15000));
    }

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
    EXPECT_EQ(seen.body, QByteArray("account=demo&pwd=") + md5Hex(QStringLiteral("demo123")).toLatin1());
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
    struct Case
    {
        const char *name;
        const char *scenario;
        std::function<void(ordered_json &)> edit;
        int requests;
        size_t posted;
        const char *logLine;
    };
    const Case cases[] = {
        {"missing key", "",
         [](ordered_json &c) {
             c["token"]["key"] = ordered_json{{"2999", "x"}};
         },
         0, 0, "get sign failed"},
        {"missing auth user", "",
         [](ordered_json &c) {
             c["token"]["user"] = ordered_json{{"2999", "x"}};
         },
         0, 0, nullptr},
        {"answer without message", "no-message", [](ordered_json &) {}, 1, 0, nullptr},
        {"status 500 with a readable body", "http500", [](ordered_json &) {}, 1, 1, nullptr},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        host = SimHost();
        start(QStringLiteral("dorvik-demo"), QString::fromUtf8(c.scenario));
        c.edit(config);
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

TEST(TokenAnswer, ParsingRules)
{
    struct Case
    {
        const char *body;
        bool ok;
    };
    const Case cases[] = {
        {R"({"code":0,"message":"ok","token":"t","redirect_uri":"http://x/"})", true},
        {R"({"code":3,"message":"m"})", true},
        {R"({"code":3})", false},
        {R"({"message":"m"})", false},
        {R"({"code":"3","message":"m"})", false},
        {R"({"code":3,"message":"m","token":5})", false},
        {R"([1,2])", false},
        {R"(not json)", false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.body);
        QString why;
        EXPECT_EQ(TokenReuest::parseTokenInfo(QByteArray(c.body), &why).has_value(), c.ok) << why.toStdString();
    }
}

} // namespace
