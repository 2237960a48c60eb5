#include "Business/SMSVerify.h"
#include "Conf/Conf.h"
#include "SideChannelTestSupport.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <QDateTime>
#include <QFile>
#include <QUdpSocket>

using namespace DVNotification;
using SideChannelTest::md5Hex;

namespace {

// What the online view does: watches for the operation's questions on the main thread and,
// when asked for a code, answers with `answer` (or not at all).
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

    // (code, description) per notification; code -1 for "no error".
    std::vector<std::pair<int, QString>> outcomes() const
    {
        std::vector<std::pair<int, QString>> out;
        for (const auto &info : seen)
            out.emplace_back(info.err ? static_cast<int>(info.err->code) : -1,
                             info.err ? info.err->localizedDescription : QString());
        return out;
    }

    std::vector<SMSVerifyToUINotificationInfo> seen;

private:
    std::optional<QString> _answer;
    std::function<void()> _onAsked;
    DVNotificationCenter::Token _token = 0;
};

std::shared_ptr<SMSVerify> makeOp(const QString &host, qint64 port, qint64 transportMs = 10000,
                                  std::optional<qint64> userMs = std::nullopt)
{
    auto op = std::make_shared<SMSVerify>(host, port, QStringLiteral("demo"), SideChannelTest::kShareKey, 60);
    op->setWaits(transportMs, userMs);
    return op;
}

// Runs the operation on a work queue, as after a connection, and lets the answers arrive.
void runToEnd(const std::shared_ptr<SMSVerify> &op, const std::shared_ptr<OperationQueue> &queue)
{
    queue->addOperation(op);
    ASSERT_TRUE(TestSupport::spinUntil([&] { return op->isFinished(); }, 30000));
    TestSupport::spinUntil([] { return false; }, 50); // deliver what was queued for the main thread
}

using Outcomes = std::vector<std::pair<int, QString>>;
const QString kSent = QStringLiteral("验证码已发送到您的手机");

} // namespace

TEST(SMSVerify, OutcomesOfTheExchangeReachTheUserInterface)
{
    const struct
    {
        const char *name;
        QString scenario;
        std::optional<QString> answer;
        Outcomes expected;
        int checks, verified;
        std::optional<qint64> userWaitMs;
    } cases[] = {
        {"no verification needed", QStringLiteral("none"), std::nullopt, {{-1, {}}}, 0, 0, {}},
        {"right code", QStringLiteral("code"), QStringLiteral("123456"), {{0, kSent}, {-1, {}}}, 1, 1, {}},
        {"another accepted code",
         QStringLiteral("code=654321"),
         QStringLiteral("654321"),
         {{0, kSent}, {-1, {}}},
         1,
         1,
         {}},
        {"wrong code, server message",
         QStringLiteral("code"),
         QStringLiteral("000000"),
         {{0, kSent}, {7, QStringLiteral("验证码不正确")}},
         1,
         0,
         {}},
        {"ERROR007 without message",
         QStringLiteral("code-error"),
         QStringLiteral("123456"),
         {{0, kSent}, {7, QStringLiteral("验证码错误")}},
         1,
         0,
         {}},
        {"empty code is not sent",
         QStringLiteral("code"),
         QString(),
         {{0, kSent}, {2, QStringLiteral("短信验证失败,客户端断开连接")}},
         0,
         0,
         {}},
        {"no answer in time",
         QStringLiteral("code"),
         std::nullopt,
         {{0, kSent}, {1, QStringLiteral("短信验证超时,客户端断开连接")}},
         0,
         0,
         200},
        {"reply that is not XML counts as verified", QStringLiteral("garbage"), std::nullopt, {{-1, {}}}, 0, 0, {}},
    };
    const auto queue = OperationQueue::create();
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        SimHost sim;
        ASSERT_TRUE(SideChannelTest::startService(sim, QStringLiteral("sms"), c.scenario));
        SimService *server = sim.service(QStringLiteral("sms"));
        UiSide ui(c.answer);
        const qint64 before = QDateTime::currentSecsSinceEpoch();
        auto op = makeOp(QStringLiteral("127.0.0.1"), server->port(), 10000, c.userWaitMs);
        runToEnd(op, queue);

        EXPECT_EQ(ui.outcomes(), c.expected);
        for (const auto &info : ui.seen) {
            EXPECT_EQ(info.timeoutSeconds, 60u);
            if (info.err) {
                EXPECT_EQ(info.err->domain, QStringLiteral("SMSVerify"));
            }
        }
        const auto stats = server->stats();
        EXPECT_EQ(stats["requests"], 1);
        EXPECT_EQ(stats["checks"], c.checks);
        EXPECT_EQ(stats["verified"], c.verified);
        EXPECT_EQ(stats["badCheckCode"], 0);
        EXPECT_EQ(stats["malformed"], 0) << stats.dump();
        // The last request the server read, attribute by attribute and in order.
        const auto &last = stats["last"];
        EXPECT_EQ(last["element"], c.checks ? "validateAccount" : "accountInfo");
        EXPECT_EQ(last["attributes"], c.checks ? "login,checkCode,validateCode,id" : "login,checkCode,id");
        EXPECT_EQ(last["login"], "demo");
        EXPECT_EQ(QString::fromStdString(last["checkCode"].get<std::string>()),
                  md5Hex(QStringLiteral("demo") + SideChannelTest::kShareKey));
        if (c.checks) {
            EXPECT_EQ(QString::fromStdString(last["validateCode"].get<std::string>()), c.answer.value_or(QString()));
        }
        const qint64 id = QString::fromStdString(last["id"].get<std::string>()).toLongLong();
        EXPECT_GE(id, before);
        EXPECT_LE(id, QDateTime::currentSecsSinceEpoch());
    }
}

TEST(SMSVerify, TransportTroubleIsLoggedAndNeverPosted)
{
    quint16 closedPort;
    {
        QUdpSocket probe;
        probe.bind(QHostAddress::LocalHost, 0);
        closedPort = probe.localPort();
    }
    const struct
    {
        const char *name;
        QString scenario; // empty: no server at all
        QString host;
        int timeoutLines;
        QString alsoLogged;
    } cases[] = {
        {"silent server", QStringLiteral("silence"), QStringLiteral("127.0.0.1"), 1, {}},
        {"nothing listening", QString(), QStringLiteral("127.0.0.1"), 0, QStringLiteral("Connection refused")},
        {"name that does not resolve", QString(), QStringLiteral("no-such-host.invalid"), 1, QStringLiteral("error: ")},
    };
    const auto queue = OperationQueue::create();
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        SimHost sim;
        quint16 port = closedPort;
        if (!c.scenario.isEmpty()) {
            ASSERT_TRUE(SideChannelTest::startService(sim, QStringLiteral("sms"), c.scenario));
            port = sim.service(QStringLiteral("sms"))->port();
        }
        LogCapture log;
        UiSide ui(QStringLiteral("123456"));
        runToEnd(makeOp(c.host, port, 300), queue);
        EXPECT_TRUE(ui.seen.empty());
        EXPECT_EQ(log.countContaining(QStringLiteral("短信验证请求超时")), c.timeoutLines)
            << log.all().join(u'\n').toStdString();
        if (!c.alsoLogged.isEmpty()) {
            EXPECT_GT(log.countContaining(c.alsoLogged), 0) << log.all().join(u'\n').toStdString();
        }
    }
}

TEST(SMSVerify, RefusesToRunWithoutUsableSettings)
{
    const struct
    {
        const char *name;
        std::optional<QString> host;
        qint64 port;
        std::optional<QString> key;
        QString logged; // empty: refuses silently
    } cases[] = {
        {"no key", QStringLiteral("127.0.0.1"), 18085, std::nullopt, QStringLiteral("sms verify error, key is nil")},
        {"no host", std::nullopt, 18085, QStringLiteral("k"), QStringLiteral("sms verify error, key is nil")},
        {"empty key", QStringLiteral("127.0.0.1"), 18085, QString(), {}},
        {"empty host", QString(), 18085, QStringLiteral("k"), {}},
        {"port 0", QStringLiteral("127.0.0.1"), 0, QStringLiteral("k"), QStringLiteral("sms verify error, port is 0")},
        {"port out of range", QStringLiteral("127.0.0.1"), 70000, QStringLiteral("k"),
         QStringLiteral("sms verify error, port is out of range")},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        LogCapture log;
        UiSide ui(std::nullopt);
        auto op = std::make_shared<SMSVerify>(c.host, c.port, QStringLiteral("demo"), c.key, 60);
        EXPECT_FALSE(op->checkProperties());
        op->start();
        TestSupport::spinUntil([] { return false; }, 20);
        EXPECT_TRUE(ui.seen.empty());
        if (c.logged.isEmpty()) {
            EXPECT_TRUE(log.all().isEmpty()) << log.all().join(u'\n').toStdString();
        } else {
            EXPECT_EQ(log.countContaining(c.logged), 2); // once per check, once per run
        }
    }
}

TEST(SMSVerify, CancelledOperationPostsNothingAfterItsWait)
{
    SimHost sim;
    ASSERT_TRUE(SideChannelTest::startService(sim, QStringLiteral("sms"), QStringLiteral("code")));
    const auto queue = OperationQueue::create();
    UiSide ui(std::nullopt, [&queue] { queue->cancelAllOperations(); });
    // Without the cancel the user would have a minute to answer.
    runToEnd(makeOp(QStringLiteral("127.0.0.1"), sim.service(QStringLiteral("sms"))->port(), 10000, 60000), queue);
    EXPECT_EQ(ui.outcomes(), (Outcomes{{0, kSent}}));
    EXPECT_EQ(sim.service(QStringLiteral("sms"))->stats()["checks"], 0);
}

TEST(SMSVerify, RequestTextsAndReplyParsing)
{
    auto clock = std::make_shared<ManualClock>(QDateTime::fromSecsSinceEpoch(1700000000, Qt::UTC));
    SMSVerify op(QStringLiteral("127.0.0.1"), 18085, QStringLiteral("张三&<x>"), QStringLiteral("key"), 60);
    op.setClock(clock);
    const QString check = md5Hex(QStringLiteral("张三&<x>key"));
    EXPECT_EQ(op.makeRequestParam().toStdString(),
              QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\"?><op><accountInfo login=\"张三&amp;&lt;x&gt;\" "
                             "checkCode=\"%1\" id=\"1700000000\"/></op>\n")
                  .arg(check)
                  .toStdString());
    op.onNotification(
        {DVNotificationNameSMSVerifyFromUI,
         {{NotificationInfoKeySMSVerifyFromUI, SMSVerifyFromUINotificationInfo{QStringLiteral("123456")}}}});
    EXPECT_EQ(
        op.makeVerifyParam().toStdString(),
        QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\"?><op><validateAccount login=\"张三&amp;&lt;x&gt;\" "
                       "checkCode=\"%1\" validateCode=\"123456\" id=\"1700000000\"/></op>\n")
            .arg(check)
            .toStdString());

    using R = SMSVerify::Result;
    const auto s = [](const char *t) { return std::optional<QString>(QString::fromUtf8(t)); };
    const struct
    {
        const char *name;
        QByteArray xml;
        std::optional<R> expected;
        bool logsParseError;
    } cases[] = {
        {"all attributes", R"(<op><returnInfo isBind="Y" resCode="OK" titleMsg="t" resMsg="m" sendSuccess="Y"/></op>)",
         R{s("OK"), s("t"), s("m"), s("Y"), s("Y")}, false},
        {"missing attributes are absent", R"(<op><returnInfo resCode="ERROR007"/></op>)",
         R{s("ERROR007"), {}, {}, {}, {}}, false},
        {"no op element", R"(<returnInfo resCode="OK"/>)", std::nullopt, false},
        {"a later op starts over", R"(<x><op><returnInfo resCode="A"/></op><op/></x>)", R{}, false},
        {"broken document keeps what was read", R"(<op><returnInfo resCode="ERROR007"/><oops)",
         R{s("ERROR007"), {}, {}, {}, {}}, true},
        {"not XML at all", "\x01\x02 garbage", std::nullopt, true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        LogCapture log;
        const auto got = SMSVerify::parseReply(c.xml);
        ASSERT_EQ(got.has_value(), c.expected.has_value());
        if (got) {
            EXPECT_EQ(got->resCode, c.expected->resCode);
            EXPECT_EQ(got->titleMsg, c.expected->titleMsg);
            EXPECT_EQ(got->resMsg, c.expected->resMsg);
            EXPECT_EQ(got->isBind, c.expected->isBind);
            EXPECT_EQ(got->sendSuccess, c.expected->sendSuccess);
        }
        EXPECT_EQ(log.countContaining(QStringLiteral("解析xml出错:")), c.logsParseError ? 1 : 0);
    }
}

TEST(SMSVerify, SettingsComeFromTheSmsSection)
{
    QFile file(TestSupport::sourceTestsDir() + QStringLiteral("/../resources/demo/system.json"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    auto json = nlohmann::ordered_json::parse(file.readAll().toStdString());
    const struct
    {
        const char *address;
        QString host;
        qint64 port;
    } cases[] = {
        {"127.0.0.1:18085", QStringLiteral("127.0.0.1"), 18085},
        {"127.0.0.1", QStringLiteral("127.0.0.1"), 0},
        {"a:1:2", QStringLiteral("a"), 0},
        {"sms.example:x", QStringLiteral("sms.example"), 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.address);
        json["sms"]["host"] = {{"default", c.address}};
        json["sms"]["timeout"] = {{"default", "45"}};
        auto conf = Conf::fromJson(QByteArray::fromStdString(json.dump()));
        ASSERT_TRUE(conf);
        Conf::setShared(std::move(conf));
        SMSVerify op(QStringLiteral("demo"));
        EXPECT_EQ(op.host(), c.host);
        EXPECT_EQ(op.port(), c.port);
        EXPECT_EQ(op.timeoutSeconds(), 45u);
        EXPECT_EQ(op.checkProperties(), c.port != 0);
    }
}
