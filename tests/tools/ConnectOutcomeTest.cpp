// The headless client's connect command in-process, on the simulated back-end: what it refuses
// before dialling and how it ends a dial that failed after the link had begun to come up.

#include "commands/ConnectSession.h"

#include "App/LoginInput.h"
#include "Conf/Conf.h"
#include "Dial/simulated/SimulatedPlatform.h"
#include "support/TestData.h"

#include <QTcpServer>

#include <gtest/gtest.h>

namespace {

struct Record
{
    int starts = 0;
    int stops = 0;
};

// A machine whose link starts coming up and then reports the start as failed.
class FlakyStart : public SimulatedPlatform
{
public:
    FlakyStart(std::shared_ptr<Record> record, bool startFails)
        : SimulatedPlatform(config())
        , _record(std::move(record))
        , _startFails(startFails)
    {}
    static SimulatedConfig config()
    {
        SimulatedConfig c = SimulatedPlatform::defaultConfig();
        c.stepDelayMs = 5;
        return c;
    }
    bool networkConnectionStart(const NetworkConnectionRef &c, const QVariantMap &options, bool linger) override
    {
        ++_record->starts;
        return SimulatedPlatform::networkConnectionStart(c, options, linger) && !_startFails;
    }
    bool networkConnectionStop(const NetworkConnectionRef &c, bool force) override
    {
        ++_record->stops;
        return SimulatedPlatform::networkConnectionStop(c, force);
    }

private:
    std::shared_ptr<Record> _record;
    bool _startFails;
};

class ConnectOutcome : public ::testing::Test
{
protected:
    void SetUp() override
    {
        auto conf = Conf::fromJson(QByteArray::fromStdString(TestData::demoConfig().dump()));
        ASSERT_TRUE(conf);
        Conf::setShared(std::move(conf));
    }

    // Runs "connect" to its end; the exit code.
    int connect(const QString &user, const QString &password, bool startFails = false)
    {
        ConnectSession::Settings settings;
        settings.user = user;
        settings.password = password;
        settings.area = QStringLiteral("default");
        settings.connectTimeoutMs = 1000;
        settings.accessConcentrator = accessConcentrator;
        settings.makePlatform = [this, startFails] { return std::make_unique<FlakyStart>(record, startFails); };
        ConnectSession session(settings);
        return session.run();
    }

    std::shared_ptr<Record> record = std::make_shared<Record>();
    QUrl accessConcentrator;
};

TEST_F(ConnectOutcome, RefusesTheLogInWindowsInputWithItsTextsBeforeDialling)
{
    const auto data = TestData::load("login-input.json"); // the loop must not outlive the document
    for (const auto &c : data.at("refused")) {
        const QString user = TestData::text(c, "user"), password = TestData::text(c, "password");
        SCOPED_TRACE(c.dump());
        EXPECT_EQ(checkLoginInput(user, password), TestData::text(c, "refusal"));
        EXPECT_NE(connect(user, password), 0);
        EXPECT_EQ(record->starts, 0);
    }
    EXPECT_EQ(checkLoginInput(QStringLiteral("demo"), QStringLiteral("demo123")), std::nullopt);
}

// A start reported as failed after the link began, or an access concentrator that takes the
// request and never answers: the dial ends in a failure and the link is hung up.
TEST_F(ConnectOutcome, ADialThatFailsAfterTheLinkBeganIsHungUp)
{
    QTcpServer silent;
    ASSERT_TRUE(silent.listen(QHostAddress::LocalHost));
    for (const bool startFails : {true, false}) {
        SCOPED_TRACE(startFails ? "start fails" : "no answer");
        *record = {};
        if (!startFails)
            accessConcentrator = QUrl(QStringLiteral("http://127.0.0.1:%1/pppoe/auth").arg(silent.serverPort()));
        EXPECT_NE(connect(QStringLiteral("demo"), QStringLiteral("demo123"), startFails), 0);
        EXPECT_EQ(record->starts, 1);
        EXPECT_EQ(record->stops, 1);
    }
}

} // namespace
