// dorvik-update-installer PID PACKAGE INSTALLATION
// Started by dorvik (from a copy in the temporary directory) just before it quits; replaces
// the installation with the package's tree once process PID has ended. See Installer.h.

#include "Installer.h"

#include "Util/Log.h"

#include <QCoreApplication>

#include <csignal>
#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("dorvik"));
    // The terminal or pipe of the program that started us may be gone by the time we speak.
    std::signal(SIGPIPE, SIG_IGN);
    Log::install(Log::defaultDirectory());

    const QStringList args = QCoreApplication::arguments().mid(1);
    bool ok = false;
    Installer::Request request;
    if (args.size() == 3)
        request.pid = args[0].toLongLong(&ok);
    if (!ok) {
        std::fprintf(stderr, "usage: dorvik-update-installer PID PACKAGE INSTALLATION\n");
        return Installer::BadArguments;
    }
    request.package = args[1];
    request.root = args[2];
    return Installer::run(request, Installer::Settings::fromEnvironment());
}
