#include "NMPlatformPrivate.h"

#include "Util/Log.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QStandardPaths>
#include <QUuid>

using namespace NMObjects;

namespace {

const QString kModifySystem = QStringLiteral("org.freedesktop.NetworkManager.settings.modify.system");
const QString kNetworkControl = QStringLiteral("org.freedesktop.NetworkManager.network-control");

QString notReachableText()
{
    QString why;
    if (NMBus::reachable(&why))
        return {};
    const QStringList dirs = {QStringLiteral("/usr/sbin"), QStringLiteral("/sbin"), QStringLiteral("/usr/bin")};
    if (QStandardPaths::findExecutable(QStringLiteral("NetworkManager"), dirs).isEmpty())
        why = QStringLiteral("NetworkManager is not installed; ") + why;
    return why;
}

} // namespace

namespace NMObjects {

QString pppInterfaceName(const QString &name)
{
    const QString full = QStringLiteral("ppp-") + name;
    return full.left(15);
}

NMSettingsMap profileSettings(const QString &id, const QString &uuid, const QString &interfaceName,
                              const QString &parent, const QString &username)
{
    NMSettingsMap s;
    s[QStringLiteral("connection")] = QVariantMap{
        {QStringLiteral("id"), id},
        {QStringLiteral("uuid"), uuid},
        {QStringLiteral("type"), QStringLiteral("pppoe")},
        {QStringLiteral("autoconnect"), false},
        {QStringLiteral("interface-name"), interfaceName},
    };
    s[QStringLiteral("pppoe")] = QVariantMap{
        {QStringLiteral("parent"), parent},
        {QStringLiteral("username"), username},
        {QStringLiteral("password-flags"), uint(NMBus::SecretFlagNotSaved)},
    };
    s[QStringLiteral("ipv4")] = QVariantMap{{QStringLiteral("method"), QStringLiteral("auto")}};
    return s;
}

int statusForActiveState(uint state)
{
    switch (state) {
    case NMBus::ActiveActivating:
        return NetworkConnectionConnecting;
    case NMBus::ActiveActivated:
        return NetworkConnectionConnected;
    case NMBus::ActiveDeactivating:
        return NetworkConnectionDisconnecting;
    case NMBus::ActiveDeactivated:
        return NetworkConnectionDisconnected;
    default:
        return NetworkConnectionInvalid;
    }
}

} // namespace NMObjects

bool NMPlatform::Private::fail(int code, const QString &text)
{
    lastError = code;
    lastErrorText = text;
    return false;
}

std::optional<std::vector<std::shared_ptr<Interface>>> NMPlatform::Private::devices()
{
    const NMBus::Reply r = NMBus::call(NMBus::Path, NMBus::Interface, QStringLiteral("GetDevices"));
    if (!r.ok()) {
        fail(NotRunning, QStringLiteral("NetworkManager's devices cannot be read: ") + r.errorText());
        return std::nullopt;
    }
    std::vector<std::shared_ptr<Interface>> out;
    for (const QDBusObjectPath &path : NMBus::toPathList(r.first())) {
        const QVariantMap p = NMBus::properties(path.path(), NMBus::DeviceInterface);
        if (p.isEmpty())
            continue; // gone meanwhile
        auto i = std::make_shared<Interface>();
        i->devicePath = path.path();
        i->bsdName = p.value(QStringLiteral("Interface")).toString();
        i->macAddress = p.value(QStringLiteral("HwAddress")).toString().toLower();
        i->managed = p.value(QStringLiteral("State")).toUInt() != NMBus::DeviceStateUnmanaged;
        const uint type = p.value(QStringLiteral("DeviceType")).toUInt();
        // A veth is Ethernet to the kernel; only managed ones count (unmanaged veths are the
        // plumbing of containers).
        if (type == NMBus::DeviceTypeEthernet || (type == NMBus::DeviceTypeVeth && i->managed)) {
            i->type = PPPoEKey::InterfaceTypeEthernet;
            i->displayName = QStringLiteral("以太网 (%1").arg(i->bsdName);
        } else if (type == NMBus::DeviceTypeWifi) {
            i->type = PPPoEKey::InterfaceTypeIEEE80211;
            i->displayName = QStringLiteral("Wi-Fi (%1").arg(i->bsdName);
        } else {
            i->type = QStringLiteral("NetworkManager:%1").arg(type);
            i->displayName = QStringLiteral("%1 (%1").arg(i->bsdName);
        }
        if (!i->managed && (type == NMBus::DeviceTypeEthernet || type == NMBus::DeviceTypeWifi)) {
            // Tell the user why a dial on it cannot work.
            i->displayName += QStringLiteral("，未由 NetworkManager 管理");
            DVLOG() << "interface " << i->bsdName
                    << " is not managed by NetworkManager; a dial on it cannot start until it is managed";
        }
        i->displayName += QLatin1Char(')');
        out.push_back(i);
    }
    return out;
}

std::optional<std::vector<std::shared_ptr<Service>>>
NMPlatform::Private::profiles(const std::vector<std::shared_ptr<Interface>> &devs)
{
    const NMBus::Reply r =
        NMBus::call(NMBus::SettingsPath, NMBus::SettingsInterface, QStringLiteral("ListConnections"));
    if (!r.ok()) {
        fail(NotRunning, QStringLiteral("NetworkManager's profiles cannot be read: ") + r.errorText());
        return std::nullopt;
    }
    std::vector<std::shared_ptr<Service>> out;
    for (const QDBusObjectPath &path : NMBus::toPathList(r.first())) {
        const NMBus::Reply got = NMBus::call(path.path(), NMBus::ConnectionInterface, QStringLiteral("GetSettings"));
        const NMSettingsMap settings = got.ok() ? NMBus::toSettings(got.first()) : NMSettingsMap();
        const QVariantMap c = settings.value(QStringLiteral("connection"));
        if (c.value(QStringLiteral("type")).toString() != QLatin1String("pppoe"))
            continue;
        const QString parent = settings.value(QStringLiteral("pppoe")).value(QStringLiteral("parent")).toString();
        auto ppp = std::make_shared<Interface>();
        ppp->type = PPPoEKey::InterfaceTypePPP;
        ppp->bsdName = c.value(QStringLiteral("interface-name")).toString();
        ppp->displayName = QStringLiteral("PPPoE");
        ppp->config = QVariantMap{
            {PPPoEKey::PropNetPPPAuthName, settings.value(QStringLiteral("pppoe")).value(QStringLiteral("username"))}};
        for (const auto &d : devs) {
            if (d->bsdName == parent)
                ppp->child = d;
        }
        if (!ppp->child && !parent.isEmpty()) {
            ppp->child = std::make_shared<Interface>();
            ppp->child->type = PPPoEKey::InterfaceTypeEthernet;
            ppp->child->bsdName = parent;
        }
        auto s = std::make_shared<Service>();
        s->uuid = c.value(QStringLiteral("uuid")).toString();
        s->name = c.value(QStringLiteral("id")).toString();
        s->inSet = true;
        s->committed = true;
        s->iface = ppp;
        out.push_back(s);
    }
    return out;
}

QString NMPlatform::Private::settingsPath(const QString &uuid)
{
    const NMBus::Reply r =
        NMBus::call(NMBus::SettingsPath, NMBus::SettingsInterface, QStringLiteral("GetConnectionByUuid"), {uuid});
    return r.ok() ? NMBus::toPath(r.first()) : QString();
}

NMPlatform::NMPlatform(std::shared_ptr<Clock> clock)
    : d(std::make_unique<Private>())
{
    d->clock = clock ? std::move(clock) : Clock::system();
    NMBus::registerTypes();
}

NMPlatform::~NMPlatform()
{
    // Nothing calls back once the platform is gone.
    for (const auto &weak : d->connections) {
        if (const auto c = weak.lock()) {
            c->callback = nullptr;
            delete c->relay.data();
        }
    }
}

AuthorizationRef NMPlatform::authorizationCreate(quint32)
{
    const QString why = notReachableText();
    if (!why.isEmpty()) {
        d->fail(NotRunning, why);
        return nullptr;
    }
    const NMBus::Reply r = NMBus::call(NMBus::Path, NMBus::Interface, QStringLiteral("GetPermissions"));
    if (!r.ok()) {
        d->fail(AccessDenied, QStringLiteral("NetworkManager did not say what we may do: ") + r.errorText());
        return nullptr;
    }
    auto auth = std::make_shared<Authorization>();
    if (r.first().canConvert<QDBusArgument>())
        r.first().value<QDBusArgument>() >> auth->permissions;
    return auth;
}

PreferencesRef NMPlatform::preferencesCreateWithAuthorization(const QString &name, const AuthorizationRef &ref)
{
    const auto auth = as<Authorization>(ref);
    if (!auth)
        return preferencesCreate(name);
    // "auth" means NetworkManager will ask the user (polkit); only a plain "no" stops us here.
    for (const QString &p : {kModifySystem, kNetworkControl}) {
        if (auth->permissions.value(p) == QLatin1String("no")) {
            d->fail(AccessDenied, QStringLiteral("NetworkManager does not allow this user to change the network "
                                                 "configuration (permission %1 is \"no\")")
                                      .arg(p));
            return nullptr;
        }
    }
    return std::make_shared<Prefs>();
}

PreferencesRef NMPlatform::preferencesCreate(const QString &)
{
    const QString why = notReachableText();
    if (!why.isEmpty()) {
        d->fail(NotRunning, why);
        return nullptr;
    }
    return std::make_shared<Prefs>();
}

bool NMPlatform::preferencesSetCallback(const PreferencesRef &ref, PreferencesCallback callback)
{
    const auto p = as<Prefs>(ref);
    if (!p)
        return d->fail(InvalidArgument, QStringLiteral("not a preferences session"));
    p->callback = std::move(callback);
    return true;
}

bool NMPlatform::preferencesScheduleWithRunLoop(const PreferencesRef &ref)
{
    const auto p = as<Prefs>(ref);
    if (!p || p->relay)
        return d->fail(InvalidArgument, QStringLiteral("session missing or already scheduled"));
    std::weak_ptr<Prefs> weak = p;
    p->relay = new NMSignalRelay([weak](const QDBusMessage &) {
        const auto prefs = weak.lock();
        if (prefs && prefs->callback)
            prefs->callback(prefs, 0);
    });
    QDBusConnection bus = QDBusConnection::systemBus();
    for (const QString &signal : {QStringLiteral("NewConnection"), QStringLiteral("ConnectionRemoved")}) {
        bus.connect(NMBus::Service, NMBus::SettingsPath, NMBus::SettingsInterface, signal, p->relay.data(),
                    SLOT(relay(QDBusMessage)));
    }
    return true;
}

bool NMPlatform::preferencesUnscheduleFromRunLoop(const PreferencesRef &ref)
{
    const auto p = as<Prefs>(ref);
    if (!p || !p->relay)
        return d->fail(InvalidArgument, QStringLiteral("session not scheduled"));
    QDBusConnection::systemBus().disconnect(NMBus::Service, NMBus::SettingsPath, NMBus::SettingsInterface,
                                            QStringLiteral("NewConnection"), p->relay.data(),
                                            SLOT(relay(QDBusMessage)));
    QDBusConnection::systemBus().disconnect(NMBus::Service, NMBus::SettingsPath, NMBus::SettingsInterface,
                                            QStringLiteral("ConnectionRemoved"), p->relay.data(),
                                            SLOT(relay(QDBusMessage)));
    p->relay->deleteLater();
    p->relay = nullptr;
    return true;
}

// NetworkManager has no configuration lock; the session's own lock keeps one session from
// interleaving its removal and creation steps, and cannot be taken twice.
bool NMPlatform::preferencesLock(const PreferencesRef &ref, bool)
{
    const auto p = as<Prefs>(ref);
    if (!p)
        return d->fail(InvalidArgument, QStringLiteral("not a preferences session"));
    if (p->locked)
        return d->fail(Locked, QStringLiteral("the network configuration is already locked by this session"));
    p->locked = true;
    return true;
}

bool NMPlatform::preferencesUnlock(const PreferencesRef &ref)
{
    const auto p = as<Prefs>(ref);
    if (!p || !p->locked)
        return d->fail(NeedLock, QStringLiteral("the network configuration is not locked"));
    p->locked = false;
    return true;
}

bool NMPlatform::preferencesCommitChanges(const PreferencesRef &ref)
{
    const auto p = as<Prefs>(ref);
    if (!p)
        return d->fail(InvalidArgument, QStringLiteral("not a preferences session"));
    bool ok = true;
    for (const QString &uuid : std::as_const(p->pendingRemovals)) {
        const QString path = d->settingsPath(uuid);
        if (path.isEmpty())
            continue; // already gone
        const NMBus::Reply r = NMBus::call(path, NMBus::ConnectionInterface, QStringLiteral("Delete"));
        if (!r.ok())
            ok = d->fail(Failed, QStringLiteral("profile %1 not removed: %2").arg(uuid, r.errorText()));
    }
    p->pendingRemovals.clear();
    std::vector<std::shared_ptr<Service>> keep;
    for (const auto &s : p->staged) {
        if (!s->inSet) {
            keep.push_back(s);
            continue;
        }
        const QString parent = s->iface && s->iface->child ? s->iface->child->bsdName : QString();
        const QString username =
            s->iface && s->iface->config ? s->iface->config->value(PPPoEKey::PropNetPPPAuthName).toString() : QString();
        const NMSettingsMap settings = profileSettings(s->name, s->uuid, pppInterfaceName(s->name), parent, username);
        const NMBus::Reply r =
            NMBus::call(NMBus::SettingsPath, NMBus::SettingsInterface, QStringLiteral("AddConnection2"),
                        {QVariant::fromValue(settings),
                         uint(NMBus::SettingsFlagInMemory | NMBus::SettingsFlagBlockAutoconnect), QVariantMap()});
        if (!r.ok()) {
            ok = d->fail(Failed, QStringLiteral("profile \"%1\" not added: %2").arg(s->name, r.errorText()));
            keep.push_back(s);
            continue;
        }
        s->committed = true;
    }
    p->staged = keep;
    return ok;
}

// NetworkManager applies what it is given at once.
bool NMPlatform::preferencesApplyChanges(const PreferencesRef &ref)
{
    return as<Prefs>(ref) ? true : d->fail(InvalidArgument, QStringLiteral("not a preferences session"));
}

// Nothing is cached: every read asks NetworkManager.
void NMPlatform::preferencesSynchronize(const PreferencesRef &) {}

NetworkSetRef NMPlatform::networkSetCopyCurrent(const PreferencesRef &ref)
{
    const auto p = as<Prefs>(ref);
    if (!p) {
        d->fail(InvalidArgument, QStringLiteral("not a preferences session"));
        return nullptr;
    }
    const QString why = notReachableText();
    if (!why.isEmpty()) {
        d->fail(NotRunning, why);
        return nullptr;
    }
    auto set = std::make_shared<Set>();
    set->prefs = p;
    return set;
}

std::optional<std::vector<NetworkServiceRef>> NMPlatform::networkSetCopyServices(const NetworkSetRef &ref)
{
    const auto set = as<Set>(ref);
    const auto prefs = set ? set->prefs.lock() : nullptr;
    if (!prefs) {
        d->fail(InvalidArgument, QStringLiteral("not a network set"));
        return std::nullopt;
    }
    const auto devs = d->devices();
    if (!devs)
        return std::nullopt;
    const auto profs = d->profiles(*devs);
    if (!profs)
        return std::nullopt;
    std::vector<NetworkServiceRef> out;
    for (const auto &dev : *devs) {
        auto s = std::make_shared<Service>();
        s->isDevice = true;
        s->uuid = QStringLiteral("device:") + dev->bsdName;
        s->name = dev->displayName;
        s->inSet = true;
        s->committed = true;
        s->iface = dev;
        out.push_back(s);
    }
    for (const auto &s : *profs) {
        s->prefs = prefs;
        if (!prefs->pendingRemovals.contains(s->uuid))
            out.push_back(s);
    }
    for (const auto &s : prefs->staged) {
        if (s->inSet)
            out.push_back(s);
    }
    return out;
}

bool NMPlatform::networkSetAddService(const NetworkSetRef &ref, const NetworkServiceRef &service)
{
    const auto s = as<Service>(service);
    if (!as<Set>(ref) || !s)
        return d->fail(InvalidArgument, QStringLiteral("not a set or not a service"));
    s->inSet = true;
    return true;
}

NetworkServiceRef NMPlatform::networkServiceCreate(const PreferencesRef &ref, const NetworkInterfaceRef &iface)
{
    const auto p = as<Prefs>(ref);
    const auto i = as<Interface>(iface);
    if (!p || !i || i->type != PPPoEKey::InterfaceTypePPP || !i->child) {
        d->fail(InvalidArgument, QStringLiteral("a service needs a PPP interface over a device"));
        return nullptr;
    }
    auto s = std::make_shared<Service>();
    s->uuid = QUuid::createUuid().toString(QUuid::WithoutBraces);
    s->iface = i;
    s->prefs = p;
    p->staged.push_back(s);
    return s;
}

NetworkInterfaceRef NMPlatform::networkServiceGetInterface(const NetworkServiceRef &service)
{
    const auto s = as<Service>(service);
    return s ? s->iface : nullptr;
}

QString NMPlatform::networkServiceGetName(const NetworkServiceRef &service)
{
    const auto s = as<Service>(service);
    return s ? s->name : QString();
}

bool NMPlatform::networkServiceSetName(const NetworkServiceRef &service, const QString &name)
{
    const auto s = as<Service>(service);
    if (!s || s->committed || name.isEmpty())
        return d->fail(InvalidArgument, QStringLiteral("only a new service can be named"));
    s->name = name;
    return true;
}

// Profiles have no enabled flag of their own in NetworkManager; the flag lives in the handle.
bool NMPlatform::networkServiceGetEnabled(const NetworkServiceRef &service)
{
    const auto s = as<Service>(service);
    return s && s->enabled;
}

bool NMPlatform::networkServiceSetEnabled(const NetworkServiceRef &service, bool enabled)
{
    const auto s = as<Service>(service);
    if (!s)
        return d->fail(InvalidArgument, QStringLiteral("not a service"));
    s->enabled = enabled;
    return true;
}

// Removal takes effect in NetworkManager at the next commit of the session that listed or
// created the service.
bool NMPlatform::networkServiceRemove(const NetworkServiceRef &service)
{
    const auto s = as<Service>(service);
    const auto p = s ? s->prefs.lock() : nullptr;
    if (!s || s->isDevice || !p)
        return d->fail(InvalidArgument, QStringLiteral("only a profile of a live session can be removed"));
    if (!s->committed) {
        const auto it = std::find(p->staged.begin(), p->staged.end(), s);
        if (it == p->staged.end())
            return d->fail(NoKey, QStringLiteral("the service was already removed"));
        p->staged.erase(it);
        return true;
    }
    if (p->pendingRemovals.contains(s->uuid))
        return d->fail(NoKey, QStringLiteral("the service was already removed"));
    p->pendingRemovals << s->uuid;
    return true;
}

// NetworkManager completes a profile with its defaults when the profile is added.
bool NMPlatform::networkServiceEstablishDefaultConfiguration(const NetworkServiceRef &service)
{
    return as<Service>(service) ? true : d->fail(InvalidArgument, QStringLiteral("not a service"));
}

QString NMPlatform::networkServiceGetServiceID(const NetworkServiceRef &service)
{
    const auto s = as<Service>(service);
    return s ? s->uuid : QString();
}

int NMPlatform::scError()
{
    return d->lastError;
}

QString NMPlatform::scErrorString(int code)
{
    if (code == d->lastError && !d->lastErrorText.isEmpty())
        return d->lastErrorText;
    return code == Ok ? QStringLiteral("Success") : QStringLiteral("Failed");
}

qint64 NMPlatform::systemUptimeSeconds()
{
    return d->clock->monotonicMs() / 1000;
}
