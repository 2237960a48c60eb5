#include "BcomOperation.h"

#include "BcomContent.h"
#include "Util/Log.h"

#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

#include <algorithm>
#include <climits>

namespace {

// The first message waits this long after the connection came up; later ones wait the interval.
constexpr qint32 kFirstWaitSeconds = 10;
// No pause is ever shorter than this.
constexpr qint32 kMinimumWaitSeconds = 5;

const QString kUrlErrorDomain = QStringLiteral("NSURLErrorDomain");
constexpr qint64 kUrlErrorTimedOut = -1001;
constexpr qint64 kUrlErrorUnknown = -1;

int clampMs(qint64 ms)
{
    return static_cast<int>(std::clamp<qint64>(ms, 1, INT_MAX));
}

} // namespace

std::shared_ptr<BcomOperation> BcomOperation::initWithBcomData(std::optional<BcomData> bcomData,
                                                               std::shared_ptr<BcomOperationData> operationData,
                                                               std::weak_ptr<OperationQueue> operationQueue)
{
    if (!operationData)
        return nullptr;
    std::shared_ptr<BcomOperation> op(new BcomOperation());
    op->_bcomData = std::move(bcomData);
    op->_operationData = std::move(operationData);
    op->_queue = std::move(operationQueue);
    return op;
}

void BcomOperation::start()
{
    if (isCancelled())
        return;
    waitForSeconds(_operationData->session ? _operationData->interval : kFirstWaitSeconds);
    main();
}

void BcomOperation::waitForSeconds(qint32 seconds)
{
    const qint32 pause = seconds > kMinimumWaitSeconds ? seconds : kMinimumWaitSeconds;
    waitSemaphore(_operationData->waitMs(pause));
}

void BcomOperation::cancel()
{
    Operation::cancel();
    std::shared_ptr<Operation> successor;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        if (_loop)
            QMetaObject::invokeMethod(_loop, &QEventLoop::quit, Qt::QueuedConnection);
        successor = _successor.lock();
    }
    // A successor queued just before the cancel reached this operation goes with it.
    if (successor)
        successor->cancel();
}

void BcomOperation::main()
{
    if (isCancelled())
        return;
    if (!_bcomData) {
        DVLOG() << "heart data is nil";
        return;
    }
    const BcomData sent = *_bcomData;
    const QByteArray body = sent.toData();
    const auto signature = sent.getSignatureWithKey(_operationData->key);
    if (!signature || signature->isEmpty()) {
        DVLOG() << "signature is empty";
        return;
    }

    QUrl url;
    switch (sent.getBcomType()) {
    case BcomType::Negotiate:
        url = _operationData->negotiateHost;
        break;
    case BcomType::Notify:
        url = _operationData->notifyHost;
        break;
    default:
        DVLOG() << "error heart type";
        return;
    }
    if (url.isEmpty() || !url.isValid()) {
        DVLOG() << "heart request is nil";
        return;
    }

    const auto result = requestAtUrl(url, body, *signature);
    // A completion that arrives after a cancel is ignored.
    if (!result || isCancelled())
        return;

    BcomExchange exchange{sent, url, result->hasResponse ? result->status : 0, std::nullopt, QString(), false};
    if (result->error)
        exchange.error = result->error->localizedDescription;
    QString reason;
    auto next = handleData(*result, &exchange.reply, &reason);
    if (!result->error)
        exchange.error = reason;
    exchange.continues = next.has_value() && !isCancelled() && !_queue.expired();
    if (_operationData->onExchange)
        _operationData->onExchange(exchange);

    if (next && !isCancelled())
        queueSuccessor(std::move(*next));
}

std::optional<BcomOperation::HttpResult> BcomOperation::requestAtUrl(const QUrl &url, const QByteArray &httpBody,
                                                                     const QString &signature)
{
    QNetworkAccessManager session;
    QNetworkRequest request(url);
    request.setRawHeader(QByteArrayLiteral("Content-Type"), QByteArrayLiteral("application/json"));
    request.setRawHeader(QByteArrayLiteral("signature"), signature.toLatin1());
    request.setTransferTimeout(clampMs(_operationData->urlSession.requestTimeoutMs));

    QNetworkReply *reply = session.post(request, httpBody);
    if (!reply) {
        DVLOG() << "heart stop, datatask is nil";
        return std::nullopt;
    }

    QEventLoop loop;
    bool resourceTimedOut = false;
    QTimer resourceTimer;
    resourceTimer.setSingleShot(true);
    QObject::connect(&resourceTimer, &QTimer::timeout, reply, [&] {
        resourceTimedOut = true;
        reply->abort();
    });
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    resourceTimer.start(clampMs(_operationData->urlSession.responseTimeoutMs));

    {
        std::lock_guard<std::mutex> lock(_mutex);
        _loop = &loop;
    }
    if (!isCancelled() && !reply->isFinished())
        loop.exec();
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _loop = nullptr;
    }
    resourceTimer.stop();

    std::optional<HttpResult> out;
    if (!isCancelled() && reply->isFinished()) {
        HttpResult r;
        const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        if (status.isValid()) {
            // Any HTTP status counts as a response; only the body decides.
            r.hasResponse = true;
            r.status = status.toInt();
            r.data = reply->readAll();
        } else if (reply->error() != QNetworkReply::NoError) {
            const bool timedOut = resourceTimedOut || reply->error() == QNetworkReply::TimeoutError
                                  || reply->error() == QNetworkReply::OperationCanceledError;
            r.error = timedOut ? DVError(kUrlErrorDomain, kUrlErrorTimedOut, QStringLiteral("The request timed out."))
                               : DVError(kUrlErrorDomain, kUrlErrorUnknown, reply->errorString());
        } else {
            r.data = reply->readAll();
        }
        out = std::move(r);
    }
    if (!reply->isFinished())
        reply->abort();
    QObject::disconnect(reply, nullptr, nullptr, nullptr);
    delete reply;
    return out;
}

std::optional<BcomData> BcomOperation::handleData(const HttpResult &result, std::optional<BcomData> *parsedReply,
                                                  QString *reason)
{
    const auto stop = [reason](const QString &why) -> std::optional<BcomData> {
        DVLOG() << why;
        if (reason)
            *reason = why;
        return std::nullopt;
    };
    if (result.error) {
        DVLOG() << "heart request error: " << result.error->localizedDescription;
        return _bcomData->nextWithOpeartionData(*_operationData, std::nullopt);
    }
    if (!result.hasResponse)
        return stop(QStringLiteral("heart request error: covert http response failed"));

    QString parseError;
    auto reply = BcomData::fromData(result.data, &parseError);
    if (!reply) {
        DVLOG() << parseError;
        return stop(QStringLiteral("response data parse failed"));
    }
    if (parsedReply)
        *parsedReply = reply;
    const auto content = reply->getContentObject();
    if (!dynamic_cast<const BcomContentResponseProtocol *>(content.get()))
        return stop(QStringLiteral("response content type error"));

    auto next = _bcomData->nextWithOpeartionData(*_operationData, reply);
    if (!next && reason)
        *reason = QStringLiteral("stopped by the reply");
    return next;
}

void BcomOperation::queueSuccessor(BcomData next)
{
    const auto queue = _queue.lock();
    if (!queue)
        return;
    auto successor = initWithBcomData(std::move(next), _operationData, _queue);
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _successor = successor;
    }
    queue->addOperation(successor);
    // Closes the gap between the check in main() and the add: a cancel that came meanwhile
    // may not have seen the successor.
    if (isCancelled())
        successor->cancel();
}
