#pragma once

#include "Util/Clock.h"

#include <QByteArray>
#include <QDateTime>
#include <QObject>
#include <QString>
#include <QUrl>

#include <nlohmann/json.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

// Time-based dial names are only accepted near the provider's time. Before a dial, the guard
// asks whichever provider server answers first (heartbeat, business, update host: the machine
// may already be online through another interface) for its HTTP Date header and compares it
// with the local clock. It only warns: the system clock is never changed.
struct ClockCheck
{
    bool checked = false;     // a server answered with a usable Date header
    QString host;             // the one that answered
    qint64 offsetSecs = 0;    // local clock minus the server's (positive: local is ahead)
    bool timeBased = false;   // the current area's dial names depend on the time
    qint64 toleranceSecs = 0; // how far off a time-based dial name may be
    bool warn = false;        // off by more than the tolerance, with a time-based rule
    QString message;          // the warning for the user (Chinese); empty without one

    nlohmann::ordered_json toJson() const;
};

namespace ClockGuard {

// How far a time-based dial name may be from the provider's time before access servers turn
// it down. The rules make a new code every few seconds; access servers accept codes from a
// window around their own time, taken here as three minutes either way.
constexpr qint64 kToleranceSecs = 180;

// The provider servers of the current configuration and area that can tell the time: the
// business and update hosts first; the heartbeat server only when neither answers, so that the
// heartbeat server sees nothing but heartbeats while the others are there.
struct Servers
{
    std::vector<QUrl> first;
    std::vector<QUrl> fallback;
};
Servers providerUrls();
// An HTTP date (IMF-fixdate, also the obsolete RFC 850 and asctime forms); nullopt otherwise.
std::optional<QDateTime> parseHttpDate(const QByteArray &text);
// The check from a server's time, for a rule that is `timeBased` or not.
ClockCheck evaluate(const QDateTime &local, const QDateTime &server, const QString &host, bool timeBased);
// Asks every url at once (HEAD, `timeoutMs` each) and calls `done` once, on the calling
// thread, with the first usable answer or an unchecked result when none came.
void check(const std::vector<QUrl> &urls, std::shared_ptr<Clock> clock, bool timeBased, int timeoutMs, QObject *context,
           std::function<void(const ClockCheck &)> done);
// The first servers, then the fallback ones when none of those told the time.
void check(const Servers &servers, std::shared_ptr<Clock> clock, bool timeBased, int timeoutMs, QObject *context,
           std::function<void(const ClockCheck &)> done);
// The same, waiting in a local event loop (tools).
ClockCheck checkBlocking(const Servers &servers, std::shared_ptr<Clock> clock, bool timeBased, int timeoutMs);
// The hint after an access server turned a time-based dial name down.
QString refusalHint();

} // namespace ClockGuard
