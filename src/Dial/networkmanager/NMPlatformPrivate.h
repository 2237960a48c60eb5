#pragma once

// Objects behind the handles of NMPlatform, shared by its two source files.

#include "NMBus.h"
#include "NMPlatform.h"
#include "NMSecretAgent.h"
#include "NMSignalRelay.h"

#include <QPointer>

#include <memory>
#include <vector>

namespace NMObjects {

// Error codes are the platform's; the text of the last failure is kept beside them.
using namespace PlatformStatus;

struct Authorization : PlatformObject
{
    QMap<QString, QString> permissions; // NetworkManager's GetPermissions answer
};

struct Interface : PlatformObject
{
    QString type; // PPPoEKey interface type, or "NetworkManager:<device type>"
    QString bsdName;
    QString displayName;
    QString macAddress;
    QString devicePath;
    bool managed = true;
    std::shared_ptr<Interface> child; // under a PPP interface
    std::optional<QVariantMap> config;
};

struct Prefs;

struct Service : PlatformObject
{
    bool isDevice = false; // a device of the set rather than a profile
    QString uuid;          // profile UUID (the service ID); "device:<name>" for devices
    QString name;
    bool enabled = true;
    bool inSet = false;
    bool committed = false; // exists in NetworkManager
    std::shared_ptr<Interface> iface;
    std::weak_ptr<Prefs> prefs; // the session that listed or created it
};

struct Prefs : PlatformObject
{
    PPPoEPlatform::PreferencesCallback callback;
    QPointer<NMSignalRelay> relay;
    bool locked = false;
    std::vector<std::shared_ptr<Service>> staged; // created in this session, not committed
    QStringList pendingRemovals;                  // profile UUIDs removed in this session
};

struct Set : PlatformObject
{
    std::weak_ptr<Prefs> prefs;
};

struct Store : PlatformObject
{
};

struct Connection : PlatformObject
{
    QString uuid;
    PPPoEPlatform::ConnectionCallback callback;
    QPointer<NMSignalRelay> relay; // present while scheduled
    QString activePath;            // the active connection of the last start
    int lastReported = NetworkConnectionInvalid - 1;
    std::optional<qint64> connectTime; // uptime seconds when this start's link came up
    bool stopRequested = false;        // we asked NetworkManager to take this start down
    LinkEnd end;                       // why this start's link last went down
};

// NetworkManager's settings of one PPPoE profile of ours.
NMSettingsMap profileSettings(const QString &id, const QString &uuid, const QString &interfaceName,
                              const QString &parent, const QString &username);
// The interface name of the PPP device of a profile named `name`.
QString pppInterfaceName(const QString &name);
// Platform status for an active connection state.
int statusForActiveState(uint state);
// Why a link ended, from NetworkManager's reason for deactivating its active connection
// (NMActiveConnectionStateReason), whether it had come up, and whether we asked for it.
LinkEnd linkEndFor(uint activeReason, bool wasUp, bool stopRequested);

// The handle as the object type it should be; null for any other.
template<typename T> std::shared_ptr<T> as(const std::shared_ptr<PlatformObject> &ref)
{
    return std::dynamic_pointer_cast<T>(ref);
}

} // namespace NMObjects

struct NMPlatform::Private
{
    std::shared_ptr<Clock> clock;
    NMSecretAgent agent;
    std::vector<std::weak_ptr<NMObjects::Connection>> connections;
    int lastError = NMObjects::Ok;
    QString lastErrorText;

    bool fail(int code, const QString &text);
    // The devices as interfaces, in NetworkManager's order; nullopt when unreadable.
    std::optional<std::vector<std::shared_ptr<NMObjects::Interface>>> devices();
    // The PPPoE profiles as services; nullopt when unreadable.
    std::optional<std::vector<std::shared_ptr<NMObjects::Service>>>
    profiles(const std::vector<std::shared_ptr<NMObjects::Interface>> &devices);
    // The settings object of a profile; empty when there is none.
    QString settingsPath(const QString &uuid);
    // The active connection of a profile; empty when it is not active.
    QString activePathFor(const QString &uuid);
    void stateChanged(const std::shared_ptr<NMObjects::Connection> &conn, uint state, uint reason);
    void deliver(const std::shared_ptr<NMObjects::Connection> &conn, int status);
};
