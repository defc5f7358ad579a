// SPDX-License-Identifier: MIT
// ombrel decimate: the library's decimation agent, which smooths a region with the 3x3 binomial kernel and
// keeps every pixel (step 1) or every second pixel in both directions (step 2).
#include <cstdio>

#include <ombrel/pixelops/decimate.h>

#include "command.h"

namespace ombrel::cli {
namespace {

struct DecimateOptions {
    std::vector<std::string> inputs;
    std::string roi;
    int step = 2;
    std::string out;
    std::string json;
    int jobs = 1;
    bool quiet = false;
    BatchOutputs streams;
};

FileOutcome DecimateOne(const DecimateOptions& options, const std::optional<Region>& region,
                        const std::string& input, const std::string& output) {
    DecodedImage decoded = LoadImage(input);
    const Placement placement = PlaceRegion(*decoded.image, region, nullptr, "");
    const int width = placement.region.width / options.step, height = placement.region.height / options.step;
    if (width == 0 || height == 0)
        throw InputError("the region (" + std::to_string(placement.region.width) + " x " +
                         std::to_string(placement.region.height) + ") is too small for step " +
                         std::to_string(options.step));
    std::string error;
    auto destination = detail::AllocateGrey(width, height, &error);
    if (!destination) throw InputError(error);
    const Region& r = placement.region;
    std::unique_ptr<DecimateAgent> agent(DecimateFact(decoded.image.get(), destination.get(), r.AsRect(),
                                                      static_cast<PixelStep>(options.step)));
    if (!agent) throw InputError("the decimation agent could not be made (out of memory?)");
    const int status = agent->Go();
    if (status != 0) throw InputError("the decimation agent failed with status " + std::to_string(status));
    SaveImage(output, *destination);
    FileOutcome outcome;
    outcome.record = ImageRecord(input, decoded);
    outcome.record["region"] = RegionRecord(placement);
    outcome.record["step"] = options.step;
    outcome.record["output"] = output;
    outcome.record["output_width"] = width;
    outcome.record["output_height"] = height;
    outcome.table = input + ": decimated with step " + std::to_string(options.step) + " -> " + output + " (" +
                    std::to_string(width) + " x " + std::to_string(height) + ")\n";
    return outcome;
}

int RunDecimate(const DecimateOptions& options) {
    std::string problem;
    std::optional<Region> region;
    if (!options.roi.empty()) region = ParseRegion(options.roi, &problem);
    const std::vector<std::string> inputs = ExpandInputs(options.inputs);
    if (inputs.size() == 1 && !(problem = OutputFormatProblem(options.out)).empty()) {
        PrintError("decimate", "--out " + options.out, problem);
        return 2;
    }
    std::vector<std::string> outputs;
    if (!OutputPaths(options.out, inputs, "-decimated.png", &outputs, &problem)) {
        PrintError("decimate", "--out", problem);
        return 1;
    }
    return RunStreamedBatch("decimate", inputs,
                            WithCommon(options.streams, options.json, options.jobs, options.quiet),
                            [&](const std::string& input, size_t index) {
                                return DecimateOne(options, region, input, outputs[index]);
                            });
}

}  // namespace

CommandRun AddDecimateCommand(CLI::App& program) {
    auto options = std::make_shared<DecimateOptions>();
    CLI::App* command = program.add_subcommand(
        "decimate",
        "Smooth a region with the 3x3 binomial kernel (1-2-1 in both directions, sum shifted right by 4, "
        "truncating) and keep every pixel (step 1) or every second pixel (step 2: the pixels at odd "
        "offsets 1, 3, 5 ... of the region), with the library's decimation agent. The output is "
        "width/step x height/step. Neighbours after a pixel stop at the region's last row and column; "
        "neighbours before it stop only at the image's first row and column, so a region away from the "
        "image's top-left corner reads one pixel above and left of itself.");
    command->add_option("images", options->inputs, "Images (PNG, PGM, PBM, PPM) or folders of images")
        ->required();
    command->add_option("--roi", options->roi, "Region x,y,w,h of the image (default: the whole image)")
        ->check(RegionValidator());
    command->add_option("--step", options->step, "Sampling step: 1 or 2")
        ->check(CLI::IsMember({1, 2}))
        ->capture_default_str();
    command
        ->add_option("-o,--out", options->out,
                     "Output image (.png, .pgm); a folder when there are several images")
        ->required();
    command->add_option("--json", options->json, "Write what was done for every image to this file");
    AddJobsOption(command, &options->jobs);
    AddStreamOptions(command, &options->streams);
    command->add_flag("-q,--quiet", options->quiet, "Print nothing but errors");
    command->footer(
        "Example:\n  ombrel decimate part.png --out half.png\n"
        "  ombrel decimate part.png --roi 40,30,320,240 --step 1 --out smoothed.png --json done.json");
    return [options] { return RunDecimate(*options); };
}

}  // namespace ombrel::cli
