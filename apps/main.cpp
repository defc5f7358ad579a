// SPDX-License-Identifier: MIT
// ombrel: try the library's operations on your own images from the command line.
#include <cstdio>
#include <exception>
#include <map>

#include <ombrel/framework/hal.h>
#include <ombrel/framework/startup.h>

#include "commands/command.h"

int main(int argc, char** argv) {
    using namespace ombrel::cli;
    ombrel::InitializeLuts();
    // "Image Too Complex" reaches the user as the failing file's own line, which says what to change; other
    // debug messages still go to standard error.
    ombrel::SetDebugWindowSink([](uint32_t messageClass, std::string_view text) {
        if (messageClass != 0x10004)
            std::fprintf(stderr, "ombrel debug: %.*s\n", static_cast<int>(text.size()), text.data());
    });
    CLI::App program(
        "ombrel: run Ombrel's machine-vision operations on images, look at what they find and "
        "tune their parameters before linking the library into an application.",
        "ombrel");
    program.require_subcommand(1);
    program.footer(
        "Images: PNG, PGM, PBM and PPM, read as 8-bit grey. Colour becomes grey with the BT.601 weights\n"
        "(0.299 R + 0.587 G + 0.114 B, rounded), 16-bit and other maxvals are scaled to 0..255 with "
        "rounding,\n"
        "alpha is ignored, PBM black is 0 and white 255. Exit status: 0 success, 1 an input failed, 2 bad "
        "usage.\n\n"
        "Start with:  ombrel demo\nEach subcommand has its own help, e.g.  ombrel blob --help");
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
