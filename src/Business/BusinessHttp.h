#pragma once

#include "Util/DVError.h"

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <optional>
#include <utility>
#include <vector>

class QNetworkAccessManager;
class QNetworkReply;

// One HTTP exchange of the business requests. The fields mirror what the requests set:
// method, address, exactly the listed header fields, an optional body and a time-out.
struct HttpRequestSpec
{
    QByteArray method = QByteArrayLiteral("POST");
    QUrl url;
    std::vector<std::pair<QByteArray, QByteArray>> headers;
    std::optional<QByteArray> body;
    // Transfer time-out in milliseconds; 0 means no limit of our own.
    int timeoutMs = 0;
};

// What came back: either a transport error (no HTTP answer at all) or a status and a body.
struct HttpReply
{
    std::optional<QString> transportError;
    bool cancelled = false; // aborted by us (or by the transfer time-out)
    bool timedOut = false;
    int status = 0;
    QByteArray body;
};

namespace BusinessHttp {

// Starts the request on `manager` (which must live in the calling thread). Cached data is
// never used.
QNetworkReply *start(QNetworkAccessManager &manager, const HttpRequestSpec &outgoing);

// Reads the outcome of a finished reply.
HttpReply collect(QNetworkReply *reply);

// The transport failure as an error value: "NSURLErrorDomain" with -999 (cancelled), -1001
// (timed out) or -1 (anything else) and the network layer's text.
DVError transportErrorOf(const HttpReply &reply);

// Sends the request from the calling thread and waits for the answer in a local event
// loop. Works on any thread, including the work queue's plain worker threads.
HttpReply sendBlocking(const HttpRequestSpec &outgoing);

// POSTs a JSON body to the business server's base address (the configuration request and the
// registration report, both with a 4 s time-out) and waits for the answer. nullopt, logged as
// "url init failed", when the address does not make a URL.
std::optional<HttpReply> postJson(const QString &host, const std::optional<QByteArray> &body);

} // namespace BusinessHttp
