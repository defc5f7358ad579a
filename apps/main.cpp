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
    program.set_version_flag("--version", std::string("ombrel ") + OMBREL_VERSION);
    program.footer(
        "Images: PNG, TIFF, JPEG, BMP, PGM, PBM and PPM, read as 8-bit grey. Colour becomes grey with the\n"
        "BT.601 weights (0.299 R + 0.587 G + 0.114 B, rounded; a colour JPEG gives its luma), 16-bit and\n"
        "other maxvals are scaled to 0..255 with rounding (--bits N: the data fills N bits), alpha is "
        "ignored,\n"
        "PBM black is 0 and white 255; a TIFF's first page is read. Binary images are written 0/255\n"
        "(--raw-values: 0/1); a .pbm written by ombrel keeps the set pixels white.\n"
        "Batches: results stream as each file finishes (--json, --jsonl, --csv; --summary-only), files are\n"
        "written to a temporary name and renamed into place, so none is ever left half-written.\n"
        "Exit status: 0 success, 1 an input failed, 2 bad usage (also an output that cannot be created),\n"
        "130 interrupted by Ctrl-C (143 by SIGTERM): the files in flight are finished and every result so\n"
        "far is written; a second Ctrl-C stops at once.\n\n"
        "Start with:  ombrel demo\nEach subcommand has its own help, e.g.  ombrel blob --help");
    std::map<std::string, CommandRun> runs;
    for (const Command& command : Commands()) {
        runs[command.name] = command.add(program);
        AddProgramOptions(program.get_subcommand(command.name), &Settings());
    }
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
