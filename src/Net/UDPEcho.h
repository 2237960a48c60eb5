#pragma once

#include "Util/DVError.h"

#include <QByteArray>
#include <QString>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QObject;
class QSocketNotifier;
class UDPEcho;

// Everything a UDPEcho has to say. Every operation is optional: the defaults do nothing.
// Socket addresses are raw socket-address bytes (a sockaddr_in or sockaddr_in6).
class UDPEchoDelegate
{
public:
    virtual ~UDPEchoDelegate() = default;

    // A datagram of at least one byte arrived.
    virtual void echoDidReceiveData(UDPEcho * /*echo*/, const QByteArray & /*data*/, const QByteArray & /*address*/) {}
    // A receive failed (POSIX domain; a zero-length datagram counts as error 32).
    virtual void echoDidReceiveError(UDPEcho * /*echo*/, const DVError & /*error*/) {}
    // A send wrote the whole datagram. In client mode `address` is hostAddress().
    virtual void echoDidSendData(UDPEcho * /*echo*/, const QByteArray & /*data*/, const QByteArray & /*address*/) {}
    // A send failed (POSIX domain, no user info).
    virtual void echoDidFailToSendData(UDPEcho * /*echo*/, const QByteArray & /*data*/, const QByteArray & /*address*/,
                                       const DVError & /*error*/)
    {}
    // Client: the socket is connected to `address` (hostAddress()). Server: the socket is bound
    // to the local `address`.
    virtual void echoDidStartWithAddress(UDPEcho * /*echo*/, const QByteArray & /*address*/) {}
    // The object stopped because of an error and is idle again.
    virtual void echoDidStopWithError(UDPEcho * /*echo*/, const DVError & /*error*/) {}
};

// A stream-level error as the resolver reports it: a domain (DVErrorDomain::NetDB for a
// getaddrinfo failure, DVErrorDomain::POSIX for a system error) and its code.
struct CFStreamError
{
    QString domain;
    qint64 error = 0;
};

// The one UDP endpoint of the client. Client mode resolves a host name, connects a datagram
// socket to the first usable address and sends to it; server mode binds a local port and
// echoes every datagram back to its sender. Everything is event-driven on the Qt event loop
// of the thread that started it (see RunLoop); nothing blocks.
//
// The object lives on the thread that starts it: start, send, stop and destroy it there, and
// do not destroy it from inside one of its own delegate calls.
//
// Calling an operation against its preconditions (bad port, starting twice, sending in the
// wrong mode) is a programming fault and aborts the process. Nothing that arrives from the
// network does.
class UDPEcho
{
public:
    UDPEcho();
    ~UDPEcho(); // stops, without telling the delegate
    UDPEcho(const UDPEcho &) = delete;
    UDPEcho &operator=(const UDPEcho &) = delete;

    UDPEchoDelegate *delegate() const { return _delegate; }
    // Not owned; may be null.
    void setDelegate(UDPEchoDelegate *delegate) { _delegate = delegate; }

    // The peer's name in client mode; nullopt in server mode and when idle.
    const std::optional<QString> &hostName() const { return _hostName; }
    // The connected peer's address (client mode, once connected).
    const std::optional<QByteArray> &hostAddress() const { return _hostAddress; }
    // The peer's port (client) or the local port (server); 0 when not started.
    uint port() const { return _port; }
    // True exactly when there is no host name (server mode, or idle).
    bool isServer() const { return !_hostName.has_value(); }
    // Whether a socket is open.
    bool hasSocket() const { return _fd >= 0; }

    // Binds every local address on `port` (1 to 65535) and echoes what arrives.
    void startServerOnPort(uint port);
    // Resolves `hostName` asynchronously, then connects to the first address that works on
    // `port` (1 to 65535).
    void startConnectedToHostName(const QString &hostName, uint port);

    // Client mode, connected: one datagram to the peer.
    void sendData(const QByteArray &data);
    // One datagram; `address` is given exactly in server mode.
    void sendData(const QByteArray &data, const std::optional<QByteArray> &address);

    // Back to idle: ends resolution, closes the socket. Safe when idle.
    void stop();
    // stop(), then echoDidStopWithError.
    void stopWithError(const DVError &error);
    // A CFNetwork-domain error with code 2 (NetDB code under kCFGetAddrInfoFailureKey), then
    // stopWithError.
    void stopWithStreamError(const CFStreamError &streamError);

    // An error of the POSIX domain with `errorNumber` as code and the system's text for it.
    static DVError posixError(int errorNumber);
    // "127.0.0.1:53", "[::1]:53" for a socket address; "" when it is not IPv4 or IPv6.
    static QString addressToString(const QByteArray &address);
    // The port of a socket address (0 when it is not IPv4 or IPv6).
    static quint16 portOfAddress(const QByteArray &address);

    // Name resolution as the system does it: the addresses in resolver order, or the failure.
    struct Resolution
    {
        std::vector<QByteArray> addresses;
        std::optional<CFStreamError> error;
    };
    using Resolver = std::function<Resolution(const QString &hostName)>;
    // Replaces the system resolver (null restores it). For tests that need answers the local
    // resolver cannot give, such as addresses of other families.
    static void setResolverForTesting(Resolver resolver);
    static Resolution systemResolve(const QString &hostName);

private:
    struct PendingLookup;

    bool setupSocketConnectedToAddress(const std::optional<QByteArray> &address, uint port, DVError *error);
    void hostResolutionDone(const Resolution &resolution);
    void hostResolveCallback(const std::shared_ptr<PendingLookup> &lookup, const Resolution &resolution);
    void socketReadCallback(int fd);
    void readData();
    void stopHostResolution();
    void closeSocket();
    void beginDispatch() { ++_dispatchDepth; }
    void endDispatch();

    UDPEchoDelegate *_delegate = nullptr;
    std::shared_ptr<PendingLookup> _cfHost; // present only while a name is being resolved
    int _fd = -1;                           // with _notifier: the socket, while started
    QSocketNotifier *_notifier = nullptr;
    QObject *_context = nullptr; // receives resolver results on the starting thread
    std::optional<QString> _hostName;
    std::optional<QByteArray> _hostAddress;
    uint _port = 0;

    // Objects released while one of their own call-backs was running; freed once it returns.
    int _dispatchDepth = 0;
    std::vector<QObject *> _graveyard;
};
