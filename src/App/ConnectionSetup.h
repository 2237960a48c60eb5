#pragma once

#include "App/DVApp.h"
#include "Dial/simulated/SimulatedPlatform.h"

#include <QString>
#include <QUrl>

#include <functional>
#include <memory>
#include <optional>

class QCommandLineParser;

// What a program that dials needs to know before it builds its controller: which back-end,
// which configuration and area, where the simulated access concentrator is, how much to
// shorten the heartbeat pauses. The same options for every program that dials.
namespace ConnectionSetup {

struct Settings
{
    QString area;       // empty: the area chosen earlier
    QString configPath; // empty: the shipped configuration
    QString backend;    // empty: this build's default
    QUrl accessConcentrator{QStringLiteral("http://127.0.0.1:18087/pppoe/auth")};
    int heartbeatScale = 1;
    // Simulated back-end only: how many interfaces the machine has (1 or 2) and how long every
    // platform call blocks (to show that the windows do not freeze).
    int simInterfaces = 2;
    int simCallDelayMs = 0;
};

// --area, --config, --backend, --ac, --heartbeat-scale, --sim-interfaces, --sim-delay-ms.
void addOptions(QCommandLineParser &parser);
// Settings from parsed options; nullopt with `error` set when a value is unusable.
std::optional<Settings> settingsFrom(const QCommandLineParser &parser, QString *error);

// Reads the configuration (the given file or the shipped one) and sets the area (the given one
// or the one stored). False with `error` set when no configuration can be read.
bool loadConfiguration(const Settings &settings, QString *error);

// A controller with the chosen back-end (or `platform` when given), built on the calling
// thread, with the heartbeat pauses of the settings. The simulated back-end asks the simulated
// access concentrator to check each dial, and hangs up when the concentrator ends the session.
// Null with `error` set for an unknown back-end.
std::unique_ptr<DVApp> makeApp(const Settings &settings, QString *error);
std::unique_ptr<DVApp> makeApp(const Settings &settings, DVApp::Options options, QString *error,
                               std::unique_ptr<PPPoEPlatform> platform = nullptr);

// The check a simulated link makes for each dial: it asks the simulated access concentrator at
// `url`, as pppd would ask the provider's access server, sending the dial name, the password and
// the dialled interface's MAC address. Runs on the back-end's thread; its HTTP client is made
// there on first use. When the concentrator limits the session ("sessionSeconds"),
// `sessionEnds` is called that many seconds after the acceptance, on the same thread.
SimulatedAuthHook accessConcentratorHook(const QUrl &url, std::function<QString()> macAddress,
                                         std::function<void()> sessionEnds = {});

} // namespace ConnectionSetup
