#pragma once

#include "Clock.h"

#include <QDebug>
#include <QString>

#include <memory>

// Every diagnostic line of the client is written at error level, with the source file,
// function and line, in English. Use DVLOG() << ...; the text goes to the console and to the
// rolling log file once Log::install() has run.
#define DVLOG() qCritical().noquote().nospace()

namespace Log {

// Where the rolling log files live when nobody says otherwise
// (~/.local/share/dorvik/Logs on Linux).
QString defaultDirectory();

// Installs the process-wide message handler: every message goes to stderr and to
// "<dir>/dorvik-YYYY-MM-DD.log" (one file per local day, at most maxFiles kept; older files
// are removed when a file is opened, so gaps of several days without a run are covered).
// An empty dir means console only. Safe to call again (the new settings replace the old).
void install(const QString &dir, std::shared_ptr<Clock> clock = Clock::system(), int maxFiles = 7);

// Removes the handler and closes the file; messages go back to Qt's default output.
void uninstall();

// Formats one line as it is written: time, file:line, function, text.
QString formatLine(const QDateTime &when, const QMessageLogContext &context, const QString &message);

} // namespace Log
