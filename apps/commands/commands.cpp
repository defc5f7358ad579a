// SPDX-License-Identifier: MIT
// The list of subcommands. A new operation adds its file under commands/ and one line here.
#include "command.h"

namespace ombrel::cli {

CommandRun AddDemoCommand(CLI::App& program);
CommandRun AddArithCommand(CLI::App& program);
CommandRun AddBlobCommand(CLI::App& program);
CommandRun AddHistCommand(CLI::App& program);
CommandRun AddMaskCommand(CLI::App& program);
CommandRun AddProjectCommand(CLI::App& program);
CommandRun AddAverageCommand(CLI::App& program);
CommandRun AddSobelCommand(CLI::App& program);
CommandRun AddAngleCommand(CLI::App& program);
CommandRun AddFocusCommand(CLI::App& program);

const std::vector<Command>& Commands() {
    static const std::vector<Command> commands = {
        {"demo", AddDemoCommand},       {"arith", AddArithCommand}, {"blob", AddBlobCommand},
        {"hist", AddHistCommand},       {"mask", AddMaskCommand},   {"project", AddProjectCommand},
        {"average", AddAverageCommand}, {"sobel", AddSobelCommand}, {"angle", AddAngleCommand},
        {"focus", AddFocusCommand},
    };
    return commands;
}

}  // namespace ombrel::cli
