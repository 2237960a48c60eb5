#include "Bcom/BcomData.h"
#include "Bcom/BcomContent.h"
#include "Bcom/BcomOperationData.h"
#include "support/LogCapture.h"
#include "support/TestData.h"

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

// The sequences, the proofs (every transformation and salt, additional values in arrival
// order, a cipher kept when an acknowledgement leaves it out) are verified by the heart server
// in BcomOperationTest; what its chain never shows is a second OFFER, which it sends only once.
TEST(BcomStateMachine, RepliesDecideTheNextRequest)
{
    const char *const offerNoInterval =
        R"({"type":"OFFER","request_sequence":2,"response_sequence":50,"content":{"session":"S2","cipher":"c2",)"
        R"("offer":"SHA1","salt_name":"SUFFIX","salt_key":"k2"}})";

    // NEGOTIATE answered by OFFER: the next request is the first NOTIFY.
    auto data = freshData();
    auto next = negotiation().nextWithOpeartionData(*data, message(kOffer));
    ASSERT_TRUE(next);
    EXPECT_EQ(next->type, QStringLiteral("NOTIFY"));
    EXPECT_EQ(data->session, QStringLiteral("S1"));
    EXPECT_EQ(data->interval, 3);

    // A new OFFER without interval keeps the interval but replaces the session.
    auto following = next->nextWithOpeartionData(*data, message(offerNoInterval));
    ASSERT_TRUE(following);
    EXPECT_EQ(data->interval, 3);
    EXPECT_EQ(data->session, QStringLiteral("S2"));
    EXPECT_FALSE(following->content.contains("additional")); // the offer carried none
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
