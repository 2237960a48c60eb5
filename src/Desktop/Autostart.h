#pragma once

#include "Util/DVError.h"

#include <QString>

// "Start at log-in": an XDG autostart entry ($XDG_CONFIG_HOME/autostart/net.dorvik.Dorvik.desktop)
// that starts this program with --autostart when the user's session begins. A program started
// that way stays in the tray and lets the remembered automatic log-in bring the link up.
namespace Autostart {

inline const QString Argument = QStringLiteral("--autostart");

QString entryPath();
// The entry exists and is not switched off (Hidden=true) by the desktop's own settings.
bool isEnabled();
// Writes the entry starting `program` (an absolute path) with --autostart, replacing any older one.
bool enable(const QString &program, DVError *error);
// Removes the entry; no entry is fine.
bool disable(DVError *error);

// The entry's text for `program`.
QString entryText(const QString &program);
// `program` as one argument of a desktop entry's Exec key.
QString quotedExecArgument(const QString &program);

// Whether an autostarted program keeps its window hidden: only with a tray to come back through
// and when the remembered settings let it log in by itself; otherwise the user gets the window.
bool startHidden(bool autostarted, bool trayAvailable, bool canLogInAlone);

} // namespace Autostart
