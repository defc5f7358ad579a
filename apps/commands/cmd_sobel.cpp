// SPDX-License-Identifier: MIT
// ombrel sobel: the library's Sobel agent, one 8-bit encoding of the 3x3 gradient and its statistics.
#include <cstdio>
#include <map>

#include <ombrel/gradients/sobel.h>

#include "command.h"

namespace ombrel::cli {
namespace {

const std::map<std::string, SobelOut>& Encodings() {
    static const std::map<std::string, SobelOut> encodings = {
        {"dx", DX},       {"dy", DY},       {"mag", MAG},    {"angle", ANGLE},    {"qangle", QANGLE},
        {"absdx", ABSDX}, {"absdy", ABSDY}, {"3m5a", _3M5A}, {"4gx4gy", _4GX4GY}, {"sumabs", SUMABS}};
    return encodings;
}

struct SobelOptions {
    std::vector<std::string> inputs;
    std::string mask;
    std::string roi;
    std::string encoding = "mag";
    int shift = 0;
    int threshold = 40;
    int threshold2 = -1;  // below 0: the second-threshold statistics are not gathered
    int sparseness = 1;
    std::string out;
    std::string json;
    int jobs = 1;
    bool quiet = false;
    BatchOutputs streams;
};

FileOutcome SobelOne(const SobelOptions& options, const std::optional<Region>& region, const Buffer* mask,
                     const std::string& input, const std::string& output) {
    DecodedImage decoded = LoadImage(input);
    const Placement placement = PlaceRegion(*decoded.image, region, mask, options.mask);
    const int s = options.sparseness;
    std::string error;
    auto destination = detail::AllocateGrey(std::max(1, placement.region.width / s),
                                            std::max(1, placement.region.height / s), &error);
    if (!destination) throw InputError(error);
    const SobelOut out = Encodings().at(options.encoding);
    std::unique_ptr<SobelAgent> agent(SobelFact(decoded.image.get(), destination.get(), placement.origin,
                                                const_cast<ROI*>(&placement.roi), out,
                                                SobelShift(options.shift), options.threshold, s));
    if (!agent) throw InputError("the Sobel agent could not be made (out of memory?)");
    agent->SetUseThreshold2(options.threshold2 >= 0);
    agent->SetThreshold2(options.threshold2);
    const int status = agent->Go();
    if (status != 0) throw InputError("the Sobel agent failed with status " + std::to_string(status));
    SaveImage(output, *destination);
    FileOutcome outcome;
    outcome.record = ImageRecord(input, decoded);
    outcome.record["region"] = RegionRecord(placement);
    outcome.record["encoding"] = options.encoding;
    outcome.record["shift"] = options.shift;
    outcome.record["threshold"] = options.threshold;
    outcome.record["sparseness"] = s;
    outcome.record["output"] = output;
    Json stats;
    stats["strong_count"] = agent->StrongCount();
    stats["strong_gray_sum"] = agent->StrongGraySum();
    stats["strong_mean_gray"] =
        agent->StrongCount() > 0 ? double(agent->StrongGraySum()) / agent->StrongCount() : 0.0;
    stats["output_sum"] = agent->OutputSum();
    stats["non_zero_count"] = agent->NonZeroCount();
    if (options.threshold2 >= 0) {
        stats["threshold2"] = options.threshold2;
        stats["excess_sum"] = agent->ExcessSum();
        stats["excess_count"] = agent->ExcessCount();
    }
    outcome.record["statistics"] = stats;
    outcome.table = input + ": " + options.encoding + " -> " + output + " (" +
                    std::to_string(destination->Width()) + " x " + std::to_string(destination->Height()) +
                    "), " + std::to_string(agent->StrongCount()) + " strong pixels, output sum " +
                    std::to_string(agent->OutputSum()) + "\n";
    return outcome;
}

int RunSobel(const SobelOptions& options) {
    std::string problem;
    std::optional<Region> region;
    if (!options.roi.empty()) region = ParseRegion(options.roi, &problem);
    std::shared_ptr<const Buffer> mask;
    try {
        mask = LoadMask(options.mask);
    } catch (const InputError& e) {
        PrintError("sobel", "--mask", e.what());
        return 1;
    }
    const std::vector<std::string> inputs = ExpandInputs(options.inputs);
    if (inputs.size() == 1 && !(problem = OutputFormatProblem(options.out)).empty()) {
        PrintError("sobel", "--out " + options.out, problem);
        return 2;
    }
    std::vector<std::string> outputs;
    if (!OutputPaths(options.out, inputs, "-sobel.png", &outputs, &problem)) {
        PrintError("sobel", "--out", problem);
        return 1;
    }
    return RunStreamedBatch("sobel", inputs,
                            WithCommon(options.streams, options.json, options.jobs, options.quiet),
                            [&](const std::string& input, size_t index) {
                                return SobelOne(options, region, mask.get(), input, outputs[index]);
                            });
}

}  // namespace

CommandRun AddSobelCommand(CLI::App& program) {
    auto options = std::make_shared<SobelOptions>();
    CLI::App* command = program.add_subcommand(
        "sobel",
        "Sobel gradients with the library's Sobel agent: one 8-bit image of the chosen encoding (gx and gy "
        "are the 3x3 Sobel sums shifted right by --shift and clamped to -127..127; gy is top minus bottom), "
        "sampled every --sparseness pixels, and the agent's statistics. The outermost rows and columns of "
        "the "
        "output are 0 (64 for qangle). Encodings: dx, dy (two's-complement bytes), mag (rounded length, "
        "0..180), angle (direction code, 256 per turn counter-clockwise from +x, 128 for no gradient), "
        "qangle (bit 7 = magnitude above --threshold, bits 0..6 = code / 2), absdx, absdy, 3m5a (three bits "
        "of magnitude, five of direction), 4gx4gy (the high nibbles of gx and gy), sumabs (|gx| + |gy|).");
    command->add_option("images", options->inputs, "Images (PNG, PGM, PBM, PPM) or folders of images")
        ->required();
    command->add_option("--encoding", options->encoding, "Output encoding (see above)")
        ->check(CLI::IsMember(Encodings()))
        ->capture_default_str();
    command->add_option("--shift", options->shift, "Bits both raw sums are shifted right, 0..7")
        ->check(CLI::Range(0, 7))
        ->capture_default_str();
    command
        ->add_option("--threshold", options->threshold,
                     "Strong-pixel threshold (mag, absdx, absdy, sumabs, qangle: value > threshold)")
        ->capture_default_str();
    command->add_option("--threshold2", options->threshold2,
                        "Second threshold: count and sum the excess of output bytes above it (default: off)");
    command->add_option("--sparseness", options->sparseness, "Sample every Nth pixel in both directions")
        ->check(CLI::Range(1, 1 << 20))
        ->capture_default_str();
    command->add_option("--mask", options->mask,
                        "Mask image the size of the region; its non-zero pixels are computed, the rest 0");
    command->add_option("--roi", options->roi, "Region x,y,w,h of the image (default: the whole image)")
        ->check(RegionValidator());
    command
        ->add_option("-o,--out", options->out,
                     "Output image (.png, .pgm), the region's size divided by the sparseness; a folder when "
                     "there are several images")
        ->required();
    command->add_option("--json", options->json,
                        "Write the statistics of every image to this file (strong_count, strong_gray_sum, "
                        "strong_mean_gray, output_sum, non_zero_count, and the excess figures)");
    AddJobsOption(command, &options->jobs);
    AddStreamOptions(command, &options->streams);
    command->add_flag("-q,--quiet", options->quiet, "Print nothing but errors");
    command->footer(
        "Example:\n  ombrel sobel part.png --encoding mag --shift 2 --threshold 15 --out edges.png --json "
        "edges.json\n  ombrel sobel part.png --encoding angle --sparseness 2 --roi 40,30,320,240 --out "
        "dir.png");
    return [options] { return RunSobel(*options); };
}

}  // namespace ombrel::cli
