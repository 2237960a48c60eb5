// The PPP connections of the simulated machine: start, stop and status, with the access
// concentrator's verdict coming through the authentication hook.

#include "SimulatedPlatform.h"
#include "SimulatedPlatformPrivate.h"

#include "Util/Log.h"
#include "Util/ThreadHandoff.h"

#include <QPointer>

NetworkConnectionRef SimulatedPlatform::networkConnectionCreateWithServiceID(const QString &serviceID,
                                                                             ConnectionCallback callback)
{
    const auto service = _state->serviceWithID(serviceID);
    if (!service) {
        _state->fail(PlatformStatus::NoKey);
        return nullptr;
    }
    auto conn = std::make_shared<SimConnection>();
    conn->serviceID = serviceID;
    conn->link = service->link;
    conn->callback = std::move(callback);
    service->link->watchers.push_back(conn);
    return conn;
}

bool SimulatedPlatform::networkConnectionScheduleWithRunLoop(const NetworkConnectionRef &connection)
{
    const auto c = std::dynamic_pointer_cast<SimConnection>(connection);
    if (!c)
        return _state->fail(PlatformStatus::InvalidArgument);
    if (!c->deliverHost)
        c->deliverHost = std::make_unique<QObject>();
    return true;
}

bool SimulatedPlatform::networkConnectionUnscheduleFromRunLoop(const NetworkConnectionRef &connection)
{
    const auto c = std::dynamic_pointer_cast<SimConnection>(connection);
    if (!c || !c->deliverHost)
        return _state->fail(PlatformStatus::InvalidArgument);
    c->deliverHost.reset();
    return true;
}

int SimulatedPlatform::networkConnectionGetStatus(const NetworkConnectionRef &connection)
{
    const auto c = std::dynamic_pointer_cast<SimConnection>(connection);
    return c ? c->link->status : NetworkConnectionInvalid;
}

bool SimulatedPlatform::networkConnectionStart(const NetworkConnectionRef &connection, const QVariantMap &userOptions,
                                               bool)
{
    _state->blockLikeTheSystem();
    const auto c = std::dynamic_pointer_cast<SimConnection>(connection);
    if (!c)
        return _state->fail(PlatformStatus::InvalidArgument);
    const auto service = _state->serviceWithID(c->serviceID);
    if (!service || !service->iface || !service->iface->child)
        return _state->fail(PlatformStatus::NoKey);
    const auto link = c->link;
    if (link->status != NetworkConnectionDisconnected)
        return _state->fail(PlatformStatus::Failed);
    const QVariantMap ppp = userOptions.value(PPPoEKey::EntNetPPP).toMap();
    const QString dialName = ppp.value(PPPoEKey::PropNetPPPAuthName).toString();
    const QString password = ppp.value(PPPoEKey::PropNetPPPAuthPassword).toString();
    const QString parent = service->iface->child->bsdName;

    link->timerHost = std::make_unique<QObject>();
    const quint64 attempt = ++link->attempt;
    _state->setStatus(link, NetworkConnectionConnecting);

    std::weak_ptr<State> weakState = _state;
    _state->later(link, attempt, [weakState, dialName, password, parent, attempt](const std::shared_ptr<SimLink> &l) {
        const auto state = weakState.lock();
        if (!state)
            return;
        if (!state->linkActive[parent]) {
            DVLOG() << "simulated PPPoE: no access concentrator answered on " << parent << " (link down)";
            state->endLink(l, {LinkEndCause::Failed, QStringLiteral("no access concentrator answered")});
            return;
        }
        // The verdict may come from any thread: bring it back to the link's thread.
        QPointer<QObject> host = l->timerHost.get();
        std::weak_ptr<SimLink> weakLink = l;
        auto done = [weakState, weakLink, host, attempt](bool accepted, QString reason) {
            if (host.isNull())
                return;
            ThreadHandoff::post(host.data(), [weakState, weakLink, attempt, accepted, reason] {
                const auto s = weakState.lock();
                const auto lk = weakLink.lock();
                if (!s || !lk || lk->attempt != attempt)
                    return;
                if (!accepted) {
                    DVLOG() << "simulated PPPoE: authentication refused: " << reason;
                    s->endLink(lk, {LinkEndCause::Refused, reason});
                    return;
                }
                std::weak_ptr<State> ws = s;
                s->later(lk, attempt, [ws](const std::shared_ptr<SimLink> &ll) {
                    if (const auto st = ws.lock())
                        st->setStatus(ll, NetworkConnectionConnected);
                });
            });
        };
        if (state->config.authHook) {
            state->config.authHook(dialName, password, done);
        } else {
            const bool ok = !dialName.isEmpty() && !password.isEmpty();
            done(ok, ok ? QString() : QStringLiteral("empty dial name or password"));
        }
    });
    return true;
}

bool SimulatedPlatform::networkConnectionStop(const NetworkConnectionRef &connection, bool)
{
    _state->blockLikeTheSystem();
    const auto c = std::dynamic_pointer_cast<SimConnection>(connection);
    if (!c)
        return _state->fail(PlatformStatus::InvalidArgument);
    const auto link = c->link;
    if (link->status != NetworkConnectionConnecting && link->status != NetworkConnectionConnected)
        return _state->fail(PlatformStatus::NotActive);
    if (!link->timerHost)
        link->timerHost = std::make_unique<QObject>();
    const quint64 attempt = ++link->attempt;
    _state->setStatus(link, NetworkConnectionDisconnecting);
    std::weak_ptr<State> weakState = _state;
    _state->later(link, attempt, [weakState](const std::shared_ptr<SimLink> &l) {
        if (const auto s = weakState.lock())
            s->endLink(l, {LinkEndCause::UserRequested, QStringLiteral("hung up on request")});
    });
    return true;
}

LinkEnd SimulatedPlatform::networkConnectionCopyEndReason(const NetworkConnectionRef &connection)
{
    const auto c = std::dynamic_pointer_cast<SimConnection>(connection);
    return c ? c->link->end : LinkEnd{};
}

std::optional<QVariantMap>
SimulatedPlatform::networkConnectionCopyExtendedStatus(const NetworkConnectionRef &connection)
{
    const auto c = std::dynamic_pointer_cast<SimConnection>(connection);
    if (!c) {
        _state->fail(PlatformStatus::InvalidArgument);
        return std::nullopt;
    }
    QVariantMap ppp;
    ppp.insert(QStringLiteral("Status"), c->link->status);
    QVariantMap status;
    if (c->link->status == NetworkConnectionConnected) {
        ppp.insert(PPPoEKey::PropNetPPPConnectTime, quint32(c->link->connectTime));
        QVariantMap ipv4;
        ipv4.insert(PPPoEKey::PropNetIPv4Addresses, QStringList{_state->config.ipv4Address});
        status.insert(PPPoEKey::EntNetIPv4, ipv4);
    }
    status.insert(PPPoEKey::EntNetPPP, ppp);
    return status;
}
