// SPDX-License-Identifier: MIT
// ombrel focus: the library's auto focus figure of every frame of a focus sweep, the sharpest frame, and a
// plot of the figure against the frame.
#include <algorithm>
#include <cstdio>
#include <memory>

#include <ombrel/framework/halvard_metadc.h>
#include <ombrel/gradients/auto_focus.h>

#include "../output_file.h"
#include "command.h"

namespace ombrel::cli {
namespace {

struct FocusOptions {
    std::vector<std::string> inputs;
    std::string roi;
    std::string step = "1,1";
    bool isSigned = false;
    std::string plot;
    std::string json;
    int jobs = 1;
    bool quiet = false;
};

FileOutcome FocusOne(const FocusOptions& options, const std::optional<Region>& region, const Step& step,
                     const std::string& input) {
    DecodedImage decoded = LoadImage(input);
    Buffer& image = *decoded.image;
    const Placement placement = PlaceRegion(image, region, nullptr, "");
    std::unique_ptr<AutoFocusAgent> agent(AutoFocusFact(&image, placement.origin, placement.roi));
    if (!agent) throw InputError("the auto focus agent could not be made (out of memory?)");
    agent->SetSparseness(step.x, step.y);
    agent->SetSigned(options.isSigned);
    const int status = agent->Go();
    if (status != 0) {
        throw InputError("the auto focus agent failed with status " + std::to_string(status) +
                         " (is the region larger than the step?)");
    }
    FileOutcome outcome;
    outcome.record = ImageRecord(input, decoded);
    outcome.record["region"] = RegionRecord(placement);
    // The agent gives up the step at the right and bottom edges: the part it measured.
    outcome.record["measured_width"] = agent->SrcROI().Width();
    outcome.record["measured_height"] = agent->SrcROI().Height();
    outcome.record["step"] = {step.x, step.y};
    outcome.record["focus"] = agent->Focus();
    outcome.record["diff_sum"] = agent->DiffSum();
    outcome.record["pixel_sum"] = agent->PixelSum();
    outcome.record["nonzero_pixel_count"] = agent->PixelCount();
    outcome.record["mean_of_nonzero"] = agent->Mean();
    outcome.record["histogram_spread"] = agent->StdDev();
    char line[512];
    std::snprintf(line, sizeof line,
                  "%s: focus %.3f (difference sum %.0f / pixel sum %.0f x 1000), mean %.2f\n", input.c_str(),
                  agent->Focus(), agent->DiffSum(), agent->PixelSum(), agent->Mean());
    outcome.table = line;
    return outcome;
}

// Focus against frame as a line plot with a dot per frame and the sharpest frame crossed; failed frames
// leave a gap. PNG (grey) or SVG by the file's extension.
void WritePlot(const std::string& path, const std::vector<FileOutcome>& outcomes, size_t sharpest) {
    constexpr int kWidth = 640, kHeight = 320, kMargin = 30;
    double top = 0;
    for (const auto& o : outcomes)
        if (o.ok()) top = std::max(top, o.record["focus"].get<double>());
    if (top <= 0) top = 1;
    const size_t n = outcomes.size();
    auto px = [&](size_t i) {
        return kMargin + (n > 1 ? double(i) * (kWidth - 2 * kMargin) / double(n - 1) : 0);
    };
    auto py = [&](double f) { return kHeight - kMargin - f / top * (kHeight - 2 * kMargin); };
    HalvardMetaDC dc;
    dc.SelectObject(0x808080);
    dc.MoveTo(kMargin, kMargin);
    dc.LineTo(kMargin, kHeight - kMargin);
    dc.LineTo(kWidth - kMargin, kHeight - kMargin);
    dc.TextAt(kMargin, 8, "FOCUS");
    dc.TextAt(kWidth - kMargin - 20, kHeight - kMargin + 8, "FRAME");
    dc.SelectObject(0x2060FF, 2);
    bool drawing = false;
    for (size_t i = 0; i < n; ++i) {
        if (!outcomes[i].ok()) {
            drawing = false;
            continue;
        }
        const double x = px(i), y = py(outcomes[i].record["focus"].get<double>());
        drawing ? dc.LineTo(x, y) : dc.MoveTo(x, y);
        drawing = true;
    }
    dc.SelectObject(0x000000, 1);
    for (size_t i = 0; i < n; ++i)
        if (outcomes[i].ok()) dc.CrossAt(px(i), py(outcomes[i].record["focus"].get<double>()), 2);
    if (sharpest < n) {
        dc.SelectObject(0xFF2020, 2);
        dc.CrossAt(px(sharpest), py(outcomes[sharpest].record["focus"].get<double>()), 7);
    }
    const bool svg = path.size() >= 4 && path.substr(path.size() - 4) == ".svg";
    if (svg) {
        const std::string problem = WriteTextFile(path, dc.ToSvg(kWidth, kHeight));
        if (!problem.empty()) throw InputError(problem);
        return;
    }
    Buffer plot(kWidth, kHeight, EIGHT);
    for (int y = 0; y < kHeight; ++y) std::fill_n(plot.Row(y), kWidth, uint8_t{255});
    dc.Render(plot);
    const std::string problem = WriteImage(path, plot);
    if (!problem.empty()) throw InputError(problem);
}

int RunFocus(const FocusOptions& options) {
    if (RefuseUnwritable("focus", options.json) || RefuseUnwritable("focus", options.plot)) return 2;
    std::string problem;
    std::optional<Region> region;
    if (!options.roi.empty()) region = ParseRegion(options.roi, &problem);
    const std::optional<Step> step = ParseStep(options.step, &problem);
    if (!step) {
        PrintError("focus", "--step " + options.step, problem);
        return 2;
    }
    const std::vector<std::string> inputs = ExpandInputs(options.inputs);
    const auto outcomes = RunBatch(
        inputs, options.jobs,
        [&](const std::string& input, size_t) { return FocusOne(options, region, *step, input); },
        options.quiet);
    int status = ReportBatch("focus", outcomes, options.quiet);
    size_t sharpest = outcomes.size();
    for (size_t i = 0; i < outcomes.size(); ++i) {
        if (!outcomes[i].ok()) continue;
        if (sharpest == outcomes.size() ||
            outcomes[i].record["focus"].get<double>() > outcomes[sharpest].record["focus"].get<double>())
            sharpest = i;
    }
    if (sharpest < outcomes.size() && !options.quiet) {
        std::printf("sharpest: %s (frame %zu, focus %.3f)\n", outcomes[sharpest].input.c_str(), sharpest,
                    outcomes[sharpest].record["focus"].get<double>());
    }
    if (!options.plot.empty()) {
        try {
            WritePlot(options.plot, outcomes, sharpest);
        } catch (const InputError& e) {
            PrintError("focus", options.plot, e.what());
            status = 1;
        }
    }
    if (options.json.empty()) return status;
    Json document{{"tool", "ombrel focus"}, {"images", Json::array()}};
    for (const FileOutcome& o : outcomes)
        document["images"].push_back(o.ok() ? o.record : Json{{"file", o.input}, {"error", o.error}});
    if (sharpest < outcomes.size()) {
        document["sharpest"] = {{"file", outcomes[sharpest].input},
                                {"frame", sharpest},
                                {"focus", outcomes[sharpest].record["focus"]}};
    }
    if (const std::string jsonProblem = WriteJsonFile(options.json, document); !jsonProblem.empty()) {
        PrintError("focus", options.json, jsonProblem);
        return 1;
    }
    return status;
}

}  // namespace

CommandRun AddFocusCommand(CLI::App& program) {
    auto options = std::make_shared<FocusOptions>();
    CLI::App* command = program.add_subcommand(
        "focus",
        "Auto focus figure of every frame with the library's auto focus agent, and the sharpest frame. The "
        "figure is the sum of |I(x + sx, y + sy) - I(x, y)| over the region, divided by the sum of the "
        "region's pixels, times 1000 (sx, sy: --step). At the right and bottom edges of the image the region "
        "gives up the step. Also reported: the mean of the region's non-zero pixels (the pixel sum divided "
        "by the count of non-zero pixels, as the agent defines it) and the agent's histogram spread (a "
        "relative figure: the bins' spread divided by 255 bins, not the pixels' standard deviation).");
    command
        ->add_option("frames", options->inputs, "Frames (PNG, PGM, PBM, PPM) or folders of frames, in order")
        ->required();
    command->add_option("--roi", options->roi, "Region x,y,w,h of every frame (default: the whole frame)")
        ->check(RegionValidator());
    command->add_option("--step", options->step, "Displacement X,Y between the two images subtracted, 1..64")
        ->check(StepValidator())
        ->capture_default_str();
    command->add_flag("--signed", options->isSigned, "Read the pixels as signed bytes");
    command->add_option("--plot", options->plot,
                        "Plot of the figure against the frame, the sharpest crossed in red: .svg or .png");
    command->add_option("--json", options->json,
                        "Write every frame's figures (focus, diff_sum, pixel_sum, nonzero_pixel_count, "
                        "mean_of_nonzero, histogram_spread) and the sharpest frame to this file");
    AddJobsOption(command, &options->jobs);
    command->add_flag("-q,--quiet", options->quiet, "Print nothing but errors");
    command->footer(
        "Example:\n  ombrel focus sweep/ --roi 200,150,240,180 --plot focus.svg --json focus.json\n  ombrel "
        "focus "
        "f1.png f2.png f3.png --step 2,2");
    return [options] { return RunFocus(*options); };
}

}  // namespace ombrel::cli
