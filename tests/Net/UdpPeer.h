#pragma once

#include <QByteArray>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <optional>

// A plain datagram socket on the loopback interface, for playing the other end of a UDPEcho:
// it can send what no well-behaved server would (empty datagrams, random bytes).
class UdpPeer
{
public:
    explicit UdpPeer(int family = AF_INET, quint16 port = 0)
    {
        _fd = ::socket(family, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        sockaddr_storage local{};
        socklen_t length;
        if (family == AF_INET6) {
            auto *v6 = reinterpret_cast<sockaddr_in6 *>(&local);
            v6->sin6_family = AF_INET6;
            v6->sin6_addr = in6addr_loopback;
            v6->sin6_port = htons(port);
            length = sizeof(sockaddr_in6);
        } else {
            auto *v4 = reinterpret_cast<sockaddr_in *>(&local);
            v4->sin_family = AF_INET;
            v4->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            v4->sin_port = htons(port);
            length = sizeof(sockaddr_in);
        }
        _ok = _fd >= 0 && ::bind(_fd, reinterpret_cast<sockaddr *>(&local), length) == 0;
        sockaddr_storage bound{};
        socklen_t boundLength = sizeof bound;
        if (_ok && ::getsockname(_fd, reinterpret_cast<sockaddr *>(&bound), &boundLength) == 0)
            _port = ntohs(family == AF_INET6 ? reinterpret_cast<sockaddr_in6 *>(&bound)->sin6_port
                                             : reinterpret_cast<sockaddr_in *>(&bound)->sin_port);
    }
    ~UdpPeer()
    {
        if (_fd >= 0)
            ::close(_fd);
    }
    UdpPeer(const UdpPeer &) = delete;
    UdpPeer &operator=(const UdpPeer &) = delete;

    bool ok() const { return _ok; }
    quint16 port() const { return _port; }

    struct Datagram
    {
        QByteArray data;
        QByteArray from; // raw socket address
    };

    // One waiting datagram, without blocking.
    std::optional<Datagram> tryReceive()
    {
        char buffer[65536];
        sockaddr_storage from{};
        socklen_t length = sizeof from;
        const ssize_t n = ::recvfrom(_fd, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr *>(&from), &length);
        if (n < 0)
            return std::nullopt;
        return Datagram{QByteArray(buffer, n), QByteArray(reinterpret_cast<const char *>(&from), length)};
    }

    bool sendTo(const QByteArray &data, const QByteArray &address)
    {
        return ::sendto(_fd, data.constData(), static_cast<size_t>(data.size()), 0,
                        reinterpret_cast<const sockaddr *>(address.constData()), static_cast<socklen_t>(address.size()))
               == data.size();
    }

    // A socket address for 127.0.0.1:port.
    static QByteArray loopbackV4(quint16 port)
    {
        sockaddr_in v4{};
        v4.sin_family = AF_INET;
        v4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        v4.sin_port = htons(port);
        return QByteArray(reinterpret_cast<const char *>(&v4), sizeof v4);
    }

private:
    int _fd = -1;
    bool _ok = false;
    quint16 _port = 0;
};
