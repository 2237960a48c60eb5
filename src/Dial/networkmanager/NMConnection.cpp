// The connection half of NMPlatform: starting, stopping and watching the PPPoE profile's
// active connection.

#include "NMPlatformPrivate.h"

#include "Util/Log.h"

#include <QDBusConnection>

using namespace NMObjects;

namespace {

std::shared_ptr<Connection> asConnection(const NetworkConnectionRef &ref)
{
    return std::dynamic_pointer_cast<Connection>(ref);
}

} // namespace

LinkEnd NMObjects::linkEndFor(uint activeReason, bool wasUp, bool stopRequested)
{
    const QString text = NMBus::activeReasonText(activeReason);
    // 2: disconnected by the user (our DeactivateConnection or someone's nmcli).
    if (stopRequested || activeReason == 2)
        return {LinkEndCause::UserRequested, text};
    // 9: no secrets, 10: log-in failed: the access server turned the dial name down.
    if (activeReason == 9 || activeReason == 10)
        return {LinkEndCause::Refused, text};
    // Once up, the PPP session only ends under us when the line or the peer ends it: carrier
    // lost, the access concentrator's PADT, LCP echo requests unanswered (pppd gives up and NM
    // reports the device disconnected, 3), or the device or its parent vanished (12-14).
    if (wasUp)
        return {LinkEndCause::Dropped, text};
    return {LinkEndCause::Failed, text};
}

QString NMPlatform::Private::activePathFor(const QString &uuid)
{
    const auto list = NMBus::property(NMBus::Path, NMBus::Interface, QStringLiteral("ActiveConnections"));
    if (!list)
        return {};
    for (const QDBusObjectPath &path : NMBus::toPathList(*list)) {
        const auto u = NMBus::property(path.path(), NMBus::ActiveInterface, QStringLiteral("Uuid"));
        if (u && u->toString() == uuid)
            return path.path();
    }
    return {};
}

void NMPlatform::Private::deliver(const std::shared_ptr<Connection> &conn, int status)
{
    if (status == conn->lastReported)
        return;
    conn->lastReported = status;
    if (conn->relay && conn->callback)
        conn->callback(conn, status);
}

void NMPlatform::Private::stateChanged(const std::shared_ptr<Connection> &conn, uint state, uint reason)
{
    const int status = statusForActiveState(state);
    if (state == NMBus::ActiveActivated) {
        conn->connectTime = clock->monotonicMs() / 1000;
        agent.forget(conn->uuid); // pppd has it; nothing needs it any more
    } else if (state == NMBus::ActiveDeactivated) {
        agent.forget(conn->uuid);
        conn->end = linkEndFor(reason, conn->connectTime.has_value(), conn->stopRequested);
        DVLOG() << "PPPoE link " << conn->uuid << " is down: " << NMBus::activeReasonText(reason) << " (reason "
                << reason << ")";
    }
    deliver(conn, status);
}

NetworkConnectionRef NMPlatform::networkConnectionCreateWithServiceID(const QString &serviceID,
                                                                      ConnectionCallback callback)
{
    if (serviceID.isEmpty() || d->settingsPath(serviceID).isEmpty()) {
        d->fail(NoKey, QStringLiteral("NetworkManager has no profile %1").arg(serviceID));
        return nullptr;
    }
    auto conn = std::make_shared<Connection>();
    conn->uuid = serviceID;
    conn->callback = std::move(callback);
    d->connections.push_back(conn);
    return conn;
}

// Status reports arrive on the thread that scheduled the connection. The subscription covers
// every active connection, made before the start, so that no change of the new one is missed
// between NetworkManager's answer to the start and our first look at it.
bool NMPlatform::networkConnectionScheduleWithRunLoop(const NetworkConnectionRef &ref)
{
    const auto conn = asConnection(ref);
    if (!conn)
        return d->fail(InvalidArgument, QStringLiteral("not a connection"));
    if (conn->relay)
        return true;
    std::weak_ptr<Connection> weak = conn;
    Private *priv = d.get();
    conn->relay = new NMSignalRelay([weak, priv](const QDBusMessage &m) {
        const auto c = weak.lock();
        if (!c || c->activePath.isEmpty() || m.path() != c->activePath || m.arguments().size() < 2)
            return;
        priv->stateChanged(c, m.arguments().at(0).toUInt(), m.arguments().at(1).toUInt());
    });
    if (!QDBusConnection::systemBus().connect(NMBus::Service, QString(), NMBus::ActiveInterface,
                                              QStringLiteral("StateChanged"), conn->relay.data(),
                                              SLOT(relay(QDBusMessage)))) {
        delete conn->relay.data();
        return d->fail(Failed, QStringLiteral("cannot watch NetworkManager's connections: %1")
                                   .arg(QDBusConnection::systemBus().lastError().message()));
    }
    return true;
}

bool NMPlatform::networkConnectionUnscheduleFromRunLoop(const NetworkConnectionRef &ref)
{
    const auto conn = asConnection(ref);
    if (!conn || !conn->relay)
        return d->fail(InvalidArgument, QStringLiteral("connection not scheduled"));
    QDBusConnection::systemBus().disconnect(NMBus::Service, QString(), NMBus::ActiveInterface,
                                            QStringLiteral("StateChanged"), conn->relay.data(),
                                            SLOT(relay(QDBusMessage)));
    // Possibly called from inside the relay's own delivery.
    conn->relay->deleteLater();
    conn->relay = nullptr;
    return true;
}

int NMPlatform::networkConnectionGetStatus(const NetworkConnectionRef &ref)
{
    const auto conn = asConnection(ref);
    if (!conn)
        return NetworkConnectionInvalid;
    const QString path = d->activePathFor(conn->uuid);
    if (path.isEmpty())
        return NetworkConnectionDisconnected;
    const auto state = NMBus::property(path, NMBus::ActiveInterface, QStringLiteral("State"));
    return state ? statusForActiveState(state->toUInt()) : NetworkConnectionDisconnected;
}

bool NMPlatform::networkConnectionStart(const NetworkConnectionRef &ref, const QVariantMap &userOptions, bool)
{
    const auto conn = asConnection(ref);
    if (!conn)
        return d->fail(InvalidArgument, QStringLiteral("not a connection"));
    const QString settingsPath = d->settingsPath(conn->uuid);
    if (settingsPath.isEmpty())
        return d->fail(NoKey, QStringLiteral("NetworkManager has no profile %1").arg(conn->uuid));
    QString why;
    if (!d->agent.ensureRegistered(&why))
        return d->fail(AccessDenied, why);

    // The dial name goes into the in-memory profile for this start.
    const NMBus::Reply got = NMBus::call(settingsPath, NMBus::ConnectionInterface, QStringLiteral("GetSettings"));
    if (!got.ok())
        return d->fail(Failed, QStringLiteral("profile unreadable: ") + got.errorText());
    const NMSettingsMap current = NMBus::toSettings(got.first());
    const QVariantMap c = current.value(QStringLiteral("connection"));
    const QVariantMap ppp = userOptions.value(PPPoEKey::EntNetPPP).toMap();
    const NMSettingsMap settings = profileSettings(
        c.value(QStringLiteral("id")).toString(), conn->uuid, c.value(QStringLiteral("interface-name")).toString(),
        current.value(QStringLiteral("pppoe")).value(QStringLiteral("parent")).toString(),
        ppp.value(PPPoEKey::PropNetPPPAuthName).toString());
    const NMBus::Reply updated =
        NMBus::call(settingsPath, NMBus::ConnectionInterface, QStringLiteral("Update2"),
                    {QVariant::fromValue(settings),
                     uint(NMBus::SettingsFlagInMemory | NMBus::SettingsFlagBlockAutoconnect), QVariantMap()});
    if (!updated.ok())
        return d->fail(Failed, QStringLiteral("the dial name could not be set: ") + updated.errorText());

    d->agent.offer(conn->uuid, ppp.value(PPPoEKey::PropNetPPPAuthPassword).toString());
    const QDBusObjectPath none(QStringLiteral("/"));
    const NMBus::Reply activated = NMBus::call(
        NMBus::Path, NMBus::Interface, QStringLiteral("ActivateConnection"),
        {QVariant::fromValue(QDBusObjectPath(settingsPath)), QVariant::fromValue(none), QVariant::fromValue(none)});
    if (!activated.ok()) {
        d->agent.forget(conn->uuid);
        return d->fail(Failed, QStringLiteral("NetworkManager did not start the link: ") + activated.errorText());
    }
    conn->activePath = NMBus::toPath(activated.first());
    conn->lastReported = NetworkConnectionInvalid - 1;
    conn->connectTime.reset();
    conn->stopRequested = false;
    conn->end = {};
    // The first report: where the link stands now (normally connecting). Later changes come
    // from the signal; a change already reported is not reported twice.
    const auto state = NMBus::property(conn->activePath, NMBus::ActiveInterface, QStringLiteral("State"));
    const uint now = state ? state->toUInt() : uint(NMBus::ActiveActivating);
    if (now == NMBus::ActiveActivating || !state)
        d->deliver(conn, NetworkConnectionConnecting);
    else
        d->stateChanged(conn, now, 0);
    return true;
}

bool NMPlatform::networkConnectionStop(const NetworkConnectionRef &ref, bool)
{
    const auto conn = asConnection(ref);
    if (!conn)
        return d->fail(InvalidArgument, QStringLiteral("not a connection"));
    QString path = conn->activePath;
    if (path.isEmpty() || !NMBus::property(path, NMBus::ActiveInterface, QStringLiteral("State")))
        path = d->activePathFor(conn->uuid);
    if (path.isEmpty())
        return d->fail(NotActive, QStringLiteral("the link is not up"));
    conn->stopRequested = true;
    const NMBus::Reply r = NMBus::call(NMBus::Path, NMBus::Interface, QStringLiteral("DeactivateConnection"),
                                       {QVariant::fromValue(QDBusObjectPath(path))});
    if (!r.ok())
        return d->fail(Failed, QStringLiteral("NetworkManager did not stop the link: ") + r.errorText());
    return true;
}

LinkEnd NMPlatform::networkConnectionCopyEndReason(const NetworkConnectionRef &ref)
{
    const auto conn = asConnection(ref);
    return conn ? conn->end : LinkEnd{};
}

std::optional<QVariantMap> NMPlatform::networkConnectionCopyExtendedStatus(const NetworkConnectionRef &ref)
{
    const auto conn = asConnection(ref);
    if (!conn) {
        d->fail(InvalidArgument, QStringLiteral("not a connection"));
        return std::nullopt;
    }
    QString path = conn->activePath;
    auto state = path.isEmpty() ? std::nullopt : NMBus::property(path, NMBus::ActiveInterface, QStringLiteral("State"));
    if (!state) {
        path = d->activePathFor(conn->uuid);
        state = path.isEmpty() ? std::nullopt : NMBus::property(path, NMBus::ActiveInterface, QStringLiteral("State"));
    }
    const int status = state ? statusForActiveState(state->toUInt()) : NetworkConnectionDisconnected;
    QVariantMap ppp{{QStringLiteral("Status"), status}};
    QVariantMap out;
    if (status == NetworkConnectionConnected) {
        if (conn->connectTime && path == conn->activePath)
            ppp.insert(PPPoEKey::PropNetPPPConnectTime, quint32(*conn->connectTime));
        const auto ip4 = NMBus::property(path, NMBus::ActiveInterface, QStringLiteral("Ip4Config"));
        const QString ip4Path = ip4 ? NMBus::toPath(*ip4) : QString();
        if (!ip4Path.isEmpty() && ip4Path != QLatin1String("/")) {
            QStringList addresses;
            const auto data = NMBus::property(ip4Path, NMBus::IP4ConfigInterface, QStringLiteral("AddressData"));
            for (const QVariantMap &a : NMBus::toMapList(data.value_or(QVariant())))
                addresses << a.value(QStringLiteral("address")).toString();
            out.insert(PPPoEKey::EntNetIPv4, QVariantMap{{PPPoEKey::PropNetIPv4Addresses, addresses}});
        }
    }
    out.insert(PPPoEKey::EntNetPPP, ppp);
    return out;
}
