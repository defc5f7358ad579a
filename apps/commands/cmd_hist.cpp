// SPDX-License-Identifier: MIT
// ombrel hist: grey-level histograms and statistics of images, through the library's histogram agent.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>

#include <ombrel/pixelops/histogram.h>

#include "analyses.h"

namespace ombrel::cli {
namespace {

struct HistOptions {
    std::vector<std::string> inputs;
    std::string roi;
    std::string mask;
    std::string json;
    HistogramParams params;
    int jobs = 1;
    bool quiet = false;
    BatchOutputs streams;
};

// One line of block characters, one per group of bins, scaled to the fullest group.
std::string Sparkline(const std::vector<int>& bins) {
    static const char* const kLevels[] = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    const size_t columns = std::min<size_t>(64, bins.size());
    std::vector<double> groups(columns, 0.0);
    for (size_t i = 0; i < bins.size(); ++i) groups[i * columns / bins.size()] += bins[i];
    const double top = *std::max_element(groups.begin(), groups.end());
    std::string line;
    for (double g : groups) line += kLevels[top > 0 ? static_cast<int>(std::ceil(g / top * 8.0)) : 0];
    return line;
}

std::string Format(const char* format, double a, double b, double c) {
    char text[160];
    std::snprintf(text, sizeof text, format, a, b, c);
    return text;
}

}  // namespace

Json AnalyseHistogram(Buffer& image, const Placement& placement, const HistogramParams& params,
                      std::string* table) {
    std::vector<int> bins;
    std::unique_ptr<HistogramAgent> agent(
        HistogramFact(&image, static_cast<HistRes>(params.bins), placement.origin, placement.roi, &bins));
    if (!agent) throw InputError("the histogram agent could not be made (out of memory?)");
    agent->SetSigned(params.signedPixels);
    const int status = agent->Go();
    if (status != 0) throw InputError("the histogram agent failed with status " + std::to_string(status));
    Json record;
    record["bins"] = params.bins;
    record["signed"] = params.signedPixels;
    record["pixel_count"] = agent->PixelCount();
    record["pixel_sum"] = agent->PixelSum();
    record["mean"] = agent->Mean();
    record["std_dev"] = agent->StdDev();
    record["median"] = agent->Median();
    record["counts"] = bins;
    *table +=
        "  histogram: " + std::to_string(params.bins) + " bins, " + std::to_string(agent->PixelCount()) +
        " non-zero pixels, " +
        Format("mean %.0f, std dev %.2f, median %.1f\n", agent->Mean(), agent->StdDev(), agent->Median());
    *table += "  0 |" + Sparkline(bins) + "| 255\n";
    return record;
}

namespace {

FileOutcome HistOne(const HistOptions& options, const std::optional<Region>& region, const Buffer* mask,
                    const std::string& input) {
    DecodedImage decoded = LoadImage(input);
    const Placement placement = PlaceRegion(*decoded.image, region, mask, options.mask);
    FileOutcome outcome;
    outcome.record = ImageRecord(input, decoded);
    outcome.record["region"] = RegionRecord(placement);
    outcome.table = input + " (" + std::to_string(decoded.image->Width()) + " x " +
                    std::to_string(decoded.image->Height()) + ", region " + FormatRegion(placement.region) +
                    (placement.roi.IsMasked() ? ", masked" : "") + ")\n";
    outcome.record["histogram"] = AnalyseHistogram(*decoded.image, placement, options.params, &outcome.table);
    return outcome;
}

int RunHist(const HistOptions& options) {
    std::optional<Region> region;
    std::string problem;
    if (!options.roi.empty()) region = ParseRegion(options.roi, &problem);  // validated by CLI11 already
    std::shared_ptr<const Buffer> mask;
    try {
        mask = LoadMask(options.mask);
    } catch (const InputError& e) {
        PrintError("hist", "--mask", e.what());
        return 1;
    }
    const std::vector<std::string> inputs = ExpandInputs(options.inputs);
    return RunStreamedBatch(
        "hist", inputs, WithCommon(options.streams, options.json, options.jobs, options.quiet),
        [&](const std::string& input, size_t) { return HistOne(options, region, mask.get(), input); });
}

}  // namespace

CommandRun AddHistCommand(CLI::App& program) {
    auto options = std::make_shared<HistOptions>();
    CLI::App* command = program.add_subcommand(
        "hist",
        "Count the grey values of each image (or of a region or masked region of it) into bins and "
        "report the pixel count, sum, mean, standard deviation and median, as the library's histogram "
        "agent computes them. As in the library, zero-valued pixels are binned but not counted in "
        "pixel_count, and the mean divides the sum by that count.");
    command->add_option("images", options->inputs, "Images (PNG, PGM, PBM, PPM) or folders of images")
        ->required();
    command->add_option("-b,--bins", options->params.bins, "Number of bins (256 gives one per grey value)")
        ->check(CLI::Range(1, 256))
        ->capture_default_str();
    command->add_option("--roi", options->roi, "Region x,y,w,h to count (default: the whole image)")
        ->check(RegionValidator());
    command->add_option(
        "--mask", options->mask,
        "Mask image the size of the region: only pixels under its non-zero pixels are counted");
    command->add_flag("--signed", options->params.signedPixels,
                      "Read pixels as signed bytes for the sum, mean and bin centres");
    command->add_option("--json", options->json,
                        "Write the counts and statistics of every image to this file");
    AddJobsOption(command, &options->jobs);
    AddStreamOptions(command, &options->streams);
    command->add_flag("-q,--quiet", options->quiet, "Print nothing but errors");
    command->footer("Example:\n  ombrel hist part.png --roi 100,80,200,150 --bins 64 --json part-hist.json");
    return [options] { return RunHist(*options); };
}

}  // namespace ombrel::cli
