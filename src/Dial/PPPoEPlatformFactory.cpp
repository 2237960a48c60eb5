#include "PPPoEPlatformFactory.h"

#include "simulated/SimulatedPlatform.h"
#ifdef DORVIK_DIAL_NETWORKMANAGER
#include "networkmanager/NMPlatform.h"
#endif

#include "Util/Log.h"

namespace PPPoEPlatformFactory {

QString defaultName()
{
    return QStringLiteral(DORVIK_DIAL_DEFAULT_BACKEND);
}

QStringList availableNames()
{
    QStringList names;
#ifdef DORVIK_DIAL_NETWORKMANAGER
    names << QStringLiteral("networkmanager");
#endif
    names << QStringLiteral("simulated");
    return names;
}

std::unique_ptr<PPPoEPlatform> create(const QString &name)
{
    const QString chosen = name.isEmpty() ? defaultName() : name;
#ifdef DORVIK_DIAL_NETWORKMANAGER
    if (chosen == QLatin1String("networkmanager"))
        return std::make_unique<NMPlatform>();
#endif
    if (chosen == QLatin1String("simulated"))
        return std::make_unique<SimulatedPlatform>();
    DVLOG() << "unknown dialing back-end: " << chosen << " (available: " << availableNames().join(QStringLiteral(", "))
            << ")";
    return nullptr;
}

} // namespace PPPoEPlatformFactory
