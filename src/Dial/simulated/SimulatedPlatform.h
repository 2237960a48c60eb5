#pragma once

#include "Dial/PPPoEPlatform.h"

#include "Util/Clock.h"

#include <QString>

#include <functional>
#include <memory>
#include <vector>

// One network interface of the simulated machine.
struct SimulatedInterface
{
    QString bsdName;
    QString displayName;
    QString type = PPPoEKey::InterfaceTypeEthernet; // Ethernet or IEEE80211 (other types are listed but skipped)
    QString macAddress;                             // empty: the adapter reports none
    bool active = false;                            // link (carrier / associated)
};

// Decides whether the access concentrator accepts a dial. Call `done` exactly once, from any
// thread, now or later; `reason` says why a refusal happened (it is logged, never shown).
using SimulatedAuthHook = std::function<void(const QString &dialName, const QString &password,
                                             std::function<void(bool accepted, QString reason)> done)>;

struct SimulatedConfig
{
    // The machine: "eth0" wired and up, "wlan0" wireless and down.
    std::vector<SimulatedInterface> interfaces = {
        {QStringLiteral("eth0"), QStringLiteral("以太网 (eth0)"), PPPoEKey::InterfaceTypeEthernet,
         QStringLiteral("52:54:00:12:34:56"), true},
        {QStringLiteral("wlan0"), QStringLiteral("Wi-Fi (wlan0)"), PPPoEKey::InterfaceTypeIEEE80211,
         QStringLiteral("52:54:00:ab:cd:ef"), false},
    };
    // Time from "connecting" to the authentication, and from an accepted authentication to
    // "connected"; also the time a hang-up takes.
    int stepDelayMs = 300;
    // How long each call that asks the system (opening the configuration, locking it, listing
    // its services, starting and stopping a link) blocks its caller, as a busy system service
    // or a password prompt would. 0 in normal use; set to seconds to show that callers do not
    // freeze.
    int callDelayMs = 0;
    // The local address the link gets.
    QString ipv4Address = QStringLiteral("10.64.0.2");
    // No hook: every non-empty dial name and password is accepted.
    SimulatedAuthHook authHook;
    // Source of the uptime in which the connect time is given.
    std::shared_ptr<Clock> clock = Clock::system();
};

// A machine with a network configuration and a PPPoE peer, all in memory. Behaves like the
// real platform as the PPPoE manager sees it: a service store with a lock, services on
// interfaces, a connection that goes connecting -> connected (or back to disconnected when
// the authentication is refused) with status callbacks delivered asynchronously on the
// thread that scheduled it, and timers on the thread that started it.
class SimulatedPlatform : public PPPoEPlatform
{
public:
    explicit SimulatedPlatform(SimulatedConfig config = defaultConfig());
    ~SimulatedPlatform() override;

    // What the factory's "simulated" back-end starts with; a program (the demo) may set it
    // before the dialing layer is created.
    static SimulatedConfig defaultConfig();
    static void setDefaultConfig(SimulatedConfig config);

    // Test and demo controls.
    void setAuthHook(SimulatedAuthHook hook);
    void setLinkActive(const QString &bsdName, bool active);
    // The peer ends every connected link (as a server-side termination would).
    void peerHangUp();
    // The peer ends the connected link on `bsdName`'s PPP service, if any.
    void peerHangUpOn(const QString &bsdName);
    // How many services the store holds, and how many are named `name`.
    int serviceCount() const;
    int serviceCountNamed(const QString &name) const;

    QString name() const override { return QStringLiteral("simulated"); }

    AuthorizationRef authorizationCreate(quint32 flags) override;
    PreferencesRef preferencesCreateWithAuthorization(const QString &name, const AuthorizationRef &auth) override;
    PreferencesRef preferencesCreate(const QString &name) override;
    bool preferencesSetCallback(const PreferencesRef &prefs, PreferencesCallback callback) override;
    bool preferencesScheduleWithRunLoop(const PreferencesRef &prefs) override;
    bool preferencesUnscheduleFromRunLoop(const PreferencesRef &prefs) override;
    bool preferencesLock(const PreferencesRef &prefs, bool wait) override;
    bool preferencesUnlock(const PreferencesRef &prefs) override;
    bool preferencesCommitChanges(const PreferencesRef &prefs) override;
    bool preferencesApplyChanges(const PreferencesRef &prefs) override;
    void preferencesSynchronize(const PreferencesRef &prefs) override;

    NetworkSetRef networkSetCopyCurrent(const PreferencesRef &prefs) override;
    std::optional<std::vector<NetworkServiceRef>> networkSetCopyServices(const NetworkSetRef &set) override;
    bool networkSetAddService(const NetworkSetRef &set, const NetworkServiceRef &service) override;

    NetworkServiceRef networkServiceCreate(const PreferencesRef &prefs, const NetworkInterfaceRef &iface) override;
    NetworkInterfaceRef networkServiceGetInterface(const NetworkServiceRef &service) override;
    QString networkServiceGetName(const NetworkServiceRef &service) override;
    bool networkServiceSetName(const NetworkServiceRef &service, const QString &name) override;
    bool networkServiceGetEnabled(const NetworkServiceRef &service) override;
    bool networkServiceSetEnabled(const NetworkServiceRef &service, bool enabled) override;
    bool networkServiceRemove(const NetworkServiceRef &service) override;
    bool networkServiceEstablishDefaultConfiguration(const NetworkServiceRef &service) override;
    QString networkServiceGetServiceID(const NetworkServiceRef &service) override;

    QString networkInterfaceGetInterfaceType(const NetworkInterfaceRef &iface) override;
    QString networkInterfaceGetLocalizedDisplayName(const NetworkInterfaceRef &iface) override;
    QString networkInterfaceGetBSDName(const NetworkInterfaceRef &iface) override;
    QString networkInterfaceGetHardwareAddressString(const NetworkInterfaceRef &iface) override;
    NetworkInterfaceRef networkInterfaceGetInterface(const NetworkInterfaceRef &iface) override;
    NetworkInterfaceRef networkInterfaceCreateWithInterface(const NetworkInterfaceRef &child,
                                                            const QString &interfaceType) override;
    std::optional<QVariantMap> networkInterfaceGetConfiguration(const NetworkInterfaceRef &iface) override;
    bool networkInterfaceSetConfiguration(const NetworkInterfaceRef &iface, const QVariantMap &config) override;

    NetworkConnectionRef networkConnectionCreateWithServiceID(const QString &serviceID,
                                                              ConnectionCallback callback) override;
    bool networkConnectionScheduleWithRunLoop(const NetworkConnectionRef &connection) override;
    bool networkConnectionUnscheduleFromRunLoop(const NetworkConnectionRef &connection) override;
    int networkConnectionGetStatus(const NetworkConnectionRef &connection) override;
    bool networkConnectionStart(const NetworkConnectionRef &connection, const QVariantMap &userOptions,
                                bool linger) override;
    bool networkConnectionStop(const NetworkConnectionRef &connection, bool forceDisconnect) override;
    std::optional<QVariantMap> networkConnectionCopyExtendedStatus(const NetworkConnectionRef &connection) override;
    LinkEnd networkConnectionCopyEndReason(const NetworkConnectionRef &connection) override;

    DynamicStoreRef dynamicStoreCreate(const QString &name) override;
    std::optional<QVariantMap> dynamicStoreCopyValue(const DynamicStoreRef &store, const QString &key) override;

    int scError() override;
    QString scErrorString(int code) override;
    qint64 systemUptimeSeconds() override;

    struct State;

private:
    std::shared_ptr<State> _state;
};
