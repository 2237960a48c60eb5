#pragma once

#include "Dial/PPPoEPlatform.h"

#include <QSet>
#include <QStringList>

#include <algorithm>
#include <memory>
#include <vector>

// A platform whose state the test sets up directly and which records every call by name.
// The kernel here has no PPP, so the manager's logic runs against this instead of a real
// system configuration. It behaves as the system does where the manager can tell: a lock
// that one session cannot take twice, services that carry a name, an enabled flag and an
// interface, connections that keep their start options.
// A call whose name is in `failing` fails (with error 1001).
class RecordingPlatform : public PPPoEPlatform
{
public:
    struct Iface : PlatformObject
    {
        QString type, bsd, display, mac;
        std::shared_ptr<Iface> child;
        std::optional<QVariantMap> config;
    };
    struct Service : PlatformObject
    {
        QString name, id;
        bool enabled = true;
        std::shared_ptr<Iface> iface;
    };
    struct Conn : PlatformObject
    {
        ConnectionCallback callback;
        bool scheduled = false;
        int status = NetworkConnectionDisconnected;
        QVariantMap startOptions;
    };

    QStringList calls;
    QSet<QString> failing;
    std::vector<std::shared_ptr<Service>> setServices;
    QMap<QString, bool> links;
    std::vector<std::shared_ptr<Conn>> conns;
    int initialStatus = NetworkConnectionDisconnected;
    bool locked = false;
    int lastError = 0;
    int nextId = 1;

    // A network device with its own service in the set, and its link state.
    std::shared_ptr<Iface> addDevice(const QString &type, const QString &bsd, const QString &display,
                                     const QString &mac, bool active)
    {
        auto i = std::make_shared<Iface>();
        i->type = type;
        i->bsd = bsd;
        i->display = display;
        i->mac = mac;
        auto s = std::make_shared<Service>();
        s->name = display;
        s->id = QStringLiteral("dev-") + bsd;
        s->iface = i;
        setServices.push_back(s);
        links.insert(bsd, active);
        return i;
    }
    // An existing PPP service named `name` over `under`.
    std::shared_ptr<Service> addPPPService(const QString &name, const std::shared_ptr<Iface> &under, bool enabled)
    {
        auto ppp = std::make_shared<Iface>();
        ppp->type = PPPoEKey::InterfaceTypePPP;
        ppp->child = under;
        auto s = std::make_shared<Service>();
        s->name = name;
        s->id = QStringLiteral("svc-%1").arg(nextId++);
        s->enabled = enabled;
        s->iface = ppp;
        setServices.push_back(s);
        return s;
    }
    std::vector<std::shared_ptr<Service>> servicesNamed(const QString &name) const
    {
        std::vector<std::shared_ptr<Service>> out;
        std::copy_if(setServices.begin(), setServices.end(), std::back_inserter(out),
                     [&](const auto &s) { return s->name == name; });
        return out;
    }
    QString name() const override { return QStringLiteral("recording"); }

    AuthorizationRef authorizationCreate(quint32) override { return made(u"authorizationCreate"); }
    PreferencesRef preferencesCreateWithAuthorization(const QString &, const AuthorizationRef &) override
    {
        return made(u"preferencesCreateWithAuthorization");
    }
    PreferencesRef preferencesCreate(const QString &) override { return made(u"preferencesCreate"); }
    bool preferencesSetCallback(const PreferencesRef &, PreferencesCallback) override
    {
        return rec(u"preferencesSetCallback");
    }
    bool preferencesScheduleWithRunLoop(const PreferencesRef &) override
    {
        return rec(u"preferencesScheduleWithRunLoop");
    }
    bool preferencesUnscheduleFromRunLoop(const PreferencesRef &) override
    {
        return rec(u"preferencesUnscheduleFromRunLoop");
    }
    bool preferencesLock(const PreferencesRef &, bool) override
    {
        return rec(u"preferencesLock") && !locked ? (locked = true) : fail();
    }
    bool preferencesUnlock(const PreferencesRef &) override
    {
        return rec(u"preferencesUnlock") && locked ? !(locked = false) : fail();
    }
    bool preferencesCommitChanges(const PreferencesRef &) override { return rec(u"commit"); }
    bool preferencesApplyChanges(const PreferencesRef &) override { return rec(u"apply"); }
    void preferencesSynchronize(const PreferencesRef &) override { rec(u"synchronize"); }

    NetworkSetRef networkSetCopyCurrent(const PreferencesRef &) override { return made(u"networkSetCopyCurrent"); }
    std::optional<std::vector<NetworkServiceRef>> networkSetCopyServices(const NetworkSetRef &) override
    {
        if (!rec(u"networkSetCopyServices"))
            return std::nullopt;
        return std::vector<NetworkServiceRef>(setServices.begin(), setServices.end());
    }
    bool networkSetAddService(const NetworkSetRef &, const NetworkServiceRef &s) override
    {
        return rec(u"networkSetAddService") ? (setServices.push_back(svc(s)), true) : fail();
    }

    NetworkServiceRef networkServiceCreate(const PreferencesRef &, const NetworkInterfaceRef &iface) override
    {
        if (!rec(u"networkServiceCreate"))
            return nullptr;
        auto s = std::make_shared<Service>();
        s->id = QStringLiteral("svc-%1").arg(nextId++);
        s->iface = ifc(iface);
        return s;
    }
    NetworkInterfaceRef networkServiceGetInterface(const NetworkServiceRef &s) override { return svc(s)->iface; }
    QString networkServiceGetName(const NetworkServiceRef &s) override { return svc(s)->name; }
    bool networkServiceSetName(const NetworkServiceRef &s, const QString &name) override
    {
        return rec(u"networkServiceSetName") ? (svc(s)->name = name, true) : fail();
    }
    bool networkServiceGetEnabled(const NetworkServiceRef &s) override { return svc(s)->enabled; }
    bool networkServiceSetEnabled(const NetworkServiceRef &s, bool enabled) override
    {
        return rec(u"networkServiceSetEnabled") ? (svc(s)->enabled = enabled, true) : fail();
    }
    bool networkServiceRemove(const NetworkServiceRef &s) override
    {
        if (!rec(u"networkServiceRemove"))
            return fail();
        setServices.erase(std::remove(setServices.begin(), setServices.end(), svc(s)), setServices.end());
        return true;
    }
    bool networkServiceEstablishDefaultConfiguration(const NetworkServiceRef &) override
    {
        return rec(u"networkServiceEstablishDefaultConfiguration");
    }
    QString networkServiceGetServiceID(const NetworkServiceRef &s) override { return svc(s)->id; }

    QString networkInterfaceGetInterfaceType(const NetworkInterfaceRef &i) override { return ifc(i)->type; }
    QString networkInterfaceGetLocalizedDisplayName(const NetworkInterfaceRef &i) override { return ifc(i)->display; }
    QString networkInterfaceGetBSDName(const NetworkInterfaceRef &i) override { return ifc(i)->bsd; }
    QString networkInterfaceGetHardwareAddressString(const NetworkInterfaceRef &i) override { return ifc(i)->mac; }
    NetworkInterfaceRef networkInterfaceGetInterface(const NetworkInterfaceRef &i) override { return ifc(i)->child; }
    NetworkInterfaceRef networkInterfaceCreateWithInterface(const NetworkInterfaceRef &child,
                                                            const QString &type) override
    {
        if (!rec(u"networkInterfaceCreateWithInterface"))
            return nullptr;
        auto i = std::make_shared<Iface>();
        i->type = type;
        i->child = ifc(child);
        return i;
    }
    std::optional<QVariantMap> networkInterfaceGetConfiguration(const NetworkInterfaceRef &i) override
    {
        return ifc(i)->config;
    }
    bool networkInterfaceSetConfiguration(const NetworkInterfaceRef &i, const QVariantMap &config) override
    {
        return rec(u"networkInterfaceSetConfiguration") ? (ifc(i)->config = config, true) : fail();
    }

    NetworkConnectionRef networkConnectionCreateWithServiceID(const QString &, ConnectionCallback cb) override
    {
        if (!rec(u"networkConnectionCreateWithServiceID"))
            return nullptr;
        auto c = std::make_shared<Conn>();
        c->callback = std::move(cb);
        c->status = initialStatus;
        conns.push_back(c);
        return c;
    }
    bool networkConnectionScheduleWithRunLoop(const NetworkConnectionRef &c) override
    {
        return rec(u"networkConnectionScheduleWithRunLoop") ? (con(c)->scheduled = true) : fail();
    }
    bool networkConnectionUnscheduleFromRunLoop(const NetworkConnectionRef &c) override
    {
        rec(u"networkConnectionUnscheduleFromRunLoop");
        return !(con(c)->scheduled = false);
    }
    int networkConnectionGetStatus(const NetworkConnectionRef &c) override { return con(c)->status; }
    bool networkConnectionStart(const NetworkConnectionRef &c, const QVariantMap &options, bool) override
    {
        return rec(u"networkConnectionStart") ? (con(c)->startOptions = options, true) : fail();
    }
    bool networkConnectionStop(const NetworkConnectionRef &, bool) override
    {
        return rec(u"networkConnectionStop") || fail();
    }
    std::optional<QVariantMap> networkConnectionCopyExtendedStatus(const NetworkConnectionRef &) override
    {
        return std::nullopt;
    }

    DynamicStoreRef dynamicStoreCreate(const QString &) override { return std::make_shared<PlatformObject>(); }
    std::optional<QVariantMap> dynamicStoreCopyValue(const DynamicStoreRef &, const QString &key) override
    {
        for (auto it = links.cbegin(); it != links.cend(); ++it) {
            if (key == QStringLiteral("State:/Network/Interface/%1/Link").arg(it.key()))
                return QVariantMap{{PPPoEKey::LinkActive, it.value()}};
        }
        return std::nullopt;
    }
    int scError() override { return lastError; }
    QString scErrorString(int code) override { return code == 1001 ? QStringLiteral("Failed!") : QStringLiteral("?"); }
    qint64 systemUptimeSeconds() override { return 0; }

private:
    bool rec(QStringView call)
    {
        calls << call.toString();
        return failing.contains(call.toString()) ? fail() : true;
    }
    std::shared_ptr<PlatformObject> made(QStringView call)
    {
        return rec(call) ? std::make_shared<PlatformObject>() : nullptr;
    }
    bool fail()
    {
        lastError = 1001;
        return false;
    }
    static std::shared_ptr<Service> svc(const NetworkServiceRef &s) { return std::static_pointer_cast<Service>(s); }
    static std::shared_ptr<Iface> ifc(const NetworkInterfaceRef &i) { return std::static_pointer_cast<Iface>(i); }
    static std::shared_ptr<Conn> con(const NetworkConnectionRef &c) { return std::static_pointer_cast<Conn>(c); }
};
