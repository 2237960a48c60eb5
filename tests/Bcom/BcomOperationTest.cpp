#include "Bcom/BcomOperation.h"
#include "services/HeartServer.h"
#include "support/LogCapture.h"
#include "support/TestSupport.h"

#include <QTcpServer>

#include <gtest/gtest.h>

#include <mutex>

using ordered_json = nlohmann::ordered_json;

namespace {

constexpr int kBoundMs = 15000; // generous upper bound for anything to happen; never a speed goal
const QString kKey = QStringLiteral("heart-key-123");

ordered_json heartConfig(quint16 port, const QString &interval)
{
    const auto area = [](const std::string &v) { return ordered_json{{"default", v}}; };
    const std::string base = "http://127.0.0.1:" + std::to_string(port);
    return ordered_json{{"heart",
                         {{"interval", area(interval.toStdString())},
                          {"negotiateurl", area(base + "/negotiate")},
                          {"hearbeaturl", area(base + "/heartbeat")},
                          {"key", area(kKey.toStdString())},
                          {"client_id", area("dorvik-test")},
                          {"request_timeout", area("1")},
                          {"response_timeout", area("2")}}}};
}

// One heartbeat against an in-process heart server over real HTTP on 127.0.0.1, with waits
// shrunk to a few milliseconds per protocol second.
class Heartbeat
{
public:
    explicit Heartbeat(const QString &scenario = QString(), const QString &serverInterval = QStringLiteral("7"))
    {
        SimOptions options;
        options.config = heartConfig(0, serverInterval);
        options.ephemeralPorts = true;
        if (!scenario.isEmpty())
            options.scenarios[QStringLiteral("heart")] = scenario;
        started = server.start(options);
        const QString base = QStringLiteral("http://127.0.0.1:%1").arg(server.port());
        BcomUrlSession session;
        session.requestTimeoutMs = 300;
        session.responseTimeoutMs = 600;
        data = BcomOperationData::initWithKey(kKey, QUrl(base + QStringLiteral("/negotiate")),
                                              QUrl(base + QStringLiteral("/heartbeat")), session, 9);
        instrument(data);
    }

    void instrument(const std::shared_ptr<BcomOperationData> &d)
    {
        d->waitPolicy = [this](qint32 seconds) {
            std::lock_guard<std::mutex> lock(mutex);
            waits.push_back(seconds);
            return qint64(seconds) * 2;
        };
        d->onExchange = [this](const BcomExchange &e) {
            std::lock_guard<std::mutex> lock(mutex);
            exchanges.push_back(e);
        };
    }

    void run(std::optional<BcomData> first = negotiation())
    {
        auto op = BcomOperation::initWithBcomData(std::move(first), data, queue);
        ASSERT_TRUE(op);
        queue->addOperation(op);
    }

    static BcomData negotiation()
    {
        return BcomData::MakeNegotiationWithName(QStringLiteral("ZGVtbw=="), QStringLiteral("1700000000"),
                                                 QStringLiteral("00:11:22:33:44:55"), QStringLiteral("10.0.0.2"),
                                                 QStringLiteral("dorvik-test"));
    }

    template<typename T> T locked(const T &value)
    {
        std::lock_guard<std::mutex> lock(mutex);
        return value;
    }
    size_t exchangeCount() { return locked(exchanges).size(); }
    std::vector<BcomExchange> exchangesSoFar() { return locked(exchanges); }
    std::vector<qint32> waitsSoFar() { return locked(waits); }
    bool ended()
    {
        return until([this] { return queue->operationCount() == 0; });
    }
    bool until(const std::function<bool()> &pred) { return TestSupport::spinUntil(pred, kBoundMs); }
    // Cancels like a disconnect does and waits for the chain to be gone.
    bool stop()
    {
        queue->cancelAllOperations();
        return ended();
    }
    ordered_json stats() const { return server.stats(); }

    // Declared so that the queue goes first (it cancels and waits for its operations) while
    // the server and the records the operations write to are still there.
    std::mutex mutex;
    std::vector<qint32> waits;
    std::vector<BcomExchange> exchanges;
    HeartServer server;
    bool started = false;
    std::shared_ptr<BcomOperationData> data;
    std::shared_ptr<OperationQueue> queue = OperationQueue::create();
};

} // namespace

// A server in good health (or one answering with status 500 and a valid body) verifies every
// signature and proof; the sequences carry on from reply to request; the first message waits
// 10 s, the next ones the OFFER's interval, at least 5 s.
TEST(BcomOperation, ChainRunsAtTheOfferedIntervalAndTheServerVerifiesIt)
{
    const struct
    {
        const char *scenario, *interval;
        qint32 wait;
    } cases[] = {{"", "7", 7}, {"", "0", 5}, {"", "3", 5}, {"", "-4", 5}, {"", "6", 6}, {"http500", "7", 7}};
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.scenario) + " interval " + c.interval);
        LogCapture log;
        Heartbeat hb(QLatin1String(c.scenario), QLatin1String(c.interval));
        ASSERT_TRUE(hb.started);
        hb.run();
        ASSERT_TRUE(hb.until([&] { return hb.exchangeCount() >= 6; }));
        ASSERT_TRUE(hb.stop());

        const ordered_json s = hb.stats();
        EXPECT_EQ(s["failures"], 0) << s.dump();
        EXPECT_EQ(s["signatures"]["failed"], 0) << s.dump();
        EXPECT_GE(s["signatures"]["verified"].get<int>(), 6) << s.dump();
        EXPECT_EQ(s["negotiations"], 1) << s.dump();
        EXPECT_GE(s["proofs"]["verified"].get<int>(), 5) << s.dump();

        const auto exchanges = hb.exchangesSoFar();
        EXPECT_EQ(exchanges[0].httpStatus, *c.scenario ? 500 : 200);
        EXPECT_EQ(exchanges[0].sent.type, QStringLiteral("NEGOTIATE"));
        EXPECT_EQ(exchanges[0].reply->type, QStringLiteral("OFFER"));
        for (size_t i = 1; i < exchanges.size(); ++i) {
            EXPECT_EQ(exchanges[i].sent.type, QStringLiteral("NOTIFY"));
            EXPECT_EQ(exchanges[i].sent.request_sequence, i + 1);
            EXPECT_EQ(exchanges[i].sent.response_sequence, exchanges[i - 1].reply->response_sequence);
            EXPECT_EQ(exchanges[i].reply->type, QStringLiteral("ACKNOWLEDGE"));
            EXPECT_TRUE(exchanges[i].url.path().endsWith(QStringLiteral("/heartbeat")));
        }
        const auto waits = hb.waitsSoFar();
        EXPECT_EQ(waits[0], 10);
        for (size_t i = 1; i < waits.size(); ++i)
            EXPECT_EQ(waits[i], c.wait);
        if (!*c.scenario) {
            EXPECT_TRUE(log.lines().filter(QStringLiteral("heart")).isEmpty())
                << log.lines().join(QLatin1Char('|')).toStdString();
        }
    }
}

TEST(BcomOperation, FaultScenariosEndAsTheProtocolSays)
{
    struct Case
    {
        const char *scenario;
        int requests; // requests the chain sends before it ends by itself
        QStringList logLines;
    };
    const Case cases[] = {
        {"nak-storm", 11, {QStringLiteral("retry 10 attempt"), QStringLiteral("faile after 11 retry attempt")}},
        {"reject", 1, {QStringLiteral("heart is terminal"), QStringLiteral("account suspended")}},
        {"garbage", 1, {QStringLiteral("response data parse failed")}},
        {"lowercase-offer", 1, {QStringLiteral("error content type"), QStringLiteral("response content type error")}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.scenario);
        LogCapture log;
        Heartbeat hb(QLatin1String(c.scenario));
        ASSERT_TRUE(hb.started);
        hb.run();
        ASSERT_TRUE(hb.ended());
        const ordered_json s = hb.stats();
        EXPECT_EQ(s["requests"], c.requests) << s.dump();
        EXPECT_EQ(s["signatures"]["failed"], 0);
        EXPECT_EQ(hb.exchangeCount(), size_t(c.requests));
        EXPECT_FALSE(hb.exchangesSoFar().back().continues);
        // No session is ever established, so every try waits the first-message pause.
        EXPECT_EQ(hb.waitsSoFar(), std::vector<qint32>(size_t(c.requests), 10));
        for (const QString &line : c.logLines) {
            EXPECT_TRUE(log.has(line)) << line.toStdString() << " in "
                                       << log.lines().join(QLatin1Char('|')).toStdString();
        }
    }
}

TEST(BcomOperation, TransportFailuresResendWithTheRequestSequenceRaised)
{
    // "silence": the server reads and never answers, the request time-out ends each try.
    // A closed port: the connection is refused at once.
    QTcpServer closed;
    ASSERT_TRUE(closed.listen(QHostAddress::LocalHost, 0));
    const QUrl refused(QStringLiteral("http://127.0.0.1:%1/negotiate").arg(closed.serverPort()));
    closed.close();

    for (const bool silence : {true, false}) {
        SCOPED_TRACE(silence ? "silence" : "refused");
        LogCapture log;
        Heartbeat hb(silence ? QStringLiteral("silence") : QString());
        ASSERT_TRUE(hb.started);
        if (!silence)
            hb.data->negotiateHost = refused;
        hb.run();
        ASSERT_TRUE(hb.until([&] { return hb.exchangeCount() >= 3; }));
        ASSERT_TRUE(hb.stop());
        const auto exchanges = hb.exchangesSoFar();
        for (size_t i = 0; i < exchanges.size(); ++i) {
            EXPECT_FALSE(exchanges[i].reply);
            EXPECT_FALSE(exchanges[i].error.isEmpty());
            EXPECT_EQ(exchanges[i].sent.type, QStringLiteral("NEGOTIATE"));
            EXPECT_EQ(exchanges[i].sent.request_sequence, i + 1);
            EXPECT_EQ(exchanges[i].sent.content, exchanges[0].sent.content);
        }
        EXPECT_TRUE(log.hasPrefix(QStringLiteral("heart request error: ")));
        if (silence) {
            const auto seqs = hb.stats()["requestSequences"];
            ASSERT_GE(seqs.size(), 3u);
            EXPECT_EQ(seqs[0], 1);
            EXPECT_EQ(seqs[1], 2);
            EXPECT_EQ(seqs[2], 3);
        }
        // No session yet: every retry waits the first-message pause again.
        for (qint32 w : hb.waitsSoFar()) {
            EXPECT_EQ(w, 10);
        }
    }
}

TEST(BcomOperation, CancelSendsNothingMoreAndQueuesNoSuccessor)
{
    // During the first wait (real seconds) nothing was sent; while awaiting the reply (the
    // server reads and never answers) the one request in flight gets no successor.
    for (const bool inFlight : {false, true}) {
        SCOPED_TRACE(inFlight ? "awaiting the reply" : "first wait");
        Heartbeat hb(inFlight ? QStringLiteral("silence") : QString());
        ASSERT_TRUE(hb.started);
        if (inFlight)
            hb.data->urlSession.requestTimeoutMs = hb.data->urlSession.responseTimeoutMs = 60000;
        else
            hb.data->waitPolicy = [](qint32 seconds) { return qint64(seconds) * 1000; };
        hb.run();
        if (inFlight)
            ASSERT_TRUE(hb.until([&] { return hb.stats()["requests"] == 1; }));
        else
            TestSupport::spinUntil([] { return false; }, 100);
        ASSERT_TRUE(hb.stop());
        TestSupport::spinUntil([] { return false; }, 100);
        EXPECT_EQ(hb.stats()["requests"], inFlight ? 1 : 0);
        EXPECT_EQ(hb.exchangeCount(), 0u);
    }
}

TEST(BcomOperation, StopsBeforeSendingWhenTheRequestCannotBeMade)
{
    struct Case
    {
        const char *name;
        std::function<void(Heartbeat &, std::optional<BcomData> &)> setup;
        const char *logLine;
    };
    const Case cases[] = {
        {"no message", [](Heartbeat &, std::optional<BcomData> &m) { m.reset(); }, "heart data is nil"},
        {"non-ASCII key",
         [](Heartbeat &hb, std::optional<BcomData> &) { hb.data->key = QString::fromUtf8("k\xc3\xa9"); },
         "signature is empty"},
        {"reply type as request", [](Heartbeat &, std::optional<BcomData> &m) { m->type = QStringLiteral("OFFER"); },
         "error heart type"},
        {"no negotiation endpoint", [](Heartbeat &hb, std::optional<BcomData> &) { hb.data->negotiateHost = QUrl(); },
         "heart request is nil"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        LogCapture log;
        Heartbeat hb;
        ASSERT_TRUE(hb.started);
        std::optional<BcomData> first = Heartbeat::negotiation();
        c.setup(hb, first);
        hb.run(first);
        ASSERT_TRUE(hb.ended());
        EXPECT_EQ(hb.stats()["requests"], 0);
        EXPECT_TRUE(log.has(QLatin1String(c.logLine))) << log.lines().join(QLatin1Char('|')).toStdString();
    }
}

TEST(BcomOperation, ServerCatchesAWrongSignatureAndAWrongProof)
{
    // A client signing with another key is refused for good.
    {
        Heartbeat hb;
        ASSERT_TRUE(hb.started);
        hb.data->key = QStringLiteral("not-the-key");
        hb.run();
        ASSERT_TRUE(hb.ended());
        EXPECT_EQ(hb.stats()["signatures"]["failed"], 1);
        EXPECT_EQ(hb.stats()["replies"]["REJECT"], 1);
    }
    // A notification with a wrong proof is NAKed; the client rebuilds it and goes on.
    {
        LogCapture log;
        Heartbeat hb;
        ASSERT_TRUE(hb.started);
        // After two exchanges the chain parks in a long wait, so nothing is in flight when it
        // is cancelled and the server's keys are the ones the client last heard.
        hb.data->waitPolicy = [&hb](qint32 seconds) { return hb.exchangeCount() >= 2 ? 60000 : qint64(seconds) * 2; };
        hb.run();
        ASSERT_TRUE(hb.until([&] { return hb.exchangeCount() >= 2; }));
        ASSERT_TRUE(hb.stop());
        hb.instrument(hb.data);
        BcomExchange last = hb.exchangesSoFar().back();
        auto forged = last.sent.nextWithOpeartionData(*hb.data, last.reply);
        ASSERT_TRUE(forged);
        forged->content["data"] = std::string(40, '0');
        hb.run(forged);
        ASSERT_TRUE(hb.until([&] { return hb.exchangeCount() >= 4; }));
        ASSERT_TRUE(hb.stop());
        const ordered_json s = hb.stats();
        EXPECT_EQ(s["proofs"]["failed"], 1) << s.dump();
        EXPECT_GE(s["proofs"]["verified"].get<int>(), 2) << s.dump();
        EXPECT_TRUE(log.has(QStringLiteral("retry 1 attempt")));
    }
}
