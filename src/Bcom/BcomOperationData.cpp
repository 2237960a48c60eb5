#include "BcomOperationData.h"

#include "BcomContent.h"
#include "Conf/Conf.h"
#include "Util/DVUtils.h"

#include <algorithm>
#include <cstdint>

namespace {

QUrl urlFromText(const std::optional<QString> &text)
{
    if (!text || text->isEmpty())
        return {};
    const QUrl url(*text, QUrl::StrictMode);
    return url.isValid() ? url : QUrl();
}

} // namespace

std::shared_ptr<BcomOperationData> BcomOperationData::init()
{
    const Conf *conf = Conf::shared();
    if (!conf)
        return nullptr;
    const HeartConf &heart = conf->heart;
    const auto negotiate = heart.getNegotiateUrl();
    if (!negotiate || negotiate->isEmpty())
        return nullptr;

    BcomUrlSession urlSession;
    // A time-out of zero or less leaves the HTTP client's default in place.
    const qint64 requestSecs = DVUtils::intValue(heart.getRequestTimeout().value_or(QString()));
    const qint64 responseSecs = DVUtils::intValue(heart.getResponseTimeout().value_or(QString()));
    if (requestSecs > 0)
        urlSession.requestTimeoutMs = requestSecs * 1000;
    if (responseSecs > 0)
        urlSession.responseTimeoutMs = responseSecs * 1000;

    const qint64 interval = DVUtils::intValue(heart.getInterval().value_or(QString()));
    return initWithKey(heart.getKey().value_or(QString()), urlFromText(negotiate), urlFromText(heart.getHearbeatUrl()),
                       urlSession, static_cast<qint32>(std::clamp<qint64>(interval, INT32_MIN, INT32_MAX)));
}

std::shared_ptr<BcomOperationData> BcomOperationData::initWithKey(const QString &key, const QUrl &negotiateHost,
                                                                  const QUrl &notifyHost,
                                                                  const BcomUrlSession &urlSession, qint32 interval)
{
    auto data = std::make_shared<BcomOperationData>();
    data->key = key;
    data->negotiateHost = negotiateHost;
    data->notifyHost = notifyHost;
    data->urlSession = urlSession;
    data->interval = interval;
    data->retryTimes = 0;
    data->bcomCryptData.additional = std::nullopt;
    data->bcomCryptData.saltKey = QString();
    data->bcomCryptData.saltName = QString();
    return data;
}

void BcomOperationData::updateWithOfferContent(const BcomOfferContent &content)
{
    bcomCryptData.cipher = content.cipher;
    bcomCryptData.offer = content.offer;
    bcomCryptData.saltKey = content.salt_key;
    bcomCryptData.saltName = content.salt_name;
    bcomCryptData.additional = content.additional;
    session = content.session;
    if (content.interval)
        interval = *content.interval;
}

void BcomOperationData::updateWithAckContent(const BcomAckContent &content)
{
    bcomCryptData.saltKey = content.salt_key;
    bcomCryptData.saltName = content.salt_name;
    if (content.cipher)
        bcomCryptData.cipher = content.cipher;
    if (content.offer)
        bcomCryptData.offer = content.offer;
    if (content.additional)
        bcomCryptData.additional = content.additional;
    if (content.interval)
        interval = *content.interval;
}
