#pragma once

#include <QString>
#include <QStringList>

#include <functional>
#include <optional>
#include <vector>

// One sub-command of dorvik-cli ("config", "dialname", "connect", ...). Each lives in its own
// file under commands/, which defines a function that returns it; CliCommands.cpp lists them.
struct CliCommand
{
    QString name;
    QString usage; // one or more lines shown by "dorvik-cli help"
    // Gets the arguments after the command name; returns the process exit code. May run the
    // Qt event loop (QCoreApplication exists).
    std::function<int(const QStringList &args)> run;
};

// Every command, in the order "dorvik-cli help" lists them.
const std::vector<CliCommand> &cliCommands();

// Output helpers shared by the commands: stdout for results, stderr for errors.
namespace Cli {
void out(const QString &line); // a line to stdout, flushed
void err(const QString &line); // a line to stderr, flushed
// Reads all of stdin as bytes.
QByteArray readStdin();
// Writes bytes to stdout as they are.
void writeStdout(const QByteArray &bytes);
// Makes the given configuration file (encrypted or plain) or else the shipped one current, and
// selects the given area or else the stored one. False with the reason in `error`.
bool useConfiguration(const std::optional<QString> &config, const std::optional<QString> &area, QString *error);
} // namespace Cli
