#pragma once

#include "Dial/simulated/SimulatedPlatform.h"

#include <QSet>
#include <QStringList>

// The simulated machine, recording by name every call that changes the system configuration
// or a connection. A call whose name is in `failing` fails without reaching the machine, with
// error 1001 ("Failed!"); `forcedStatus` makes every connection report that status.
class RecordingPlatform : public SimulatedPlatform
{
    using Base = SimulatedPlatform;

public:
    using Base::Base;

    QStringList calls;
    QSet<QString> failing;
    std::optional<int> forcedStatus;
    QVariantMap lastStartOptions;

    // An existing PPP service `name` over the device `bsd`, made as a user would have made it.
    void addPPPService(const QString &name, const QString &bsd, bool enabled)
    {
        const auto prefs = Base::preferencesCreate({});
        const auto set = Base::networkSetCopyCurrent(prefs);
        const auto devices = Base::networkSetCopyServices(set).value();
        for (const auto &device : devices) {
            const auto iface = Base::networkServiceGetInterface(device);
            if (Base::networkInterfaceGetBSDName(iface) != bsd)
                continue;
            const auto service = Base::networkServiceCreate(
                prefs, Base::networkInterfaceCreateWithInterface(iface, PPPoEKey::InterfaceTypePPP));
            Base::networkServiceSetName(service, name);
            Base::networkServiceSetEnabled(service, enabled);
            Base::networkSetAddService(set, service);
            return;
        }
    }
    // The services of the current set named `name`.
    std::vector<NetworkServiceRef> servicesNamed(const QString &name)
    {
        std::vector<NetworkServiceRef> out;
        const auto all = Base::networkSetCopyServices(Base::networkSetCopyCurrent(Base::preferencesCreate({}))).value();
        for (const auto &s : all)
            if (Base::networkServiceGetName(s) == name)
                out.push_back(s);
        return out;
    }
    QString parentOf(const NetworkServiceRef &s)
    {
        return Base::networkInterfaceGetBSDName(Base::networkInterfaceGetInterface(networkServiceGetInterface(s)));
    }
    QString name() const override { return QStringLiteral("recording"); }

    PreferencesRef preferencesCreate(const QString &n) override
    {
        return rec(u"preferencesCreate") ? Base::preferencesCreate(n) : nullptr;
    }
    bool preferencesLock(const PreferencesRef &p, bool w) override
    {
        return rec(u"preferencesLock") && Base::preferencesLock(p, w);
    }
    bool preferencesUnlock(const PreferencesRef &p) override
    {
        return rec(u"preferencesUnlock") && Base::preferencesUnlock(p);
    }
    bool preferencesCommitChanges(const PreferencesRef &p) override
    {
        return rec(u"commit") && Base::preferencesCommitChanges(p);
    }
    bool preferencesApplyChanges(const PreferencesRef &p) override
    {
        return rec(u"apply") && Base::preferencesApplyChanges(p);
    }
    NetworkSetRef networkSetCopyCurrent(const PreferencesRef &p) override
    {
        return rec(u"networkSetCopyCurrent") ? Base::networkSetCopyCurrent(p) : nullptr;
    }
    std::optional<std::vector<NetworkServiceRef>> networkSetCopyServices(const NetworkSetRef &s) override
    {
        return rec(u"networkSetCopyServices") ? Base::networkSetCopyServices(s) : std::nullopt;
    }
    bool networkSetAddService(const NetworkSetRef &set, const NetworkServiceRef &s) override
    {
        return rec(u"networkSetAddService") && Base::networkSetAddService(set, s);
    }
    NetworkServiceRef networkServiceCreate(const PreferencesRef &p, const NetworkInterfaceRef &i) override
    {
        return rec(u"networkServiceCreate") ? Base::networkServiceCreate(p, i) : nullptr;
    }
    bool networkServiceSetName(const NetworkServiceRef &s, const QString &n) override
    {
        return rec(u"networkServiceSetName") && Base::networkServiceSetName(s, n);
    }
    bool networkServiceSetEnabled(const NetworkServiceRef &s, bool e) override
    {
        return rec(u"networkServiceSetEnabled") && Base::networkServiceSetEnabled(s, e);
    }
    bool networkServiceRemove(const NetworkServiceRef &s) override
    {
        return rec(u"networkServiceRemove") && Base::networkServiceRemove(s);
    }
    NetworkInterfaceRef networkInterfaceCreateWithInterface(const NetworkInterfaceRef &c, const QString &t) override
    {
        return rec(u"networkInterfaceCreateWithInterface") ? Base::networkInterfaceCreateWithInterface(c, t) : nullptr;
    }
    bool networkInterfaceSetConfiguration(const NetworkInterfaceRef &i, const QVariantMap &c) override
    {
        return rec(u"networkInterfaceSetConfiguration") && Base::networkInterfaceSetConfiguration(i, c);
    }
    NetworkConnectionRef networkConnectionCreateWithServiceID(const QString &id, ConnectionCallback cb) override
    {
        return rec(u"networkConnectionCreateWithServiceID") ? Base::networkConnectionCreateWithServiceID(id, cb)
                                                            : nullptr;
    }
    bool networkConnectionScheduleWithRunLoop(const NetworkConnectionRef &c) override
    {
        return rec(u"networkConnectionScheduleWithRunLoop") && Base::networkConnectionScheduleWithRunLoop(c);
    }
    bool networkConnectionUnscheduleFromRunLoop(const NetworkConnectionRef &c) override
    {
        return rec(u"networkConnectionUnscheduleFromRunLoop") && Base::networkConnectionUnscheduleFromRunLoop(c);
    }
    int networkConnectionGetStatus(const NetworkConnectionRef &c) override
    {
        return forcedStatus.value_or(Base::networkConnectionGetStatus(c));
    }
    bool networkConnectionStart(const NetworkConnectionRef &c, const QVariantMap &options, bool linger) override
    {
        lastStartOptions = options;
        return rec(u"networkConnectionStart") && Base::networkConnectionStart(c, options, linger);
    }
    bool networkConnectionStop(const NetworkConnectionRef &c, bool force) override
    {
        return rec(u"networkConnectionStop") && Base::networkConnectionStop(c, force);
    }
    int scError() override { return _injected ? PlatformStatus::Failed : Base::scError(); }

private:
    bool rec(QStringView call)
    {
        calls << call.toString();
        _injected = failing.contains(calls.last());
        return !_injected;
    }
    bool _injected = false;
};
