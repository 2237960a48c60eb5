// dorvik: the windowed client. Sets up logging, reads the configuration, starts the controller
// on its own thread and hands over to the application delegate and its main window.

#include "AppDelegate.h"
#include "FirstPaintProbe.h"
#include "OnlinePage.h"
#include "SessionInstance.h"
#include "TrayIcon.h"
#include "UnixSignals.h"
#include "baseWindow.h"

#include "App/ConnectionSetup.h"
#include "App/DVAppHost.h"
#include "Conf/UIConf.h"
#include "Desktop/Autostart.h"
#include "Util/Log.h"

#include <QApplication>
#include <QCommandLineParser>

#include <csignal>
#include <cstdio>

namespace {
// --help and --version answer without a display.
bool onlyAsksForText(int argc, char **argv)
{
    for (int i = 1; i < argc; ++i) {
        const QByteArray arg(argv[i]);
        if (arg == "--help" || arg == "-h" || arg == "--version" || arg == "-v")
            return true;
    }
    return false;
}

const QCommandLineOption AutostartOption(QStringLiteral("autostart"),
                                         QStringLiteral("Started with the session: stay in the tray and log in with "
                                                        "the remembered account."));

// The same options whether or not a display is needed (--help and --version answer without one).
void parseArguments(QCommandLineParser &parser, const QCoreApplication &app)
{
    parser.setApplicationDescription(QStringLiteral("dorvik broadband client"));
    parser.addHelpOption();
    parser.addVersionOption();
    ConnectionSetup::addOptions(parser);
    parser.addOption(AutostartOption);
    parser.process(app);
}

// The session's autostart entry starts the program hidden in the tray when the remembered
// automatic log-in can bring the link up by itself; otherwise the user gets the window.
bool startsHidden(const QCommandLineParser &parser)
{
    const UIConf &ui = UIConf::shared();
    const bool canLogInAlone = ui.ifAutoLogin() && ui.ifRememberInterface() && ui.ifRememberPWd();
    const bool hidden = Autostart::startHidden(parser.isSet(AutostartOption), TrayIcon::available(), canLogInAlone);
    if (parser.isSet(AutostartOption))
        DVLOG() << "started with the session; window " << (hidden ? "hidden in the tray" : "shown");
    return hidden;
}
} // namespace

int main(int argc, char **argv)
{
    if (onlyAsksForText(argc, argv)) {
        QCoreApplication app(argc, argv);
        QCoreApplication::setApplicationVersion(QStringLiteral(DORVIK_VERSION));
        QCommandLineParser parser;
        parseArguments(parser, app);
        return 0;
    }
    OnlinePage::prepareApplication();
    QApplication app(argc, argv);
    // Caught from here on: a quit asked for while the program is still starting (the session
    // ending, a service manager) is honoured once the event loop runs, like any other.
    UnixSignals signals({SIGINT, SIGTERM});
    QApplication::setApplicationName(QStringLiteral("dorvik"));
    QApplication::setApplicationVersion(QStringLiteral(DORVIK_VERSION));
    QApplication::setApplicationDisplayName(QStringLiteral("dorvik"));
    // Closing the window hangs up first; the delegate quits when that is done.
    QApplication::setQuitOnLastWindowClosed(false);

    QCommandLineParser parser;
    parseArguments(parser, app);

    // Logging first: everything after this, windows included, reaches the daily file.
    Log::install(Log::defaultDirectory());

    QString error;
    const auto settings = ConnectionSetup::settingsFrom(parser, &error);
    if (!settings) {
        std::fprintf(stderr, "dorvik: %s\n", qPrintable(error));
        return 2;
    }
    if (!ConnectionSetup::loadConfiguration(*settings, &error)) {
        DVLOG() << "dorvik: " << error;
        return 1;
    }

    // One instance per user session: a second start raises the first one's window and ends.
    SessionInstance instance;
    if (!instance.claim())
        return 0;

    QString backendError;
    DVAppHost host([&settings, &backendError] { return ConnectionSetup::makeApp(*settings, &backendError); });
    if (!backendError.isEmpty()) {
        DVLOG() << "dorvik: " << backendError;
        return 2;
    }

    AppDelegate delegate(&host);
    QObject::connect(&signals, &UnixSignals::received, &delegate, [&delegate] { delegate.terminate(); });
    delegate.setStartHidden(startsHidden(parser));
    delegate.applicationDidFinishLaunching();
    instance.host = &host;
    instance.delegate = &delegate;
    instance.windowReady();
    installFirstPaintProbe(delegate.window());
    DVLOG() << "dorvik " << DORVIK_VERSION << " started, pid " << QCoreApplication::applicationPid();
    return QApplication::exec();
}
