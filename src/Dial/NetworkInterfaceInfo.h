#pragma once

#include "PPPoEPlatform.h"

#include <QString>

// One interface on which a dial can run, as listed by PPPoE::getInterfaceList().
struct NetworkInterfaceInfo
{
    NetworkInterfaceRef _interfaceRef; // the platform's interface handle
    QString _displayName;              // localized display name
    QString _bsdName;                  // kernel interface name ("eth0", "en0")
    bool _isActive = false;            // link up at listing time
    QString _macAddress;               // hardware address text, empty when unknown
};
