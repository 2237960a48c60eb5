#pragma once

#include "SimService.h"

#include <QDateTime>
#include <QHttpServer>
#include <QHttpServerResponse>
#include <QLocale>

// The provider's clock as the simulator shows it: the machine's, moved by --clock-offset, so
// that a client's clock guard and the access concentrator's time window can be tried against
// a provider whose time differs from the client's.
namespace SimClock {

inline qint64 nowSecs(const SimOptions &options)
{
    return QDateTime::currentSecsSinceEpoch() + options.clockOffsetSecs;
}

// An HTTP date (RFC 7231, IMF-fixdate) for the simulator's now.
inline QByteArray httpDate(const SimOptions &options)
{
    const QDateTime t = QDateTime::fromSecsSinceEpoch(nowSecs(options), Qt::UTC);
    return QLocale::c().toString(t, QStringLiteral("ddd, dd MMM yyyy hh:mm:ss 'GMT'")).toLatin1();
}

// Every answer of `server` carries the simulator's Date header.
inline void stampDate(QHttpServer &server, const SimOptions *options)
{
    server.afterRequest([options](QHttpServerResponse &&response) {
        response.setHeader(QByteArrayLiteral("Date"), httpDate(*options));
        return std::move(response);
    });
}

} // namespace SimClock
