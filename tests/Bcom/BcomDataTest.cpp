#include "Bcom/BcomData.h"
#include "Bcom/BcomContent.h"
#include "Bcom/BcomOperationData.h"
#include "Conf/Conf.h"
#include "Util/Crypto.h"
#include "support/LogCapture.h"
#include "support/TestSupport.h"

#include <QFile>

#include <gtest/gtest.h>

using ordered_json = nlohmann::ordered_json;

namespace {

BcomData message(const char *json)
{
    QString error;
    auto m = BcomData::fromData(QByteArray(json), &error);
    EXPECT_TRUE(m.has_value()) << error.toStdString() << " in " << json;
    return m.value_or(BcomData());
}

std::shared_ptr<BcomOperationData> freshData()
{
    return BcomOperationData::initWithKey(QStringLiteral("k"), QUrl(QStringLiteral("http://127.0.0.1:1/negotiate")),
                                          QUrl(QStringLiteral("http://127.0.0.1:1/heartbeat")), BcomUrlSession(), 30);
}

BcomData negotiation()
{
    return BcomData::MakeNegotiationWithName(QStringLiteral("ZGVtbw=="), QStringLiteral("1700000000"),
                                             QStringLiteral("00:11:22:33:44:55"), QStringLiteral("10.0.0.2"),
                                             QStringLiteral("client-1"));
}

// The proof of a notification, computed from its parts with the primitives (SHA1 + SUFFIX).
QString sha1SuffixProof(const QString &session, quint64 req, quint64 resp, const QString &extra, const QString &cipher,
                        const QString &saltKey)
{
    const QByteArray salted = (session + QString::number(req) + QString::number(resp) + extra + saltKey).toUtf8();
    const QByteArray inner = Crypto::hmacSha1(salted, cipher.toLatin1());
    return QString::fromLatin1(Crypto::hmacSha1(inner, cipher.toLatin1()).toHex());
}

const char *const kOffer =
    R"({"type":"OFFER","request_sequence":1,"response_sequence":41,"content":{"session":"S1",)"
    R"("cipher":"ci","offer":"SHA1","salt_name":"SUFFIX","salt_key":"sk","additional":{"b":"1","a":"2"},"interval":3}})";

} // namespace

TEST(BcomDataModel, TypeNamesAreExactAndCaseSensitive)
{
    const std::pair<const char *, BcomType> cases[] = {
        {"NEGOTIATE", BcomType::Negotiate},
        {"NOTIFY", BcomType::Notify},
        {"REJECT", BcomType::Reject},
        {"OFFER", BcomType::Offer},
        {"ACKNOWLEDGE", BcomType::Acknowledge},
        {"offer", BcomType::Unknown},
        {"", BcomType::Unknown},
        {"ACK", BcomType::Unknown},
    };
    for (const auto &[name, type] : cases) {
        BcomData d;
        d.type = QString::fromLatin1(name);
        EXPECT_EQ(d.getBcomType(), type) << name;
    }
    EXPECT_EQ(int(BcomType::Reject), 3);
    EXPECT_EQ(int(BcomType::Offer), 4);
}

TEST(BcomDataModel, SerialisationKeepsKeyOrderAndArrivalOrder)
{
    const BcomData offer = message(kOffer);
    EXPECT_EQ(offer.toData(), QByteArray(kOffer));
    ASSERT_TRUE(offer.getContentObject());
    const auto content = BcomOfferContent::fromJson(offer.content, nullptr);
    ASSERT_TRUE(content);
    EXPECT_EQ(content->additional->dump(), R"({"b":"1","a":"2"})");
    EXPECT_EQ(content->toJson().dump(), offer.content.dump());
}

TEST(BcomDataModel, InvalidEnvelopesAreRefused)
{
    const char *const bodies[] = {
        R"({"request_sequence":1,"response_sequence":0,"content":{}})",
        R"({"type":"OFFER","response_sequence":0,"content":{}})",
        R"({"type":"OFFER","request_sequence":-1,"response_sequence":0,"content":{}})",
        R"({"type":"OFFER","request_sequence":"1","response_sequence":0,"content":{}})",
        R"({"type":"OFFER","request_sequence":1,"response_sequence":0})",
        R"({"type":"OFFER","request_sequence":1,"response_sequence":0,"content":[]})",
        R"({"type":"OFFER","request_sequence":1,"response_sequence":0,"version":7,"content":{}})",
        R"(["not an object"])",
        "\x01garbage",
        "",
    };
    for (const char *body : bodies) {
        EXPECT_FALSE(BcomData::fromData(QByteArray(body))) << body;
    }
}

TEST(BcomDataModel, ContentsMustFitTheirModel)
{
    struct Case
    {
        const char *json;
        bool usable;
    };
    const Case cases[] = {
        {R"({"type":"OFFER","request_sequence":1,"response_sequence":1,"content":{"session":"s","cipher":"c","offer":"AES","salt_name":"PREFIX"}})",
         false},
        {R"({"type":"ACKNOWLEDGE","request_sequence":1,"response_sequence":1,"content":{"salt_name":"PREFIX","salt_key":"k"}})",
         true},
        {R"({"type":"ACKNOWLEDGE","request_sequence":1,"response_sequence":1,"content":{"salt_name":"PREFIX","salt_key":"k","interval":"5"}})",
         false},
        {R"({"type":"REJECT","request_sequence":1,"response_sequence":1,"content":{"error":1,"action_type":"NAK","description":"d"}})",
         false},
        {R"({"type":"REJECT","request_sequence":1,"response_sequence":1,"content":{"error":1,"action_type":"NAK","description":"d","url":"u","notice":{"layout":"l"}}})",
         false},
        {R"({"type":"NOTIFY","request_sequence":1,"response_sequence":1,"content":{"session":"s","data":""}})", true},
        {R"({"type":"offer","request_sequence":1,"response_sequence":1,"content":{}})", false},
    };
    for (const Case &c : cases) {
        LogCapture log;
        EXPECT_EQ(message(c.json).getContentObject() != nullptr, c.usable) << c.json;
        EXPECT_EQ(log.lines().isEmpty(), c.usable) << c.json;
    }
}

TEST(BcomDataModel, RejectActionTypeMapsToRetryOrTerminal)
{
    const std::pair<const char *, int> cases[] = {{"NAK", 1}, {"nak", 2}, {"TERMINAL", 2}, {"anything", 2}, {"", 2}};
    for (const auto &[text, type] : cases) {
        const ordered_json content = {{"error", 9},
                                      {"action_type", text},
                                      {"description", "why"},
                                      {"url", "http://x"},
                                      {"notice", {{"layout", "l"}, {"description", "n"}}}};
        const auto reject = BcomRejectContent::fromJson(content, nullptr);
        ASSERT_TRUE(reject) << text;
        EXPECT_EQ(reject->type, type) << text;
        EXPECT_EQ(reject->desc, QStringLiteral("why"));
        EXPECT_EQ(reject->notice->desc, QStringLiteral("n"));
        const ordered_json back = reject->toJson();
        EXPECT_EQ(back["action_type"], type == 1 ? "NAK" : "TERMINAL");
        EXPECT_EQ(back["description"], "why");
        EXPECT_EQ(back["notice"]["description"], "n");
    }
}

TEST(BcomDataModel, NegotiationCarriesTheProtocolConstants)
{
    const BcomData n = negotiation();
    const ordered_json j = ordered_json::parse(n.toData().toStdString());
    EXPECT_EQ(j["type"], "NEGOTIATE");
    EXPECT_EQ(j["request_sequence"], 1u);
    EXPECT_EQ(j["response_sequence"], 0u);
    EXPECT_EQ(j["client_id"], "client-1");
    EXPECT_EQ(j["version"], "v1.1");
    const ordered_json &c = j["content"];
    EXPECT_EQ(c["username"], "ZGVtbw==");
    EXPECT_EQ(c["code"], "xl");
    EXPECT_EQ(c["os"], "macOS");
    EXPECT_EQ(c["timestamp"], "1700000000");
    EXPECT_EQ(c["mac"], "00:11:22:33:44:55");
    EXPECT_EQ(c["ip"], "10.0.0.2");
    EXPECT_EQ(c["proposals"], ordered_json::parse(R"(["PREFIX","SUFFIX","DYNAMIC"])"));
    EXPECT_FALSE(c["client_version"].get<std::string>().empty());
    EXPECT_FALSE(c["os_version"].get<std::string>().empty());
    EXPECT_NE(c["os_version"], "macOS");
    EXPECT_TRUE(n.getContentObject());
}

TEST(BcomStateMachine, RepliesDecideTheNextRequest)
{
    const char *const ackNoCipher = R"({"type":"ACKNOWLEDGE","request_sequence":2,"response_sequence":42,)"
                                    R"("content":{"offer":"SHA1","salt_name":"SUFFIX","salt_key":"sk2"}})";
    const char *const offerNoInterval =
        R"({"type":"OFFER","request_sequence":2,"response_sequence":50,"content":{"session":"S2","cipher":"c2",)"
        R"("offer":"SHA1","salt_name":"SUFFIX","salt_key":"k2"}})";

    // NEGOTIATE answered by OFFER: the next request is the first NOTIFY.
    auto data = freshData();
    BcomData sent = negotiation();
    auto next = sent.nextWithOpeartionData(*data, message(kOffer));
    ASSERT_TRUE(next);
    EXPECT_EQ(next->type, QStringLiteral("NOTIFY"));
    EXPECT_EQ(next->request_sequence, 2u);
    EXPECT_EQ(next->response_sequence, 41u);
    EXPECT_EQ(data->session, QStringLiteral("S1"));
    EXPECT_EQ(data->interval, 3);
    EXPECT_EQ(next->content["session"], "S1");
    EXPECT_EQ(next->content["additional"].dump(), R"({"b":"1","a":"2"})");
    EXPECT_EQ(
        QString::fromStdString(next->content["data"].get<std::string>()),
        sha1SuffixProof(QStringLiteral("S1"), 2, 41, QStringLiteral("12"), QStringLiteral("ci"), QStringLiteral("sk")));

    // NOTIFY answered by an ACKNOWLEDGE without cipher: the old cipher stays.
    auto following = next->nextWithOpeartionData(*data, message(ackNoCipher));
    ASSERT_TRUE(following);
    EXPECT_EQ(data->bcomCryptData.cipher, QStringLiteral("ci"));
    EXPECT_EQ(data->bcomCryptData.saltKey, QStringLiteral("sk2"));
    EXPECT_EQ(following->type, QStringLiteral("NOTIFY"));
    EXPECT_EQ(following->request_sequence, 3u);
    EXPECT_EQ(QString::fromStdString(following->content["data"].get<std::string>()),
              sha1SuffixProof(QStringLiteral("S1"), 3, 42, QStringLiteral("12"), QStringLiteral("ci"),
                              QStringLiteral("sk2")));

    // A new OFFER without interval keeps the interval but replaces the session.
    auto third = following->nextWithOpeartionData(*data, message(offerNoInterval));
    ASSERT_TRUE(third);
    EXPECT_EQ(data->interval, 3);
    EXPECT_EQ(data->session, QStringLiteral("S2"));
    EXPECT_FALSE(third->content.contains("additional")); // the offer carried none
    EXPECT_EQ(data->retryTimes, 0u);
}

TEST(BcomStateMachine, AcknowledgeToNegotiateKeepsTheNegotiateType)
{
    auto data = freshData();
    BcomData sent = negotiation();
    const auto next = sent.nextWithOpeartionData(
        *data, message(R"({"type":"ACKNOWLEDGE","request_sequence":1,"response_sequence":7,)"
                       R"("content":{"cipher":"c","offer":"MD5","salt_name":"PREFIX","salt_key":"k"}})"));
    ASSERT_TRUE(next);
    EXPECT_EQ(next->getBcomType(), BcomType::Negotiate);
    EXPECT_TRUE(BcomNotificationContent::fromJson(next->content, nullptr));
    EXPECT_EQ(next->content["session"], "");
    EXPECT_EQ(next->content["data"].get<std::string>().size(), 40u);
}

TEST(BcomStateMachine, TransportFailureResendsTheSameContent)
{
    auto data = freshData();
    BcomData sent = negotiation();
    auto notify = sent.nextWithOpeartionData(*data, message(kOffer));
    ASSERT_TRUE(notify);
    for (const BcomData &original : {sent, *notify}) {
        BcomData request = original;
        const auto resend = request.nextWithOpeartionData(*data, std::nullopt);
        ASSERT_TRUE(resend);
        EXPECT_EQ(resend->type, request.type);
        EXPECT_EQ(resend->request_sequence, request.request_sequence + 1);
        EXPECT_EQ(resend->response_sequence, request.response_sequence);
        EXPECT_EQ(resend->content, original.content);
    }
}

TEST(BcomStateMachine, RejectsAndUnusableReplies)
{
    struct Case
    {
        const char *name;
        const char *reply;
        bool continues;
        const char *logLine;
    };
    const Case cases[] = {
        {"terminal",
         R"({"type":"REJECT","request_sequence":2,"response_sequence":9,"content":{"error":1,"action_type":"TERMINAL","description":"gone","url":"u"}})",
         false, "heart is terminal"},
        {"lower-case nak is terminal",
         R"({"type":"REJECT","request_sequence":2,"response_sequence":9,"content":{"error":1,"action_type":"nak","description":"gone","url":"u"}})",
         false, "gone"},
        {"nak retries",
         R"({"type":"REJECT","request_sequence":2,"response_sequence":9,"content":{"error":1,"action_type":"NAK","description":"busy","url":"u"}})",
         true, "retry 1 attempt"},
        {"lower-case offer", R"({"type":"offer","request_sequence":2,"response_sequence":9,"content":{}})", false,
         "error content type"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        LogCapture log;
        auto data = freshData();
        BcomData sent = negotiation();
        auto notify = sent.nextWithOpeartionData(*data, message(kOffer));
        const auto next = notify->nextWithOpeartionData(*data, message(c.reply));
        EXPECT_EQ(next.has_value(), c.continues);
        EXPECT_TRUE(log.has(QLatin1String(c.logLine))) << log.lines().join(QLatin1Char('|')).toStdString();
        if (next) {
            // A NAKed notification is rebuilt for the new sequence numbers.
            EXPECT_EQ(next->request_sequence, 3u);
            EXPECT_EQ(next->response_sequence, 9u);
            EXPECT_NE(next->content["data"], notify->content["data"]);
        }
    }
}

TEST(BcomStateMachine, EleventhNakStopsTheHeartbeatEvenWithGoodRepliesBetween)
{
    const char *const nak = R"({"type":"REJECT","request_sequence":1,"response_sequence":5,)"
                            R"("content":{"error":1,"action_type":"NAK","description":"busy","url":"u"}})";
    const char *const ack = R"({"type":"ACKNOWLEDGE","request_sequence":1,"response_sequence":6,)"
                            R"("content":{"salt_name":"PREFIX","salt_key":"k"}})";
    LogCapture log;
    auto data = freshData();
    BcomData first = negotiation();
    std::optional<BcomData> request = first.nextWithOpeartionData(*data, message(kOffer));
    int naks = 0;
    for (int round = 0; round < 40 && request; ++round) {
        const bool sendNak = round % 2 == 0;
        naks += sendNak ? 1 : 0;
        request = request->nextWithOpeartionData(*data, message(sendNak ? nak : ack));
    }
    EXPECT_FALSE(request);
    EXPECT_EQ(naks, 11);
    EXPECT_EQ(data->retryTimes, 11u);
    EXPECT_TRUE(log.has(QStringLiteral("retry 10 attempt")));
    EXPECT_TRUE(log.has(QStringLiteral("faile after 11 retry attempt")));
}

namespace {

QByteArray demoConfig()
{
    QFile file(TestSupport::sourceTestsDir() + QStringLiteral("/../resources/demo/system.json"));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly));
    return file.readAll();
}

} // namespace

TEST(BcomOperationDataConf, ReadsTheHeartSectionOfTheCurrentArea)
{
    Conf::setShared(Conf::fromJson(demoConfig()));
    ASSERT_TRUE(Conf::shared());
    struct Case
    {
        QString area;
        QString key;
        qint32 interval;
    };
    const Case cases[] = {
        {QString(), QStringLiteral("9c41e07a5b2d4f8e863a1b0c7d5e2f94"), 20},
        {QStringLiteral("1002"), QStringLiteral("9c41e07a5b2d4f8e863a1b0c7d5e2f94"), 5},
        {QStringLiteral("1001"), QStringLiteral("e3b7a1c95d0f4628b4e2a7c1f9d3056b"), 20},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.area.toStdString());
        Conf::setArea(c.area);
        const auto data = BcomOperationData::init();
        ASSERT_TRUE(data);
        EXPECT_EQ(data->key, c.key);
        EXPECT_EQ(data->interval, c.interval);
        EXPECT_EQ(data->negotiateHost, QUrl(QStringLiteral("http://127.0.0.1:18080/negotiate")));
        EXPECT_EQ(data->notifyHost, QUrl(QStringLiteral("http://127.0.0.1:18080/heartbeat")));
        EXPECT_EQ(data->urlSession.requestTimeoutMs, 10000);
        EXPECT_EQ(data->urlSession.responseTimeoutMs, 30000);
        EXPECT_EQ(data->retryTimes, 0u);
        EXPECT_FALSE(data->session);
        EXPECT_FALSE(data->bcomCryptData.additional);
        EXPECT_TRUE(data->bcomCryptData.saltKey.isEmpty());
        EXPECT_TRUE(data->bcomCryptData.saltName.isEmpty());
    }
    Conf::setArea(QString());
    const BcomData n = BcomData::MakeNegotiationWithName(QStringLiteral("bg=="), QStringLiteral("1"),
                                                         QStringLiteral("m"), QStringLiteral("i"));
    EXPECT_EQ(n.client_id, QStringLiteral("dorvik-demo-client"));

    // No negotiation URL, or no configuration at all: no heartbeat.
    auto json = ordered_json::parse(demoConfig().toStdString());
    json["heart"]["negotiateurl"] = {{"default", ""}};
    Conf::setShared(Conf::fromJson(QByteArray::fromStdString(json.dump())));
    ASSERT_TRUE(Conf::shared());
    {
        LogCapture log;
        EXPECT_FALSE(BcomOperationData::init());
        EXPECT_TRUE(log.lines().isEmpty());
    }
    Conf::setShared(nullptr);
    EXPECT_FALSE(BcomOperationData::init());
    EXPECT_FALSE(BcomData::MakeNegotiationWithName(QStringLiteral("bg=="), QStringLiteral("1"), QStringLiteral("m"),
                                                   QStringLiteral("i"))
                     .client_id);
}
