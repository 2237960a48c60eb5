#pragma once

#include "SimService.h"

#include <QStringList>

#include <memory>
#include <vector>

// Starts a set of simulated servers with one set of options (the whole provider, or the
// few services a test needs) and owns them.
class SimHost
{
public:
    // Starts the named services (all registered ones when `only` is empty). False when one of
    // them cannot start; the reason went to stderr.
    bool start(const SimOptions &options, const QStringList &only = {});

    SimService *service(const QString &name) const;
    // {"heart": 18080, ...}
    nlohmann::ordered_json ports() const;
    // {"heart": {...}, ...}
    nlohmann::ordered_json stats() const;

    // Reads a configuration for the simulator: plaintext JSON as it is, anything else is
    // decrypted with the built-in configuration key first. nullopt with `error` filled when it
    // is neither.
    static std::optional<nlohmann::ordered_json> loadConfig(const QString &path, QString *error);

private:
    std::vector<std::pair<QString, std::unique_ptr<SimService>>> _services;
};
