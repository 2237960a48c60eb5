#include "ToolProcess.h"

#include "support/TestData.h"

#include <QFile>
#include <QRandomGenerator>

#include <QTcpServer>
#include <QUdpSocket>
#include <gtest/gtest.h>

#include <csignal>
#include <optional>
#include <utility>

ToolProcess::~ToolProcess()
{
    if (_process.state() != QProcess::NotRunning) {
        _process.kill();
        _process.waitForFinished(5000);
    }
}

bool ToolProcess::start(const QStringList &args, const QByteArray &stdinData)
{
    _process.start(_program, args);
    if (!_process.waitForStarted(10000))
        return false;
    if (!stdinData.isEmpty())
        _process.write(stdinData);
    return true;
}

bool ToolProcess::startReady(const QStringList &args, int timeoutMs)
{
    return start(args) && waitForLine([](const nlohmann::ordered_json &l) { return isEvent(l, "ready"); }, timeoutMs);
}

nlohmann::ordered_json ToolProcess::interruptForStats(int timeoutMs)
{
    EXPECT_EQ(signalAndWait(SIGINT, timeoutMs), 0) << _stderr.toStdString();
    for (const auto &l : _lines)
        if (isEvent(l, "stopped"))
            return l.value("stats", nlohmann::ordered_json::object());
    ADD_FAILURE() << "the simulator printed no statistics";
    return nlohmann::ordered_json::object();
}

void ToolProcess::readAvailable()
{
    _pending += _process.readAllStandardOutput();
    _stderr += _process.readAllStandardError();
    qsizetype nl;
    while ((nl = _pending.indexOf('\n')) >= 0) {
        const QByteArray line = _pending.left(nl);
        _pending.remove(0, nl + 1);
        auto j = nlohmann::ordered_json::parse(line.constData(), line.constData() + line.size(), nullptr, false);
        if (!j.is_discarded())
            _lines.push_back(std::move(j));
    }
}

bool ToolProcess::waitForLine(const std::function<bool(const nlohmann::ordered_json &)> &match, int timeoutMs)
{
    size_t checked = 0;
    return TestSupport::spinUntil(
        [&] {
            _process.waitForReadyRead(20);
            readAvailable();
            for (; checked < _lines.size(); ++checked)
                if (match(_lines[checked]))
                    return true;
            return false;
        },
        timeoutMs);
}

int ToolProcess::waitForExit(int timeoutMs)
{
    const bool ended = TestSupport::spinUntil(
        [&] {
            readAvailable();
            return _process.state() == QProcess::NotRunning || _process.waitForFinished(20);
        },
        timeoutMs);
    readAvailable();
    if (!ended)
        return -1;
    return _process.exitStatus() == QProcess::NormalExit ? _process.exitCode() : -1;
}

int ToolProcess::signalAndWait(int signal, int timeoutMs)
{
    ::kill(static_cast<pid_t>(_process.processId()), signal);
    return waitForExit(timeoutMs);
}

size_t ToolProcess::count(const std::function<bool(const nlohmann::ordered_json &)> &match) const
{
    return static_cast<size_t>(std::count_if(_lines.begin(), _lines.end(), match));
}

namespace {

// The ports free-port picks come from: below the kernel's range of ephemeral ports (above it
// where that range starts low), so that no outgoing connection is given one as its local port.
std::optional<std::pair<int, int>> pickRange()
{
    int low = 32768, high = 60999;
    QFile file(QStringLiteral("/proc/sys/net/ipv4/ip_local_port_range"));
    if (file.open(QIODevice::ReadOnly)) {
        const QList<QByteArray> bounds = file.readAll().simplified().split(' ');
        if (bounds.size() == 2) {
            low = bounds[0].toInt();
            high = bounds[1].toInt();
        }
    }
    if (low > 21000)
        return std::pair(20000, low - 1);
    if (high < 64000)
        return std::pair(high + 1, 65535);
    return std::nullopt; // no room outside: the kernel picks
}

// Binds `port` on 127.0.0.1 (0: any) and lets it go again; the port bound, 0 when it was taken.
quint16 tryPort(quint16 port, bool udp)
{
    if (udp) {
        QUdpSocket s;
        return s.bind(QHostAddress::LocalHost, port) ? s.localPort() : 0;
    }
    QTcpServer s;
    return s.listen(QHostAddress::LocalHost, port) ? s.serverPort() : 0;
}

} // namespace

// A port the kernel hands out for the asking lies in its ephemeral range: it stays free only
// until some outgoing connection on the machine is given it as its local port, and a simulator
// started on it later (again and again, in some tests) then fails to listen. The picks come
// from outside that range instead; each process walks it from a random start, so programs
// running side by side seldom meet, and a port something listens on is skipped.
quint16 freeLocalPort(bool udp)
{
    static const std::optional<std::pair<int, int>> range = pickRange();
    if (!range)
        return tryPort(0, udp);
    const auto [first, last] = *range;
    static int next = first + int(QRandomGenerator::global()->bounded(last - first + 1));
    for (int tries = 0; tries <= last - first; ++tries) {
        const auto port = quint16(next);
        next = next == last ? first : next + 1;
        if (tryPort(port, udp))
            return port;
    }
    return 0;
}

nlohmann::ordered_json demoConfigOnFreePorts()
{
    auto config = TestData::demoConfig();
    moveServersToFreePorts(config);
    return config;
}

void moveServersToFreePorts(nlohmann::ordered_json &config)
{
    const auto http = [] { return "http://127.0.0.1:" + std::to_string(freeLocalPort()); };
    const std::string heart = http();
    config["heart"]["negotiateurl"] = {{"default", heart + "/negotiate"}};
    config["heart"]["hearbeaturl"] = {{"default", heart + "/heartbeat"}};
    for (const char *service : {"business", "token", "qrcode", "update"})
        config[service]["host"] = {{"default", http()}};
    for (const char *service : {"sms", "dynmicpwd"})
        config[service]["host"] = {{"default", "127.0.0.1:" + std::to_string(freeLocalPort(true))}};
}

bool writeJsonFile(const QString &path, const nlohmann::ordered_json &config)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(QByteArray::fromStdString(config.dump(2))) > 0;
}
