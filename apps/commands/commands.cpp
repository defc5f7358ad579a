// SPDX-License-Identifier: MIT
// The list of subcommands. A new operation adds its file under commands/ and one line here.
#include "command.h"

namespace ombrel::cli {

CommandRun AddDemoCommand(CLI::App& program);
CommandRun AddArithCommand(CLI::App& program);
CommandRun AddBlobCommand(CLI::App& program);
CommandRun AddHistCommand(CLI::App& program);
CommandRun AddMaskCommand(CLI::App& program);
CommandRun AddDecimateCommand(CLI::App& program);
CommandRun AddTransposeCommand(CLI::App& program);

const std::vector<Command>& Commands() {
    static const std::vector<Command> commands = {
        {"demo", AddDemoCommand},           {"arith", AddArithCommand}, {"blob", AddBlobCommand},
        {"hist", AddHistCommand},           {"mask", AddMaskCommand},   {"decimate", AddDecimateCommand},
        {"transpose", AddTransposeCommand},
    };
    return commands;
}

}  // namespace ombrel::cli
