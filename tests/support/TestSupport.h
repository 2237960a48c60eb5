#pragma once

#include <QString>

#include <functional>

namespace TestSupport {

// A private temporary directory for this test process; HOME and XDG_* point into it, so
// preferences and logs never touch the real user's files.
QString sandboxDir();

// Runs the Qt event loop until `done` returns true or `timeoutMs` passes; true when done.
bool spinUntil(const std::function<bool()> &done, int timeoutMs = 5000);

// Directory with helper scripts and data of the test suite (tests/ in the source tree).
QString sourceTestsDir();
// The build tree's root.
QString buildDir();

// Writes `data` to `path`, making its directory; false when it cannot.
bool writeFile(const QString &path, const QByteArray &data, bool executable = false);

} // namespace TestSupport
