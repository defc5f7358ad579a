// SPDX-License-Identifier: MIT
// The list of subcommands. A new operation adds its file under commands/ and one line here.
#include "command.h"

namespace ombrel::cli {

CommandRun AddDemoCommand(CLI::App& program);

const std::vector<Command>& Commands() {
    static const std::vector<Command> commands = {
        {"demo", AddDemoCommand},
    };
    return commands;
}

}  // namespace ombrel::cli
