// SPDX-License-Identifier: MIT
// ombrel transpose: the library's transposition agent, which turns a region by a quarter or half turn or
// mirrors it.
#include <cstdio>
#include <map>

#include <ombrel/pixelops/transpose.h>

#include "command.h"

namespace ombrel::cli {
namespace {

const std::map<std::string, TransOpType>& TransposeOps() {
    static const std::map<std::string, TransOpType> ops = {{"ccw", TRANSPOSE_ROT90_CCW},
                                                           {"cw", TRANSPOSE_ROT90_CW},
                                                           {"180", TRANSPOSE_ROT180},
                                                           {"flip-tb", TRANSPOSE_FLIP_TB},
                                                           {"flip-lr", TRANSPOSE_FLIP_LR}};
    return ops;
}

struct TransposeOptions {
    std::vector<std::string> inputs;
    std::string roi;
    std::string op = "cw";
    std::string out;
    std::string json;
    int jobs = 1;
    bool quiet = false;
    BatchOutputs streams;
};

FileOutcome TransposeOne(const TransposeOptions& options, const std::optional<Region>& region,
                         const std::string& input, const std::string& output) {
    DecodedImage decoded = LoadImage(input);
    const Placement placement = PlaceRegion(*decoded.image, region, nullptr, "");
    const TransOpType op = TransposeOps().at(options.op);
    const Region& r = placement.region;
    const bool quarter = op == TRANSPOSE_ROT90_CCW || op == TRANSPOSE_ROT90_CW;
    const int width = quarter ? r.height : r.width, height = quarter ? r.width : r.height;
    std::string error;
    auto destination = detail::AllocateGrey(width, height, &error);
    if (!destination) throw InputError(error);
    std::unique_ptr<TransposeAgent> agent(
        TransposeFact(decoded.image.get(), destination.get(), r.AsRect(), op));
    if (!agent) throw InputError("the transposition agent could not be made (out of memory?)");
    const int status = agent->Go();
    if (status != 0) throw InputError("the transposition agent failed with status " + std::to_string(status));
    SaveImage(output, *destination);
    FileOutcome outcome;
    outcome.record = ImageRecord(input, decoded);
    outcome.record["region"] = RegionRecord(placement);
    outcome.record["operation"] = options.op;
    outcome.record["output"] = output;
    outcome.record["output_width"] = width;
    outcome.record["output_height"] = height;
    outcome.table = input + ": " + options.op + " -> " + output + " (" + std::to_string(width) + " x " +
                    std::to_string(height) + ")\n";
    return outcome;
}

int RunTranspose(const TransposeOptions& options) {
    std::string problem;
    std::optional<Region> region;
    if (!options.roi.empty()) region = ParseRegion(options.roi, &problem);
    const std::vector<std::string> inputs = ExpandInputs(options.inputs);
    if (inputs.size() == 1 && !(problem = OutputFormatProblem(options.out)).empty()) {
        PrintError("transpose", "--out " + options.out, problem);
        return 2;
    }
    std::vector<std::string> outputs;
    if (!OutputPaths(options.out, inputs, "-" + options.op + ".png", &outputs, &problem)) {
        PrintError("transpose", "--out", problem);
        return 1;
    }
    return RunStreamedBatch("transpose", inputs,
                            WithCommon(options.streams, options.json, options.jobs, options.quiet),
                            [&](const std::string& input, size_t index) {
                                return TransposeOne(options, region, input, outputs[index]);
                            });
}

}  // namespace

CommandRun AddTransposeCommand(CLI::App& program) {
    auto options = std::make_shared<TransposeOptions>();
    CLI::App* command = program.add_subcommand(
        "transpose",
        "Turn a region by a quarter turn counter-clockwise (ccw) or clockwise (cw) or by a half turn "
        "(180), or mirror it top to bottom (flip-tb) or left to right (flip-lr), with the library's "
        "transposition agent. Quarter turns give a height x width image, the others width x height.");
    command->add_option("images", options->inputs, "Images (PNG, PGM, PBM, PPM) or folders of images")
        ->required();
    command->add_option("--roi", options->roi, "Region x,y,w,h of the image (default: the whole image)")
        ->check(RegionValidator());
    command->add_option("--op", options->op, "Operation: ccw, cw, 180, flip-tb, flip-lr")
        ->check(CLI::IsMember(TransposeOps()))
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
        "Example:\n  ombrel transpose part.png --op ccw --out turned.png\n"
        "  ombrel transpose part.png --roi 40,30,320,240 --op flip-lr --out mirrored.png --json done.json");
    return [options] { return RunTranspose(*options); };
}

}  // namespace ombrel::cli
