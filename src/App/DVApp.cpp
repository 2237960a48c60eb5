#include "DVApp.h"

#include "AccountRule/DVAccountRule.h"
#include "AccountRule/DVRuleException.h"
#include "Bcom/BcomData.h"
#include "Bcom/BcomOperation.h"
#include "Business/BubbleCenter.h"
#include "Business/ConfigReq.h"
#include "Business/Register.h"
#include "Business/SMSVerify.h"
#include "Business/TokenReuest.h"
#include "Conf/Conf.h"
#include "Conf/UIConf.h"
#include "Dial/PPPoEPlatformFactory.h"
#include "Util/DVEnv.h"
#include "Util/Log.h"
#include "Util/ThreadHandoff.h"

#include <QPointer>
#include <QTimer>

#include <random>

namespace {
std::unique_ptr<DVApp> &sharedSlot()
{
    static std::unique_ptr<DVApp> app;
    return app;
}
} // namespace

DVApp::DVApp(std::unique_ptr<PPPoE> pppoe)
    : DVApp(std::move(pppoe), Options{})
{}

DVApp::DVApp(std::unique_ptr<PPPoE> pppoe, Options options)
    : _pppoe(std::move(pppoe))
    , _queue(OperationQueue::create())
    , _options(std::move(options))
{
    if (!_options.clock)
        _options.clock = Clock::system();
    RedialSupervisor::Hooks hooks;
    hooks.wait = _options.redialWait;
    if (!hooks.wait)
        hooks.wait = [this](qint64 ms, std::function<void()> fire) { QTimer::singleShot(ms, this, std::move(fire)); };
    hooks.random = _options.redialRandom;
    if (!hooks.random) {
        auto engine = std::make_shared<std::minstd_rand>(std::random_device{}());
        hooks.random = [engine] { return std::uniform_real_distribution<double>(0.0, 1.0)(*engine); };
    }
    hooks.dial = [this](DVError *error) { return redialNow(error); };
    hooks.hangUp = [this] {
        if (_pppoe)
            _pppoe->stopConn();
    };
    hooks.report = _options.onRedial;
    hooks.timeBasedRule = [] { return timeBasedRule(); };
    _redial = std::make_unique<RedialSupervisor>(_options.redialPolicy, _options.clock, std::move(hooks));
    // Bubbles show only while the link is up.
    bubbleCenter()->setConnectedPredicate([this] { return _isConntcted.load(); });
    DVEvent::shared().addObserver(
        this, [this](const DVEventObjectPtr &object) { onEventWithObject(object); }, DVEventIdDialStatus,
        OperationQueue::mainQueue());
}

DVApp::~DVApp()
{
    bubbleCenter()->setConnectedPredicate([] { return false; });
    DVEvent::shared().removeObserver(this, DVEventIdDialStatus);
    _queue->cancelAllOperations();
    _queue->waitUntilAllOperationsAreFinished();
}

BubbleCenter *DVApp::bubbleCenter() const
{
    return _options.bubbles ? _options.bubbles : BubbleCenter::defaultCenter();
}

DVApp &DVApp::shareInstance()
{
    auto &slot = sharedSlot();
    if (!slot)
        slot = std::make_unique<DVApp>(std::make_unique<PPPoE>(PPPoEPlatformFactory::create()));
    return *slot;
}

void DVApp::installShared(std::unique_ptr<DVApp> app)
{
    sharedSlot() = std::move(app);
}

bool DVApp::dialWithUserName(const QString &name, const std::shared_ptr<const QString> &password, quint64 index,
                             DVError *error)
{
    DVError local;
    DVError *place = error ? error : &local;
    const bool started = dialNow(name, password, index, place);
    if (!place->domain.isEmpty())
        noteError(*place);
    if (started && place->domain.isEmpty())
        _redial->userDialed();
    return started;
}

bool DVApp::redialNow(DVError *error)
{
    const auto password = _password.lock();
    const QString name = username();
    if (!password || name.isEmpty() || !_pppoe) {
        setError(error, DVError(QStringLiteral("Redial"), 1, QStringLiteral("没有可用于重拨的账号"),
                                QStringLiteral("the account or password of the last dial is gone")));
        return false;
    }
    // The list may have changed since the first dial: find the same interface again.
    const QString wanted = _dialInterface ? _dialInterface->_bsdName : QString();
    const auto list = _pppoe->getInterfaceList();
    quint64 index = _index;
    for (size_t i = 0; i < list.size(); ++i)
        if (list[i]._bsdName == wanted)
            index = i;
    const bool started = dialNow(name, password, index, error);
    if (error && !error->domain.isEmpty())
        noteError(*error);
    return started;
}

bool DVApp::dialNow(const QString &name, const std::shared_ptr<const QString> &password, quint64 index, DVError *error)
{
    // The dial name is computed here, at every dial: a time PIN made earlier would be stale.
    qint64 t = _options.clock->secsSinceEpoch();
    if (!_pppoe)
        return false;

    // `index` points into the list the caller saw, the manager's last one. It is resolved to
    // an interface here, once: reading the list again could reorder it (a link that came up
    // or went down in between) and dial another card. Only a caller that never listed gets
    // the list read now.
    if (_pppoe->interfaceAtIndex(0) == std::nullopt)
        _pppoe->getInterfaceList();
    const std::optional<NetworkInterfaceInfo> chosen = _pppoe->interfaceAtIndex(index);
    std::optional<QString> mac;
    if (chosen)
        mac = chosen->_macAddress;

    Conf *conf = Conf::shared();
    std::optional<QString> dialName;
    try {
        DVAccountRule rule(conf ? conf->accountrule.getOrder() : std::nullopt,
                           conf ? conf->accountrule.getPrefix() : std::nullopt,
                           conf ? conf->accountrule.getSufix() : std::nullopt,
                           conf ? conf->accountrule.getPsk() : std::nullopt, &t, mac, _options.clock);
        dialName = rule.getAccountFromName(name);
    } catch (const DVRuleException &e) {
        // No partial dial name may reach the access server: the dial does not start.
        DVLOG() << "account rule failed: " << QString::fromUtf8(e.what());
        setError(error, DVError(QStringLiteral("AccountRule"), -1, e.name(), e.reason()));
        return false;
    }
    _pin = dialName.value_or(QString());
    setUsername(name);
    _time = t;
    _index = index;
    _dialInterface = chosen;
    _password = password;
    return _pppoe->dialWithUserName(_pin, password ? *password : QString(), index, error);
}

bool DVApp::stopConn()
{
    _redial->userHungUp();
    _password.reset();
    _pin.clear();
    return _pppoe ? _pppoe->stopConn() : false;
}

std::vector<QVariantMap> DVApp::getInterfaceList()
{
    std::vector<QVariantMap> out;
    if (!_pppoe)
        return out;
    for (const auto &info : _pppoe->getInterfaceList()) {
        out.push_back(
            {{QStringLiteral("name"), info._displayName},
             {QStringLiteral("status"), info._isActive ? QStringLiteral("已连接") : QStringLiteral("未连接")}});
    }
    return out;
}

quint64 DVApp::getLastInterfaceIndex()
{
    Conf *conf = Conf::shared();
    const auto remembered = conf ? conf->user.getDefaultInterface() : UserConf().getDefaultInterface();
    if (!remembered || !_pppoe)
        return NotFound;
    if (!_pppoe->getStatusOfInterface(*remembered))
        return NotFound;
    const auto interfaces = _pppoe->getInterfaceList();
    for (size_t i = 0; i < interfaces.size(); ++i)
        if (interfaces[i]._bsdName == *remembered)
            return i;
    return NotFound;
}

qint32 DVApp::getConnTime()
{
    return _pppoe ? static_cast<qint32>(_pppoe->getConnTime()) : 0;
}

QString DVApp::username() const
{
    std::lock_guard<std::mutex> lock(_usernameMutex);
    return _username;
}

void DVApp::setUsername(const QString &name)
{
    std::lock_guard<std::mutex> lock(_usernameMutex);
    _username = name;
}

void DVApp::requestToken()
{
    const auto password = _password.lock();
    const QString user = username();
    if (user.isEmpty() || !password)
        return;
    _queue->addOperation(std::make_shared<TokenReuest>(user, *password));
}

void DVApp::onEventWithObject(const DVEventObjectPtr &object)
{
    const auto *event = dynamic_cast<const DVDialStatusEvent *>(object.get());
    if (!event)
        return;
    _dialState = event->dialState;
    if (event->dialState == DVDialStateDisconnected) {
        if (_isConntcted)
            DVEnv::shared().recordConnDown();
        _isConntcted = false;
        _connectedSince = QDateTime();
        _queue->cancelAllOperations();
        _lastEndCause = event->endCause;
        _lastEndDetail = event->endDetail;
        static const QMap<QString, std::pair<int, QString>> endErrors = {
            {QStringLiteral("refused"), {1, QStringLiteral("认证被拒绝")}},
            {QStringLiteral("dropped"), {2, QStringLiteral("连接已断开")}},
            {QStringLiteral("failed"), {3, QStringLiteral("连接失败")}},
        };
        if (endErrors.contains(event->endCause)) {
            const auto &[code, text] = endErrors.value(event->endCause);
            noteError(DVError(QStringLiteral("Link"), code, text, event->endDetail));
        }
        LinkEndCause cause = LinkEndCause::Unknown;
        for (const auto c :
             {LinkEndCause::UserRequested, LinkEndCause::Refused, LinkEndCause::Dropped, LinkEndCause::Failed})
            if (linkEndCauseName(c) == event->endCause)
                cause = c;
        _redial->linkDown(cause, event->endDetail);
    } else if (event->dialState == DVDialStateConnected) {
        if (!_isConntcted) {
            _connectedSince = _options.clock->now();
            _redial->linkUp();
            onConnected();
        }
        _isConntcted = true;
    }
    Q_EMIT dialStateChanged(event->dialState);
}

void DVApp::onConnected()
{
    if (UIConf::shared().ifRememberInterface() && _dialInterface)
        UserConf().setDefaultInterface(_dialInterface->_bsdName);
    DVEnv::shared().recordConnUp();
    startTasks();
}

void DVApp::startTasks()
{
    Conf *conf = Conf::shared();
    const auto host = conf ? conf->business.getHost() : std::nullopt;
    if (host && !host->isEmpty()) {
        _queue->addOperation(std::make_shared<ConfigReq>(*host, username(), _options.bubbles));
        RegisterLinkFacts link;
        link.clientIp = _pppoe ? _pppoe->getIP() : std::nullopt;
        if (_dialInterface) {
            link.netcardType = _dialInterface->_displayName;
            link.netcardMac = _dialInterface->_macAddress;
        }
        _queue->addOperation(std::make_shared<Register>(*host, link, username()));
    }
    startHeart();
    _queue->addOperation(std::make_shared<SMSVerify>(username()));
}

void DVApp::startHeart()
{
    const QString name = QString::fromLatin1(_pin.toUtf8().toBase64());
    if (name.isEmpty()) {
        DVLOG() << "name is nil";
        return;
    }
    const QString mac = _pppoe ? _pppoe->getMacAddress() : QString();
    const auto ip = _pppoe ? _pppoe->getIP() : std::nullopt;
    if (mac.isEmpty() || !ip) {
        DVLOG() << QStringLiteral("mac or ip is nil,mac : %1, ip : %2")
                       .arg(mac.isEmpty() ? QStringLiteral("(null)") : mac, ip.value_or(QStringLiteral("(null)")));
        return;
    }
    const BcomData negotiation =
        BcomData::MakeNegotiationWithName(name, QString::number(_time), _pppoe->getMacAddress(), *ip);
    auto data = BcomOperationData::init();
    if (!data)
        return;
    data->waitPolicy = _options.heartbeatWaits;
    // The caller's observer, the diagnostics' record, and the redial supervisor's cue when the
    // heartbeat ends for good while the link is still up.
    std::weak_ptr<BcomOperationData> weakData = data;
    QPointer<DVApp> self = this;
    data->onExchange = [self, weakData, observer = _options.onHeartbeatExchange, this](const BcomExchange &x) {
        if (observer)
            observer(x);
        const auto d = weakData.lock();
        noteExchange(x, x.continues && d ? d->waitMs(d->interval) : -1);
        if (!x.continues && !x.error.isEmpty())
            ThreadHandoff::post(self.data(), [self, why = x.error] {
                if (self && self->_isConntcted)
                    self->_redial->heartbeatEnded(why);
            });
    };
    if (auto op = BcomOperation::initWithBcomData(negotiation, data, _queue))
        _queue->addOperation(op);
}
