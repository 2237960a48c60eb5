#include "Business/DynamicPassword.h"
#include "Conf/Conf.h"
#include "SideChannelTestSupport.h"
#include "Util/DVNotification.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QRegularExpression>
#include <QUdpSocket>

using namespace DVNotification;

namespace {

// What the log-in view hears: every DVNotificationNameDyPwd outcome.
class LoginSide
{
public:
    LoginSide()
    {
        _token = DVNotificationCenter::defaultCenter().addObserverForName(
            DVNotificationNameDyPwd, nullptr, [this](const DVNotificationMessage &m) {
                if (const auto *info = m.payload<DyPwdCheckNotificationInfo>(NotificationInfoKeyDyPwdCheck))
                    seen.push_back(info->err);
            });
    }
    ~LoginSide() { DVNotificationCenter::defaultCenter().removeObserver(_token); }
    std::vector<std::optional<DVError>> seen;

private:
    DVNotificationCenter::Token _token = 0;
};

// As the log-in view does it: on the main queue.
void runToEnd(const std::shared_ptr<DynamicPassword> &op)
{
    OperationQueue::mainQueue()->addOperation(op);
    ASSERT_TRUE(TestSupport::spinUntil([&] { return op->isFinished(); }, 30000));
}

std::shared_ptr<DynamicPassword> makeOp(std::optional<QString> host, qint64 port, const QString &user,
                                        qint64 waitMs = 10000)
{
    auto op = std::make_shared<DynamicPassword>(std::move(host), port, user, SideChannelTest::kDecodeKey,
                                                SideChannelTest::kEncodeKey);
    op->setReplyWaitMs(waitMs);
    return op;
}

const QString kServerError = QStringLiteral("获取动态密时服务器返回错误");

} // namespace

TEST(DynamicPassword, ServerRepliesAreClassified)
{
    const std::map<QString, QString> demo{{QStringLiteral("demo"), QStringLiteral("demo123")}};
    const struct
    {
        const char *name;
        QString scenario;
        std::map<QString, QString> accounts;
        QString user;
        std::optional<QString> error; // nullopt: success
    } cases[] = {
        {"password sent", QStringLiteral("ok"), demo, QStringLiteral("demo"), std::nullopt},
        {"any other text is success", QStringLiteral("other"), {}, QStringLiteral("demo"), std::nullopt},
        {"account the server does not know", QStringLiteral("ok"), demo, QStringLiteral("nobody"),
         kServerError + u',' + QString::fromUtf8(DynPwdServer::errorInfo())},
        {"error with reason",
         QStringLiteral("error"),
         {},
         QStringLiteral("demo"),
         kServerError + u',' + QString::fromUtf8(DynPwdServer::errorInfo())},
        {"error without reason", QStringLiteral("error-noinfo"), {}, QStringLiteral("demo"), kServerError},
        {"reply that does not decrypt",
         QStringLiteral("garbage"),
         {},
         QStringLiteral("demo"),
         kServerError + QStringLiteral(",(null)")},
        {"reply shorter than its header",
         QStringLiteral("short"),
         {},
         QStringLiteral("demo"),
         kServerError + QStringLiteral(",(null)")},
        {"no reply", QStringLiteral("silence"), {}, QStringLiteral("demo"), QStringLiteral("动态密码发送超时")},
        {"account name with any characters", QStringLiteral("ok"), {}, QStringLiteral("用户 &=1"), std::nullopt},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        SimHost sim;
        ASSERT_TRUE(SideChannelTest::startService(sim, QStringLiteral("dynpwd"), c.scenario, c.accounts));
        SimService *server = sim.service(QStringLiteral("dynpwd"));
        LoginSide login;
        runToEnd(makeOp(QStringLiteral("127.0.0.1"), server->port(), c.user, 300));

        ASSERT_EQ(login.seen.size(), 1u);
        const auto &err = login.seen.front();
        EXPECT_EQ(err.has_value(), c.error.has_value());
        if (err && c.error) {
            EXPECT_EQ(err->domain, QStringLiteral("dynamicPwd"));
            EXPECT_EQ(err->code, 1);
            EXPECT_EQ(err->localizedDescription, *c.error);
        }
        // The server could read the request: zero header, whole blocks, the request key,
        // "TEL=<account>&SEQ=<upper-case UUID>".
        const auto stats = server->stats();
        EXPECT_EQ(stats["requests"], 1);
        EXPECT_EQ(stats["accepted"], 1) << stats.dump();
        EXPECT_EQ(QString::fromStdString(stats["lastTel"].get<std::string>()), c.user);
    }
}

TEST(DynamicPassword, TransportFailures)
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
        std::optional<QString> host;
        qint64 port;
        std::optional<std::pair<QString, qint64>> posted; // nullopt: nothing posted
        QString logged;
    } cases[] = {
        {"nothing listening", QStringLiteral("127.0.0.1"), closedPort,
         std::pair{DVErrorDomain::POSIX, qint64(ECONNREFUSED)}, QStringLiteral("Connection refused")},
        {"name that does not resolve", QStringLiteral("no-such-host.invalid"), 18086,
         std::pair{QStringLiteral("dynamicPwd"), qint64(1)}, QStringLiteral("error: ")},
        {"no host", std::nullopt, 18086, std::nullopt, QStringLiteral("Dynamic password request failed, host is nil")},
        {"host without a port", QStringLiteral("127.0.0.1"), 0, std::nullopt,
         QStringLiteral("Dynamic password request failed, port is 0")},
        {"port out of range", QStringLiteral("127.0.0.1"), 70000, std::nullopt,
         QStringLiteral("Dynamic password request failed, port is 70000")},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        LogCapture log;
        LoginSide login;
        runToEnd(makeOp(c.host, c.port, QStringLiteral("demo"), 300));
        ASSERT_EQ(login.seen.size(), c.posted ? 1u : 0u);
        if (c.posted) {
            ASSERT_TRUE(login.seen.front().has_value());
            EXPECT_EQ(login.seen.front()->domain, c.posted->first);
            EXPECT_EQ(login.seen.front()->code, c.posted->second);
        }
        EXPECT_GT(log.countContaining(c.logged), 0) << log.all().join(u'\n').toStdString();
    }
}

TEST(DynamicPassword, RequestDatagramLayout)
{
    const QByteArray key = SideChannelTest::kEncodeKey.toUtf8();
    for (const int length : {0, 1, 15, 16, 100, 1000, 20000}) {
        SCOPED_TRACE(length);
        const QString user(length, u'9');
        const QString seq = QStringLiteral("0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0");
        const QByteArray datagram = DynamicPassword::makeRequestDatagram(user, seq, SideChannelTest::kEncodeKey);
        EXPECT_EQ(datagram.left(4), QByteArray(4, '\0'));
        EXPECT_EQ((datagram.size() - 4) % 16, 0);
        const auto plain = Crypto::aes128(datagram.mid(4), key, {}, Crypto::Op::Decrypt);
        ASSERT_TRUE(plain);
        EXPECT_EQ(QString::fromUtf8(*plain), QStringLiteral("TEL=") + user + QStringLiteral("&SEQ=") + seq);
    }
}

TEST(DynamicPassword, EveryRequestCarriesAFreshSequence)
{
    SimHost sim;
    ASSERT_TRUE(SideChannelTest::startService(sim, QStringLiteral("dynpwd"), QStringLiteral("ok")));
    SimService *server = sim.service(QStringLiteral("dynpwd"));
    LoginSide login;
    for (int i = 0; i < 3; ++i)
        runToEnd(makeOp(QStringLiteral("127.0.0.1"), server->port(), QStringLiteral("demo")));
    EXPECT_EQ(login.seen.size(), 3u);
    EXPECT_EQ(server->stats()["uniqueSeqs"], 3);
    static const QRegularExpression uuid(QStringLiteral("^[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}$"));
    EXPECT_TRUE(uuid.match(QString::fromStdString(server->stats()["lastSeq"].get<std::string>())).hasMatch());
}

TEST(DynamicPassword, SettingsComeFromTheDynmicpwdSection)
{
    QFile file(TestSupport::sourceTestsDir() + QStringLiteral("/../resources/demo/system.json"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    auto json = nlohmann::ordered_json::parse(file.readAll().toStdString());
    SimHost sim;
    ASSERT_TRUE(SideChannelTest::startService(sim, QStringLiteral("dynpwd"), QStringLiteral("ok")));
    const quint16 port = sim.service(QStringLiteral("dynpwd"))->port();
    json["dynmicpwd"]["host"] = {{"default", QStringLiteral("127.0.0.1:%1").arg(port).toStdString()}};
    json["dynmicpwd"]["encodeKey"] = {{"default", SideChannelTest::kEncodeKey.toStdString()}};
    json["dynmicpwd"]["decodeKey"] = {{"default", SideChannelTest::kDecodeKey.toStdString()}};
    auto conf = Conf::fromJson(QByteArray::fromStdString(json.dump()));
    ASSERT_TRUE(conf);
    Conf::setShared(std::move(conf));

    LoginSide login;
    auto op = std::make_shared<DynamicPassword>(QStringLiteral("demo"));
    EXPECT_EQ(op->host(), QStringLiteral("127.0.0.1"));
    EXPECT_EQ(op->port(), port);
    runToEnd(op);
    ASSERT_EQ(login.seen.size(), 1u);
    EXPECT_FALSE(login.seen.front().has_value());
}
