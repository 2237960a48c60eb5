#include "Bcom/BcomData.h"
#include "Bcom/BcomContent.h"
#include "Bcom/BcomOperationData.h"
#include "Conf/Conf.h"
#include "Util/Crypto.h"
#include "support/LogCapture.h"
#include "support/TestData.h"

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

TEST(BcomDataModel, InvalidEnvelopesAndContentsAreRefused)
{
    const TestData::json data = TestData::load("bcom.json");
    for (const auto &body : data.at("invalidEnvelopes"))
        EXPECT_FALSE(BcomData::fromData(QByteArray::fromStdString(body))) << body;
    for (const auto &c : data.at("contents")) {
        LogCapture log;
        const bool usable = c.at("usable");
        EXPECT_EQ(message(TestData::text(c, "body").toUtf8().constData()).getContentObject() != nullptr, usable) << c;
        EXPECT_EQ(log.lines().isEmpty(), usable) << c;
    }
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
