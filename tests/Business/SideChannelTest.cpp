// The two side channels over UDP against the simulator's servers on 127.0.0.1: the SMS
// verification after a connection and the dynamic password before one. Both have one shape:
// server scenarios (tests/data/sidechannel.json), transport trouble, settings that refuse to
// run, the request layout, and the settings read from their configuration section.

#include "Business/DynamicPassword.h"
#include "Business/SMSVerify.h"
#include "BusinessTestSupport.h"
#include "Conf/Conf.h"
#include "Util/Crypto.h"
#include "services/DynPwdServer.h"
#include "support/LogCapture.h"
#include "support/TestData.h"

#include <QDateTime>
#include <QRegularExpression>
#include <QUdpSocket>

#include <gtest/gtest.h>

#include <functional>

using namespace DVNotification;
using TestData::json;

namespace {

const QString kShareKey = QStringLiteral("8e4b1d7a2c9f0635");
const QString kDecodeKey = QStringLiteral("6b2e9f4a1c8d0357");
const QString kEncodeKey = QStringLiteral("d05a7c3e9b1f4862");

json config()
{
    return json::parse(R"({
      "dynmicpwd": {"host": {"default": "127.0.0.1:18086"}, "decodeKey": {"default": "6b2e9f4a1c8d0357"},
                    "encodeKey": {"default": "d05a7c3e9b1f4862"}},
      "sms": {"host": {"default": "127.0.0.1:18085"}, "shareKey": {"default": "8e4b1d7a2c9f0635"},
              "timeout": {"default": "60"}}})");
}

// One simulated service on an ephemeral port; its port, 0 when it did not start.
quint16 startService(SimHost &host, const QString &service, const QString &scenario,
                     std::map<QString, QString> accounts = {})
{
    SimOptions options;
    options.config = config();
    options.ephemeralPorts = true;
    options.accounts = std::move(accounts);
    if (!scenario.isEmpty())
        options.scenarios[service] = scenario;
    return host.start(options, {service}) ? host.service(service)->port() : 0;
}

quint16 closedUdpPort()
{
    QUdpSocket probe;
    probe.bind(QHostAddress::LocalHost, 0);
    return probe.localPort();
}

// The demo deployment's configuration with `section` edited, as the client's configuration.
void useDemoConfig(const std::function<void(json &)> &edit)
{
    json demo = TestData::demoConfig();
    edit(demo);
    Conf::setShared(Conf::fromJson(QByteArray::fromStdString(demo.dump())));
}

// What the online view does: watches for the SMS operation's questions on the main thread
// and, when asked for a code, answers with `answer` (or not at all).
class UiSide
{
public:
    explicit UiSide(std::optional<QString> answer, std::function<void()> onAsked = nullptr)
        : _answer(std::move(answer))
        , _onAsked(std::move(onAsked))
    {
        _token = DVNotificationCenter::defaultCenter().addObserverForName(
            DVNotificationNameSMSVerifyToUI, OperationQueue::mainQueue(), [this](const DVNotificationMessage &m) {
                const auto *info = m.payload<SMSVerifyToUINotificationInfo>(NotificationInfoKeySMSVerifyToUI);
                if (!info)
                    return;
                seen.push_back(*info);
                if (!info->err || info->err->code != 0)
                    return;
                if (_onAsked)
                    _onAsked();
                if (_answer)
                    DVNotificationCenter::defaultCenter().postNotificationName(
                        DVNotificationNameSMSVerifyFromUI,
                        {{NotificationInfoKeySMSVerifyFromUI, SMSVerifyFromUINotificationInfo{*_answer}}});
            });
    }
    ~UiSide() { DVNotificationCenter::defaultCenter().removeObserver(_token); }

    // [code, description] per notification; code -1 for "no error".
    json outcomes() const
    {
        json out = json::array();
        for (const auto &info : seen)
            out.push_back({info.err ? info.err->code : -1,
                           info.err ? info.err->localizedDescription.toStdString() : std::string()});
        return out;
    }

    std::vector<SMSVerifyToUINotificationInfo> seen;

private:
    std::optional<QString> _answer;
    std::function<void()> _onAsked;
    DVNotificationCenter::Token _token = 0;
};

// What the log-in view hears: every dynamic-password outcome.
struct LoginSide : BizTest::Observed
{
    LoginSide()
        : Observed(DVNotificationNameDyPwd)
    {}
    std::optional<DVError> err(size_t i) const
    {
        return payload<DyPwdCheckNotificationInfo>(i, NotificationInfoKeyDyPwdCheck).value().err;
    }
};

std::shared_ptr<SMSVerify> smsOp(const QString &host, qint64 port, qint64 transportMs = 10000,
                                 std::optional<qint64> userMs = std::nullopt)
{
    auto op = std::make_shared<SMSVerify>(host, port, QStringLiteral("demo"), kShareKey, 60);
    op->setWaits(transportMs, userMs);
    return op;
}

std::shared_ptr<DynamicPassword> pwdOp(std::optional<QString> host, qint64 port, const QString &user,
                                       qint64 waitMs = 10000)
{
    auto op = std::make_shared<DynamicPassword>(std::move(host), port, user, kDecodeKey, kEncodeKey);
    op->setReplyWaitMs(waitMs);
    return op;
}

// The SMS operation on a work queue, as after a connection; the password one on the main
// queue, as the log-in view runs it.
void runToEnd(const std::shared_ptr<Operation> &op, std::shared_ptr<OperationQueue> queue = nullptr)
{
    (queue ? queue : OperationQueue::mainQueue())->addOperation(op);
    ASSERT_TRUE(TestSupport::spinUntil([&] { return op->isFinished(); }, 30000));
    TestSupport::spinUntil([] { return false; }, 50); // deliver what was queued for the main thread
}

TEST(SMSVerify, OutcomesOfTheExchangeReachTheUserInterface)
{
    const auto queue = OperationQueue::create();
    const auto data = TestData::load("sidechannel.json"); // the loop must not outlive the document
    for (const json &c : data.at("sms")) {
        SCOPED_TRACE(c.dump());
        SimHost sim;
        const quint16 port = startService(sim, QStringLiteral("sms"), TestData::text(c, "scenario"));
        ASSERT_NE(port, 0);
        UiSide ui(TestData::opt(c, "answer"));
        const auto userWait = c.contains("userWaitMs") ? std::optional<qint64>(c.at("userWaitMs")) : std::nullopt;
        runToEnd(smsOp(QStringLiteral("127.0.0.1"), port, 10000, userWait), queue);

        EXPECT_EQ(ui.outcomes(), c.at("outcomes"));
        for (const auto &info : ui.seen) {
            EXPECT_EQ(info.timeoutSeconds, 60u);
            EXPECT_EQ(info.err.value_or(DVError(SMSVerify::ErrorDomain, 0)).domain, SMSVerify::ErrorDomain);
        }
        const json stats = sim.service(QStringLiteral("sms"))->stats();
        EXPECT_EQ(stats["requests"], 1);
        EXPECT_EQ(stats["checks"], c.at("checks"));
        EXPECT_EQ(stats["verified"], c.at("verified"));
        // The server checks each request's attributes, its check code and the code typed
        // (counted as verified); the bytes themselves are checked in RequestLayouts.
        EXPECT_EQ(stats["badCheckCode"], 0);
        EXPECT_EQ(stats["malformed"], 0) << stats.dump();
    }
}

TEST(DynamicPassword, ServerRepliesAreClassified)
{
    const auto data = TestData::load("sidechannel.json"); // the loop must not outlive the document
    for (const json &c : data.at("dynpwd")) {
        SCOPED_TRACE(c.dump());
        SimHost sim;
        std::map<QString, QString> accounts;
        if (c.contains("accounts"))
            accounts[QStringLiteral("demo")] = QStringLiteral("demo123");
        const quint16 port = startService(sim, QStringLiteral("dynpwd"), TestData::text(c, "scenario"), accounts);
        ASSERT_NE(port, 0);
        LoginSide login;
        const QString user = TestData::text(c, "user");
        runToEnd(pwdOp(QStringLiteral("127.0.0.1"), port, user, 300));

        ASSERT_EQ(login.count(), 1u);
        const auto err = login.err(0);
        auto expected = TestData::opt(c, "error");
        if (expected)
            expected->replace(QStringLiteral("@errorInfo"), QString::fromUtf8(DynPwdServer::errorInfo()));
        EXPECT_EQ(err.has_value(), expected.has_value());
        if (err && expected) {
            EXPECT_EQ(err->domain, DynamicPassword::ErrorDomain);
            EXPECT_EQ(err->code, 1);
            EXPECT_EQ(err->localizedDescription, *expected);
        }
        // The server could read the request: zero header, whole blocks, the request key,
        // "TEL=<account>&SEQ=<upper-case UUID>".
        const json stats = sim.service(QStringLiteral("dynpwd"))->stats();
        EXPECT_EQ(stats["requests"], 1);
        EXPECT_EQ(stats["accepted"], 1) << stats.dump();
        EXPECT_EQ(QString::fromStdString(stats["lastTel"].get<std::string>()), user);
    }
}

TEST(SideChannels, TransportTroubleIsLoggedAndOnlyThePasswordPostsIt)
{
    const quint16 closed = closedUdpPort();
    const QString local = QStringLiteral("127.0.0.1");
    const QString nowhere = QStringLiteral("no-such-host.invalid");
    const auto queue = OperationQueue::create();
    {
        SimHost sim;
        const quint16 silent = startService(sim, QStringLiteral("sms"), QStringLiteral("silence"));
        const struct
        {
            QString host;
            quint16 port;
            int timeoutLines;
            QString alsoLogged;
        } cases[] = {{local, silent, 1, {}},
                     {local, closed, 0, QStringLiteral("Connection refused")},
                     {nowhere, closed, 1, QStringLiteral("error: ")}};
        for (const auto &c : cases) {
            SCOPED_TRACE(c.host.toStdString() + ":" + std::to_string(c.port));
            LogCapture log;
            UiSide ui(QStringLiteral("123456"));
            runToEnd(smsOp(c.host, c.port, 300), queue);
            EXPECT_TRUE(ui.seen.empty());
            EXPECT_EQ(log.countContaining(QStringLiteral("短信验证请求超时")), c.timeoutLines)
                << log.all().join(u'\n').toStdString();
            EXPECT_TRUE(c.alsoLogged.isEmpty() || log.contains(c.alsoLogged)) << log.all().join(u'\n').toStdString();
        }
    }
    const struct
    {
        std::optional<QString> host;
        qint64 port;
        std::optional<std::pair<QString, qint64>> posted; // nullopt: nothing posted
        QString logged;
    } cases[] = {
        {local, closed, std::pair{DVErrorDomain::POSIX, qint64(ECONNREFUSED)}, QStringLiteral("Connection refused")},
        {nowhere, 18086, std::pair{DynamicPassword::ErrorDomain, qint64(1)}, QStringLiteral("error: ")},
        {std::nullopt, 18086, std::nullopt, QStringLiteral("Dynamic password request failed, host is nil")},
        {local, 0, std::nullopt, QStringLiteral("Dynamic password request failed, port is 0")},
        {local, 70000, std::nullopt, QStringLiteral("Dynamic password request failed, port is 70000")},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.logged.toStdString());
        LogCapture log;
        LoginSide login;
        runToEnd(pwdOp(c.host, c.port, QStringLiteral("demo"), 300));
        ASSERT_EQ(login.count(), c.posted ? 1u : 0u);
        if (c.posted) {
            ASSERT_TRUE(login.err(0).has_value());
            EXPECT_EQ(login.err(0)->domain, c.posted->first);
            EXPECT_EQ(login.err(0)->code, c.posted->second);
        }
        EXPECT_TRUE(log.contains(c.logged)) << log.all().join(u'\n').toStdString();
    }
}

TEST(SMSVerify, RefusesToRunWithoutUsableSettings)
{
    const auto data = TestData::load("sidechannel.json"); // the loop must not outlive the document
    for (const json &c : data.at("smsRefusals")) {
        SCOPED_TRACE(c.dump());
        LogCapture log;
        UiSide ui(std::nullopt);
        auto op = std::make_shared<SMSVerify>(TestData::opt(c, "host"), c.at("port"), QStringLiteral("demo"),
                                              TestData::opt(c, "key"), 60);
        EXPECT_FALSE(op->checkProperties());
        op->start();
        TestSupport::spinUntil([] { return false; }, 20);
        EXPECT_TRUE(ui.seen.empty());
        const QString logged = TestData::text(c, "logged"); // empty: refuses silently
        if (logged.isEmpty()) {
            EXPECT_TRUE(log.all().isEmpty()) << log.all().join(u'\n').toStdString();
        } else {
            EXPECT_EQ(log.countContaining(logged), 2); // once per check, once per run
        }
    }
}

TEST(SMSVerify, CancelledOperationPostsNothingAfterItsWait)
{
    SimHost sim;
    const quint16 port = startService(sim, QStringLiteral("sms"), QStringLiteral("code"));
    const auto queue = OperationQueue::create();
    UiSide ui(std::nullopt, [&queue] { queue->cancelAllOperations(); });
    // Without the cancel the user would have a minute to answer.
    runToEnd(smsOp(QStringLiteral("127.0.0.1"), port, 10000, 60000), queue);
    EXPECT_EQ(ui.outcomes(), json::parse(R"([[0, "验证码已发送到您的手机"]])"));
    EXPECT_EQ(sim.service(QStringLiteral("sms"))->stats()["checks"], 0);
}

TEST(SideChannels, RequestLayouts)
{
    auto clock = std::make_shared<ManualClock>(QDateTime::fromSecsSinceEpoch(1700000000, Qt::UTC));
    SMSVerify op(QStringLiteral("127.0.0.1"), 18085, QStringLiteral("张三&<x>"), QStringLiteral("key"), 60);
    op.setClock(clock);
    const QString head =
        QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\"?><op><%1 login=\"张三&amp;&lt;x&gt;\" "
                       "checkCode=\"%2\" ")
            .arg(QStringLiteral("%1"), BizTest::md5Hex(QStringLiteral("张三&<x>key")));
    EXPECT_EQ(QString::fromUtf8(op.makeRequestParam()),
              head.arg(QStringLiteral("accountInfo")) + QStringLiteral("id=\"1700000000\"/></op>\n"));
    op.onNotification(
        {DVNotificationNameSMSVerifyFromUI,
         {{NotificationInfoKeySMSVerifyFromUI, SMSVerifyFromUINotificationInfo{QStringLiteral("123456")}}}});
    EXPECT_EQ(QString::fromUtf8(op.makeVerifyParam()),
              head.arg(QStringLiteral("validateAccount"))
                  + QStringLiteral("validateCode=\"123456\" id=\"1700000000\"/></op>\n"));

    // The password request: the server reads it in every run above; here, the longest one.
    const QString user(20000, u'9');
    const QByteArray datagram = DynamicPassword::makeRequestDatagram(user, QStringLiteral("S"), kEncodeKey);
    EXPECT_EQ(datagram.left(4), QByteArray(4, '\0'));
    EXPECT_EQ(Crypto::aes128(datagram.mid(4), kEncodeKey.toUtf8(), {}, Crypto::Op::Decrypt),
              QByteArray("TEL=") + user.toUtf8() + QByteArray("&SEQ=S"));
}

TEST(SMSVerify, ReplyParsing)
{
    const auto data = TestData::load("sidechannel.json"); // the loop must not outlive the document
    for (const json &c : data.at("smsReplies")) {
        SCOPED_TRACE(c.dump());
        LogCapture log;
        const auto got = SMSVerify::parseReply(TestData::text(c, "xml").toUtf8());
        const json &r = c.at("result");
        ASSERT_EQ(got.has_value(), !r.is_null());
        if (got) {
            EXPECT_EQ(got->resCode, TestData::opt(r, "resCode"));
            EXPECT_EQ(got->titleMsg, TestData::opt(r, "titleMsg"));
            EXPECT_EQ(got->resMsg, TestData::opt(r, "resMsg"));
            EXPECT_EQ(got->isBind, TestData::opt(r, "isBind"));
            EXPECT_EQ(got->sendSuccess, TestData::opt(r, "sendSuccess"));
        }
        EXPECT_EQ(log.countContaining(QStringLiteral("解析xml出错:")), c.value("parseError", false) ? 1 : 0);
    }
}

TEST(SideChannels, SettingsComeFromTheirSections)
{
    const struct
    {
        const char *address;
        QString host;
        qint64 port;
    } cases[] = {
        {"127.0.0.1:18085", QStringLiteral("127.0.0.1"), 18085},
        {"sms.example", QStringLiteral("sms.example"), 0}, // no port: the verification does not run
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.address);
        useDemoConfig([&](json &j) {
            j["sms"]["host"] = {{"default", c.address}};
            j["sms"]["timeout"] = {{"default", "45"}};
        });
        SMSVerify op(QStringLiteral("demo"));
        EXPECT_EQ(op.host(), c.host);
        EXPECT_EQ(op.port(), c.port);
        EXPECT_EQ(op.timeoutSeconds(), 45u);
        EXPECT_EQ(op.checkProperties(), c.port != 0);
    }

    // The password server as configured answers, and every request carries a fresh sequence.
    SimHost sim;
    const quint16 port = startService(sim, QStringLiteral("dynpwd"), QStringLiteral("ok"));
    useDemoConfig([&](json &j) {
        j["dynmicpwd"]["host"] = {{"default", QStringLiteral("127.0.0.1:%1").arg(port).toStdString()}};
        j["dynmicpwd"]["encodeKey"] = {{"default", kEncodeKey.toStdString()}};
        j["dynmicpwd"]["decodeKey"] = {{"default", kDecodeKey.toStdString()}};
    });
    LoginSide login;
    for (int i = 0; i < 3; ++i) {
        auto op = std::make_shared<DynamicPassword>(QStringLiteral("demo"));
        EXPECT_EQ(op->host(), QStringLiteral("127.0.0.1"));
        EXPECT_EQ(op->port(), port);
        runToEnd(op);
    }
    ASSERT_EQ(login.count(), 3u);
    EXPECT_FALSE(login.err(0).has_value());
    const json stats = sim.service(QStringLiteral("dynpwd"))->stats();
    EXPECT_EQ(stats["uniqueSeqs"], 3);
    static const QRegularExpression uuid(QStringLiteral("^[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}$"));
    EXPECT_TRUE(uuid.match(QString::fromStdString(stats["lastSeq"].get<std::string>())).hasMatch());
}

} // namespace
