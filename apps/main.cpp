// SPDX-License-Identifier: MIT
// ombrel: try the library's operations on your own images from the command line.
#include <cstdio>
#include <exception>
#include <map>

#include <ombrel/framework/startup.h>

#include "commands/command.h"

int main(int argc, char** argv) {
    using namespace ombrel::cli;
    ombrel::InitializeLuts();
    CLI::App program("ombrel: run Ombrel's machine-vision operations on images, look at what they find and "
                     "tune their parameters before linking the library into an application.",
                     "ombrel");
    program.require_subcommand(1);
    program.footer("Start with:  ombrel demo\nEach subcommand has its own help, e.g.  ombrel blob --help");
    std::map<std::string, CommandRun> runs;
    for (const Command& command : Commands()) runs[command.name] = command.add(program);
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        const int status = program.exit(e);
        return status == 0 ? 0 : 2;
    }
    try {
        return runs.at(program.get_subcommands().front()->get_name())();
    } catch (const std::exception& e) {
        std::fprintf(stderr, "ombrel: %s\n", e.what());
        return 1;
    }
}
