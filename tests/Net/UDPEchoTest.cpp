#include "Net/UDPEcho.h"
#include "Net/RunLoop.h"
#include "UdpPeer.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QRandomGenerator>

#include <sys/un.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace {

struct Event
{
    QString kind; // start, stop, data, recvError, sent, sendError
    QByteArray data;
    QByteArray address;
    DVError error;
};

class Recorder : public UDPEchoDelegate
{
public:
    std::vector<Event> events;
    std::function<void(UDPEcho *)> onData;

    void echoDidReceiveData(UDPEcho *echo, const QByteArray &data, const QByteArray &address) override
    {
        events.push_back({QStringLiteral("data"), data, address, {}});
        if (onData)
            onData(echo);
    }
    void echoDidReceiveError(UDPEcho *, const DVError &error) override
    {
        events.push_back({QStringLiteral("recvError"), {}, {}, error});
    }
    void echoDidSendData(UDPEcho *, const QByteArray &data, const QByteArray &address) override
    {
        events.push_back({QStringLiteral("sent"), data, address, {}});
    }
    void echoDidFailToSendData(UDPEcho *, const QByteArray &data, const QByteArray &address,
                               const DVError &error) override
    {
        events.push_back({QStringLiteral("sendError"), data, address, error});
    }
    void echoDidStartWithAddress(UDPEcho *, const QByteArray &address) override
    {
        events.push_back({QStringLiteral("start"), {}, address, {}});
    }
    void echoDidStopWithError(UDPEcho *, const DVError &error) override
    {
        events.push_back({QStringLiteral("stop"), {}, {}, error});
    }

    const Event *find(const char *kind) const
    {
        for (const auto &e : events)
            if (e.kind == QLatin1String(kind))
                return &e;
        return nullptr;
    }
    int count(const char *kind) const
    {
        return static_cast<int>(std::count_if(events.begin(), events.end(),
                                              [kind](const Event &e) { return e.kind == QLatin1String(kind); }));
    }
    bool waitFor(const char *kind, int n = 1, int ms = 10000)
    {
        return TestSupport::spinUntil([&] { return count(kind) >= n; }, ms);
    }
};

// Puts the system resolver back when a test that replaced it ends.
struct ResolverGuard
{
    ~ResolverGuard() { UDPEcho::setResolverForTesting(nullptr); }
};

QByteArray randomBytes(int n)
{
    QByteArray bytes(n, '\0');
    for (auto &b : bytes)
        b = static_cast<char>(QRandomGenerator::global()->bounded(256));
    return bytes;
}

int familyOf(const QByteArray &address)
{
    sa_family_t family = AF_UNSPEC;
    if (address.size() >= 2)
        std::memcpy(&family, address.constData(), sizeof family);
    return family;
}

// Connects `echo` to `peer` and returns the echo's own address as the peer sees it.
QByteArray connectTo(UDPEcho &echo, Recorder &recorder, UdpPeer &peer,
                     const QString &host = QStringLiteral("127.0.0.1"))
{
    echo.setDelegate(&recorder);
    echo.startConnectedToHostName(host, peer.port());
    if (!recorder.waitFor("start"))
        return {};
    echo.sendData("hello");
    std::optional<UdpPeer::Datagram> got;
    TestSupport::spinUntil([&] { return (got = peer.tryReceive()).has_value(); });
    return got ? got->from : QByteArray();
}

} // namespace

TEST(UDPEchoClient, ConnectsToResolvedHostAndExchangesDatagrams)
{
    const struct
    {
        const char *host;
        int peerFamily;
    } cases[] = {{"127.0.0.1", AF_INET}, {"::1", AF_INET6}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.host);
        UdpPeer peer(c.peerFamily);
        if (!peer.ok()) {
            ASSERT_EQ(c.peerFamily, AF_INET6) << "no IPv4 loopback";
            continue; // no IPv6 loopback on this machine
        }
        UDPEcho echo;
        Recorder rec;
        echo.setDelegate(&rec);
        echo.startConnectedToHostName(QString::fromLatin1(c.host), peer.port());
        EXPECT_EQ(echo.hostName(), QString::fromLatin1(c.host));
        EXPECT_EQ(echo.port(), peer.port());
        EXPECT_FALSE(echo.isServer());
        ASSERT_TRUE(rec.waitFor("start"));

        // An IPv4 host is reached through its IPv4-mapped address on the IPv6 socket, and the
        // peer address is what the system reports for the connected socket.
        ASSERT_TRUE(echo.hostAddress().has_value());
        const QByteArray peerAddress = *echo.hostAddress();
        EXPECT_EQ(rec.find("start")->address, peerAddress);
        ASSERT_EQ(familyOf(peerAddress), AF_INET6);
        sockaddr_in6 v6{};
        std::memcpy(&v6, peerAddress.constData(), sizeof v6);
        in6_addr expected{};
        inet_pton(AF_INET6, c.peerFamily == AF_INET ? "::ffff:127.0.0.1" : "::1", &expected);
        EXPECT_EQ(std::memcmp(&v6.sin6_addr, &expected, sizeof expected), 0)
            << UDPEcho::addressToString(peerAddress).toStdString();
        EXPECT_EQ(UDPEcho::portOfAddress(peerAddress), peer.port());

        echo.sendData("hello");
        ASSERT_EQ(rec.count("sent"), 1);
        EXPECT_EQ(rec.find("sent")->data, QByteArray("hello"));
        EXPECT_EQ(rec.find("sent")->address, peerAddress);
        std::optional<UdpPeer::Datagram> got;
        ASSERT_TRUE(TestSupport::spinUntil([&] { return (got = peer.tryReceive()).has_value(); }));
        EXPECT_EQ(got->data, QByteArray("hello"));

        ASSERT_TRUE(peer.sendTo("world", got->from));
        ASSERT_TRUE(rec.waitFor("data"));
        EXPECT_EQ(rec.find("data")->data, QByteArray("world"));
        EXPECT_EQ(UDPEcho::portOfAddress(rec.find("data")->address), peer.port());
    }
}

TEST(UDPEchoClient, ReportsEveryIncomingDatagramAndStaysOpen)
{
    const struct
    {
        const char *name;
        QByteArray payload;
        int error; // 0: delivered as data
    } cases[] = {
        {"empty datagram", QByteArray(), EPIPE},
        {"one byte", QByteArray("x"), 0},
        {"random bytes", randomBytes(777), 0},
        {"largest datagram", randomBytes(65507), 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        UdpPeer peer;
        UDPEcho echo;
        Recorder rec;
        const QByteArray echoAddress = connectTo(echo, rec, peer);
        ASSERT_FALSE(echoAddress.isEmpty());

        ASSERT_TRUE(peer.sendTo(c.payload, echoAddress));
        ASSERT_TRUE(TestSupport::spinUntil([&] { return rec.count("data") + rec.count("recvError") > 0; }));
        if (c.error) {
            ASSERT_EQ(rec.count("recvError"), 1);
            EXPECT_EQ(rec.find("recvError")->error.domain, DVErrorDomain::POSIX);
            EXPECT_EQ(rec.find("recvError")->error.code, c.error);
            EXPECT_EQ(rec.count("data"), 0);
        } else {
            ASSERT_EQ(rec.count("data"), 1);
            EXPECT_EQ(rec.find("data")->data, c.payload);
        }
        // Receive errors are only reported: the socket still takes the next datagram.
        EXPECT_TRUE(echo.hasSocket());
        ASSERT_TRUE(peer.sendTo("next", echoAddress));
        ASSERT_TRUE(TestSupport::spinUntil([&] { return !rec.events.empty() && rec.events.back().data == "next"; }));
        EXPECT_EQ(rec.count("stop"), 0);
    }
}

TEST(UDPEchoClient, FailedStartsEndIdleWithTheirError)
{
    ResolverGuard guard;
    const auto unixAddress = [] {
        sockaddr_un un{};
        un.sun_family = AF_UNIX;
        return QByteArray(reinterpret_cast<const char *>(&un), sizeof un);
    };
    const struct
    {
        const char *name;
        QString host;
        UDPEcho::Resolver resolver; // null: the system's
        QString domain;
        qint64 code;
        bool addrInfoCode; // the resolver's code in the user info
    } cases[] = {
        {"name that does not resolve", QStringLiteral("no-such-host.invalid"), nullptr, DVErrorDomain::CFNetwork, 2,
         true},
        {"only addresses of other families", QStringLiteral("x"),
         [&](const QString &) {
             return UDPEcho::Resolution{{unixAddress()}, std::nullopt};
         },
         DVErrorDomain::CFNetwork, 1, false},
        {"no addresses at all", QStringLiteral("x"), [](const QString &) { return UDPEcho::Resolution{}; },
         DVErrorDomain::CFNetwork, 1, false},
        {"resolver fails with a system error", QStringLiteral("x"),
         [](const QString &) {
             return UDPEcho::Resolution{{}, CFStreamError{DVErrorDomain::POSIX, EIO}};
         },
         DVErrorDomain::CFNetwork, 2, false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        UDPEcho::setResolverForTesting(c.resolver);
        UDPEcho echo;
        Recorder rec;
        echo.setDelegate(&rec);
        echo.startConnectedToHostName(c.host, 9);
        ASSERT_TRUE(rec.waitFor("stop", 1, 30000));
        const DVError &error = rec.find("stop")->error;
        EXPECT_EQ(error.domain, c.domain);
        EXPECT_EQ(error.code, c.code);
        EXPECT_EQ(error.userInfo.contains(kCFGetAddrInfoFailureKey), c.addrInfoCode);
        if (c.addrInfoCode) {
            EXPECT_NE(error.userInfo.value(kCFGetAddrInfoFailureKey).toInt(), 0);
            EXPECT_NE(stringWithError(error), error.localizedDescription); // the resolver's own text
        }
        EXPECT_EQ(rec.count("start"), 0);
        EXPECT_EQ(echo.port(), 0u);
        EXPECT_FALSE(echo.hostName() || echo.hostAddress() || echo.hasSocket());
    }
}

TEST(UDPEchoClient, PeerWithoutListenerIsAReceiveError)
{
    quint16 closedPort;
    {
        UdpPeer gone;
        closedPort = gone.port();
    }
    UDPEcho echo;
    Recorder rec;
    echo.setDelegate(&rec);
    echo.startConnectedToHostName(QStringLiteral("127.0.0.1"), closedPort);
    ASSERT_TRUE(rec.waitFor("start"));
    echo.sendData("anyone?");
    ASSERT_TRUE(TestSupport::spinUntil([&] { return rec.count("recvError") > 0; }));
    EXPECT_EQ(rec.find("recvError")->error.domain, DVErrorDomain::POSIX);
    EXPECT_EQ(rec.find("recvError")->error.code, ECONNREFUSED);
    EXPECT_TRUE(echo.hasSocket());
    EXPECT_EQ(rec.count("stop"), 0);
}

TEST(UDPEchoLifecycle, StopAndDestroyTellNobody)
{
    ResolverGuard guard;
    // Stopping an idle object does nothing.
    {
        UDPEcho echo;
        Recorder rec;
        echo.setDelegate(&rec);
        echo.stop();
        echo.stop();
        EXPECT_TRUE(rec.events.empty());
        EXPECT_EQ(echo.port(), 0u);
    }
    // A resolution stopped half-way never calls back, and the object can start again.
    {
        UDPEcho::setResolverForTesting([](const QString &) {
            std::this_thread::sleep_for(std::chrono::milliseconds(150));
            return UDPEcho::Resolution{{UdpPeer::loopbackV4(9)}, std::nullopt};
        });
        UDPEcho echo;
        Recorder rec;
        echo.setDelegate(&rec);
        echo.startConnectedToHostName(QStringLiteral("slow"), 9);
        echo.stop();
        TestSupport::spinUntil([] { return false; }, 400);
        EXPECT_TRUE(rec.events.empty());
        UDPEcho::setResolverForTesting(nullptr);
        UdpPeer peer;
        EXPECT_FALSE(connectTo(echo, rec, peer).isEmpty());
    }
    // Destroying a connected object closes its socket without a word to the delegate.
    {
        UdpPeer peer;
        auto echo = std::make_unique<UDPEcho>();
        Recorder rec;
        const QByteArray echoAddress = connectTo(*echo, rec, peer);
        ASSERT_FALSE(echoAddress.isEmpty());
        const auto before = rec.events.size();
        echo.reset();
        EXPECT_EQ(rec.events.size(), before);
        UdpPeer reuse(AF_INET, UDPEcho::portOfAddress(echoAddress));
        EXPECT_TRUE(reuse.ok()) << "the port is still taken";
    }
}

TEST(UDPEchoServer, EchoesEveryDatagramToItsSender)
{
    quint16 port;
    {
        UdpPeer probe;
        port = probe.port();
    }
    UDPEcho server;
    Recorder rec;
    server.setDelegate(&rec);
    server.startServerOnPort(port);
    ASSERT_EQ(rec.count("start"), 1);
    EXPECT_TRUE(server.isServer());
    EXPECT_EQ(server.port(), port);
    EXPECT_EQ(UDPEcho::portOfAddress(rec.find("start")->address), port);

    const QByteArray payloads[] = {QByteArray("ping"), randomBytes(1), randomBytes(4096)};
    UdpPeer client;
    for (const auto &payload : payloads) {
        rec.events.clear();
        ASSERT_TRUE(client.sendTo(payload, UdpPeer::loopbackV4(port)));
        std::optional<UdpPeer::Datagram> back;
        ASSERT_TRUE(TestSupport::spinUntil([&] { return (back = client.tryReceive()).has_value(); }));
        EXPECT_EQ(back->data, payload);
        EXPECT_EQ(UDPEcho::portOfAddress(back->from), port);
        // The delegate sees the datagram before it goes back.
        ASSERT_EQ(rec.events.size(), 2u);
        EXPECT_EQ(rec.events[0].kind, QStringLiteral("data"));
        EXPECT_EQ(rec.events[1].kind, QStringLiteral("sent"));
        EXPECT_EQ(rec.events[1].data, payload);
        EXPECT_EQ(rec.events[1].address, rec.events[0].address);
    }

    // A delegate that stops the server on a datagram gets no echo sent and no crash.
    rec.events.clear();
    rec.onData = [](UDPEcho *echo) { echo->stop(); };
    ASSERT_TRUE(client.sendTo("last", UdpPeer::loopbackV4(port)));
    ASSERT_TRUE(rec.waitFor("data"));
    EXPECT_EQ(rec.count("sent"), 0);
    EXPECT_FALSE(server.hasSocket());
}

TEST(UDPEchoServer, PortInUseStopsWithThePosixError)
{
    UdpPeer busy;
    UDPEcho server;
    Recorder rec;
    server.setDelegate(&rec);
    server.startServerOnPort(busy.port());
    ASSERT_EQ(rec.count("stop"), 1);
    EXPECT_EQ(rec.find("stop")->error.domain, DVErrorDomain::POSIX);
    EXPECT_EQ(rec.find("stop")->error.code, EADDRINUSE);
    EXPECT_EQ(server.port(), 0u);
    EXPECT_FALSE(server.hasSocket());
}

TEST(UDPEchoDeathTest, MisuseIsAProgrammingFault)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const struct
    {
        const char *name;
        std::function<void()> misuse;
    } cases[] = {
        {"client port 0", [] { UDPEcho().startConnectedToHostName(QStringLiteral("127.0.0.1"), 0); }},
        {"client port above 65535", [] { UDPEcho().startConnectedToHostName(QStringLiteral("127.0.0.1"), 65536); }},
        {"server port 0", [] { UDPEcho().startServerOnPort(0); }},
        {"starting twice",
         [] {
             UDPEcho e;
             e.startConnectedToHostName(QStringLiteral("127.0.0.1"), 9);
             e.startConnectedToHostName(QStringLiteral("127.0.0.1"), 9);
         }},
        {"sending before connected",
         [] {
             UDPEcho e;
             e.startConnectedToHostName(QStringLiteral("127.0.0.1"), 9);
             e.sendData("x");
         }},
        {"server send without an address",
         [] {
             quint16 port;
             {
                 UdpPeer probe;
                 port = probe.port();
             }
             UDPEcho e;
             e.startServerOnPort(port);
             if (e.hasSocket())
                 e.sendData("x", std::nullopt);
             else
                 qFatal("precondition failed (port taken meanwhile)");
         }},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_DEATH(c.misuse(), "precondition failed");
    }
}

TEST(RunLoop, EndsForTheRightReason)
{
    const struct
    {
        const char *name;
        std::function<RunLoopResult()> run;
        RunLoopResult expected;
    } cases[] = {
        {"time runs out", [] { return RunLoop::runFor(30); }, RunLoopResult::TimedOut},
        {"stopped from a call-back",
         [] {
             QMetaObject::invokeMethod(
                 QCoreApplication::instance(), [] { RunLoop::stop(); }, Qt::QueuedConnection);
             return RunLoop::runFor(10000);
         },
         RunLoopResult::Stopped},
        {"a stop outside a run is forgotten",
         [] {
             RunLoop::stop();
             return RunLoop::runFor(30);
         },
         RunLoopResult::TimedOut},
        {"nested runs end one at a time",
         [] {
             RunLoopResult inner = RunLoopResult::Stopped;
             QMetaObject::invokeMethod(
                 QCoreApplication::instance(),
                 [&inner] {
                     inner = RunLoop::runFor(20);
                     RunLoop::stop();
                 },
                 Qt::QueuedConnection);
             const auto outer = RunLoop::runFor(10000);
             return inner == RunLoopResult::TimedOut ? outer : inner;
         },
         RunLoopResult::Stopped},
        {"main thread stopped from a worker",
         [] {
             std::atomic<bool> inRun{false};
             QMetaObject::invokeMethod(
                 QCoreApplication::instance(), [&inRun] { inRun = true; }, Qt::QueuedConnection);
             std::thread worker([&inRun] {
                 while (!inRun)
                     std::this_thread::sleep_for(std::chrono::milliseconds(5));
                 RunLoop::stopMain();
             });
             const auto result = RunLoop::runFor(10000);
             worker.join();
             return result;
         },
         RunLoopResult::Stopped},
        {"a stop of the idle main thread is forgotten",
         [] {
             std::thread([] { RunLoop::stopMain(); }).join();
             return RunLoop::runFor(50);
         },
         RunLoopResult::TimedOut},
        {"returns after a handled source",
         [] {
             UdpPeer peer;
             UDPEcho echo;
             Recorder rec;
             echo.setDelegate(&rec);
             echo.startConnectedToHostName(QStringLiteral("127.0.0.1"), peer.port());
             return RunLoop::runFor(10000, true);
         },
         RunLoopResult::HandledSource},
        {"a work-queue thread runs its own transport",
         [] {
             RunLoopResult result = RunLoopResult::TimedOut;
             UdpPeer peer;
             std::thread worker([&] {
                 UDPEcho echo;
                 Recorder rec;
                 echo.setDelegate(&rec);
                 echo.startConnectedToHostName(QStringLiteral("127.0.0.1"), peer.port());
                 result = RunLoop::runFor(10000, true);
                 if (rec.count("start") != 1)
                     result = RunLoopResult::TimedOut;
             });
             worker.join();
             return result;
         },
         RunLoopResult::HandledSource},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.run(), c.expected);
        EXPECT_FALSE(RunLoop::isRunning());
    }
}
