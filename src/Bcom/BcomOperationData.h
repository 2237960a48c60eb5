#pragma once

#include "BcomCrypt.h"
#include "BcomData.h"

#include <QString>
#include <QUrl>

#include <functional>
#include <memory>
#include <optional>

class BcomOfferContent;
class BcomAckContent;

// The HTTP settings every request of one heartbeat uses (a fresh connection state, no cookies
// or cache, like an ephemeral session).
struct BcomUrlSession
{
    // A request fails when no data moves for this long.
    qint64 requestTimeoutMs = 60 * 1000;
    // A request fails when the whole exchange takes longer than this.
    qint64 responseTimeoutMs = 7 * 24 * 3600 * 1000LL;
};

// Turns a pause of the heartbeat, in whole protocol seconds (the operation has already
// applied its lower bound), into milliseconds of real waiting. Tests record and shrink it.
using BcomWaitPolicy = std::function<qint64(qint32 seconds)>;

// One exchange with the server, reported to an observer.
struct BcomExchange
{
    BcomData sent;
    QUrl url;
    int httpStatus = 0;            // 0 when there was no HTTP response
    std::optional<BcomData> reply; // the parsed reply, when the body was a valid message
    QString error;                 // the transport error, or why the heartbeat stopped
    bool continues = false;        // a next request was queued
};

// The state one heartbeat chain shares: endpoints, keys, interval, NAK count, session and the
// server's proof choices. Only one operation of a chain runs at a time, so it needs no lock.
class BcomOperationData
{
public:
    // From the heart section of the configuration; null when there is no configuration or the
    // negotiation URL is missing or empty.
    static std::shared_ptr<BcomOperationData> init();
    static std::shared_ptr<BcomOperationData> initWithKey(const QString &key, const QUrl &negotiateHost,
                                                          const QUrl &notifyHost, const BcomUrlSession &urlSession,
                                                          qint32 interval);

    QString key;
    QUrl negotiateHost;
    QUrl notifyHost;
    BcomUrlSession urlSession;
    quint64 retryTimes = 0;
    qint32 interval = 0;
    std::optional<QString> session;
    BcomCryptData bcomCryptData;

    // Real seconds unless replaced.
    BcomWaitPolicy waitPolicy;
    // Called on the operation's worker thread after every exchange (not for cancelled ones).
    std::function<void(const BcomExchange &)> onExchange;

    // The real wait for a pause of `seconds`.
    qint64 waitMs(qint32 seconds) const { return waitPolicy ? waitPolicy(seconds) : qint64(seconds) * 1000; }

    void updateWithOfferContent(const BcomOfferContent &content);
    void updateWithAckContent(const BcomAckContent &content);
};
