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
CommandRun AddBinMorphCommand(CLI::App& program);
CommandRun AddGrayMorphCommand(CLI::App& program);
CommandRun AddBreakCommand(CLI::App& program);
CommandRun AddDecimateCommand(CLI::App& program);
CommandRun AddConvCommand(CLI::App& program);
CommandRun AddTransposeCommand(CLI::App& program);
CommandRun AddAngleCommand(CLI::App& program);
CommandRun AddFocusCommand(CLI::App& program);
CommandRun AddMatchCommand(CLI::App& program);

// One line per subcommand, in the order `ombrel --help` lists them.
const std::vector<Command>& Commands() {
    // clang-format off
    static const std::vector<Command> commands = {
        {"demo", AddDemoCommand},
        {"arith", AddArithCommand},
        {"hist", AddHistCommand},
        {"mask", AddMaskCommand},
        {"project", AddProjectCommand},
        {"average", AddAverageCommand},
        {"decimate", AddDecimateCommand},
        {"conv", AddConvCommand},
        {"transpose", AddTransposeCommand},
        {"binmorph", AddBinMorphCommand},
        {"graymorph", AddGrayMorphCommand},
        {"blob", AddBlobCommand},
        {"sobel", AddSobelCommand},
        {"break", AddBreakCommand},
        {"angle", AddAngleCommand},
        {"focus", AddFocusCommand},
        {"match", AddMatchCommand},
    };
    // clang-format on
    return commands;
}

}  // namespace ombrel::cli
