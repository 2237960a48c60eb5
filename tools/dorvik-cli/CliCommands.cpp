#include "CliCommand.h"

// The commands of dorvik-cli. A new command is a file under commands/ that defines its
// function, plus one declaration and one entry here.
CliCommand configCommand();
CliCommand connectCommand();
CliCommand dialNameCommand();
CliCommand dynPwdCommand();
CliCommand qrCommand();
CliCommand statusCommand();
CliCommand tokenCommand();
CliCommand updateCommand();
CliCommand versionCommand();

const std::vector<CliCommand> &cliCommands()
{
    // One line per command.
    // clang-format off
    static const std::vector<CliCommand> table = {
        configCommand(),
        connectCommand(),
        dialNameCommand(),
        dynPwdCommand(),
        qrCommand(),
        statusCommand(),
        tokenCommand(),
        updateCommand(),
        versionCommand(),
    };
    // clang-format on
    return table;
}
