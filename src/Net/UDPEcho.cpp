#include "UDPEcho.h"

#include "RunLoop.h"
#include "Util/ThreadHandoff.h"

#include <QObject>
#include <QSocketNotifier>
#include <QThread>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <system_error>
#include <thread>

// Misuse by the calling code (never anything that came from the network) ends the process.
#define UDPECHO_REQUIRE(cond)                                                                                          \
    do {                                                                                                               \
        if (Q_UNLIKELY(!(cond)))                                                                                       \
            qFatal("UDPEcho: precondition failed: %s", #cond);                                                         \
    } while (false)

namespace {

// The size of a generic socket-address record; no address we keep is longer.
constexpr int kMaxAddressLength = 128;
static_assert(sizeof(sockaddr_storage) == kMaxAddressLength, "socket-address storage is 128 bytes");

std::mutex g_resolverMutex;
UDPEcho::Resolver g_resolver;

int familyOf(const QByteArray &address)
{
    if (address.size() < static_cast<qsizetype>(sizeof(sa_family_t)))
        return AF_UNSPEC;
    sa_family_t family;
    std::memcpy(&family, address.constData() + offsetof(sockaddr, sa_family), sizeof family);
    return family;
}

QByteArray bytesOf(const void *address, socklen_t length)
{
    return QByteArray(static_cast<const char *>(address),
                      static_cast<qsizetype>(qMin<socklen_t>(length, kMaxAddressLength)));
}

} // namespace

// One name resolution in flight. The helper thread posts its answer to `target` (an object on
// the starting thread) only while it is set; cancelling clears it under the lock, so the
// target is never used after it is gone.
struct UDPEcho::PendingLookup
{
    std::mutex mutex;
    QObject *target = nullptr;
};

UDPEcho::UDPEcho() = default;

UDPEcho::~UDPEcho()
{
    stop();
    qDeleteAll(_graveyard);
    delete _context;
}

void UDPEcho::startServerOnPort(uint port)
{
    UDPECHO_REQUIRE(port >= 1 && port <= 65535);
    UDPECHO_REQUIRE(_port == 0);
    UDPECHO_REQUIRE(!_cfHost && _fd < 0);

    DVError error;
    if (!setupSocketConnectedToAddress(std::nullopt, port, &error)) {
        stopWithError(error);
        return;
    }
    _port = port;
    sockaddr_storage local{};
    socklen_t length = sizeof local;
    QByteArray address;
    if (::getsockname(_fd, reinterpret_cast<sockaddr *>(&local), &length) == 0)
        address = bytesOf(&local, length);
    if (_delegate)
        _delegate->echoDidStartWithAddress(this, address);
}

void UDPEcho::startConnectedToHostName(const QString &hostName, uint port)
{
    UDPECHO_REQUIRE(port >= 1 && port <= 65535);
    UDPECHO_REQUIRE(_port == 0);
    UDPECHO_REQUIRE(!_cfHost && _fd < 0);

    RunLoop::ensureEventDispatcher();
    if (!_context)
        _context = new QObject;
    // Answers come back through the event loop of the thread that first started the object.
    UDPECHO_REQUIRE(_context->thread() == QThread::currentThread());

    Resolver resolver;
    {
        std::lock_guard<std::mutex> lock(g_resolverMutex);
        resolver = g_resolver ? g_resolver : Resolver(&UDPEcho::systemResolve);
    }
    auto lookup = std::make_shared<PendingLookup>();
    lookup->target = _context;
    try {
        std::thread([this, lookup, hostName, resolver] {
            const Resolution resolution = resolver(hostName);
            std::lock_guard<std::mutex> lock(lookup->mutex);
            if (!lookup->target)
                return;
            ThreadHandoff::post(lookup->target,
                                [this, lookup, resolution] { hostResolveCallback(lookup, resolution); });
        }).detach();
    } catch (const std::system_error &e) {
        stopWithStreamError(CFStreamError{DVErrorDomain::POSIX, e.code().value()});
        return;
    }
    _cfHost = lookup;
    _hostName = hostName;
    _port = port;
}

void UDPEcho::sendData(const QByteArray &data)
{
    UDPECHO_REQUIRE(!isServer() && _hostAddress.has_value());
    sendData(data, std::nullopt);
}

void UDPEcho::sendData(const QByteArray &data, const std::optional<QByteArray> &address)
{
    UDPECHO_REQUIRE(isServer() == address.has_value());
    UDPECHO_REQUIRE(!address || address->size() <= kMaxAddressLength);
    UDPECHO_REQUIRE(_fd >= 0);

    ssize_t written;
    if (address) {
        sockaddr_storage to{};
        std::memcpy(&to, address->constData(), static_cast<size_t>(address->size()));
        written = ::sendto(_fd, data.constData(), static_cast<size_t>(data.size()), 0,
                           reinterpret_cast<const sockaddr *>(&to), static_cast<socklen_t>(address->size()));
    } else {
        written = ::sendto(_fd, data.constData(), static_cast<size_t>(data.size()), 0, nullptr, 0);
    }
    int err = 0;
    if (written < 0)
        err = errno;
    else if (written == 0)
        err = EPIPE;
    else
        UDPECHO_REQUIRE(written == data.size());

    const QByteArray destination = address ? *address : _hostAddress.value_or(QByteArray());
    if (!_delegate)
        return;
    if (err == 0)
        _delegate->echoDidSendData(this, data, destination);
    else
        _delegate->echoDidFailToSendData(this, data, destination, posixError(err));
}

void UDPEcho::stop()
{
    _hostName.reset();
    _hostAddress.reset();
    _port = 0;
    stopHostResolution();
    closeSocket();
}

void UDPEcho::stopWithError(const DVError &error)
{
    stop();
    if (_delegate)
        _delegate->echoDidStopWithError(this, error);
}

void UDPEcho::stopWithStreamError(const CFStreamError &streamError)
{
    QVariantMap userInfo;
    if (streamError.domain == DVErrorDomain::NetDB)
        userInfo.insert(kCFGetAddrInfoFailureKey, streamError.error);
    // Code 2: the lookup failed for a reason the resolver gave (kCFHostErrorUnknown).
    stopWithError(
        DVError(DVErrorDomain::CFNetwork, 2,
                QStringLiteral("The operation couldn’t be completed. (%1 error 2.)").arg(DVErrorDomain::CFNetwork), {},
                userInfo));
}

bool UDPEcho::setupSocketConnectedToAddress(const std::optional<QByteArray> &address, uint port, DVError *error)
{
    UDPECHO_REQUIRE(address.has_value() == !isServer());
    UDPECHO_REQUIRE(!address || address->size() <= kMaxAddressLength);
    UDPECHO_REQUIRE(port < 65536);
    UDPECHO_REQUIRE(_fd < 0);

    RunLoop::ensureEventDispatcher();
    if (!_context)
        _context = new QObject;
    UDPECHO_REQUIRE(_context->thread() == QThread::currentThread());

    // Close-on-exec so that programs the client starts never inherit the socket.
    int socketFamily = AF_INET6;
    int fd = ::socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        socketFamily = AF_INET;
        fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    }
    int err = fd < 0 ? errno : 0;

    if (err == 0) {
        sockaddr_storage storage{};
        auto *v4 = reinterpret_cast<sockaddr_in *>(&storage);
        auto *v6 = reinterpret_cast<sockaddr_in6 *>(&storage);
        socklen_t length = 0;
        const auto netPort = htons(static_cast<quint16>(port));
        if (address) {
            std::memcpy(&storage, address->constData(), static_cast<size_t>(address->size()));
            const int family = storage.ss_family;
            UDPECHO_REQUIRE(family == AF_INET || family == AF_INET6);
            if (family == AF_INET && socketFamily == AF_INET6) {
                // An IPv4 peer on an IPv6 socket: talk to it through its IPv4-mapped address.
                const in_addr ipv4 = v4->sin_addr;
                storage = sockaddr_storage{};
                v6->sin6_family = AF_INET6;
                v6->sin6_port = netPort;
                v6->sin6_flowinfo = 0;
                v6->sin6_addr.s6_addr[10] = 0xFF;
                v6->sin6_addr.s6_addr[11] = 0xFF;
                std::memcpy(&v6->sin6_addr.s6_addr[12], &ipv4, 4);
                v6->sin6_scope_id = 0;
                length = sizeof(sockaddr_in6);
            } else if (family == AF_INET) {
                v4->sin_port = netPort;
                length = sizeof(sockaddr_in);
            } else {
                v6->sin6_port = netPort;
                length = sizeof(sockaddr_in6);
            }
            if (::connect(fd, reinterpret_cast<const sockaddr *>(&storage), length) < 0)
                err = errno;
        } else {
            if (socketFamily == AF_INET6) {
                v6->sin6_family = AF_INET6;
                v6->sin6_addr = in6addr_any;
                v6->sin6_port = netPort;
                length = sizeof(sockaddr_in6);
            } else {
                v4->sin_family = AF_INET;
                v4->sin_addr.s_addr = htonl(INADDR_ANY);
                v4->sin_port = netPort;
                length = sizeof(sockaddr_in);
            }
            if (::bind(fd, reinterpret_cast<const sockaddr *>(&storage), length) < 0)
                err = errno;
        }
    }
    if (err == 0) {
        const int flags = ::fcntl(fd, F_GETFL);
        if (flags < 0 || ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) < 0)
            err = errno;
    }
    if (err != 0) {
        if (fd >= 0)
            ::close(fd);
        setError(error, posixError(err));
        return false;
    }

    _fd = fd;
    _notifier = new QSocketNotifier(static_cast<qintptr>(fd), QSocketNotifier::Read);
    QObject::connect(_notifier, &QSocketNotifier::activated, _context, [this, fd] { socketReadCallback(fd); });
    return true;
}

void UDPEcho::hostResolveCallback(const std::shared_ptr<PendingLookup> &lookup, const Resolution &resolution)
{
    // A late answer for a resolution that was stopped (or replaced) is not ours any more.
    if (!lookup || lookup != _cfHost)
        return;
    beginDispatch();
    if (resolution.error && !resolution.error->domain.isEmpty())
        stopWithStreamError(*resolution.error);
    else
        hostResolutionDone(resolution);
    RunLoop::sourceHandled();
    endDispatch();
}

void UDPEcho::hostResolutionDone(const Resolution &resolution)
{
    UDPECHO_REQUIRE(_port != 0);
    UDPECHO_REQUIRE(_cfHost != nullptr);
    UDPECHO_REQUIRE(_fd < 0);
    UDPECHO_REQUIRE(!_hostAddress.has_value());

    std::optional<DVError> error;
    bool connected = false;
    for (const QByteArray &address : resolution.addresses) {
        UDPECHO_REQUIRE(address.size() >= 16);
        const int family = familyOf(address);
        if (family != AF_INET6 && family != AF_INET)
            continue;
        if (address.size() > kMaxAddressLength)
            continue;
        DVError attempt;
        if (setupSocketConnectedToAddress(address, _port, &attempt)) {
            sockaddr_storage peer{};
            socklen_t length = sizeof peer;
            if (::getpeername(_fd, reinterpret_cast<sockaddr *>(&peer), &length) == 0)
                _hostAddress = bytesOf(&peer, length);
            else
                _hostAddress = address;
            connected = true;
            break;
        }
        error = attempt;
    }
    // A socket that connected wins over the failures of the addresses tried before it: those
    // only explain why nothing connected.
    if (connected) {
        stopHostResolution();
        if (_delegate)
            _delegate->echoDidStartWithAddress(this, *_hostAddress);
        return;
    }
    if (!error)
        error =
            DVError(DVErrorDomain::CFNetwork, 1,
                    QStringLiteral("The operation couldn’t be completed. (%1 error 1.)").arg(DVErrorDomain::CFNetwork));
    stopWithError(*error);
}

void UDPEcho::socketReadCallback(int fd)
{
    if (fd != _fd)
        return;
    beginDispatch();
    readData();
    RunLoop::sourceHandled();
    endDispatch();
}

void UDPEcho::readData()
{
    // One datagram per readable event; the kernel keeps reporting the socket readable while
    // more are queued.
    char buffer[65536];
    sockaddr_storage from{};
    socklen_t fromLength = sizeof from;
    const ssize_t received =
        ::recvfrom(_fd, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr *>(&from), &fromLength);
    int err = 0;
    if (received < 0) {
        err = errno;
        // Nothing to read after all (the kernel may announce a datagram that it then drops
        // for a bad checksum): not an error of the exchange.
        if (err == 0 || err == EAGAIN || err == EWOULDBLOCK)
            return;
    } else if (received == 0) {
        err = EPIPE;
    } else {
        const bool server = isServer();
        const QByteArray data(buffer, static_cast<qsizetype>(received));
        const QByteArray address = bytesOf(&from, fromLength);
        if (_delegate)
            _delegate->echoDidReceiveData(this, data, address);
        // The delegate may have stopped us meanwhile.
        if (server && isServer() && _fd >= 0)
            sendData(data, address);
        return;
    }
    if (_delegate)
        _delegate->echoDidReceiveError(this, posixError(err));
}

void UDPEcho::stopHostResolution()
{
    if (!_cfHost)
        return;
    {
        std::lock_guard<std::mutex> lock(_cfHost->mutex);
        _cfHost->target = nullptr;
    }
    _cfHost.reset();
}

void UDPEcho::closeSocket()
{
    if (_notifier) {
        _notifier->setEnabled(false);
        QObject::disconnect(_notifier, nullptr, nullptr, nullptr);
        if (_dispatchDepth > 0)
            _graveyard.push_back(_notifier);
        else
            delete _notifier;
        _notifier = nullptr;
    }
    if (_fd >= 0) {
        ::close(_fd);
        _fd = -1;
    }
}

void UDPEcho::endDispatch()
{
    if (--_dispatchDepth == 0 && !_graveyard.empty()) {
        qDeleteAll(_graveyard);
        _graveyard.clear();
    }
}

DVError UDPEcho::posixError(int errorNumber)
{
    return DVError(DVErrorDomain::POSIX, errorNumber, qt_error_string(errorNumber));
}

QString UDPEcho::addressToString(const QByteArray &address)
{
    char text[INET6_ADDRSTRLEN] = {};
    sockaddr_storage storage{};
    std::memcpy(&storage, address.constData(), static_cast<size_t>(qMin<qsizetype>(address.size(), kMaxAddressLength)));
    if (familyOf(address) == AF_INET && address.size() >= static_cast<qsizetype>(sizeof(sockaddr_in))) {
        const auto *v4 = reinterpret_cast<const sockaddr_in *>(&storage);
        ::inet_ntop(AF_INET, &v4->sin_addr, text, sizeof text);
        return QStringLiteral("%1:%2").arg(QLatin1String(text)).arg(ntohs(v4->sin_port));
    }
    if (familyOf(address) == AF_INET6 && address.size() >= static_cast<qsizetype>(sizeof(sockaddr_in6))) {
        const auto *v6 = reinterpret_cast<const sockaddr_in6 *>(&storage);
        ::inet_ntop(AF_INET6, &v6->sin6_addr, text, sizeof text);
        return QStringLiteral("[%1]:%2").arg(QLatin1String(text)).arg(ntohs(v6->sin6_port));
    }
    return QString();
}

quint16 UDPEcho::portOfAddress(const QByteArray &address)
{
    sockaddr_storage storage{};
    std::memcpy(&storage, address.constData(), static_cast<size_t>(qMin<qsizetype>(address.size(), kMaxAddressLength)));
    if (familyOf(address) == AF_INET)
        return ntohs(reinterpret_cast<const sockaddr_in *>(&storage)->sin_port);
    if (familyOf(address) == AF_INET6)
        return ntohs(reinterpret_cast<const sockaddr_in6 *>(&storage)->sin6_port);
    return 0;
}

void UDPEcho::setResolverForTesting(Resolver resolver)
{
    std::lock_guard<std::mutex> lock(g_resolverMutex);
    g_resolver = std::move(resolver);
}

UDPEcho::Resolution UDPEcho::systemResolve(const QString &hostName)
{
    Resolution resolution;
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    // One entry per address (not one per socket type), in the resolver's order.
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo *list = nullptr;
    const QByteArray name = hostName.toUtf8();
    const int rc = ::getaddrinfo(name.constData(), nullptr, &hints, &list);
    if (rc != 0) {
        if (rc == EAI_SYSTEM)
            resolution.error = CFStreamError{DVErrorDomain::POSIX, errno};
        else
            resolution.error = CFStreamError{DVErrorDomain::NetDB, rc};
        return resolution;
    }
    for (const addrinfo *entry = list; entry; entry = entry->ai_next)
        if (entry->ai_addr && entry->ai_addrlen > 0)
            resolution.addresses.push_back(bytesOf(entry->ai_addr, entry->ai_addrlen));
    ::freeaddrinfo(list);
    return resolution;
}
