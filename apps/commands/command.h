// SPDX-License-Identifier: MIT
// A subcommand of the ombrel program. Each lives in its own file under commands/ and is listed once in
// commands.cpp: adding an operation is one file and one line.
#pragma once
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <ombrel/framework/buffer.h>
#include <ombrel/framework/roi.h>
#include <CLI/CLI.hpp>

#include "../batch.h"
#include "../image_io.h"
#include "../options.h"

namespace ombrel::cli {

// Runs the subcommand after the command line has been parsed; returns the exit status.
using CommandRun = std::function<int()>;

struct Command {
    const char* name;
    // Adds the subcommand, with its options and help, to `program`.
    CommandRun (*add)(CLI::App& program);
};

// Every subcommand, in the order --help lists them.
const std::vector<Command>& Commands();

// A failure of one input that the batch runner reports as "ombrel CMD: FILE: problem".
class InputError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Switches that work the same way in every subcommand that has a use for them; main() adds them.
struct ProgramSettings {
    int bits = 0;            // --bits N: samples of 16-bit files are N-bit data (0: the file's range)
    bool rawValues = false;  // --raw-values: binary images written 0/1 instead of 0/255
    bool clipRoi = false;    // --clip-roi: a --roi partly outside the image is clipped to it
};
ProgramSettings& Settings();

// Adds --bits to `command`, --raw-values when it writes binary images and --clip-roi when it has --roi.
void AddProgramOptions(CLI::App* command, ProgramSettings* settings);

// Reads an image (with --bits) or throws InputError with the reader's problem.
DecodedImage LoadImage(const std::string& path);

// The fields every per-image JSON record starts with: file, format, size, how it was converted.
Json ImageRecord(const std::string& path, const DecodedImage& image);

// Writes an image or throws InputError naming the output file.
void SaveImage(const std::string& path, const Buffer& image);
void SaveJson(const std::string& path, const Json& document);
// Writes a binary image: zero stays 0, every other value becomes 255 (1 with --raw-values). A .pbm keeps
// the set pixels white, so it reads back to the same selection through --mask.
void SaveBinaryImage(const std::string& path, const Buffer& image);

// Where an operation works on an image: the region's origin and the region itself (the whole image, the
// --roi rectangle, and/or the --mask image, whose non-zero pixels select).
struct Placement {
    Point origin;
    ROI roi;
    Region region;                      // the rectangle the region spans, in image coordinates
    std::optional<Region> clippedFrom;  // the --roi as given, when --clip-roi cut it to the image
};

// Builds the placement for `image`, or throws InputError: the region must lie inside the image (with
// --clip-roi it is cut to the image instead, unless nothing is left) and the mask must have the region's
// size.
Placement PlaceRegion(const Buffer& image, const std::optional<Region>& region, const Buffer* mask,
                      const std::string& maskPath);

// Reads the --mask image once for a whole batch (null when `path` is empty); throws InputError naming it.
std::shared_ptr<const Buffer> LoadMask(const std::string& path);

// The region as a JSON object: x, y, width, height, whether a mask restricts it, and the --roi as given
// ("clipped_from") when it was clipped.
Json RegionRecord(const Placement& placement);

// True (and the problem said as "ombrel CMD: PATH: problem") when a result file named on the command line
// cannot be created: checked before any work, so that a typo does not cost a long run.
bool RefuseUnwritable(const std::string& command, const std::string& path);

// The usual --jobs option (1..256 threads, default 1).
void AddJobsOption(CLI::App* command, int* jobs);
// Refuses an output path whose format cannot be written (used as a CLI11 check).
CLI::Validator OutputImageValidator();

}  // namespace ombrel::cli
