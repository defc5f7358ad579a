// SPDX-License-Identifier: MIT
// ombrel mask: the library's mask agent, which transfers the pixels under a mask into a fresh image.
#include <cstdio>
#include <map>

#include <ombrel/pixelops/mask.h>

#include "auto_band.h"
#include "command.h"

namespace ombrel::cli {
namespace {

const std::map<std::string, MaskOp>& MaskOps() {
    static const std::map<std::string, MaskOp> ops = {
        {"add", MASK_ADD}, {"sub", MASK_SUB},  {"absdiff", MASK_ABSDIFF}, {"and", MASK_AND},
        {"or", MASK_OR},   {"xor", MASK_XOR},  {"copy", MASK_COPY},       {"min", MASK_MIN},
        {"max", MASK_MAX}, {"band", MASK_BAND}};
    return ops;
}

struct MaskOptions {
    std::vector<std::string> inputs;
    std::string mask;
    std::string roi;
    std::string op = "copy";
    std::string band = "1:255";
    std::string out;
    std::string json;
    int jobs = 1;
    bool quiet = false;
    BatchOutputs streams;
};

FileOutcome MaskOne(const MaskOptions& options, const std::optional<Region>& region, const Buffer* mask,
                    const BandChoice& bandChoice, const std::string& input, const std::string& output) {
    DecodedImage decoded = LoadImage(input);
    const Placement placement = PlaceRegion(*decoded.image, region, mask, options.mask);
    const bool banded = options.op == "band";
    const ChosenBand chosen = banded ? ChooseBand(bandChoice, *decoded.image, placement)
                                     : ChosenBand{bandChoice.band, {}, "fixed", ""};
    const Band band = chosen.band;
    std::string error;
    auto destination = detail::AllocateGrey(placement.region.width, placement.region.height, &error);
    if (!destination) throw InputError(error);
    const MaskOp op = MaskOps().at(options.op);
    std::unique_ptr<MaskAgent> agent(MaskFact(decoded.image.get(), destination.get(), placement.origin,
                                              placement.roi, band.low, band.high, op));
    if (!agent) throw InputError("the mask agent could not be made (out of memory?)");
    const int status = agent->Go();
    if (status != 0) throw InputError("the mask agent failed with status " + std::to_string(status));
    // The band operation gives a binary image (1 inside the band): written 0/255 like every binary output.
    options.op == "band" ? SaveBinaryImage(output, *destination) : SaveImage(output, *destination);
    uint64_t nonZero = 0;
    for (int y = 0; y < destination->Height(); ++y) {
        const uint8_t* row = destination->Row(y);
        for (int x = 0; x < destination->Width(); ++x) nonZero += row[x] != 0;
    }
    FileOutcome outcome;
    outcome.record = ImageRecord(input, decoded);
    outcome.record["region"] = RegionRecord(placement);
    outcome.record["operation"] = options.op;
    if (banded) {
        outcome.record["band"] = {band.low, band.high};
        outcome.record["band_mode"] = chosen.mode;
        if (chosen.threshold) {
            outcome.record["threshold"] = *chosen.threshold;
            outcome.record["objects_are"] = chosen.objects;
        }
    }
    outcome.record["output"] = output;
    outcome.record["non_zero_pixels"] = nonZero;
    outcome.table = input + ": " + options.op + " under the mask -> " + output + " (" +
                    std::to_string(destination->Width()) + " x " + std::to_string(destination->Height()) +
                    ", " + std::to_string(nonZero) + " non-zero pixels" +
                    (banded ? ", " + DescribeBand(chosen) : "") + ")\n";
    return outcome;
}

int RunMask(const MaskOptions& options) {
    std::string problem;
    std::optional<Region> region;
    if (!options.roi.empty()) region = ParseRegion(options.roi, &problem);
    const BandChoice band =
        ParseBandChoice(options.band, &problem).value_or(BandChoice{BandMode::Fixed, Band{1, 255}});
    std::shared_ptr<const Buffer> mask;
    try {
        mask = LoadMask(options.mask);
    } catch (const InputError& e) {
        PrintError("mask", "--mask", e.what());
        return 1;
    }
    const std::vector<std::string> inputs = ExpandInputs(options.inputs);
    if (inputs.size() == 1 && !(problem = OutputFormatProblem(options.out)).empty()) {
        PrintError("mask", "--out " + options.out, problem);
        return 2;
    }
    std::vector<std::string> outputs;
    if (!OutputPaths(options.out, inputs, "-masked.png", &outputs, &problem)) {
        PrintError("mask", "--out", problem);
        return 1;
    }
    return RunStreamedBatch("mask", inputs,
                            WithCommon(options.streams, options.json, options.jobs, options.quiet),
                            [&](const std::string& input, size_t index) {
                                return MaskOne(options, region, mask.get(), band, input, outputs[index]);
                            });
}

}  // namespace

CommandRun AddMaskCommand(CLI::App& program) {
    auto options = std::make_shared<MaskOptions>();
    CLI::App* command = program.add_subcommand(
        "mask",
        "Transfer the pixels of a region that lie under a mask into a new image the region's size, with "
        "the library's mask agent; everything outside the mask is 0. The agent clears its output "
        "first, so the combining operations act on 0: add, absdiff, or, xor, copy and max give a "
        "masked copy, and and min give 0, sub the negated pixels, and band a binary image: 255 (1 with "
        "--raw-values) "
        "where LOW <= pixel <= HIGH, 0 elsewhere.");
    command->add_option("images", options->inputs, "Images (PNG, PGM, PBM, PPM) or folders of images")
        ->required();
    command->add_option(
        "--mask", options->mask,
        "Mask image the size of the region; its non-zero pixels select (default: no mask, the "
        "whole region)");
    command->add_option("--roi", options->roi, "Region x,y,w,h of the image (default: the whole image)")
        ->check(RegionValidator());
    command
        ->add_option("--op", options->op, "Operation: add, sub, absdiff, and, or, xor, copy, min, max, band")
        ->check(CLI::IsMember(MaskOps()))
        ->capture_default_str();
    command
        ->add_option(
            "--band", options->band,
            std::string("For --op band: ") + kAutoBandHelp + " (counted over the region under the mask)")
        ->check(BandChoiceValidator())
        ->capture_default_str();
    command
        ->add_option("-o,--out", options->out,
                     "Output image (.png, .pgm, .pbm); a folder when there are several images")
        ->required();
    command->add_option("--json", options->json, "Write what was done for every image to this file");
    AddJobsOption(command, &options->jobs);
    AddStreamOptions(command, &options->streams);
    command->add_flag("-q,--quiet", options->quiet, "Print nothing but errors");
    command->footer(
        "Example:\n  ombrel mask part.png --mask inspect-area.png --roi 40,30,320,240 --out masked.png\n"
        "  ombrel mask part.png --op band --band 0:90 --out dark.pbm   (a PBM mask: reads back through "
        "--mask to the same pixels)\n"
        "  ombrel mask part.png --op band --band auto-dark --out dark.png --json dark.json");
    return [options] { return RunMask(*options); };
}

}  // namespace ombrel::cli
