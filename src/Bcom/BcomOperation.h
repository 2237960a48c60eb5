#pragma once

#include "BcomData.h"
#include "BcomOperationData.h"
#include "Util/DVError.h"
#include "Util/OperationQueue.h"

#include <QByteArray>
#include <QUrl>

#include <memory>
#include <mutex>
#include <optional>

class QEventLoop;

// One exchange of a heartbeat: waits, sends its message, reads the reply and queues the
// operation for the next message on the same queue. Only one operation of a chain exists at a
// time. cancel() cuts every wait short; a cancelled operation sends nothing more and queues no
// successor.
class BcomOperation : public Operation
{
public:
    // What the HTTP client gave back.
    struct HttpResult
    {
        QByteArray data;
        bool hasResponse = false; // an HTTP response (any status) arrived
        int status = 0;
        std::optional<DVError> error; // transport failure: no response
    };

    // Null when there is no operation data.
    static std::shared_ptr<BcomOperation> initWithBcomData(std::optional<BcomData> bcomData,
                                                           std::shared_ptr<BcomOperationData> operationData,
                                                           std::weak_ptr<OperationQueue> operationQueue);

    void start() override;
    void main() override;
    void cancel() override;

    // Waits max(seconds, 5) protocol seconds on the semaphore (cancel() ends it early).
    void waitForSeconds(qint32 seconds);
    // POSTs the body with exactly the headers "Content-Type: application/json" and
    // "signature"; blocks this worker until the reply, a time-out or cancel(). nullopt when no
    // request could be made or the operation was cancelled.
    std::optional<HttpResult> requestAtUrl(const QUrl &url, const QByteArray &httpBody, const QString &signature);
    // The next message for a reply, a transport error or neither; nullopt stops the chain.
    // `reason` gets why it stopped.
    std::optional<BcomData> handleData(const HttpResult &result, std::optional<BcomData> *parsedReply = nullptr,
                                       QString *reason = nullptr);

    const std::optional<BcomData> &bcomData() const { return _bcomData; }
    const std::shared_ptr<BcomOperationData> &operationData() const { return _operationData; }

private:
    BcomOperation() = default;
    void queueSuccessor(BcomData next);

    std::optional<BcomData> _bcomData;
    std::shared_ptr<BcomOperationData> _operationData;
    std::weak_ptr<OperationQueue> _queue;

    std::mutex _mutex;           // guards the two below
    QEventLoop *_loop = nullptr; // the reply wait in progress
    std::weak_ptr<Operation> _successor;
};
