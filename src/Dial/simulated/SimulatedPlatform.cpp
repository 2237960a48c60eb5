#include "SimulatedPlatform.h"
#include "SimulatedPlatformPrivate.h"

#include "Util/Log.h"

#include <QObject>
#include <QPointer>
#include <QTimer>

#include <algorithm>
#include <map>
#include <mutex>

namespace {
std::mutex g_defaultMutex;
SimulatedConfig &defaultStore()
{
    static SimulatedConfig config;
    return config;
}

} // namespace

SimulatedConfig SimulatedPlatform::defaultConfig()
{
    std::lock_guard<std::mutex> lock(g_defaultMutex);
    return defaultStore();
}

void SimulatedPlatform::setDefaultConfig(SimulatedConfig config)
{
    std::lock_guard<std::mutex> lock(g_defaultMutex);
    defaultStore() = std::move(config);
}

SimulatedPlatform::SimulatedPlatform(SimulatedConfig config)
    : _state(std::make_shared<State>())
{
    _state->config = std::move(config);
    if (!_state->config.clock)
        _state->config.clock = Clock::system();
    for (const SimulatedInterface &i : _state->config.interfaces) {
        auto iface = std::make_shared<SimInterface>();
        iface->type = i.type;
        iface->bsdName = i.bsdName;
        iface->displayName = i.displayName;
        iface->macAddress = i.macAddress;
        auto service = std::make_shared<SimService>();
        service->id = QStringLiteral("device-%1").arg(i.bsdName);
        service->name = i.displayName;
        service->inSet = true;
        service->iface = iface;
        _state->deviceServices.push_back(service);
        _state->linkActive[i.bsdName] = i.active;
    }
}

SimulatedPlatform::~SimulatedPlatform()
{
    // Nothing may call back once the platform is gone.
    for (const auto &service : _state->retired)
        _state->services.push_back(service);
    for (const auto &service : _state->services) {
        service->link->timerHost.reset();
        for (const auto &weak : service->link->watchers) {
            if (const auto c = weak.lock()) {
                c->deliverHost.reset();
                c->callback = nullptr;
            }
        }
    }
}

void SimulatedPlatform::setAuthHook(SimulatedAuthHook hook)
{
    _state->config.authHook = std::move(hook);
}

void SimulatedPlatform::setLinkActive(const QString &bsdName, bool active)
{
    _state->linkActive[bsdName] = active;
    if (active)
        return;
    for (const auto &service : _state->services) {
        if (service->iface && service->iface->child && service->iface->child->bsdName == bsdName)
            _state->dropLink(service->link, {LinkEndCause::Dropped, QStringLiteral("carrier lost")});
    }
}

void SimulatedPlatform::peerHangUp()
{
    for (const auto &service : _state->services) {
        if (service->link->status == NetworkConnectionConnected)
            _state->dropLink(service->link);
    }
}

void SimulatedPlatform::peerHangUpOn(const QString &bsdName)
{
    for (const auto &service : _state->services) {
        if (service->link->status == NetworkConnectionConnected && service->iface && service->iface->child
            && service->iface->child->bsdName == bsdName)
            _state->dropLink(service->link);
    }
}

int SimulatedPlatform::serviceCount() const
{
    return int(_state->services.size());
}

int SimulatedPlatform::serviceCountNamed(const QString &name) const
{
    int n = 0;
    for (const auto &s : _state->services)
        n += s->name == name ? 1 : 0;
    return n;
}

AuthorizationRef SimulatedPlatform::authorizationCreate(quint32)
{
    return std::make_shared<PlatformObject>();
}

PreferencesRef SimulatedPlatform::preferencesCreateWithAuthorization(const QString &name, const AuthorizationRef &)
{
    return preferencesCreate(name);
}

PreferencesRef SimulatedPlatform::preferencesCreate(const QString &)
{
    return std::make_shared<SimPrefs>();
}

bool SimulatedPlatform::preferencesSetCallback(const PreferencesRef &prefs, PreferencesCallback callback)
{
    const auto p = std::dynamic_pointer_cast<SimPrefs>(prefs);
    if (!p)
        return _state->fail(PlatformStatus::InvalidArgument);
    p->callback = std::move(callback);
    return true;
}

bool SimulatedPlatform::preferencesScheduleWithRunLoop(const PreferencesRef &prefs)
{
    const auto p = std::dynamic_pointer_cast<SimPrefs>(prefs);
    if (!p)
        return _state->fail(PlatformStatus::InvalidArgument);
    p->scheduled = true;
    return true;
}

bool SimulatedPlatform::preferencesUnscheduleFromRunLoop(const PreferencesRef &prefs)
{
    const auto p = std::dynamic_pointer_cast<SimPrefs>(prefs);
    if (!p)
        return _state->fail(PlatformStatus::InvalidArgument);
    p->scheduled = false;
    return true;
}

bool SimulatedPlatform::preferencesLock(const PreferencesRef &prefs, bool)
{
    _state->blockLikeTheSystem();
    const auto p = std::dynamic_pointer_cast<SimPrefs>(prefs);
    if (!p)
        return _state->fail(PlatformStatus::InvalidArgument);
    if (p->locked)
        return _state->fail(PlatformStatus::Locked);
    p->locked = true;
    return true;
}

bool SimulatedPlatform::preferencesUnlock(const PreferencesRef &prefs)
{
    const auto p = std::dynamic_pointer_cast<SimPrefs>(prefs);
    if (!p)
        return _state->fail(PlatformStatus::InvalidArgument);
    if (!p->locked)
        return _state->fail(PlatformStatus::NeedLock);
    p->locked = false;
    return true;
}

bool SimulatedPlatform::preferencesCommitChanges(const PreferencesRef &prefs)
{
    if (!std::dynamic_pointer_cast<SimPrefs>(prefs))
        return _state->fail(PlatformStatus::InvalidArgument);
    // Removed services leave the store now; a link that still runs on one goes down.
    auto &list = _state->services;
    for (const auto &service : list) {
        if (service->pendingRemoval) {
            _state->dropLink(service->link);
            _state->retired.push_back(service);
        }
    }
    list.erase(std::remove_if(list.begin(), list.end(), [](const auto &sv) { return sv->pendingRemoval; }), list.end());
    return true;
}

bool SimulatedPlatform::preferencesApplyChanges(const PreferencesRef &prefs)
{
    return std::dynamic_pointer_cast<SimPrefs>(prefs) ? true : _state->fail(PlatformStatus::InvalidArgument);
}

void SimulatedPlatform::preferencesSynchronize(const PreferencesRef &) {}

NetworkSetRef SimulatedPlatform::networkSetCopyCurrent(const PreferencesRef &prefs)
{
    if (!std::dynamic_pointer_cast<SimPrefs>(prefs)) {
        _state->fail(PlatformStatus::InvalidArgument);
        return nullptr;
    }
    return std::make_shared<SimSet>();
}

std::optional<std::vector<NetworkServiceRef>> SimulatedPlatform::networkSetCopyServices(const NetworkSetRef &set)
{
    _state->blockLikeTheSystem();
    if (!std::dynamic_pointer_cast<SimSet>(set)) {
        _state->fail(PlatformStatus::InvalidArgument);
        return std::nullopt;
    }
    std::vector<NetworkServiceRef> out(_state->deviceServices.begin(), _state->deviceServices.end());
    for (const auto &s : _state->services) {
        if (s->inSet && !s->pendingRemoval)
            out.push_back(s);
    }
    return out;
}

bool SimulatedPlatform::networkSetAddService(const NetworkSetRef &set, const NetworkServiceRef &service)
{
    const auto s = std::dynamic_pointer_cast<SimService>(service);
    if (!std::dynamic_pointer_cast<SimSet>(set) || !s)
        return _state->fail(PlatformStatus::InvalidArgument);
    s->inSet = true;
    return true;
}

NetworkServiceRef SimulatedPlatform::networkServiceCreate(const PreferencesRef &prefs, const NetworkInterfaceRef &iface)
{
    const auto i = std::dynamic_pointer_cast<SimInterface>(iface);
    if (!std::dynamic_pointer_cast<SimPrefs>(prefs) || !i) {
        _state->fail(PlatformStatus::InvalidArgument);
        return nullptr;
    }
    auto service = std::make_shared<SimService>();
    service->id = QStringLiteral("service-%1").arg(_state->nextId++);
    service->iface = i;
    _state->services.push_back(service);
    return service;
}

NetworkInterfaceRef SimulatedPlatform::networkServiceGetInterface(const NetworkServiceRef &service)
{
    const auto s = std::dynamic_pointer_cast<SimService>(service);
    return s ? s->iface : nullptr;
}

QString SimulatedPlatform::networkServiceGetName(const NetworkServiceRef &service)
{
    const auto s = std::dynamic_pointer_cast<SimService>(service);
    return s ? s->name : QString();
}

bool SimulatedPlatform::networkServiceSetName(const NetworkServiceRef &service, const QString &name)
{
    const auto s = std::dynamic_pointer_cast<SimService>(service);
    if (!s || name.isEmpty())
        return _state->fail(PlatformStatus::InvalidArgument);
    s->name = name;
    return true;
}

bool SimulatedPlatform::networkServiceGetEnabled(const NetworkServiceRef &service)
{
    const auto s = std::dynamic_pointer_cast<SimService>(service);
    return s && s->enabled;
}

bool SimulatedPlatform::networkServiceSetEnabled(const NetworkServiceRef &service, bool enabled)
{
    const auto s = std::dynamic_pointer_cast<SimService>(service);
    if (!s)
        return _state->fail(PlatformStatus::InvalidArgument);
    s->enabled = enabled;
    return true;
}

bool SimulatedPlatform::networkServiceRemove(const NetworkServiceRef &service)
{
    const auto s = std::dynamic_pointer_cast<SimService>(service);
    const auto &list = _state->services;
    if (!s || s->pendingRemoval || std::find(list.begin(), list.end(), s) == list.end())
        return _state->fail(PlatformStatus::NoKey);
    s->pendingRemoval = true;
    return true;
}

bool SimulatedPlatform::networkServiceEstablishDefaultConfiguration(const NetworkServiceRef &service)
{
    return std::dynamic_pointer_cast<SimService>(service) ? true : _state->fail(PlatformStatus::InvalidArgument);
}

QString SimulatedPlatform::networkServiceGetServiceID(const NetworkServiceRef &service)
{
    const auto s = std::dynamic_pointer_cast<SimService>(service);
    return s ? s->id : QString();
}

QString SimulatedPlatform::networkInterfaceGetInterfaceType(const NetworkInterfaceRef &iface)
{
    const auto i = std::dynamic_pointer_cast<SimInterface>(iface);
    return i ? i->type : QString();
}

QString SimulatedPlatform::networkInterfaceGetLocalizedDisplayName(const NetworkInterfaceRef &iface)
{
    const auto i = std::dynamic_pointer_cast<SimInterface>(iface);
    return i ? i->displayName : QString();
}

QString SimulatedPlatform::networkInterfaceGetBSDName(const NetworkInterfaceRef &iface)
{
    const auto i = std::dynamic_pointer_cast<SimInterface>(iface);
    return i ? i->bsdName : QString();
}

QString SimulatedPlatform::networkInterfaceGetHardwareAddressString(const NetworkInterfaceRef &iface)
{
    const auto i = std::dynamic_pointer_cast<SimInterface>(iface);
    return i ? i->macAddress : QString();
}

NetworkInterfaceRef SimulatedPlatform::networkInterfaceGetInterface(const NetworkInterfaceRef &iface)
{
    const auto i = std::dynamic_pointer_cast<SimInterface>(iface);
    return i ? i->child : nullptr;
}

NetworkInterfaceRef SimulatedPlatform::networkInterfaceCreateWithInterface(const NetworkInterfaceRef &child,
                                                                           const QString &interfaceType)
{
    const auto c = std::dynamic_pointer_cast<SimInterface>(child);
    if (!c || interfaceType != PPPoEKey::InterfaceTypePPP) {
        _state->fail(PlatformStatus::InvalidArgument);
        return nullptr;
    }
    auto ppp = std::make_shared<SimInterface>();
    ppp->type = interfaceType;
    ppp->displayName = QStringLiteral("PPPoE");
    ppp->child = c;
    return ppp;
}

std::optional<QVariantMap> SimulatedPlatform::networkInterfaceGetConfiguration(const NetworkInterfaceRef &iface)
{
    const auto i = std::dynamic_pointer_cast<SimInterface>(iface);
    return i ? i->config : std::nullopt;
}

bool SimulatedPlatform::networkInterfaceSetConfiguration(const NetworkInterfaceRef &iface, const QVariantMap &config)
{
    const auto i = std::dynamic_pointer_cast<SimInterface>(iface);
    if (!i)
        return _state->fail(PlatformStatus::InvalidArgument);
    i->config = config;
    return true;
}

DynamicStoreRef SimulatedPlatform::dynamicStoreCreate(const QString &)
{
    return std::make_shared<SimStore>();
}

std::optional<QVariantMap> SimulatedPlatform::dynamicStoreCopyValue(const DynamicStoreRef &store, const QString &key)
{
    static const QString prefix = QStringLiteral("State:/Network/Interface/");
    static const QString suffix = QStringLiteral("/Link");
    if (!std::dynamic_pointer_cast<SimStore>(store) || !key.startsWith(prefix) || !key.endsWith(suffix)) {
        _state->fail(PlatformStatus::NoKey);
        return std::nullopt;
    }
    const QString bsdName = key.mid(prefix.size(), key.size() - prefix.size() - suffix.size());
    const auto it = _state->linkActive.find(bsdName);
    if (it == _state->linkActive.end()) {
        _state->fail(PlatformStatus::NoKey);
        return std::nullopt;
    }
    QVariantMap value;
    value.insert(PPPoEKey::LinkActive, it->second);
    return value;
}

int SimulatedPlatform::scError()
{
    return _state->lastError;
}

QString SimulatedPlatform::scErrorString(int code)
{
    switch (code) {
    case PlatformStatus::Ok:
        return QStringLiteral("Success!");
    case PlatformStatus::InvalidArgument:
        return QStringLiteral("Invalid argument");
    case PlatformStatus::NoKey:
        return QStringLiteral("No such key");
    case PlatformStatus::Locked:
        return QStringLiteral("Configuration locked");
    case PlatformStatus::NeedLock:
        return QStringLiteral("Lock required for this operation");
    case PlatformStatus::NotActive:
        return QStringLiteral("Connection is not active");
    default:
        return QStringLiteral("Failed!");
    }
}

qint64 SimulatedPlatform::systemUptimeSeconds()
{
    return _state->config.clock->monotonicMs() / 1000;
}
