#pragma once

#include <nlohmann/json.hpp>

#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

// What every simulated server is told at start.
struct SimOptions
{
    // The deployment's configuration as plaintext JSON (hosts, keys, rules per area).
    nlohmann::ordered_json config;
    // The area whose values (ports, keys) the servers use; "default" when none is given.
    QString area = QStringLiteral("default");
    // Subscribers the simulated provider knows: account name → password.
    std::map<QString, QString> accounts;
    // Fault scenarios by service name ("heart" → "nak-storm"); empty means normal service.
    std::map<QString, QString> scenarios;
    // Listen on ports the system picks instead of the configured ones (tests read them back).
    bool ephemeralPorts = false;
    // Ports of services that have no address in the configuration (the access concentrator).
    std::map<QString, quint16> ports;
    // How far the provider's clock is ahead of this machine's (negative: behind), seconds:
    // the Date header of the HTTP servers and the access concentrator's time window follow it.
    qint64 clockOffsetSecs = 0;

    quint16 portOf(const QString &service, quint16 fallback) const
    {
        if (ephemeralPorts)
            return 0;
        const auto it = ports.find(service);
        return it == ports.end() ? fallback : it->second;
    }

    // A setting of the configuration for `area` (this run's area when empty), else its
    // "default": text as it is, a number or boolean as its JSON text; nullopt when absent, null,
    // an array or an object.
    std::optional<QString> setting(const char *section, const char *key, const QString &area = {}) const;
    // The raw resolved value of a setting (arrays included).
    std::optional<nlohmann::ordered_json> settingValue(const char *section, const char *key,
                                                       const QString &area = {}) const;
    // The port to listen on for a service configured at `address` ("http://host:port/…" or
    // "host:port"): its port, `fallback` when it has none, 0 with ephemeral ports.
    quint16 listenPort(const std::optional<QString> &address, quint16 fallback) const;

    QString scenario(const QString &service) const
    {
        const auto it = scenarios.find(service);
        return it == scenarios.end() ? QString() : it->second;
    }
};

// One simulated server. Each lives in services/; SimServices.cpp lists them.
class SimService : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;
    // Starts listening on 127.0.0.1; false (with a reason on stderr) when it cannot.
    virtual bool start(const SimOptions &options) = 0;
    // The port it listens on once started.
    virtual quint16 port() const = 0;
    // A one-line JSON summary of what it saw and verified (printed on exit, read by tests).
    virtual nlohmann::ordered_json stats() const = 0;
    // Switches the fault scenario while running ("" is normal service). False when this service
    // cannot change it at run time, or does not know `name`; the scenario is then unchanged.
    virtual bool setScenario(const QString &name)
    {
        Q_UNUSED(name);
        return false;
    }
};

struct SimServiceEntry
{
    QString name;
    std::function<std::unique_ptr<SimService>()> make;
};

// Every service, in the order they start.
const std::vector<SimServiceEntry> &simServices();
