#pragma once

#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <functional>

namespace TestSupport {

// A private temporary directory for this test process; HOME and XDG_* point into it, so
// preferences and logs never touch the real user's files.
QString sandboxDir();
// Makes `root` the sandbox: HOME and XDG_* point into it unless DORVIK_TEST_KEEP_HOME is set.
void isolateHome(const QString &root);

// Runs the Qt event loop until `done` returns true or `timeoutMs` passes; true when done.
bool spinUntil(const std::function<bool()> &done, int timeoutMs = 5000);

// Directory with helper scripts and data of the test suite (tests/ in the source tree).
QString sourceTestsDir();
// The build tree's root.
QString buildDir();

// Writes `data` to `path`, making its directory; false when it cannot.
bool writeFile(const QString &path, const QByteArray &data, bool executable = false);

// A program run to its end: its exit code (-1 when it crashed or did not end in time) and output.
struct ProgramRun
{
    int exitCode = -1;
    QByteArray out, err;
};
ProgramRun runProgram(const QString &program, const QStringList &args, const QByteArray &input = {},
                      const QProcessEnvironment &env = QProcessEnvironment::systemEnvironment(), int timeoutMs = 60000);

} // namespace TestSupport
