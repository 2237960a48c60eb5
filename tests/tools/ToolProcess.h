#pragma once

#include <QProcess>
#include <QStringList>

#include <nlohmann/json.hpp>

#include <functional>
#include <vector>

// A program of ours run as a child process whose stdout is a stream of JSON lines.
class ToolProcess
{
public:
    explicit ToolProcess(QString program)
        : _program(std::move(program))
    {}
    ~ToolProcess();

    bool start(const QStringList &args, const QByteArray &stdinData = {});
    // Starts a simulator and waits for its "ready" line.
    bool startReady(const QStringList &args, int timeoutMs = 30000);
    // Interrupts a simulator and returns the statistics of its "stopped" line (none: an empty object).
    nlohmann::ordered_json interruptForStats(int timeoutMs = 10000);
    // Waits until a line satisfies `match` (lines seen are kept); false on time-out or exit.
    bool waitForLine(const std::function<bool(const nlohmann::ordered_json &)> &match, int timeoutMs);
    // Sends a signal and waits for the exit; the exit code, or -1 when it did not end.
    int signalAndWait(int signal, int timeoutMs);
    int waitForExit(int timeoutMs);

    const std::vector<nlohmann::ordered_json> &lines() const { return _lines; }
    size_t count(const std::function<bool(const nlohmann::ordered_json &)> &match) const;
    QByteArray standardError() const { return _stderr; }

private:
    void readAvailable();

    QString _program;
    QProcess _process;
    QByteArray _pending;
    QByteArray _stderr;
    std::vector<nlohmann::ordered_json> _lines;
};

// A port on 127.0.0.1 that nothing listens on at the time of asking, outside the kernel's range
// of ephemeral ports, and not handed out before by this process.
quint16 freeLocalPort(bool udp = false);
// Moves every server of `config` to a free port of its own, so that runs may overlap.
void moveServersToFreePorts(nlohmann::ordered_json &config);
// The demo configuration so moved.
nlohmann::ordered_json demoConfigOnFreePorts();
// Writes `config` as JSON text to `path`; false when the file cannot be written.
bool writeJsonFile(const QString &path, const nlohmann::ordered_json &config);

// What the programs' JSON lines say: an event by name, or a dial state.
inline bool isEvent(const nlohmann::ordered_json &line, const char *event)
{
    return line.is_object() && line.value("event", "") == event;
}

inline bool isState(const nlohmann::ordered_json &line, int state)
{
    return isEvent(line, "state") && line.value("dialState", -1) == state;
}
