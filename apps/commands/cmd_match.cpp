// SPDX-License-Identifier: MIT
// ombrel match: normalised grey-level correlation of a template (a file, or a rectangle of each image) over
// a search region, with the library's correlation match agent; the best matches as a table, JSON and an
// overlay with each match's box, cross and score.
#include <ombrel/corr/corr.h>
#include <ombrel/framework/halvard_metadc.h>
#include <algorithm>
#include <cstdio>

#include "command.h"

namespace ombrel::cli {
namespace {

constexpr uint32_t kBoxColour = 0x00FF40;
constexpr uint32_t kCrossColour = 0xFF2020;
constexpr uint32_t kLabelColour = 0xFFFF00;

struct MatchOptions {
    std::vector<std::string> inputs;
    std::string templ;
    std::string templRect;
    std::string roi;
    std::string step = "1,1";
    int top = 1;
    double minDistance = -1;  // default: half the template's smaller side
    bool subpixel = false;
    std::string json;
    std::string overlay;
    int jobs = 1;
    bool quiet = false;
    BatchOutputs streams;
};

struct Found {
    CorrPoint point;
    Fpoint position;  // the template's centre in the image, sub-pixel when asked
    double score;
};

void WriteOverlay(const std::string& path, const Buffer& image, const std::vector<Found>& found, int tw,
                  int th) {
    const int w = image.Width(), h = image.Height();
    std::vector<uint8_t> rgb(static_cast<size_t>(w) * h * 3);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            uint8_t* o = &rgb[(static_cast<size_t>(y) * w + x) * 3];
            o[0] = o[1] = o[2] = image.Row(y)[x];
        }
    HalvardMetaDC dc;
    const int textScale = std::clamp(std::min(w, h) / 200, 1, 8);
    for (const Found& f : found) {
        const double left = f.position.x - tw / 2, top = f.position.y - th / 2;
        dc.SelectObject(MetaPen{kBoxColour, 1, textScale});
        dc.MoveTo(left, top);
        dc.LineTo(left + tw - 1, top);
        dc.LineTo(left + tw - 1, top + th - 1);
        dc.LineTo(left, top + th - 1);
        dc.LineTo(left, top);
        dc.SelectObject(kCrossColour);
        dc.CrossAt(f.position.x, f.position.y, 2 + textScale);
        dc.SelectObject(kLabelColour);
        char text[32];
        std::snprintf(text, sizeof text, "%.3f", f.score);
        dc.TextAt(left, top + th + 1, text);
    }
    dc.RenderRgb(rgb.data(), w, h, w * 3);
    const std::string problem = WritePngRgb(path, w, h, rgb.data(), static_cast<size_t>(w) * 3);
    if (!problem.empty()) throw InputError(path + ": " + problem);
}

std::unique_ptr<CorrTemplate> MakeTemplate(const MatchOptions& options, const Buffer* fileTemplate,
                                           Buffer& image) {
    std::unique_ptr<CorrTemplate> t;
    if (fileTemplate != nullptr) {
        t = std::make_unique<CorrTemplate>(const_cast<Buffer*>(fileTemplate), 0);
    } else {
        std::string problem;
        const Region r = *ParseRegion(options.templRect, &problem);
        if (!(problem = RegionProblem(r, image.Width(), image.Height())).empty())
            throw InputError("--template-rect " + options.templRect + ": " + problem);
        ROI roi(r.width, r.height);
        t = std::make_unique<CorrTemplate>(&image, Point{r.x, r.y}, &roi, 0);
    }
    if (t->GetError() != 0) throw InputError("the template could not be made (out of memory?)");
    const Buffer& b = *t->GetBuffer();
    if (b.Width() > image.Width() || b.Height() > image.Height())
        throw InputError("the template (" + std::to_string(b.Width()) + " x " + std::to_string(b.Height()) +
                         ") is larger than the image");
    t->SetHotSpot(Point{b.Width() / 2, b.Height() / 2});
    return t;
}

FileOutcome MatchOne(const MatchOptions& options, const std::optional<Region>& region, const Step& step,
                     const Buffer* fileTemplate, const std::string& input, const std::string& overlay) {
    DecodedImage decoded = LoadImage(input);
    Buffer& image = *decoded.image;
    const Placement placement = PlaceRegion(image, region, nullptr, "");
    auto templ = MakeTemplate(options, fileTemplate, image);
    const int tw = templ->GetBuffer()->Width(), th = templ->GetBuffer()->Height();
    CorrResult result;
    Point origin = placement.origin;
    ROI roi(placement.region.width, placement.region.height);
    std::unique_ptr<CorrMatchAgent> agent(
        CorrMatchFact(&image, &origin, &roi, templ.get(), &result, 0, 0, step.x, step.y));
    if (!agent) throw InputError("the correlation agent could not be made (out of memory?)");
    if (agent->GetError() == -1)
        throw InputError("no template position fits in the search region (the template is " +
                         std::to_string(tw) + " x " + std::to_string(th) + ")");
    if (agent->Go() != 0)
        throw InputError("the correlation failed with error " + std::to_string(agent->GetError()));
    const double minDistance = options.minDistance >= 0 ? options.minDistance : std::min(tw, th) / 2.0;
    std::vector<Found> found;
    for (const CorrPoint& p : CorrTopN(result, options.top, minDistance)) {
        Found f{p, Fpoint{double(p._pos.x), double(p._pos.y)}, p._score};
        if (options.subpixel) {
            const Rect range = agent->SearchRange();
            const Point hot = templ->GetHotSpot();
            const int col = (p._pos.x - hot.x - range.left) / step.x,
                      row = (p._pos.y - hot.y - range.top) / step.y;
            CorrSubpixel sub;
            if (agent->RefinePeak(row * agent->Columns() + col, &sub))
                f.position = sub.position, f.score = sub.score;
        }
        found.push_back(f);
    }
    FileOutcome outcome;
    outcome.record = ImageRecord(input, decoded);
    outcome.record["region"] = RegionRecord(placement);
    outcome.record["template"] = {{"width", tw}, {"height", th}, {"hot_spot", {tw / 2, th / 2}}};
    outcome.record["step"] = {step.x, step.y};
    outcome.record["positions_scored"] = result.Count();
    Json matches = Json::array();
    outcome.table = input + ": " + std::to_string(result.Count()) + " positions scored, template " +
                    std::to_string(tw) + " x " + std::to_string(th) + "\n";
    for (const Found& f : found) {
        Json m{{"x", f.position.x},
               {"y", f.position.y},
               {"abs_correlation", f.score},
               {"pixel", {f.point._pos.x, f.point._pos.y}},
               {"pixel_abs_correlation", f.point._score}};
        matches.push_back(m);
        char line[128];
        std::snprintf(line, sizeof line, "  centre (%.2f, %.2f)  |r| %.4f\n", f.position.x, f.position.y,
                      f.score);
        outcome.table += line;
    }
    outcome.record["matches"] = matches;
    if (!overlay.empty()) {
        WriteOverlay(overlay, image, found, tw, th);
        outcome.record["overlay"] = overlay;
    }
    return outcome;
}

int RunMatch(const MatchOptions& options) {
    std::string problem;
    if (options.templ.empty() == options.templRect.empty()) {
        PrintError("match", "--template", "give exactly one of --template FILE and --template-rect x,y,w,h");
        return 2;
    }
    const Step step = ParseStep(options.step, &problem).value_or(Step{});
    std::optional<Region> region;
    if (!options.roi.empty()) region = ParseRegion(options.roi, &problem);
    std::unique_ptr<Buffer> fileTemplate;
    if (!options.templ.empty()) {
        try {
            fileTemplate = std::move(LoadImage(options.templ).image);
        } catch (const InputError& e) {
            PrintError("match", options.templ, e.what());
            return 1;
        }
    }
    const std::vector<std::string> inputs = ExpandInputs(options.inputs);
    if (inputs.size() == 1 && !options.overlay.empty() &&
        !(problem = OutputFormatProblem(options.overlay)).empty()) {
        PrintError("match", "--overlay " + options.overlay, problem);
        return 2;
    }
    std::vector<std::string> overlays(inputs.size());
    if (!options.overlay.empty() &&
        !OutputPaths(options.overlay, inputs, "-match.png", &overlays, &problem)) {
        PrintError("match", "--overlay", problem);
        return 1;
    }
    return RunStreamedBatch(
        "match", inputs, WithCommon(options.streams, options.json, options.jobs, options.quiet),
        [&](const std::string& input, size_t index) {
            return MatchOne(options, region, step, fileTemplate.get(), input, overlays[index]);
        });
}

}  // namespace

CommandRun AddMatchCommand(CLI::App& program) {
    auto options = std::make_shared<MatchOptions>();
    CLI::App* command = program.add_subcommand(
        "match",
        "Find a template in images by normalised grey-level correlation with the library's correlation "
        "match agent. Scores are |r|, the absolute correlation coefficient (an inverted copy also scores 1). "
        "Positions are the template's centre. Prints the best matches, writes them as JSON and an overlay "
        "(box green, centre cross red, score yellow).");
    command->add_option("images", options->inputs, "Images (PNG, PGM, PBM, PPM) or folders of images")
        ->required();
    command->add_option("--template", options->templ, "Template image file");
    command->add_option("--template-rect", options->templRect, "Template cut from each image: x,y,w,h")
        ->check(RegionValidator());
    command
        ->add_option("--roi", options->roi,
                     "Search region x,y,w,h: the template centres tried (default: the whole image)")
        ->check(RegionValidator());
    command->add_option("--step", options->step, "Try every X-th column of every Y-th row, 1..64")
        ->check(StepValidator())
        ->capture_default_str();
    command->add_option("--top", options->top, "Number of matches to report, best first")
        ->check(CLI::Range(1, 100000))
        ->capture_default_str();
    command
        ->add_option("--min-distance", options->minDistance,
                     "Least distance in pixels between reported matches (default: half the template's "
                     "smaller side)")
        ->check(CLI::Range(0.0, 1e9));
    command->add_flag("--subpixel", options->subpixel,
                      "Refine each match to a fraction of a pixel from its 3x3 neighbourhood of scores");
    command->add_option("--json", options->json, "Write the matches of every image to this file");
    command->add_option("--overlay", options->overlay,
                        "Write the overlay PNG here; a folder when there are several images");
    AddJobsOption(command, &options->jobs);
    AddStreamOptions(command, &options->streams);
    command->add_flag("-q,--quiet", options->quiet, "Print nothing but errors");
    command->footer(
        "Example:\n  ombrel match board.png --template fiducial.png --top 4 --subpixel --overlay found.png\n"
        "  ombrel match board.png --template-rect 100,80,32,32 --roi 0,0,640,480 --step 2,2 --json m.json");
    return [options] { return RunMatch(*options); };
}

}  // namespace ombrel::cli
