// SPDX-License-Identifier: MIT
// ombrel hist: grey-level histograms and statistics of images, through the library's histogram agent.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>

#include <ombrel/pixelops/grey_statistics.h>
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

// A figure of the agent's that can be infinite or not a number (one counted pixel): null then.
Json Finite(double value) {
    return std::isfinite(value) ? Json(value) : Json(nullptr);
}

// numpy's figures of the region's pixels, from one bin per grey value; signed pixels read -128..127.
GreyStatistics Standard(const std::vector<int>& bins256, bool signedPixels) {
    if (!signedPixels) return StatisticsOfHistogram(bins256);
    std::vector<int> shifted(256);
    for (int v = 0; v < 256; ++v) shifted[(v + 128) & 255] = bins256[v];  // value v - 256 for v >= 128
    GreyStatistics s = StatisticsOfHistogram(shifted);
    if (!s.empty) {
        s.mean -= 128;
        s.median -= 128;
        s.min -= 128;
        s.max -= 128;
    }
    return s;
}

}  // namespace

Json HistogramFieldDescriptions() {
    return Json{{"count", "number of pixels in the region, zeros included (integer)"},
                {"mean", "sum / count, as numpy.mean (null for an empty region)"},
                {"std", "population standard deviation sqrt(sum((v - mean)^2) / count), as numpy.std"},
                {"median", "middle pixel value, or the mean of the two middle values, as numpy.median"},
                {"min", "smallest pixel value (integer)"},
                {"max", "largest pixel value (integer)"},
                {"otsu_threshold",
                 "Otsu's threshold t of the 256-value histogram: classes v <= t and v > t, as "
                 "cv2.threshold with THRESH_OTSU (on the unsigned values, also with --signed)"},
                {"signed", "pixels read as signed bytes (-128..127) for every figure"},
                {"bins", "number of bins of counts"},
                {"counts", "pixels per bin; bin i holds values i * 256 / bins .. (i + 1) * 256 / bins - 1"},
                {"agent",
                 "the histogram agent's own figures, by its own rules: pixel_count leaves zero pixels out; "
                 "mean = pixel_sum / pixel_count in integer division (an integer); std_dev sums (bin centre "
                 "- mean)^2 "
                 "over every bin, zeros included, divided by pixel_count - 1 (null when that is 0); "
                 "median = centre of the bin after the last one whose running count is below half of "
                 "pixel_count (0 when the first bin reaches half)"}};
}

Json AnalyseHistogram(Buffer& image, const Placement& placement, const HistogramParams& params,
                      std::string* table) {
    std::vector<int> bins;
    std::unique_ptr<HistogramAgent> agent(
        HistogramFact(&image, static_cast<HistRes>(params.bins), placement.origin, placement.roi, &bins));
    if (!agent) throw InputError("the histogram agent could not be made (out of memory?)");
    agent->SetSigned(params.signedPixels);
    const int status = agent->Go();
    if (status != 0) throw InputError("the histogram agent failed with status " + std::to_string(status));
    std::vector<int> values = bins;
    if (params.bins != 256) {
        std::unique_ptr<HistogramAgent> fine(
            HistogramFact(&image, HISTRES_256, placement.origin, placement.roi, &values));
        if (!fine || fine->Go() != 0) throw InputError("the histogram agent failed (out of memory?)");
    }
    const GreyStatistics s = Standard(values, params.signedPixels);
    const int otsu = OtsuThreshold(values);
    auto figure = [&](double v) { return s.empty ? Json(nullptr) : Json(v); };
    Json record;
    record["bins"] = params.bins;
    record["signed"] = params.signedPixels;
    record["count"] = s.count;
    record["mean"] = figure(s.mean);
    record["std"] = figure(s.std);
    record["median"] = figure(s.median);
    record["min"] = s.empty ? Json(nullptr) : Json(s.min);
    record["max"] = s.empty ? Json(nullptr) : Json(s.max);
    record["otsu_threshold"] = otsu;
    record["agent"] = {{"pixel_count", agent->PixelCount()},
                       {"pixel_sum", agent->PixelSum()},
                       {"mean", static_cast<int64_t>(agent->Mean())},  // an integer division
                       {"std_dev", Finite(agent->StdDev())},
                       {"median", Finite(agent->Median())}};
    record["counts"] = bins;
    char line[240];
    if (s.empty) {
        std::snprintf(line, sizeof line, "  %lld pixels\n", static_cast<long long>(s.count));
    } else {
        std::snprintf(line, sizeof line,
                      "  %lld pixels: mean %.2f, std %.2f, median %.1f, min %d, max %d; Otsu threshold %d\n",
                      static_cast<long long>(s.count), s.mean, s.std, s.median, s.min, s.max, otsu);
    }
    *table += line;
    const std::string agentDev = std::isfinite(agent->StdDev()) ? Format("%.2f", agent->StdDev(), 0, 0)
                                                                : std::string("none (divides by 0)");
    *table += "  agent: " + std::to_string(agent->PixelCount()) + " non-zero pixels, " +
              Format("integer mean %.0f", agent->Mean(), 0, 0) + ", std dev " + agentDev +
              Format(", median bin centre %.1f (its own rules, see --help)\n", agent->Median(), 0, 0);
    *table += "  " + std::to_string(params.bins) + " bins: 0 |" + Sparkline(bins) + "| 255\n";
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
    BatchOutputs outputs = WithCommon(options.streams, options.json, options.jobs, options.quiet);
    outputs.fieldDescriptions = HistogramFieldDescriptions();
    return RunStreamedBatch("hist", inputs, outputs, [&](const std::string& input, size_t) {
        return HistOne(options, region, mask.get(), input);
    });
}

}  // namespace

CommandRun AddHistCommand(CLI::App& program) {
    auto options = std::make_shared<HistOptions>();
    CLI::App* command = program.add_subcommand(
        "hist",
        "Count the grey values of each image (or of a region or masked region of it) into bins with the "
        "library's histogram agent and report the region's count, mean, std, median, min and max as "
        "numpy computes them on the pixels, and Otsu's threshold; the agent's own figures follow its "
        "rules and are written apart, under \"agent\" (zero pixels are binned but not counted in its "
        "pixel_count, and its mean is an integer division).");
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
    std::string fields =
        "Fields of each image's \"histogram\" (the JSON's \"field_descriptions\" repeats them):\n";
    const Json descriptions = HistogramFieldDescriptions();
    for (const auto& [name, text] : descriptions.items())
        fields += "  " + name + ": " + text.get<std::string>() + "\n";
    command->footer(
        fields + "\nExample:\n  ombrel hist part.png --roi 100,80,200,150 --bins 64 --json part-hist.json");
    return [options] { return RunHist(*options); };
}

}  // namespace ombrel::cli
