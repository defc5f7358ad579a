// SPDX-License-Identifier: MIT
// ombrel angle: the library's scene angle agent, the dominant edge direction of an image (folded so that
// directions a quarter turn apart coincide), and with a second image the rotation between the two scenes.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>

#include <ombrel/framework/angles.h>
#include <ombrel/framework/halvard_metadc.h>
#include <ombrel/gradients/scene_angle.h>

#include "command.h"

namespace ombrel::cli {
namespace {

constexpr uint32_t kDirectionColour = 0xFF3030;  // along the dominant gradient
constexpr uint32_t kEdgeColour = 0x30FF30;       // across it: the edges themselves
constexpr uint32_t kRegionColour = 0x3080FF;

struct AngleOptions {
    std::string image;
    std::string reference;
    std::string roi;
    int fold = 2;
    int fit = 2;
    bool noWeights = false;
    std::string overlay;
    std::string json;
    bool quiet = false;
};

double Degrees(double radians) {
    return radians * 180.0 / kPi;
}

// One image measured: the agent (kept for AngleDiff), the decoded image and the region's rectangle.
struct Measured {
    DecodedImage decoded;
    std::unique_ptr<SceneAngleAgent> agent;
    Rect rect{};
};

Measured Measure(const AngleOptions& options, const std::string& path) {
    Measured m;
    m.decoded = LoadImage(path);
    Buffer& image = *m.decoded.image;
    m.rect = Rect{0, 0, image.Width(), image.Height()};
    if (!options.roi.empty()) {
        std::string problem;
        const auto region = ParseRegion(options.roi, &problem);
        if (!region) throw InputError(problem);
        if (region->x + region->width > image.Width() || region->y + region->height > image.Height())
            throw InputError("the region " + options.roi + " does not lie inside the " +
                             std::to_string(image.Width()) + " x " + std::to_string(image.Height()) +
                             " image");
        m.rect = region->AsRect();
    }
    m.agent.reset(SceneAngleFact(&image, m.rect));
    if (!m.agent) throw InputError("the scene angle agent could not be made (out of memory?)");
    m.agent->SetFoldMode(options.fold);
    m.agent->SetFitMode(options.fit);
    m.agent->SetUseWeights(!options.noWeights);
    const int status = m.agent->Go();
    if (status != 0) throw InputError("the scene angle agent failed with status " + std::to_string(status));
    return m;
}

Json AngleRecord(const std::string& path, const Measured& m) {
    Json record = ImageRecord(path, m.decoded);
    record["region"] = {{"x", m.rect.left},
                        {"y", m.rect.top},
                        {"width", m.rect.right - m.rect.left},
                        {"height", m.rect.bottom - m.rect.top}};
    record["angle_rad"] = m.agent->Angle();
    record["angle_deg"] = Degrees(m.agent->Angle());
    record["strength_per_mille"] = m.agent->Strength();
    record["coverage_percent"] = m.agent->Coverage();
    return record;
}

// The image in grey with the region outlined and two lines through its centre: the dominant gradient
// direction and the edge direction across it. The agent's angle is counter-clockwise with y up, negated,
// so in image coordinates (y down) the gradient points along (cos a, sin a).
void WriteOverlay(const std::string& path, const Buffer& image, const Measured& m) {
    const int w = image.Width(), h = image.Height();
    std::vector<uint8_t> rgb(static_cast<size_t>(w) * h * 3);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            std::fill_n(&rgb[(static_cast<size_t>(y) * w + x) * 3], 3, image.Row(y)[x]);
    HalvardMetaDC dc;
    dc.SelectObject(kRegionColour);
    const Rect& r = m.rect;
    dc.MoveTo(r.left, r.top);
    dc.LineTo(r.right - 1, r.top);
    dc.LineTo(r.right - 1, r.bottom - 1);
    dc.LineTo(r.left, r.bottom - 1);
    dc.LineTo(r.left, r.top);
    const double cx = (r.left + r.right) / 2.0, cy = (r.top + r.bottom) / 2.0;
    const double reach = std::min(r.right - r.left, r.bottom - r.top) * 0.45;
    const double a = m.agent->Angle(), c = std::cos(a), s = std::sin(a);
    const int width = std::clamp(std::min(w, h) / 200, 1, 6);
    dc.SelectObject(kDirectionColour, width);
    dc.MoveTo(cx - reach * c, cy - reach * s);
    dc.LineTo(cx + reach * c, cy + reach * s);
    dc.SelectObject(kEdgeColour, width);
    dc.MoveTo(cx + reach * s, cy - reach * c);
    dc.LineTo(cx - reach * s, cy + reach * c);
    dc.RenderRgb(rgb.data(), w, h, w * 3);
    const std::string problem = WritePngRgb(path, w, h, rgb.data(), static_cast<size_t>(w) * 3);
    if (!problem.empty()) throw InputError(problem);
}

int RunAngle(const AngleOptions& options) {
    if (RefuseUnwritable("angle", options.json)) return 2;
    Measured image, reference;
    std::string current = options.image;
    try {
        image = Measure(options, options.image);
        if (!options.reference.empty()) {
            current = options.reference;
            reference = Measure(options, options.reference);
        }
    } catch (const InputError& e) {
        PrintError("angle", current, e.what());
        return 1;
    }
    Json document = {{"tool", "ombrel angle"}};
    document["image"] = AngleRecord(options.image, image);
    char line[256];
    std::snprintf(line, sizeof line,
                  "%s: angle %.4f rad (%.2f deg), strength %.1f per mille, coverage %.2f %%\n",
                  options.image.c_str(), image.agent->Angle(), Degrees(image.agent->Angle()),
                  image.agent->Strength(), image.agent->Coverage());
    std::string table = line;
    if (reference.agent) {
        document["reference"] = AngleRecord(options.reference, reference);
        const float diff = image.agent->AngleDiff(reference.agent.get());
        document["angle_diff_rad"] = diff;
        document["angle_diff_deg"] = Degrees(diff);
        std::snprintf(line, sizeof line,
                      "%s: angle %.4f rad (%.2f deg)\nrotation relative to it: %.4f rad (%.2f deg)\n",
                      options.reference.c_str(), reference.agent->Angle(), Degrees(reference.agent->Angle()),
                      diff, Degrees(diff));
        table += line;
    }
    if (!options.overlay.empty()) {
        try {
            WriteOverlay(options.overlay, *image.decoded.image, image);
        } catch (const InputError& e) {
            PrintError("angle", options.overlay, e.what());
            return 1;
        }
        document["overlay"] = options.overlay;
    }
    if (!options.quiet) std::fputs(table.c_str(), stdout);
    if (!options.json.empty()) {
        if (const std::string problem = WriteJsonFile(options.json, document); !problem.empty()) {
            PrintError("angle", options.json, problem);
            return 1;
        }
    }
    return 0;
}

}  // namespace

CommandRun AddAngleCommand(CLI::App& program) {
    auto options = std::make_shared<AngleOptions>();
    CLI::App* command = program.add_subcommand(
        "angle",
        "Scene angle with the library's scene angle agent: the directions of the strong Sobel gradients "
        "(magnitude above 15 after a shift of 2) are histogrammed in 128 codes of 2.8125 degrees, folded so "
        "that directions a quarter turn apart coincide (--fold 2), weighted per bin, and the peak located to "
        "a fraction of a bin. Printed: the angle in radians and degrees (ambiguous by a quarter turn with "
        "--fold 2, a half turn with --fold 1), the strength (peak height per mille of the pixel total) and "
        "the coverage (pixel total in percent of the region; both count the first quarter turn of "
        "directions only, as the agent defines them). With a reference image, also the rotation of the "
        "image relative to the reference, by circular correlation of the two folded histograms.");
    command->add_option("image", options->image, "Image (PNG, PGM, PBM, PPM)")->required();
    command->add_option("reference", options->reference, "Reference image: print the rotation between them");
    command->add_option("--roi", options->roi, "Region x,y,w,h of both images (default: the whole image)")
        ->check(RegionValidator());
    command->add_option("--fold", options->fold, "Folding: 0 none (128 bins), 1 in two (64), 2 in four (32)")
        ->check(CLI::Range(0, 2))
        ->capture_default_str();
    command->add_option("--fit", options->fit, "Sub-step fit of the rotation: 1 three-point, 2 five-point")
        ->check(CLI::Range(1, 2))
        ->capture_default_str();
    command->add_flag("--no-weights", options->noWeights, "Do not apply the per-bin weights");
    command->add_option("--overlay", options->overlay,
                        "PNG of the image with the region (blue), the dominant gradient direction (red) and "
                        "the edge direction across it (green)");
    command->add_option("--json", options->json,
                        "Write the figures to this file (angle_rad, angle_deg, strength_per_mille, "
                        "coverage_percent per image; angle_diff_rad and angle_diff_deg with a reference)");
    command->add_flag("-q,--quiet", options->quiet, "Print nothing but errors");
    command->footer(
        "Example:\n  ombrel angle part.png --overlay angle.png --json angle.json\n  ombrel angle turned.png "
        "part.png --roi 40,30,320,240");
    return [options] { return RunAngle(*options); };
}

}  // namespace ombrel::cli
