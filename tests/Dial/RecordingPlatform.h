#pragma once

#include "Dial/PPPoEPlatform.h"

#include <QMetaObject>
#include <QObject>
#include <QSet>
#include <QStringList>

#include <algorithm>
#include <memory>
#include <vector>

// A platform whose state the test sets up directly and which records every call by name.
// It behaves as the system configuration does where the manager can tell: a lock that one
// session cannot take twice, services that carry a name, an enabled flag and an interface,
// status callbacks delivered later on the thread's event loop and only while scheduled.
// A call whose name is in `failing` fails (with SCError 1001).
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
        QString serviceID;
        ConnectionCallback callback;
        bool scheduled = false;
        int status = NetworkConnectionDisconnected;
        std::optional<QVariantMap> extended;
        QVariantMap startOptions;
    };

    QStringList calls;
    QSet<QString> failing;
    std::vector<std::shared_ptr<Service>> setServices;
    QMap<QString, bool> links;
    std::vector<std::shared_ptr<Conn>> conns;
    int initialStatus = NetworkConnectionDisconnected;
    qint64 uptime = 0;
    bool locked = false;
    int lastError = 0;
    int nextId = 1;

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
    // Reports a status change the way the system does: later, on the event loop.
    void report(const std::shared_ptr<Conn> &c, int status)
    {
        c->status = status;
        QMetaObject::invokeMethod(
            &_host,
            [c, status] {
                if (c->scheduled && c->callback)
                    c->callback(c, status);
            },
            Qt::QueuedConnection);
    }

    QString name() const override { return QStringLiteral("recording"); }

    AuthorizationRef authorizationCreate(quint32) override
    {
        return rec(QStringLiteral("authorizationCreate")) ? std::make_shared<PlatformObject>() : nullptr;
    }
    PreferencesRef preferencesCreateWithAuthorization(const QString &, const AuthorizationRef &) override
    {
        return rec(QStringLiteral("preferencesCreateWithAuthorization")) ? std::make_shared<PlatformObject>() : nullptr;
    }
    PreferencesRef preferencesCreate(const QString &) override
    {
        return rec(QStringLiteral("preferencesCreate")) ? std::make_shared<PlatformObject>() : nullptr;
    }
    bool preferencesSetCallback(const PreferencesRef &, PreferencesCallback) override
    {
        return rec(QStringLiteral("preferencesSetCallback"));
    }
    bool preferencesScheduleWithRunLoop(const PreferencesRef &) override
    {
        return rec(QStringLiteral("preferencesScheduleWithRunLoop"));
    }
    bool preferencesUnscheduleFromRunLoop(const PreferencesRef &) override
    {
        return rec(QStringLiteral("preferencesUnscheduleFromRunLoop"));
    }
    bool preferencesLock(const PreferencesRef &, bool) override
    {
        if (!rec(QStringLiteral("preferencesLock")) || locked)
            return fail();
        locked = true;
        return true;
    }
    bool preferencesUnlock(const PreferencesRef &) override
    {
        if (!rec(QStringLiteral("preferencesUnlock")) || !locked)
            return fail();
        locked = false;
        return true;
    }
    bool preferencesCommitChanges(const PreferencesRef &) override { return rec(QStringLiteral("commit")); }
    bool preferencesApplyChanges(const PreferencesRef &) override { return rec(QStringLiteral("apply")); }
    void preferencesSynchronize(const PreferencesRef &) override { rec(QStringLiteral("synchronize")); }

    NetworkSetRef networkSetCopyCurrent(const PreferencesRef &) override
    {
        return rec(QStringLiteral("networkSetCopyCurrent")) ? std::make_shared<PlatformObject>() : nullptr;
    }
    std::optional<std::vector<NetworkServiceRef>> networkSetCopyServices(const NetworkSetRef &) override
    {
        if (!rec(QStringLiteral("networkSetCopyServices")))
            return std::nullopt;
        return std::vector<NetworkServiceRef>(setServices.begin(), setServices.end());
    }
    bool networkSetAddService(const NetworkSetRef &, const NetworkServiceRef &service) override
    {
        if (!rec(QStringLiteral("networkSetAddService")))
            return fail();
        setServices.push_back(std::static_pointer_cast<Service>(service));
        return true;
    }

    NetworkServiceRef networkServiceCreate(const PreferencesRef &, const NetworkInterfaceRef &iface) override
    {
        if (!rec(QStringLiteral("networkServiceCreate")))
            return nullptr;
        auto s = std::make_shared<Service>();
        s->id = QStringLiteral("svc-%1").arg(nextId++);
        s->iface = std::static_pointer_cast<Iface>(iface);
        return s;
    }
    NetworkInterfaceRef networkServiceGetInterface(const NetworkServiceRef &s) override { return svc(s)->iface; }
    QString networkServiceGetName(const NetworkServiceRef &s) override { return svc(s)->name; }
    bool networkServiceSetName(const NetworkServiceRef &s, const QString &name) override
    {
        if (!rec(QStringLiteral("networkServiceSetName")))
            return fail();
        svc(s)->name = name;
        return true;
    }
    bool networkServiceGetEnabled(const NetworkServiceRef &s) override { return svc(s)->enabled; }
    bool networkServiceSetEnabled(const NetworkServiceRef &s, bool enabled) override
    {
        if (!rec(QStringLiteral("networkServiceSetEnabled")))
            return fail();
        svc(s)->enabled = enabled;
        return true;
    }
    bool networkServiceRemove(const NetworkServiceRef &s) override
    {
        if (!rec(QStringLiteral("networkServiceRemove")))
            return fail();
        setServices.erase(std::remove(setServices.begin(), setServices.end(), svc(s)), setServices.end());
        return true;
    }
    bool networkServiceEstablishDefaultConfiguration(const NetworkServiceRef &) override
    {
        return rec(QStringLiteral("networkServiceEstablishDefaultConfiguration"));
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
        if (!rec(QStringLiteral("networkInterfaceCreateWithInterface")))
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
        if (!rec(QStringLiteral("networkInterfaceSetConfiguration")))
            return fail();
        ifc(i)->config = config;
        return true;
    }

    NetworkConnectionRef networkConnectionCreateWithServiceID(const QString &id, ConnectionCallback cb) override
    {
        if (!rec(QStringLiteral("networkConnectionCreateWithServiceID")))
            return nullptr;
        auto c = std::make_shared<Conn>();
        c->serviceID = id;
        c->callback = std::move(cb);
        c->status = initialStatus;
        conns.push_back(c);
        return c;
    }
    bool networkConnectionScheduleWithRunLoop(const NetworkConnectionRef &c) override
    {
        if (!rec(QStringLiteral("networkConnectionScheduleWithRunLoop")))
            return fail();
        con(c)->scheduled = true;
        return true;
    }
    bool networkConnectionUnscheduleFromRunLoop(const NetworkConnectionRef &c) override
    {
        rec(QStringLiteral("networkConnectionUnscheduleFromRunLoop"));
        con(c)->scheduled = false;
        return true;
    }
    int networkConnectionGetStatus(const NetworkConnectionRef &c) override { return con(c)->status; }
    bool networkConnectionStart(const NetworkConnectionRef &c, const QVariantMap &options, bool) override
    {
        if (!rec(QStringLiteral("networkConnectionStart")))
            return fail();
        con(c)->startOptions = options;
        return true;
    }
    bool networkConnectionStop(const NetworkConnectionRef &, bool) override
    {
        return rec(QStringLiteral("networkConnectionStop")) ? true : fail();
    }
    std::optional<QVariantMap> networkConnectionCopyExtendedStatus(const NetworkConnectionRef &c) override
    {
        return con(c)->extended;
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
    qint64 systemUptimeSeconds() override { return uptime; }

private:
    bool rec(const QString &call)
    {
        calls << call;
        if (failing.contains(call)) {
            lastError = 1001;
            return false;
        }
        return true;
    }
    bool fail()
    {
        lastError = 1001;
        return false;
    }
    static std::shared_ptr<Service> svc(const NetworkServiceRef &s) { return std::static_pointer_cast<Service>(s); }
    static std::shared_ptr<Iface> ifc(const NetworkInterfaceRef &i) { return std::static_pointer_cast<Iface>(i); }
    static std::shared_ptr<Conn> con(const NetworkConnectionRef &c) { return std::static_pointer_cast<Conn>(c); }

    QObject _host;
};
