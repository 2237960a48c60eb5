#pragma once

#include <QString>

// Facts about this client and machine that the negotiation reports.
namespace BcomPlatform {

// The application's short version ("0.1.0").
QString clientVersion();
// The operating system's name immediately followed by its version, as the environment probe
// reports it.
QString osDescription();

} // namespace BcomPlatform
