#include "PPPoE.h"

#include "Util/DVEvent.h"
#include "Util/Log.h"

#include <algorithm>

namespace {

// Identifier under which the network-preferences session is opened.
const QString kPreferencesName = QStringLiteral("org.dorvik.client");

const char *const kErrorMessages[] = {
    "获取权限失败",
    "创建ppp设备失败",
    "创建PPPoE服务失败",
    "设置PPPoE服务属性失败",
    "设置PPPoE服务名称失败",
    "拷贝当前组失败",
    "添加服务失败",
    "删除服务失败",
    "服务初始化失败",
    "服务设置应用失败",
    "创建连接失败",
    "创建连接启动计划失败",
    "启动连接失败",
    "停止连接失败",
    "查找旧连接失败",
    "获取服务失败",
    "错误的网卡序号",
    "网卡列表为空",
    "用户名或密码为空",
    "开始拨号失败",
    "所选网卡未连接，请重新选择已经连接的设备或者检查设备连接情况",
    "无法锁定网络设置，请退出其他网络设置后重试",
    "无法解锁网络设置",
};
constexpr qint64 kErrorCount = sizeof(kErrorMessages) / sizeof(kErrorMessages[0]);

// The two errors made directly with code 1 rather than through the table.
DVError directError(const char *description)
{
    return DVError(PPPoEErrorDomain, 1, QString::fromUtf8(description));
}

} // namespace

PPPoE::PPPoE(std::unique_ptr<PPPoEPlatform> platform)
    : _platform(std::move(platform))
    , _connctionName(QStringLiteral("dorvik"))
{
    if (!_platform) {
        _prefsFailure = QStringLiteral("no network configuration back-end");
        DVLOG() << "PPPoE created without a platform back-end";
        return;
    }
    const AuthorizationRef auth = _platform->authorizationCreate(AuthorizationFlagsDialDefault);
    _prefs = auth ? _platform->preferencesCreateWithAuthorization(kPreferencesName, auth)
                  : _platform->preferencesCreate(kPreferencesName);
    if (!_prefs) {
        _prefsFailure = _platform->scErrorString(_platform->scError());
        DVLOG() << "network preferences session not opened (" << _platform->name() << "): " << _prefsFailure;
        return;
    }
    if (_platform->preferencesSetCallback(
            _prefs, [this](const PreferencesRef &prefs, quint32) { preferencesChanged(prefs); })) {
        _needUnschedule = _platform->preferencesScheduleWithRunLoop(_prefs);
    }
}

PPPoE::~PPPoE()
{
    if (_prefs && _needUnschedule)
        _platform->preferencesUnscheduleFromRunLoop(_prefs);
}

void PPPoE::preferencesChanged(const PreferencesRef &prefs)
{
    _platform->preferencesSynchronize(prefs);
}

std::vector<NetworkInterfaceInfo> PPPoE::getInterfaceList()
{
    std::vector<NetworkInterfaceInfo> list;
    if (!_prefs)
        return list;
    const NetworkSetRef set = _platform->networkSetCopyCurrent(_prefs);
    if (!set)
        return list;
    const auto services = _platform->networkSetCopyServices(set);
    if (!services)
        return list;
    for (const NetworkServiceRef &service : *services) {
        const NetworkInterfaceRef iface = _platform->networkServiceGetInterface(service);
        if (!iface)
            continue;
        const QString type = _platform->networkInterfaceGetInterfaceType(iface);
        if (type != PPPoEKey::InterfaceTypeEthernet && type != PPPoEKey::InterfaceTypeIEEE80211)
            continue;
        if (auto info = getInterfaceInfoWithInterfaceRef(iface))
            list.push_back(std::move(*info));
    }
    // Active interfaces first; the set's order stays among equals.
    std::stable_sort(list.begin(), list.end(), [](const NetworkInterfaceInfo &a, const NetworkInterfaceInfo &b) {
        return a._isActive && !b._isActive;
    });
    _interfaceInfoArray = list;
    return list;
}

std::optional<NetworkInterfaceInfo> PPPoE::interfaceAtIndex(quint64 index) const
{
    if (index >= _interfaceInfoArray.size())
        return std::nullopt;
    return _interfaceInfoArray[index];
}

std::optional<NetworkInterfaceInfo> PPPoE::getInterfaceInfoWithInterfaceRef(const NetworkInterfaceRef &interfaceRef)
{
    if (!interfaceRef)
        return std::nullopt;
    NetworkInterfaceInfo info;
    info._interfaceRef = interfaceRef;
    info._displayName = _platform->networkInterfaceGetLocalizedDisplayName(interfaceRef);
    info._bsdName = _platform->networkInterfaceGetBSDName(interfaceRef);
    info._isActive = getStatusOfInterface(info._bsdName);
    info._macAddress = _platform->networkInterfaceGetHardwareAddressString(interfaceRef);
    return info;
}

bool PPPoE::getStatusOfInterface(const QString &bsdName)
{
    const DynamicStoreRef store = _platform->dynamicStoreCreate(QStringLiteral("GetInterfaceStatus"));
    if (!store)
        return false;
    const auto value =
        _platform->dynamicStoreCopyValue(store, QStringLiteral("State:/Network/Interface/%1/Link").arg(bsdName));
    if (!value)
        return false;
    const QVariant active = value->value(PPPoEKey::LinkActive);
    return active.typeId() == QMetaType::Bool && active.toBool();
}

bool PPPoE::dialWithUserName(const QString &name, const QString &password, quint64 index, DVError *error)
{
    if (!error)
        return false;
    if (!checkParm(name, password, index, error))
        return false;
    if (!_prefs) {
        *error = createErrorWithID(0, std::nullopt, _prefsFailure);
        return false;
    }
    const NetworkInterfaceInfo chosen = _interfaceInfoArray[index];

    NetworkServiceRef service;
    if (const NetworkServiceRef old = findPPPoEService(_prefs, error)) {
        if (canReuse(old, chosen)) {
            service = old;
        } else if (!removeService(old, _prefs, error)) {
            return false;
        }
    }
    if (!service) {
        service = createServiceOn(chosen, _prefs, error);
        if (!service)
            return false;
    }

    const NetworkConnectionRef conn = createConnWithService(service, error);
    _startAttempted = false;
    if (conn && startConnection(conn, name, password, error)) {
        _macAddress = chosen._macAddress;
        _connection = conn;
        return true;
    }
    if (conn && _startAttempted) {
        const int status = _platform->networkConnectionGetStatus(conn);
        if (status == NetworkConnectionConnecting || status == NetworkConnectionConnected) {
            // The start failed after the link had begun to come up: keep the connection so
            // that the caller can hang it up instead of leaving a link nobody supervises.
            DVLOG() << "start failed with the link in status " << status << "; kept for hanging up";
            _macAddress = chosen._macAddress;
            _connection = conn;
        }
    }
    // The result of the clean-up, not of the start: the start's error is already in `error`.
    return removeService(service, _prefs, error);
}

bool PPPoE::checkParm(const QString &name, const QString &password, quint64 index, DVError *error)
{
    if (!error)
        return false;
    if (name.isEmpty() || password.isEmpty()) {
        *error = createErrorWithID(18, std::nullopt);
        return false;
    }
    if (_interfaceInfoArray.empty()) {
        // Without a session the list cannot be read, so it is always empty then and the
        // session check of the dial would never be reached: report the real cause (error 0,
        // with the platform's reason) instead of an empty list.
        *error = _prefs ? createErrorWithID(17, std::nullopt) : createErrorWithID(0, std::nullopt, _prefsFailure);
        return false;
    }
    if (index >= _interfaceInfoArray.size()) {
        *error = createErrorWithID(16, std::nullopt);
        return false;
    }
    const NetworkInterfaceInfo &info = _interfaceInfoArray[index];
    if (!info._isActive) {
        const QString reason = QStringLiteral("当前所选网卡为：%1").arg(info._displayName) + QLatin1Char('\n')
                               + QStringLiteral("可能的原因为:%1").arg(getInterfaceErrorAtIndex(index));
        *error = createErrorWithID(20, QString(QLatin1String("")), reason);
        return false;
    }
    return true;
}

NetworkServiceRef PPPoE::findPPPoEService(const PreferencesRef &prefs, DVError *error)
{
    if (!error)
        return nullptr;
    const NetworkSetRef set = _platform->networkSetCopyCurrent(prefs);
    if (!set) {
        *error = createErrorWithID(5, std::nullopt);
        return nullptr;
    }
    const auto services = _platform->networkSetCopyServices(set);
    if (!services)
        return nullptr;
    for (const NetworkServiceRef &service : *services) {
        const QString serviceName = _platform->networkServiceGetName(service);
        if (!serviceName.isNull() && serviceName == _connctionName)
            return service;
    }
    return nullptr;
}

bool PPPoE::checkStatusOfService(const NetworkServiceRef &service, quint64 index)
{
    if (index >= _interfaceInfoArray.size())
        return false;
    return canReuse(service, _interfaceInfoArray[index]);
}

bool PPPoE::canReuse(const NetworkServiceRef &service, const NetworkInterfaceInfo &chosen)
{
    if (!service)
        return false;
    if (!_platform->networkServiceGetEnabled(service) && !_platform->networkServiceSetEnabled(service, true))
        return false;
    const NetworkInterfaceRef iface = _platform->networkServiceGetInterface(service);
    if (!iface || _platform->networkInterfaceGetInterfaceType(iface) != PPPoEKey::InterfaceTypePPP)
        return false;
    const NetworkInterfaceRef under = _platform->networkInterfaceGetInterface(iface);
    if (!under)
        return false;
    const QString bsdName = _platform->networkInterfaceGetBSDName(under);
    return !bsdName.isNull() && bsdName == chosen._bsdName;
}

bool PPPoE::removeService(const NetworkServiceRef &service, const PreferencesRef &prefs, DVError *error)
{
    if (!error)
        return false;
    if (!_platform->preferencesLock(prefs, true)) {
        *error = createErrorWithID(21, std::nullopt);
        return false;
    }
    if (!_platform->networkServiceRemove(service)) {
        // The lock stays taken on this path.
        *error = createErrorWithID(7, std::nullopt);
        return false;
    }
    if (!_platform->preferencesUnlock(prefs)) {
        *error = createErrorWithID(22, std::nullopt);
        return false;
    }
    return true;
}

NetworkServiceRef PPPoE::createPPPoEServiceWithIndex(quint64 index, const PreferencesRef &prefRef, DVError *error)
{
    if (!error || index >= _interfaceInfoArray.size())
        return nullptr;
    return createServiceOn(_interfaceInfoArray[index], prefRef, error);
}

NetworkServiceRef PPPoE::createServiceOn(const NetworkInterfaceInfo &chosen, const PreferencesRef &prefRef,
                                         DVError *error)
{
    if (!_platform->preferencesLock(prefRef, true)) {
        *error = createErrorWithID(21, std::nullopt);
        return nullptr;
    }
    const NetworkInterfaceRef ppp =
        _platform->networkInterfaceCreateWithInterface(chosen._interfaceRef, PPPoEKey::InterfaceTypePPP);
    const NetworkServiceRef service = ppp ? _platform->networkServiceCreate(prefRef, ppp) : nullptr;
    if (!service) {
        _platform->preferencesUnlock(prefRef);
        return nullptr;
    }
    if (!_platform->networkServiceSetName(service, _connctionName)) {
        *error = createErrorWithID(4, std::nullopt);
        _platform->preferencesUnlock(prefRef);
        return nullptr;
    }
    const bool configured = setService(service, prefRef, error);
    _platform->preferencesUnlock(prefRef);
    return configured ? service : nullptr;
}

bool PPPoE::setService(const NetworkServiceRef &service, const PreferencesRef &prefs, DVError *error)
{
    if (!error)
        return false;
    const NetworkInterfaceRef iface = _platform->networkServiceGetInterface(service);
    if (!iface)
        return false;
    // Placeholders only: the real credentials travel in the start options of each dial.
    QVariantMap config = _platform->networkInterfaceGetConfiguration(iface).value_or(QVariantMap());
    if (!config.contains(PPPoEKey::PropNetPPPAuthName))
        config.insert(PPPoEKey::PropNetPPPAuthName, QStringLiteral("username"));
    if (!config.contains(PPPoEKey::PropNetPPPAuthPassword))
        config.insert(PPPoEKey::PropNetPPPAuthPassword, QStringLiteral("password"));
    if (!config.contains(PPPoEKey::PropNetPPPCommRemoteAddress))
        config.insert(PPPoEKey::PropNetPPPCommRemoteAddress, QString(QLatin1String("")));
    if (!_platform->networkInterfaceSetConfiguration(iface, config)) {
        *error = createErrorWithID(8, std::nullopt);
        return false;
    }
    // The outcome of these steps is not checked: a start on an incomplete service reports
    // its own failure.
    if (_platform->networkServiceEstablishDefaultConfiguration(service)) {
        if (const NetworkSetRef set = _platform->networkSetCopyCurrent(prefs)) {
            if (_platform->networkSetAddService(set, service)) {
                _platform->preferencesCommitChanges(prefs);
                _platform->preferencesApplyChanges(prefs);
            }
        }
    }
    return true;
}

NetworkConnectionRef PPPoE::createConnWithService(const NetworkServiceRef &service, DVError *error)
{
    if (!error)
        return nullptr;
    const QString serviceID = _platform->networkServiceGetServiceID(service);
    if (serviceID.isNull())
        return nullptr;
    NetworkConnectionRef conn = _platform->networkConnectionCreateWithServiceID(
        serviceID, [this](const NetworkConnectionRef &c, int status) { connectionStatusChanged(c, status); });
    if (!conn)
        *error = directError("创建连接失败");
    return conn;
}

QVariantMap PPPoE::createOptionsWithName(const QString &name, const QString &password)
{
    QVariantMap ppp;
    ppp.insert(PPPoEKey::PropNetPPPAuthName, name);
    ppp.insert(PPPoEKey::PropNetPPPAuthPassword, password);
    ppp.insert(PPPoEKey::PropNetPPPCommRemoteAddress, QString(QLatin1String("")));
    QVariantMap options;
    options.insert(PPPoEKey::EntNetPPP, ppp);
    return options;
}

bool PPPoE::startConnection(const NetworkConnectionRef &connection, const QString &username, const QString &password,
                            DVError *error)
{
    if (!error)
        return false;
    if (!_platform->networkConnectionScheduleWithRunLoop(connection)) {
        const int code = _platform->scError();
        *error = createErrorWithID(
            12, QStringLiteral("创建连接启动计划失败,错误:%1,%2").arg(code).arg(_platform->scErrorString(code)));
        return false;
    }
    if (_platform->networkConnectionGetStatus(connection) != NetworkConnectionDisconnected) {
        *error = directError("拨号连接状态错误");
        _platform->networkConnectionUnscheduleFromRunLoop(connection);
        return false;
    }
    _startAttempted = true;
    if (!_platform->networkConnectionStart(connection, createOptionsWithName(username, password), false)) {
        const int code = _platform->scError();
        *error = createErrorWithID(
            12, QStringLiteral("启动连接失败,错误:%1,%2").arg(code).arg(_platform->scErrorString(code)));
        return false;
    }
    return true;
}

void PPPoE::connectionStatusChanged(const NetworkConnectionRef &connection, int status)
{
    auto event = std::make_shared<DVDialStatusEvent>(dialStateForStatus(status));
    if (status == NetworkConnectionDisconnected) {
        const LinkEnd end = _platform->networkConnectionCopyEndReason(connection);
        event->endCause = linkEndCauseName(end.cause);
        event->endDetail = end.detail;
        _platform->networkConnectionUnscheduleFromRunLoop(connection);
    }
    DVEvent::shared().fireEventWithEventID(DVEventIdDialStatus, event);
}

QString linkEndCauseName(LinkEndCause cause)
{
    switch (cause) {
    case LinkEndCause::UserRequested:
        return QStringLiteral("user");
    case LinkEndCause::Refused:
        return QStringLiteral("refused");
    case LinkEndCause::Dropped:
        return QStringLiteral("dropped");
    case LinkEndCause::Failed:
        return QStringLiteral("failed");
    case LinkEndCause::Unknown:
        break;
    }
    return QStringLiteral("unknown");
}

qint64 PPPoE::dialStateForStatus(int status)
{
    switch (status) {
    case NetworkConnectionDisconnected:
        return DVDialStateDisconnected;
    case NetworkConnectionConnecting:
    case NetworkConnectionDisconnecting:
        return DVDialStateInProgress;
    case NetworkConnectionConnected:
        return DVDialStateConnected;
    default:
        return DVDialStateUnknown;
    }
}

bool PPPoE::stopConn()
{
    if (!_connection)
        return false;
    return _platform->networkConnectionStop(_connection, true);
}

quint32 PPPoE::getConnTime()
{
    if (!_connection)
        return 0;
    const auto status = _platform->networkConnectionCopyExtendedStatus(_connection);
    if (!status)
        return 0;
    const QVariant ppp = status->value(PPPoEKey::EntNetPPP);
    if (!ppp.isValid())
        return 0;
    const QVariant connectTime = ppp.toMap().value(PPPoEKey::PropNetPPPConnectTime);
    if (!connectTime.isValid())
        return 0;
    const qint64 up = _platform->systemUptimeSeconds() - qint64(connectTime.toUInt());
    return up > 0 ? quint32(up) : 0;
}

std::optional<QString> PPPoE::getIP()
{
    if (!_connection)
        return std::nullopt;
    const auto status = _platform->networkConnectionCopyExtendedStatus(_connection);
    if (!status)
        return std::nullopt;
    const QVariant ipv4 = status->value(PPPoEKey::EntNetIPv4);
    if (!ipv4.isValid())
        return std::nullopt;
    // One address is the normal case; several are joined without a separator on purpose.
    return ipv4.toMap().value(PPPoEKey::PropNetIPv4Addresses).toStringList().join(QString());
}

QString PPPoE::getInterfaceErrorAtIndex(quint64 index)
{
    if (index >= _interfaceInfoArray.size())
        return QStringLiteral("未知错误");
    const NetworkInterfaceInfo &info = _interfaceInfoArray[index];
    const QString type = _platform->networkInterfaceGetInterfaceType(info._interfaceRef);
    if (type == PPPoEKey::InterfaceTypeEthernet) {
        return info._macAddress.isEmpty() ? QStringLiteral("网卡、转接器可能未插好")
                                          : QStringLiteral("电缆可能未插好，或另一端的设备没有响应");
    }
    if (type == PPPoEKey::InterfaceTypeIEEE80211)
        return QStringLiteral("WI-FI未开启或者未连接");
    return QStringLiteral("未知错误");
}

QString PPPoE::errorMessage(qint64 errorId)
{
    if (errorId < 0 || errorId >= kErrorCount)
        return {};
    return QString::fromUtf8(kErrorMessages[errorId]);
}

DVError PPPoE::createErrorWithID(qint64 errorId, const std::optional<QString> &info, const QString &failureReason)
{
    QString description;
    if (errorId >= 0 && errorId < kErrorCount) {
        description = errorMessage(errorId);
        if (info)
            description += *info;
    }
    return DVError(PPPoEErrorDomain, errorId, description, failureReason);
}

DVError PPPoE::createErrorWithID(qint64 errorId, const std::optional<QString> &info)
{
    return createErrorWithID(errorId, info, QString(QLatin1String("")));
}
