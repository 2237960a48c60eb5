#include "SimulatedPlatform.h"

#include "Util/Log.h"

#include <QObject>
#include <QPointer>
#include <QTimer>

#include <algorithm>
#include <map>
#include <mutex>

namespace {

// Error codes of the simulated configuration store, with the texts the platform would give.
enum SimError : int {
    SimOk = 0,
    SimFailed = 1001,
    SimInvalidArgument = 1002,
    SimLocked = 1005,
    SimNeedLock = 1006,
    SimNoKey = 1004,
    SimNotConnected = 1007,
};

struct SimInterface : PlatformObject
{
    QString type;
    QString bsdName;
    QString displayName;
    QString macAddress;
    std::shared_ptr<SimInterface> child; // the interface under a PPP layer
    std::optional<QVariantMap> config;
};

struct SimConnection;

// The state of the PPP link of one service; every connection object made for the service
// sees it and is told of its changes.
struct SimLink
{
    int status = NetworkConnectionDisconnected;
    qint64 connectTime = 0;
    quint64 attempt = 0;
    std::unique_ptr<QObject> timerHost; // lives on the thread that started the link
    std::vector<std::weak_ptr<SimConnection>> watchers;
};

struct SimService : PlatformObject
{
    QString id;
    QString name;
    bool enabled = true;
    bool inSet = false;
    bool pendingRemoval = false; // removed in the session, gone from the store at the next commit
    std::shared_ptr<SimInterface> iface;
    std::shared_ptr<SimLink> link = std::make_shared<SimLink>();
};

struct SimPrefs : PlatformObject
{
    PPPoEPlatform::PreferencesCallback callback;
    bool scheduled = false;
    bool locked = false;
};

struct SimSet : PlatformObject
{
};

struct SimStore : PlatformObject
{
};

struct SimConnection : PlatformObject
{
    QString serviceID;
    std::shared_ptr<SimLink> link;
    PPPoEPlatform::ConnectionCallback callback;
    std::unique_ptr<QObject> deliverHost; // lives on the thread that scheduled the connection
};

std::mutex g_defaultMutex;
SimulatedConfig &defaultStore()
{
    static SimulatedConfig config;
    return config;
}

} // namespace

struct SimulatedPlatform::State
{
    SimulatedConfig config;
    std::vector<std::shared_ptr<SimService>> deviceServices;
    std::vector<std::shared_ptr<SimService>> services;
    std::vector<std::shared_ptr<SimService>> retired; // removed by a commit
    std::map<QString, bool> linkActive;
    int lastError = SimOk;
    int nextId = 1;

    bool fail(int code)
    {
        lastError = code;
        return false;
    }

    std::shared_ptr<SimService> serviceWithID(const QString &id) const
    {
        for (const auto &s : services) {
            if (s->id == id)
                return s;
        }
        return nullptr;
    }

    // Reports a status change to every connection of the link: delivered later, on the
    // thread that scheduled each one, if it is still scheduled then.
    void setStatus(const std::shared_ptr<SimLink> &link, int status)
    {
        link->status = status;
        if (status == NetworkConnectionConnected)
            link->connectTime = config.clock->monotonicMs() / 1000;
        for (const auto &weak : link->watchers) {
            const auto conn = weak.lock();
            if (!conn || !conn->deliverHost || !conn->callback)
                continue;
            QMetaObject::invokeMethod(
                conn->deliverHost.get(),
                [weak, status] {
                    const auto c = weak.lock();
                    if (c && c->deliverHost && c->callback)
                        c->callback(c, status);
                },
                Qt::QueuedConnection);
        }
    }

    // Runs `step` after the step delay unless the link was restarted or stopped meanwhile.
    void later(const std::shared_ptr<SimLink> &link, quint64 attempt,
               std::function<void(const std::shared_ptr<SimLink> &)> step)
    {
        std::weak_ptr<SimLink> weak = link;
        QTimer::singleShot(config.stepDelayMs, link->timerHost.get(), [weak, attempt, step] {
            const auto l = weak.lock();
            if (l && l->attempt == attempt)
                step(l);
        });
    }

    void dropLink(const std::shared_ptr<SimLink> &link)
    {
        if (link->status == NetworkConnectionDisconnected)
            return;
        ++link->attempt;
        setStatus(link, NetworkConnectionDisconnected);
    }
};

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
}

void SimulatedPlatform::peerHangUp()
{
    for (const auto &service : _state->services) {
        if (service->link->status == NetworkConnectionConnected)
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
        return _state->fail(SimInvalidArgument);
    p->callback = std::move(callback);
    return true;
}

bool SimulatedPlatform::preferencesScheduleWithRunLoop(const PreferencesRef &prefs)
{
    const auto p = std::dynamic_pointer_cast<SimPrefs>(prefs);
    if (!p)
        return _state->fail(SimInvalidArgument);
    p->scheduled = true;
    return true;
}

bool SimulatedPlatform::preferencesUnscheduleFromRunLoop(const PreferencesRef &prefs)
{
    const auto p = std::dynamic_pointer_cast<SimPrefs>(prefs);
    if (!p)
        return _state->fail(SimInvalidArgument);
    p->scheduled = false;
    return true;
}

bool SimulatedPlatform::preferencesLock(const PreferencesRef &prefs, bool)
{
    const auto p = std::dynamic_pointer_cast<SimPrefs>(prefs);
    if (!p)
        return _state->fail(SimInvalidArgument);
    if (p->locked)
        return _state->fail(SimLocked);
    p->locked = true;
    return true;
}

bool SimulatedPlatform::preferencesUnlock(const PreferencesRef &prefs)
{
    const auto p = std::dynamic_pointer_cast<SimPrefs>(prefs);
    if (!p)
        return _state->fail(SimInvalidArgument);
    if (!p->locked)
        return _state->fail(SimNeedLock);
    p->locked = false;
    return true;
}

bool SimulatedPlatform::preferencesCommitChanges(const PreferencesRef &prefs)
{
    if (!std::dynamic_pointer_cast<SimPrefs>(prefs))
        return _state->fail(SimInvalidArgument);
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
    return std::dynamic_pointer_cast<SimPrefs>(prefs) ? true : _state->fail(SimInvalidArgument);
}

void SimulatedPlatform::preferencesSynchronize(const PreferencesRef &) {}

NetworkSetRef SimulatedPlatform::networkSetCopyCurrent(const PreferencesRef &prefs)
{
    if (!std::dynamic_pointer_cast<SimPrefs>(prefs)) {
        _state->fail(SimInvalidArgument);
        return nullptr;
    }
    return std::make_shared<SimSet>();
}

std::optional<std::vector<NetworkServiceRef>> SimulatedPlatform::networkSetCopyServices(const NetworkSetRef &set)
{
    if (!std::dynamic_pointer_cast<SimSet>(set)) {
        _state->fail(SimInvalidArgument);
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
        return _state->fail(SimInvalidArgument);
    s->inSet = true;
    return true;
}

NetworkServiceRef SimulatedPlatform::networkServiceCreate(const PreferencesRef &prefs, const NetworkInterfaceRef &iface)
{
    const auto i = std::dynamic_pointer_cast<SimInterface>(iface);
    if (!std::dynamic_pointer_cast<SimPrefs>(prefs) || !i) {
        _state->fail(SimInvalidArgument);
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
        return _state->fail(SimInvalidArgument);
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
        return _state->fail(SimInvalidArgument);
    s->enabled = enabled;
    return true;
}

bool SimulatedPlatform::networkServiceRemove(const NetworkServiceRef &service)
{
    const auto s = std::dynamic_pointer_cast<SimService>(service);
    const auto &list = _state->services;
    if (!s || s->pendingRemoval || std::find(list.begin(), list.end(), s) == list.end())
        return _state->fail(SimNoKey);
    s->pendingRemoval = true;
    return true;
}

bool SimulatedPlatform::networkServiceEstablishDefaultConfiguration(const NetworkServiceRef &service)
{
    return std::dynamic_pointer_cast<SimService>(service) ? true : _state->fail(SimInvalidArgument);
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
        _state->fail(SimInvalidArgument);
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
        return _state->fail(SimInvalidArgument);
    i->config = config;
    return true;
}

NetworkConnectionRef SimulatedPlatform::networkConnectionCreateWithServiceID(const QString &serviceID,
                                                                             ConnectionCallback callback)
{
    const auto service = _state->serviceWithID(serviceID);
    if (!service) {
        _state->fail(SimNoKey);
        return nullptr;
    }
    auto conn = std::make_shared<SimConnection>();
    conn->serviceID = serviceID;
    conn->link = service->link;
    conn->callback = std::move(callback);
    service->link->watchers.push_back(conn);
    return conn;
}

bool SimulatedPlatform::networkConnectionScheduleWithRunLoop(const NetworkConnectionRef &connection)
{
    const auto c = std::dynamic_pointer_cast<SimConnection>(connection);
    if (!c)
        return _state->fail(SimInvalidArgument);
    if (!c->deliverHost)
        c->deliverHost = std::make_unique<QObject>();
    return true;
}

bool SimulatedPlatform::networkConnectionUnscheduleFromRunLoop(const NetworkConnectionRef &connection)
{
    const auto c = std::dynamic_pointer_cast<SimConnection>(connection);
    if (!c || !c->deliverHost)
        return _state->fail(SimInvalidArgument);
    c->deliverHost.reset();
    return true;
}

int SimulatedPlatform::networkConnectionGetStatus(const NetworkConnectionRef &connection)
{
    const auto c = std::dynamic_pointer_cast<SimConnection>(connection);
    return c ? c->link->status : NetworkConnectionInvalid;
}

bool SimulatedPlatform::networkConnectionStart(const NetworkConnectionRef &connection, const QVariantMap &userOptions,
                                               bool)
{
    const auto c = std::dynamic_pointer_cast<SimConnection>(connection);
    if (!c)
        return _state->fail(SimInvalidArgument);
    const auto service = _state->serviceWithID(c->serviceID);
    if (!service || !service->iface || !service->iface->child)
        return _state->fail(SimNoKey);
    const auto link = c->link;
    if (link->status != NetworkConnectionDisconnected)
        return _state->fail(SimFailed);
    const QVariantMap ppp = userOptions.value(PPPoEKey::EntNetPPP).toMap();
    const QString dialName = ppp.value(PPPoEKey::PropNetPPPAuthName).toString();
    const QString password = ppp.value(PPPoEKey::PropNetPPPAuthPassword).toString();
    const QString parent = service->iface->child->bsdName;

    link->timerHost = std::make_unique<QObject>();
    const quint64 attempt = ++link->attempt;
    _state->setStatus(link, NetworkConnectionConnecting);

    std::weak_ptr<State> weakState = _state;
    _state->later(link, attempt, [weakState, dialName, password, parent, attempt](const std::shared_ptr<SimLink> &l) {
        const auto state = weakState.lock();
        if (!state)
            return;
        if (!state->linkActive[parent]) {
            DVLOG() << "simulated PPPoE: no access concentrator answered on " << parent << " (link down)";
            state->setStatus(l, NetworkConnectionDisconnected);
            return;
        }
        // The verdict may come from any thread: bring it back to the link's thread.
        QPointer<QObject> host = l->timerHost.get();
        std::weak_ptr<SimLink> weakLink = l;
        auto done = [weakState, weakLink, host, attempt](bool accepted, QString reason) {
            if (host.isNull())
                return;
            QMetaObject::invokeMethod(
                host.data(),
                [weakState, weakLink, attempt, accepted, reason] {
                    const auto s = weakState.lock();
                    const auto lk = weakLink.lock();
                    if (!s || !lk || lk->attempt != attempt)
                        return;
                    if (!accepted) {
                        DVLOG() << "simulated PPPoE: authentication refused: " << reason;
                        s->setStatus(lk, NetworkConnectionDisconnected);
                        return;
                    }
                    std::weak_ptr<State> ws = s;
                    s->later(lk, attempt, [ws](const std::shared_ptr<SimLink> &ll) {
                        if (const auto st = ws.lock())
                            st->setStatus(ll, NetworkConnectionConnected);
                    });
                },
                Qt::QueuedConnection);
        };
        if (state->config.authHook) {
            state->config.authHook(dialName, password, done);
        } else {
            const bool ok = !dialName.isEmpty() && !password.isEmpty();
            done(ok, ok ? QString() : QStringLiteral("empty dial name or password"));
        }
    });
    return true;
}

bool SimulatedPlatform::networkConnectionStop(const NetworkConnectionRef &connection, bool)
{
    const auto c = std::dynamic_pointer_cast<SimConnection>(connection);
    if (!c)
        return _state->fail(SimInvalidArgument);
    const auto link = c->link;
    if (link->status != NetworkConnectionConnecting && link->status != NetworkConnectionConnected)
        return _state->fail(SimNotConnected);
    if (!link->timerHost)
        link->timerHost = std::make_unique<QObject>();
    const quint64 attempt = ++link->attempt;
    _state->setStatus(link, NetworkConnectionDisconnecting);
    std::weak_ptr<State> weakState = _state;
    _state->later(link, attempt, [weakState](const std::shared_ptr<SimLink> &l) {
        if (const auto s = weakState.lock())
            s->setStatus(l, NetworkConnectionDisconnected);
    });
    return true;
}

std::optional<QVariantMap>
SimulatedPlatform::networkConnectionCopyExtendedStatus(const NetworkConnectionRef &connection)
{
    const auto c = std::dynamic_pointer_cast<SimConnection>(connection);
    if (!c) {
        _state->fail(SimInvalidArgument);
        return std::nullopt;
    }
    QVariantMap ppp;
    ppp.insert(QStringLiteral("Status"), c->link->status);
    QVariantMap status;
    if (c->link->status == NetworkConnectionConnected) {
        ppp.insert(PPPoEKey::PropNetPPPConnectTime, quint32(c->link->connectTime));
        QVariantMap ipv4;
        ipv4.insert(PPPoEKey::PropNetIPv4Addresses, QStringList{_state->config.ipv4Address});
        status.insert(PPPoEKey::EntNetIPv4, ipv4);
    }
    status.insert(PPPoEKey::EntNetPPP, ppp);
    return status;
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
        _state->fail(SimNoKey);
        return std::nullopt;
    }
    const QString bsdName = key.mid(prefix.size(), key.size() - prefix.size() - suffix.size());
    const auto it = _state->linkActive.find(bsdName);
    if (it == _state->linkActive.end()) {
        _state->fail(SimNoKey);
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
    case SimOk:
        return QStringLiteral("Success!");
    case SimInvalidArgument:
        return QStringLiteral("Invalid argument");
    case SimNoKey:
        return QStringLiteral("No such key");
    case SimLocked:
        return QStringLiteral("Configuration locked");
    case SimNeedLock:
        return QStringLiteral("Lock required for this operation");
    case SimNotConnected:
        return QStringLiteral("Connection is not active");
    default:
        return QStringLiteral("Failed!");
    }
}

qint64 SimulatedPlatform::systemUptimeSeconds()
{
    return _state->config.clock->monotonicMs() / 1000;
}
