#include "BusinessHttp.h"

#include "Util/DVError.h"
#include "Util/Log.h"

#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

namespace BusinessHttp {

QNetworkReply *start(QNetworkAccessManager &manager, const HttpRequestSpec &outgoing)
{
    QNetworkRequest request(outgoing.url);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    request.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    request.setTransferTimeout(outgoing.timeoutMs);
    for (const auto &[name, value] : outgoing.headers)
        request.setRawHeader(name, value);
    if (outgoing.body)
        return manager.sendCustomRequest(request, outgoing.method, *outgoing.body);
    return manager.sendCustomRequest(request, outgoing.method);
}

HttpReply collect(QNetworkReply *reply)
{
    HttpReply out;
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (status.isValid()) {
        // An HTTP answer arrived; 4xx/5xx are statuses here, not transport failures.
        out.status = status.toInt();
        out.body = reply->readAll();
        return out;
    }
    out.cancelled = reply->error() == QNetworkReply::OperationCanceledError;
    out.timedOut = reply->error() == QNetworkReply::TimeoutError;
    out.transportError = reply->errorString();
    if (out.transportError->isEmpty())
        out.transportError = QStringLiteral("no answer");
    return out;
}

DVError transportErrorOf(const HttpReply &reply)
{
    const qint64 code = reply.cancelled ? -999 : reply.timedOut ? -1001 : -1;
    return DVError(QStringLiteral("NSURLErrorDomain"), code, reply.transportError.value_or(QString()));
}

HttpReply sendBlocking(const HttpRequestSpec &outgoing)
{
    QNetworkAccessManager manager;
    QNetworkReply *reply = start(manager, outgoing);
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    if (!reply->isFinished())
        loop.exec();
    HttpReply out = collect(reply);
    delete reply;
    return out;
}

std::optional<HttpReply> postJson(const QString &host, const std::optional<QByteArray> &body)
{
    const QUrl url(host, QUrl::StrictMode);
    if (!url.isValid() || host.isEmpty()) {
        DVLOG() << "url init failed";
        return std::nullopt;
    }
    HttpRequestSpec outgoing;
    outgoing.url = url;
    outgoing.body = body;
    outgoing.headers = {{QByteArrayLiteral("Content-Type"), QByteArrayLiteral("application/json")}};
    outgoing.timeoutMs = 4000;
    return sendBlocking(outgoing);
}

} // namespace BusinessHttp
