#pragma once

#include "PPPoEPlatform.h"

#include <QString>
#include <QStringList>

#include <memory>

// Back-ends of the dialing layer, chosen by name: "networkmanager" (Linux, NetworkManager
// over the system D-Bus) or "simulated" (an in-memory machine for the demo and for tests).
namespace PPPoEPlatformFactory {

// The back-end this build uses when nobody names one (set at compile time).
QString defaultName();
// Names this build can create.
QStringList availableNames();
// A new back-end; an empty name means defaultName(). Null (and a log line) for an unknown name.
std::unique_ptr<PPPoEPlatform> create(const QString &name = QString());

} // namespace PPPoEPlatformFactory
