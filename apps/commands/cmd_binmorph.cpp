// SPDX-License-Identifier: MIT
// ombrel binmorph: one 3x3 binary operation of the library, applied any number of times (or until the image
// stops changing) to a thresholded image.
#include <map>

#include <ombrel/morph/binmorph.h>

#include "command.h"

namespace ombrel::cli {
namespace {

const std::map<std::string, BinMorphOpCode>& BinMorphOps() {
    static const std::map<std::string, BinMorphOpCode> ops = {
        {"erode-keep6", ErodeKeep6},
        {"erode", ErodeFull},
        {"dilate-min2", DilateMin2},
        {"copy", Copy},
        {"erode-keep2", ErodeKeep2},
        {"keep-square-or-diagonal", KeepSquareOrDiagonal},
        {"dilate", DilateFull},
        {"fill-bridges", FillBridges},
        {"thin-right-or-below", ThinIfRightOrBelow},
        {"thin-left-or-above", ThinIfLeftOrAbove},
        {"up", Up},
        {"down", Down},
        {"left", Left},
        {"right", Right},
        {"etptl", ETPTL},
        {"etpbr", ETPBR},
        {"tfp", TFP},
        {"fill-pinholes", FillPinholes}};
    return ops;
}

// Rounds of --until-converged before giving up: every round is at least one pass over the image.
constexpr int kMaxRounds = 100000;

struct BinMorphOptions {
    std::vector<std::string> inputs;
    std::string roi;
    std::string op = "erode";
    std::string border = "clear";
    int iterations = 1;
    int threshold = 128;
    bool untilConverged = false;
    std::string out;
    std::string json;
    int jobs = 1;
    bool quiet = false;
    BatchOutputs streams;
};

FileOutcome BinMorphOne(const BinMorphOptions& options, const std::optional<Region>& region,
                        const std::string& input, const std::string& output) {
    DecodedImage decoded = LoadImage(input);
    const Placement placement = PlaceRegion(*decoded.image, region, nullptr, "");
    const Buffer& grey = *decoded.image;
    std::string error;
    auto binary = detail::AllocateGrey(grey.Width(), grey.Height(), &error);
    auto result = binary ? detail::AllocateGrey(grey.Width(), grey.Height(), &error) : nullptr;
    if (!result) throw InputError(error);
    for (int y = 0; y < grey.Height(); ++y)
        for (int x = 0; x < grey.Width(); ++x)
            binary->Row(y)[x] = grey.Row(y)[x] >= options.threshold ? 1 : 0;

    BinMorphOperator op(BinMorphOps().at(options.op));
    const BMBORDER border = options.border == "set" ? BMBORDER_SET : BMBORDER_CLEAR;
    std::unique_ptr<BinMorphAgent> agent(BinMorphFact(binary.get(), result.get(), placement.origin,
                                                      placement.roi, border, &op, options.iterations));
    if (!agent) throw InputError("the binary morphology agent could not be made (out of memory?)");
    int rounds = 0, status = 0;
    do {
        status = agent->Go();
        ++rounds;
        // Later rounds continue from the result, in place over the region's rectangle at its origin.
        agent->SetSrcBuf(result.get());
        agent->SetSrcPt(Point{0, 0});
    } while (status == 0 && options.untilConverged && agent->Changed() != 0 && rounds < kMaxRounds);
    if (status != 0)
        throw InputError("the binary morphology agent failed with status " + std::to_string(status));
    const bool converged = !options.untilConverged || agent->Changed() == 0;

    auto picture = detail::AllocateGrey(placement.region.width, placement.region.height, &error);
    if (!picture) throw InputError(error);
    for (int y = 0; y < picture->Height(); ++y)
        for (int x = 0; x < picture->Width(); ++x) picture->Row(y)[x] = (result->Row(y)[x] & 1) ? 255 : 0;
    SaveBinaryImage(output, *picture);

    FileOutcome outcome;
    outcome.record = ImageRecord(input, decoded);
    outcome.record["region"] = RegionRecord(placement);
    outcome.record["operation"] = options.op;
    outcome.record["border"] = options.border;
    outcome.record["iterations_per_round"] = options.iterations;
    outcome.record["rounds"] = rounds;
    outcome.record["converged"] = converged;
    outcome.record["set_pixels"] = agent->SetPixelCount();
    outcome.record["output"] = output;
    outcome.table = input + ": " + options.op + " x" + std::to_string(options.iterations) +
                    (options.untilConverged ? " until converged (" + std::to_string(rounds) + " rounds" +
                                                  (converged ? "" : ", stopped unconverged") + ")"
                                            : "") +
                    " -> " + output + " (" + std::to_string(agent->SetPixelCount()) + " set pixels)\n";
    return outcome;
}

int RunBinMorph(const BinMorphOptions& options) {
    std::string problem;
    std::optional<Region> region;
    if (!options.roi.empty()) region = ParseRegion(options.roi, &problem);
    const std::vector<std::string> inputs = ExpandInputs(options.inputs);
    if (inputs.size() == 1 && !(problem = OutputFormatProblem(options.out)).empty()) {
        PrintError("binmorph", "--out " + options.out, problem);
        return 2;
    }
    std::vector<std::string> outputs;
    if (!OutputPaths(options.out, inputs, "-binmorph.png", &outputs, &problem)) {
        PrintError("binmorph", "--out", problem);
        return 1;
    }
    return RunStreamedBatch("binmorph", inputs,
                            WithCommon(options.streams, options.json, options.jobs, options.quiet),
                            [&](const std::string& input, size_t index) {
                                return BinMorphOne(options, region, input, outputs[index]);
                            });
}

}  // namespace

CommandRun AddBinMorphCommand(CLI::App& program) {
    auto options = std::make_shared<BinMorphOptions>();
    CLI::App* command = program.add_subcommand(
        "binmorph",
        "Apply one of the library's 3x3 binary operations to a thresholded image (pixels >= THRESHOLD are "
        "set), ITERATIONS times, or round after round until the set-pixel count stops changing. The "
        "output is the region's size, 0/255.");
    command->add_option("images", options->inputs, "Images (PNG, PGM, PBM, PPM) or folders of images")
        ->required();
    std::string names;
    for (const auto& [name, code] : BinMorphOps()) names += (names.empty() ? "" : ", ") + name;
    command->add_option("--op", options->op, "Operation: " + names)
        ->check(CLI::IsMember(BinMorphOps()))
        ->capture_default_str();
    command->add_option("--iterations", options->iterations, "Passes per round, 0..1000000")
        ->check(CLI::Range(0, 1000000))
        ->capture_default_str();
    command
        ->add_option("--border", options->border, "What pixels outside the region read: clear (0) or set (1)")
        ->check(CLI::IsMember({"clear", "set"}))
        ->capture_default_str();
    command->add_option("--threshold", options->threshold, "Grey level from which a pixel is set, 1..255")
        ->check(CLI::Range(1, 255))
        ->capture_default_str();
    command->add_flag("--until-converged", options->untilConverged,
                      "Repeat rounds until the set-pixel count stops changing (at most 100000 rounds)");
    command->add_option("--roi", options->roi, "Region x,y,w,h of the image (default: the whole image)")
        ->check(RegionValidator());
    command
        ->add_option("-o,--out", options->out,
                     "Output image (.png, .pgm, .pbm); a folder when there are several images")
        ->required();
    command->add_option("--json", options->json, "Write what was done for every image to this file");
    AddJobsOption(command, &options->jobs);
    AddStreamOptions(command, &options->streams);
    command->add_flag("-q,--quiet", options->quiet, "Print nothing but errors");
    command->footer(
        "Example:\n  ombrel binmorph part.png --op erode --iterations 2 --out eroded.png\n"
        "  ombrel binmorph scan.png --op fill-pinholes --until-converged --out filled.png");
    return [options] { return RunBinMorph(*options); };
}

}  // namespace ombrel::cli
