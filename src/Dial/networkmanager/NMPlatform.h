#pragma once

#include "Dial/PPPoEPlatform.h"

#include "Util/Clock.h"

#include <memory>

// The network configuration of a Linux desktop, through NetworkManager's D-Bus API on the
// system bus:
// - the current set's services are NetworkManager's devices (wired and wireless ones become
//   Ethernet and Wi-Fi interfaces) followed by its PPPoE profiles;
// - our service is a PPPoE profile (connection.id "dorvik", pppoe.parent = the chosen
//   interface) kept in NetworkManager's memory only, never autoconnected; changes made in a
//   preferences session reach NetworkManager when the session commits;
// - a start puts the dial name into the in-memory profile and hands the password to
//   NetworkManager through our secret agent when it asks (the profile says the password is
//   not saved), so neither ever lands in a profile file; the password is forgotten once the
//   link is up or the attempt is over;
// - the connection status follows the active connection's StateChanged signal; the connect
//   time is taken on the monotonic clock when the link comes up.
class NMPlatform : public PPPoEPlatform
{
public:
    explicit NMPlatform(std::shared_ptr<Clock> clock = Clock::system());
    ~NMPlatform() override;

    QString name() const override { return QStringLiteral("networkmanager"); }

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

    struct Private;

private:
    std::unique_ptr<Private> d;
};
