// Heartbeat replies: the envelope, the content of every type, and what the reply does to the
// next request (the OFFER's transformation and salt, the ACKNOWLEDGE's interval, the REJECT's
// notice), for a chain that sent a NEGOTIATE and for one that sent a NOTIFY. A second reply
// after a NUL byte answers the request the first one produced.

#include "FuzzSupport.h"

#include "Bcom/BcomContent.h"
#include "Bcom/BcomData.h"
#include "Bcom/BcomOperationData.h"

DORVIK_FUZZ_INIT

namespace {

void answer(BcomData request, const QList<QByteArray> &replies)
{
    auto data = BcomOperationData::initWithKey(QStringLiteral("heart-key"), QUrl(QStringLiteral("http://127.0.0.1/n")),
                                               QUrl(QStringLiteral("http://127.0.0.1/h")), BcomUrlSession(), 30);
    for (const QByteArray &body : replies) {
        const std::optional<BcomData> reply = BcomData::fromData(body);
        if (!reply)
            return;
        (void)reply->toData();
        if (const auto content = reply->getContentObject())
            (void)content->toJson();
        std::optional<BcomData> next = request.nextWithOpeartionData(*data, reply);
        if (!next)
            return;
        (void)next->toData();
        (void)next->getSignatureWithKey(data->key);
        request = std::move(*next);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QList<QByteArray> replies = Fuzz::parts(data, size, 1).mid(0, 2);
    BcomData negotiation = BcomData::MakeNegotiationWithName(QStringLiteral("ZGVtbw=="), QStringLiteral("1700000000"),
                                                             QStringLiteral("00:11:22:33:44:55"),
                                                             QStringLiteral("10.0.0.2"), QStringLiteral("dorvik-fuzz"));
    answer(negotiation, replies);
    return 0;
}
