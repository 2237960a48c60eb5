// QR-code log-in against the simulated QR-code service, and the QR image.

#include "BusinessTestSupport.h"

#include "services/QrCodeServer.h"

#include "Business/QrCode/QrCodeDial.h"
#include "Business/QrCode/QrCodeError.h"
#include "Business/QrCode/QrCodeGenerator.h"
#include "Business/QrCode/QrCodeModels.h"
#include "Util/Crypto.h"
#include "Util/DVUtils.h"
#include "support/TestData.h"

#include <gtest/gtest.h>

using Logs = LogCapture;
using DVNotification::NotificationInfoKeyQrCodeCheck;
using DVNotification::NotificationInfoKeyQrCodeGet;

namespace {

const QString kHashKey = QStringLiteral("c1d8e4a70f3b9265d4e8a1c7b0f35e92");
const QString kDecodeKey = QStringLiteral("3a9f5c1e7b2d4068");

class QrLogin : public ::testing::Test
{
protected:
    void start(const QString &scenario = {})
    {
        server = BizTest::startService<QrCodeServer>(host, BizTest::demoConfig(), QStringLiteral("qrcode"), scenario);
        ASSERT_TRUE(server);
        dial =
            std::make_unique<QrCodeDial>(BizTest::local(server->port()), kHashKey, kDecodeKey, QStringLiteral("PPPoE"),
                                         QStringLiteral("10.0.0.8"), QStringLiteral("52:54:00:12:34:56"));
    }

    // Asks for a code and returns the "get" payload.
    QrCodeGetNotificationInfo requestCode(BizTest::Observed &seen)
    {
        const size_t before = seen.count();
        dial->doRequest();
        EXPECT_TRUE(seen.waitFor(before + 1));
        for (size_t i = before; i < seen.count(); ++i)
            if (const auto p = seen.payload<QrCodeGetNotificationInfo>(i, NotificationInfoKeyQrCodeGet))
                return *p;
        ADD_FAILURE() << "no get notification";
        return {};
    }

    // Starts the check, releases it with `outcome` once the service holds it, returns the payload.
    QrCodeCheckNotificationInfo check(BizTest::Observed &seen, const QString &outcome)
    {
        const size_t before = seen.count();
        EXPECT_TRUE(dial->doCheck());
        EXPECT_TRUE(TestSupport::spinUntil([&] { return server->waitingChecks() == 1; }));
        EXPECT_EQ(seen.count(), before) << "the check must wait for the scan";
        server->release(outcome);
        EXPECT_TRUE(seen.waitFor(before + 1));
        if (const auto p = seen.payload<QrCodeCheckNotificationInfo>(before, NotificationInfoKeyQrCodeCheck))
            return *p;
        ADD_FAILURE() << "no check notification";
        return {};
    }

    SimHost host;
    QrCodeServer *server = nullptr;
    std::unique_ptr<QrCodeDial> dial;
};

TEST_F(QrLogin, ConfirmedScanDeliversTheCredentials)
{
    start();
    BizTest::Observed seen(DVNotification::DVNotificationNameQRcode);
    const auto got = requestCode(seen);
    ASSERT_TRUE(got.err);
    EXPECT_EQ(got.err->code, 0);
    EXPECT_TRUE(server->lastSignatureOk());
    const auto sid = dial->sessionId();
    ASSERT_TRUE(sid);
    EXPECT_EQ(got.qrCodeContent,
              BizTest::local(server->port(), QStringLiteral("/scan/")) + *sid + QStringLiteral("$$") + *sid);

    const auto result = check(seen, QStringLiteral("confirmed"));
    ASSERT_TRUE(result.err);
    EXPECT_EQ(result.err->code, 0);
    EXPECT_EQ(result.username, QStringLiteral("demo"));
    EXPECT_EQ(result.password, QStringLiteral("demo123"));
}

TEST_F(QrLogin, CheckOutcomes)
{
    struct Case
    {
        const char *outcome;
        qint64 code;
        QString description;
    };
    const Case cases[] = {
        {"expired", 4, QStringLiteral("获取扫码结果超时,二维码已过期")},
        {"failed", 2, QStringLiteral("二维码服务器返回的结果为失败,扫码登录被拒绝")},
        {"garbled", 5, QStringLiteral("解密用户信息时失败")},
    };
    start();
    BizTest::Observed seen(DVNotification::DVNotificationNameQRcode);
    for (const auto &c : cases) {
        SCOPED_TRACE(c.outcome);
        requestCode(seen);
        const auto result = check(seen, QString::fromUtf8(c.outcome));
        ASSERT_TRUE(result.err);
        EXPECT_EQ(result.err->domain, QStringLiteral("QrcodeDomain"));
        EXPECT_EQ(result.err->code, c.code);
        EXPECT_EQ(result.err->localizedDescription, c.description);
        EXPECT_TRUE(result.username.isEmpty());
        EXPECT_TRUE(result.password.isEmpty());
    }
}

TEST_F(QrLogin, LongPollIsCancelledAtOnce)
{
    start();
    BizTest::Observed seen(DVNotification::DVNotificationNameQRcode);
    requestCode(seen);
    const size_t before = seen.count();
    ASSERT_TRUE(dial->doCheck());
    ASSERT_TRUE(TestSupport::spinUntil([&] { return server->waitingChecks() == 1; }));
    Logs logs;
    dial->cancel();
    ASSERT_TRUE(seen.waitFor(before + 1));
    const auto p = seen.payload<QrCodeCheckNotificationInfo>(before, NotificationInfoKeyQrCodeCheck);
    ASSERT_TRUE(p && p->err);
    EXPECT_EQ(p->err->code, -999);
    EXPECT_TRUE(logs.contains(QStringLiteral("qrcode request error, err: ")));
    EXPECT_TRUE(TestSupport::spinUntil([&] { return server->waitingChecks() == 0; }));

    // Leaving the view while a check waits: the object goes away quietly.
    ASSERT_TRUE(dial->doCheck());
    ASSERT_TRUE(TestSupport::spinUntil([&] { return server->waitingChecks() == 1; }));
    const size_t beforeReset = seen.count();
    dial.reset();
    EXPECT_TRUE(TestSupport::spinUntil([&] { return server->waitingChecks() == 0; }));
    EXPECT_EQ(seen.count(), beforeReset);
}

TEST_F(QrLogin, ServiceFaults)
{
    {
        SCOPED_TRACE("success 1 without url");
        start(QStringLiteral("no-url"));
        BizTest::Observed seen(DVNotification::DVNotificationNameQRcode);
        Logs logs;
        const auto got = requestCode(seen);
        ASSERT_TRUE(got.err);
        EXPECT_EQ(got.err->code, 1);
        EXPECT_EQ(got.err->localizedDescription, QStringLiteral("返回内容解析失败,ok"));
        EXPECT_TRUE(got.qrCodeContent.isEmpty());
        EXPECT_TRUE(logs.contains(QStringLiteral("QrcodeDomain 返回内容解析失败,ok, ")));
    }
    {
        SCOPED_TRACE("status 500 with an empty body");
        host = SimHost();
        start(QStringLiteral("http500-empty"));
        BizTest::Observed seen(DVNotification::DVNotificationNameQRcode);
        requestCode(seen);
        Logs logs;
        const size_t before = seen.count();
        ASSERT_TRUE(dial->doCheck());
        ASSERT_TRUE(seen.waitFor(before + 1));
        const auto p = seen.payload<QrCodeCheckNotificationInfo>(before, NotificationInfoKeyQrCodeCheck);
        ASSERT_TRUE(p && p->err);
        EXPECT_EQ(p->err->code, 2);
        EXPECT_EQ(p->err->localizedDescription, QStringLiteral("二维码服务器返回的结果为失败"));
        EXPECT_TRUE(logs.has(QStringLiteral("qrcode check failed ,response data is nil, http sattus code 500")));
    }
}

TEST(QrCodeDialProperties, RefusalsAndTheirWords)
{
    const auto data = TestData::load("business.json"); // the loop must not outlive the document
    for (const auto &c : data.at("qrRefusals")) {
        SCOPED_TRACE(c.dump());
        const auto o = [&](const char *key) { return TestData::opt(c, key); };
        QrCodeDial dial(o("host"), o("encodeKey"), o("decodeKey"), o("dialType"), o("ip"), o("mac"));
        BizTest::Observed seen(DVNotification::DVNotificationNameQRcode);
        Logs logs;
        dial.doRequest();
        // Posted at once, on the calling thread: code 0 and no content.
        ASSERT_EQ(seen.count(), 1u);
        const auto p = seen.payload<QrCodeGetNotificationInfo>(0, NotificationInfoKeyQrCodeGet);
        ASSERT_TRUE(p && p->err);
        EXPECT_EQ(p->err->code, 0);
        EXPECT_TRUE(p->qrCodeContent.isEmpty());
        EXPECT_TRUE(logs.has(TestData::text(c, "log"))) << logs.all().join(u'|').toStdString();
    }
    const QString h = QStringLiteral("http://127.0.0.1:9"), k = QStringLiteral("k"), t = QStringLiteral("PPPoE"),
                  ip = QStringLiteral("10.0.0.8"), mac = QStringLiteral("52:54:00:12:34:56");
    QrCodeDial fresh(h, k, k, t, ip, mac);
    Logs logs;
    EXPECT_FALSE(fresh.doCheck());
    EXPECT_TRUE(logs.has(QStringLiteral("qrcode check failed, session id is nil or empty")));
}

TEST(QrCodeDialDecrypt, EncryptedUserInformation)
{
    QrCodeDial dial(QStringLiteral("http://127.0.0.1:9"), QStringLiteral("h"), kDecodeKey, QStringLiteral("PPPoE"),
                    QStringLiteral("10.0.0.8"), QStringLiteral("m"));
    const auto enc = [](const QString &plain) {
        return QString::fromLatin1(DVUtils::aesEcbEncode(plain.toUtf8(), kDecodeKey)->toBase64());
    };
    struct Case
    {
        const char *name;
        QString data;
        bool ok;
        QString user, pwd;
    };
    const Case cases[] = {
        {"noise ignored", QStringLiteral("\n") + enc(QStringLiteral("u$p")).insert(4, QStringLiteral(" *\n")), true,
         QStringLiteral("u"), QStringLiteral("p")},
        {"three pieces", enc(QStringLiteral("a$b$c")), false, {}, {}},
        {"no separator", enc(QStringLiteral("ab")), false, {}, {}},
        {"not padded", enc(QStringLiteral("u$p")).remove(QLatin1Char('=')).left(22), false, {}, {}},
        {"wrong key",
         QString::fromLatin1(DVUtils::aesEcbEncode("u$p", QStringLiteral("other"))->toBase64()),
         false,
         {},
         {}},
        {"empty", QString(), false, {}, {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        QString user, pwd;
        EXPECT_EQ(dial.decryptUserInfo(c.data, &user, &pwd), c.ok);
        if (c.ok) {
            EXPECT_EQ(user, c.user);
            EXPECT_EQ(pwd, c.pwd);
        }
    }
}

TEST(QrAnswers, Validation)
{
    const auto data = TestData::load("business.json"); // the loop must not outlive the document
    for (const auto &c : data.at("qrAnswers")) {
        SCOPED_TRACE(c.dump());
        const QByteArray body = TestData::text(c, "body").toUtf8();
        DVError error;
        bool parsed = false, valid = false;
        if (c.at("check").get<bool>()) {
            const auto r = QrcodeCheckResult::fromJson(body, &error);
            parsed = r.has_value();
            valid = parsed && r->validate(&error);
            if (parsed) {
                Logs logs;
                EXPECT_FALSE(r->validate(nullptr));
                EXPECT_TRUE(logs.has(QStringLiteral("qrcode nil error pointer ref")));
            }
        } else {
            const auto r = QrcodeGetResult::fromJson(body, &error);
            parsed = r.has_value();
            valid = parsed && r->validate(&error);
        }
        EXPECT_EQ(parsed, c.at("parses").get<bool>());
        EXPECT_EQ(valid, c.at("valid").get<bool>());
        EXPECT_EQ(valid ? 0 : error.code, c.at("code").get<qint64>());
    }
    EXPECT_EQ(QrCodeError::createErrorWithID(7, QStringLiteral("x")).localizedDescription, QString());
    EXPECT_EQ(QrCodeError::createErrorWithID(6).localizedDescription, QStringLiteral("初始化错误"));
}

} // namespace
