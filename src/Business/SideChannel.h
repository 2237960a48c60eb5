#pragma once

#include <QString>
#include <QVariantMap>

#include <optional>

// Small pieces shared by the two UDP side channels (SMS verification, dynamic password).
namespace SideChannel {

struct HostAndPort
{
    QString host;
    qint64 port = 0;
};

// Splits a configured "host:port" at ":". With exactly two pieces the port is the integer
// value of the second; with one piece (no colon) or more than two it is 0, which makes the
// flows refuse to run. The host is always the first piece. This is deliberately not the
// HTTP helper's rule (which defaults to port 80): a UDP server has no default port.
HostAndPort splitHostAndPort(const QString &address);

// Whether a port can be used for a socket (1 to 65535).
inline bool isUsablePort(qint64 port)
{
    return port >= 1 && port <= 65535;
}

// User information of an error as one log-friendly text, "{key = value; ...}".
QString userInfoText(const QVariantMap &userInfo);

} // namespace SideChannel
