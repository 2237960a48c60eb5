// The machine's interfaces as NetworkManager's devices show them, and their link state.

#include "NMPlatform.h"
#include "NMPlatformPrivate.h"

#include <QDBusVariant>

using namespace NMObjects;

QString NMPlatform::networkInterfaceGetInterfaceType(const NetworkInterfaceRef &iface)
{
    const auto i = as<Interface>(iface);
    return i ? i->type : QString();
}

QString NMPlatform::networkInterfaceGetLocalizedDisplayName(const NetworkInterfaceRef &iface)
{
    const auto i = as<Interface>(iface);
    return i ? i->displayName : QString();
}

QString NMPlatform::networkInterfaceGetBSDName(const NetworkInterfaceRef &iface)
{
    const auto i = as<Interface>(iface);
    return i ? i->bsdName : QString();
}

QString NMPlatform::networkInterfaceGetHardwareAddressString(const NetworkInterfaceRef &iface)
{
    const auto i = as<Interface>(iface);
    return i ? i->macAddress : QString();
}

NetworkInterfaceRef NMPlatform::networkInterfaceGetInterface(const NetworkInterfaceRef &iface)
{
    const auto i = as<Interface>(iface);
    return i ? i->child : nullptr;
}

NetworkInterfaceRef NMPlatform::networkInterfaceCreateWithInterface(const NetworkInterfaceRef &child,
                                                                    const QString &interfaceType)
{
    const auto c = as<Interface>(child);
    if (!c || interfaceType != PPPoEKey::InterfaceTypePPP) {
        d->fail(InvalidArgument, QStringLiteral("only PPP can be layered over a device"));
        return nullptr;
    }
    auto ppp = std::make_shared<Interface>();
    ppp->type = PPPoEKey::InterfaceTypePPP;
    ppp->displayName = QStringLiteral("PPPoE");
    ppp->child = c;
    return ppp;
}

std::optional<QVariantMap> NMPlatform::networkInterfaceGetConfiguration(const NetworkInterfaceRef &iface)
{
    const auto i = as<Interface>(iface);
    return i ? i->config : std::nullopt;
}

// Only the dial name of a PPP configuration reaches the profile: the profile never holds a
// password (NetworkManager asks our agent for it at each start).
bool NMPlatform::networkInterfaceSetConfiguration(const NetworkInterfaceRef &iface, const QVariantMap &config)
{
    const auto i = as<Interface>(iface);
    if (!i)
        return d->fail(InvalidArgument, QStringLiteral("not an interface"));
    i->config = config;
    return true;
}

DynamicStoreRef NMPlatform::dynamicStoreCreate(const QString &)
{
    return std::make_shared<Store>();
}

// Link state of "State:/Network/Interface/<name>/Link": carrier for wired devices, an
// associated access point for wireless ones; a device NetworkManager does not manage counts
// as down, since no dial can run on it.
std::optional<QVariantMap> NMPlatform::dynamicStoreCopyValue(const DynamicStoreRef &store, const QString &key)
{
    static const QString prefix = QStringLiteral("State:/Network/Interface/");
    static const QString suffix = QStringLiteral("/Link");
    if (!as<Store>(store) || !key.startsWith(prefix) || !key.endsWith(suffix)) {
        d->fail(NoKey, QStringLiteral("no such key: ") + key);
        return std::nullopt;
    }
    const QString name = key.mid(prefix.size(), key.size() - prefix.size() - suffix.size());
    const NMBus::Reply r = NMBus::call(NMBus::Path, NMBus::Interface, QStringLiteral("GetDeviceByIpIface"), {name});
    if (!r.ok()) {
        d->fail(NoKey, QStringLiteral("no device %1: %2").arg(name, r.errorText()));
        return std::nullopt;
    }
    const QString path = NMBus::toPath(r.first());
    const QVariantMap dev = NMBus::properties(path, NMBus::DeviceInterface);
    const uint type = dev.value(QStringLiteral("DeviceType")).toUInt();
    bool active = false;
    if (dev.value(QStringLiteral("State")).toUInt() != NMBus::DeviceStateUnmanaged) {
        if (type == NMBus::DeviceTypeWifi) {
            const auto ap = NMBus::property(path, NMBus::WirelessInterface, QStringLiteral("ActiveAccessPoint"));
            active = ap && !NMBus::toPath(*ap).isEmpty() && NMBus::toPath(*ap) != QLatin1String("/");
        } else {
            const auto carrier = NMBus::property(path, NMBus::WiredInterface, QStringLiteral("Carrier"));
            active = carrier && carrier->toBool();
        }
    }
    return QVariantMap{{PPPoEKey::LinkActive, active}};
}
