#pragma once

#include <QString>
#include <QVariantMap>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

// The operations of the system network configuration that the PPPoE manager needs: network
// preferences opened as a session with a system-wide lock, network sets holding services,
// services on interfaces (a PPP interface layered on a wired or wireless one), connection
// objects that start, stop and report their status, a store of link states, an authorization
// for changing the configuration, and the system uptime. Each method is one step of the dial
// procedure, named after what it does to those objects. The manager's logic is written once
// against this interface; a back-end supplies the operations (NetworkManager over D-Bus, an
// in-memory simulation for the demo and for tests).
//
// Handles are opaque: each back-end derives its own objects from PlatformObject and casts
// them back. A null handle stands for the platform's NULL.
//
// Threads: "schedule on the run loop" means "deliver callbacks on the thread that scheduled",
// through that thread's Qt event loop. A back-end never calls back after it is destroyed.

class PlatformObject
{
public:
    virtual ~PlatformObject() = default;
};

using AuthorizationRef = std::shared_ptr<PlatformObject>;
using PreferencesRef = std::shared_ptr<PlatformObject>;
using NetworkSetRef = std::shared_ptr<PlatformObject>;
using NetworkServiceRef = std::shared_ptr<PlatformObject>;
using NetworkInterfaceRef = std::shared_ptr<PlatformObject>;
using NetworkConnectionRef = std::shared_ptr<PlatformObject>;
using DynamicStoreRef = std::shared_ptr<PlatformObject>;

// Names of interface types and of the keys of configuration and status dictionaries.
namespace PPPoEKey {
inline const QString InterfaceTypeEthernet = QStringLiteral("Ethernet");
inline const QString InterfaceTypeIEEE80211 = QStringLiteral("IEEE80211");
inline const QString InterfaceTypePPP = QStringLiteral("PPP");

inline const QString EntNetPPP = QStringLiteral("PPP");
inline const QString EntNetIPv4 = QStringLiteral("IPv4");
inline const QString PropNetPPPAuthName = QStringLiteral("AuthName");
inline const QString PropNetPPPAuthPassword = QStringLiteral("AuthPassword");
inline const QString PropNetPPPCommRemoteAddress = QStringLiteral("CommRemoteAddress");
inline const QString PropNetPPPConnectTime = QStringLiteral("ConnectTime");
inline const QString PropNetIPv4Addresses = QStringLiteral("Addresses");
// Entry of a link-state value in the dynamic store.
inline const QString LinkActive = QStringLiteral("Active");
} // namespace PPPoEKey

// Status of a network connection as the platform reports it.
enum NetworkConnectionStatus : int {
    NetworkConnectionInvalid = -1,
    NetworkConnectionDisconnected = 0,
    NetworkConnectionConnecting = 1,
    NetworkConnectionConnected = 2,
    NetworkConnectionDisconnecting = 3,
};

// Codes a back-end reports through scError(), numbered as the system configuration framework
// numbers its own, so that every back-end speaks the same codes.
namespace PlatformStatus {
enum : int {
    Ok = 0,
    Failed = 1001,
    InvalidArgument = 1002,
    AccessDenied = 1003,
    NoKey = 1004,
    Locked = 1005,
    NeedLock = 1006,
    NotActive = 1007, // no connection, or the link is not up
    NotRunning = 1008,
};
} // namespace PlatformStatus

// Why a link went down, as far as the back-end can tell. A link the peer or the line ended
// after it was up (carrier lost, the access concentrator hung up, LCP echo requests went
// unanswered) is "dropped"; one whose log-in the access server turned down is "refused"; one
// that never came up for another reason "failed".
enum class LinkEndCause { Unknown, UserRequested, Refused, Dropped, Failed };

struct LinkEnd
{
    LinkEndCause cause = LinkEndCause::Unknown;
    QString detail; // the back-end's own words (English, for logs and diagnostics)
};

// "unknown", "user", "refused", "dropped", "failed".
QString linkEndCauseName(LinkEndCause cause);

// Flags of authorizationCreate (interaction allowed | extend rights | pre-authorize).
enum : quint32 { AuthorizationFlagsDialDefault = 19 };

class PPPoEPlatform
{
public:
    // Called for every status change of a scheduled connection.
    using ConnectionCallback = std::function<void(const NetworkConnectionRef &connection, int status)>;
    // Called when the stored network configuration changed (notification type as the
    // platform gives it).
    using PreferencesCallback = std::function<void(const PreferencesRef &prefs, quint32 notificationType)>;

    virtual ~PPPoEPlatform() = default;

    // The back-end's name ("networkmanager", "simulated", ...), for logs.
    virtual QString name() const = 0;

    // --- Authorization ---
    virtual AuthorizationRef authorizationCreate(quint32 flags) = 0;

    // --- Preferences session ---
    virtual PreferencesRef preferencesCreateWithAuthorization(const QString &name, const AuthorizationRef &auth) = 0;
    virtual PreferencesRef preferencesCreate(const QString &name) = 0;
    virtual bool preferencesSetCallback(const PreferencesRef &prefs, PreferencesCallback callback) = 0;
    virtual bool preferencesScheduleWithRunLoop(const PreferencesRef &prefs) = 0;
    virtual bool preferencesUnscheduleFromRunLoop(const PreferencesRef &prefs) = 0;
    virtual bool preferencesLock(const PreferencesRef &prefs, bool wait) = 0;
    virtual bool preferencesUnlock(const PreferencesRef &prefs) = 0;
    virtual bool preferencesCommitChanges(const PreferencesRef &prefs) = 0;
    virtual bool preferencesApplyChanges(const PreferencesRef &prefs) = 0;
    virtual void preferencesSynchronize(const PreferencesRef &prefs) = 0;

    // --- Network sets ---
    virtual NetworkSetRef networkSetCopyCurrent(const PreferencesRef &prefs) = 0;
    // The set's services in the set's order; nullopt when they cannot be read.
    virtual std::optional<std::vector<NetworkServiceRef>> networkSetCopyServices(const NetworkSetRef &set) = 0;
    virtual bool networkSetAddService(const NetworkSetRef &set, const NetworkServiceRef &service) = 0;

    // --- Services ---
    virtual NetworkServiceRef networkServiceCreate(const PreferencesRef &prefs, const NetworkInterfaceRef &iface) = 0;
    virtual NetworkInterfaceRef networkServiceGetInterface(const NetworkServiceRef &service) = 0;
    // A null string when the service has no name.
    virtual QString networkServiceGetName(const NetworkServiceRef &service) = 0;
    virtual bool networkServiceSetName(const NetworkServiceRef &service, const QString &name) = 0;
    virtual bool networkServiceGetEnabled(const NetworkServiceRef &service) = 0;
    virtual bool networkServiceSetEnabled(const NetworkServiceRef &service, bool enabled) = 0;
    virtual bool networkServiceRemove(const NetworkServiceRef &service) = 0;
    virtual bool networkServiceEstablishDefaultConfiguration(const NetworkServiceRef &service) = 0;
    // A null string when the service has no ID.
    virtual QString networkServiceGetServiceID(const NetworkServiceRef &service) = 0;

    // --- Interfaces ---
    virtual QString networkInterfaceGetInterfaceType(const NetworkInterfaceRef &iface) = 0;
    virtual QString networkInterfaceGetLocalizedDisplayName(const NetworkInterfaceRef &iface) = 0;
    virtual QString networkInterfaceGetBSDName(const NetworkInterfaceRef &iface) = 0;
    virtual QString networkInterfaceGetHardwareAddressString(const NetworkInterfaceRef &iface) = 0;
    // The interface under a layered one (the Ethernet under a PPP interface).
    virtual NetworkInterfaceRef networkInterfaceGetInterface(const NetworkInterfaceRef &iface) = 0;
    virtual NetworkInterfaceRef networkInterfaceCreateWithInterface(const NetworkInterfaceRef &child,
                                                                    const QString &interfaceType) = 0;
    virtual std::optional<QVariantMap> networkInterfaceGetConfiguration(const NetworkInterfaceRef &iface) = 0;
    virtual bool networkInterfaceSetConfiguration(const NetworkInterfaceRef &iface, const QVariantMap &config) = 0;

    // --- Connections ---
    virtual NetworkConnectionRef networkConnectionCreateWithServiceID(const QString &serviceID,
                                                                      ConnectionCallback callback) = 0;
    virtual bool networkConnectionScheduleWithRunLoop(const NetworkConnectionRef &connection) = 0;
    virtual bool networkConnectionUnscheduleFromRunLoop(const NetworkConnectionRef &connection) = 0;
    virtual int networkConnectionGetStatus(const NetworkConnectionRef &connection) = 0;
    // The options carry the credentials; a back-end hands them to the system for this start
    // only and never stores or logs them.
    virtual bool networkConnectionStart(const NetworkConnectionRef &connection, const QVariantMap &userOptions,
                                        bool linger) = 0;
    virtual bool networkConnectionStop(const NetworkConnectionRef &connection, bool forceDisconnect) = 0;
    virtual std::optional<QVariantMap> networkConnectionCopyExtendedStatus(const NetworkConnectionRef &connection) = 0;
    // Why the connection's link last went down; asked when it reports "disconnected". A back-end
    // that cannot tell answers Unknown.
    virtual LinkEnd networkConnectionCopyEndReason(const NetworkConnectionRef &connection)
    {
        (void)connection;
        return {};
    }

    // --- Link-state store ---
    virtual DynamicStoreRef dynamicStoreCreate(const QString &name) = 0;
    virtual std::optional<QVariantMap> dynamicStoreCopyValue(const DynamicStoreRef &store, const QString &key) = 0;

    // --- Errors of the last failed call on this thread ---
    virtual int scError() = 0;
    virtual QString scErrorString(int code) = 0;

    // --- Whole seconds since boot on the clock the connect time is given in ---
    virtual qint64 systemUptimeSeconds() = 0;
};
