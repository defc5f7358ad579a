// SPDX-License-Identifier: MIT
// ombrel blob: blob analysis of thresholded images through the library's blob agent: regions, their
// features and the tree of objects and holes, as JSON, a colour overlay and a table.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include <ombrel/blob/blob.h>
#include <ombrel/framework/angles.h>
#include <ombrel/framework/halvard_metadc.h>

#include "analyses.h"

namespace ombrel::cli {
namespace {

// Overlay colours (0xRRGGBB).
constexpr uint32_t kObjectColour = 0x00FF40;
constexpr uint32_t kHoleColour = 0xFF9900;
constexpr uint32_t kCentroidColour = 0xFF2020;
constexpr uint32_t kAxisColour = 0x00C8FF;
constexpr uint32_t kLabelColour = 0xFFFF00;
constexpr uint32_t kRegionColour = 0x4060FF;
constexpr int kTableRows = 20;

const char* Kind(const Blob& blob) {
    return blob.Color() == 0 ? "object" : "hole";
}

Json BoxRecord(const Blob& blob) {
    Rect r;
    blob.BoundingBox(r);
    return Json{{"left", r.left}, {"top", r.top}, {"right", r.right}, {"bottom", r.bottom}};
}

Json TreeRecord(const Blob& blob) {
    Json children = Json::array();
    for (const Blob* c = blob.FirstChild(); c != nullptr; c = c->NextSibling())
        children.push_back(TreeRecord(*c));
    return Json{{"label", blob.Label()}, {"kind", Kind(blob)}, {"children", children}};
}

Json RegionsRecord(const BlobResult& result, const std::vector<FeatureName>& features) {
    Json regions = Json::array();
    for (Blob* blob : result.Blobs()) {
        Json children = Json::array();
        for (const Blob* c = blob->FirstChild(); c != nullptr; c = c->NextSibling())
            children.push_back(c->Label());
        Json values;
        for (const FeatureName& f : features) values[f.name] = blob->GetFeat(f.number);
        const Blob* parent = blob->Parent();
        regions.push_back({{"label", blob->Label()},
                           {"kind", Kind(*blob)},
                           {"parent", parent == nullptr || parent->IsRoot() ? 0 : parent->Label()},
                           {"children", children},
                           {"bounding_box", BoxRecord(*blob)},
                           {"features", values}});
    }
    return regions;
}

std::string TableOf(const BlobResult& result) {
    std::string table =
        "  label  kind     area  holes   centroid x, y      box left,top - right,bottom   major  minor  "
        "angle\n";
    int shown = 0;
    for (Blob* blob : result.Blobs()) {
        if (shown++ == kTableRows) {
            table += "  ... and " + std::to_string(result.NParts() - kTableRows) +
                     " more regions (see the JSON)\n";
            break;
        }
        Rect r;
        blob->BoundingBox(r);
        char line[200];
        std::snprintf(line, sizeof line,
                      "  %5d  %-6s %7d  %5d  %7.1f, %7.1f   %5d,%5d - %5d,%5d    %6.1f %6.1f %6.1f\n",
                      blob->Label(), Kind(*blob), blob->Area(), blob->NumHoles(),
                      blob->GetFeat(BF_CENTROID_X), blob->GetFeat(BF_CENTROID_Y), r.left, r.top, r.right,
                      r.bottom, blob->GetFeat(BF_MAJOR_AXIS), blob->GetFeat(BF_MINOR_AXIS),
                      blob->GetFeat(BF_AXIS_ANGLE) * 180.0 / kPi);
        table += line;
    }
    return table;
}

void DrawRegionOutline(HalvardMetaDC* dc, const Placement& placement, const Buffer& image) {
    const Region& r = placement.region;
    if (r.x == 0 && r.y == 0 && r.width == image.Width() && r.height == image.Height()) return;
    dc->SelectObject(kRegionColour);
    dc->MoveTo(r.x, r.y);
    dc->LineTo(r.x + r.width - 1, r.y);
    dc->LineTo(r.x + r.width - 1, r.y + r.height - 1);
    dc->LineTo(r.x, r.y + r.height - 1);
    dc->LineTo(r.x, r.y);
}

// The principal axis of an object through its centroid: the major axis along the axis angle and the
// minor axis across it, each drawn over its full length.
void DrawAxes(HalvardMetaDC* dc, Blob& blob) {
    const double major = blob.GetFeat(BF_MAJOR_AXIS), minor = blob.GetFeat(BF_MINOR_AXIS);
    if (!(major > 0) || !std::isfinite(major)) return;
    const double a = blob.GetFeat(BF_AXIS_ANGLE);
    const double cx = blob.GetFeat(BF_CENTROID_X) + 0.5, cy = blob.GetFeat(BF_CENTROID_Y) + 0.5;
    const double c = std::cos(a), s = std::sin(a);
    dc->SelectObject(kAxisColour);
    dc->MoveTo(cx - c * major / 2, cy - s * major / 2);
    dc->LineTo(cx + c * major / 2, cy + s * major / 2);
    if (minor > 0 && std::isfinite(minor)) {
        dc->MoveTo(cx + s * minor / 2, cy - c * minor / 2);
        dc->LineTo(cx - s * minor / 2, cy + c * minor / 2);
    }
}

// An object's label sits centred above its box, a hole's just right of its box's top corner (on the
// object around it), so that neither covers the centroid cross and the axes that run through holes.
void DrawLabel(HalvardMetaDC* dc, const Blob& blob, int textScale) {
    Rect r;
    blob.BoundingBox(r);
    const std::string text = std::to_string(blob.Label());
    const int textWidth = static_cast<int>(text.size()) * 4 * textScale, textHeight = 5 * textScale;
    double x, y;
    if (blob.Color() == 0) {
        x = (r.left + r.right - textWidth) / 2.0;
        y = r.top >= textHeight + 2 ? r.top - textHeight - 2 : r.bottom + 2;
    } else {
        x = r.right + 1;
        y = r.top - textHeight / 2.0;
    }
    dc->TextAt(x, y, text);
}

void WriteOverlay(const std::string& path, const Buffer& image, const Placement& placement,
                  BlobResult& result, const BlobParams& params) {
    const int w = image.Width(), h = image.Height();
    std::vector<uint8_t> rgb(static_cast<size_t>(w) * h * 3);
    for (int y = 0; y < h; ++y) {
        const uint8_t* in = image.Row(y);
        uint8_t* out = &rgb[static_cast<size_t>(y) * w * 3];
        for (int x = 0; x < w; ++x) out[3 * x] = out[3 * x + 1] = out[3 * x + 2] = in[x];
    }
    HalvardMetaDC dc;
    const int textScale = std::clamp(std::min(w, h) / 200, 1, 8);
    dc.SelectObject(MetaPen{kObjectColour, 1, textScale});
    DrawRegionOutline(&dc, placement, image);
    result.HighlightTree(&dc, false, nullptr, kObjectColour, kHoleColour);
    for (Blob* blob : result.Blobs()) {
        if (blob->Color() != 0) continue;
        if (params.overlayAxes) DrawAxes(&dc, *blob);
        dc.SelectObject(kCentroidColour);
        blob->DrawCentroid(&dc, nullptr, 2 + textScale);
    }
    dc.SelectObject(kLabelColour);
    if (params.overlayLabels)
        for (Blob* blob : result.Blobs()) DrawLabel(&dc, *blob, textScale);
    dc.RenderRgb(rgb.data(), w, h, w * 3);
    const std::string problem = WritePngRgb(path, w, h, rgb.data(), static_cast<size_t>(w) * 3);
    if (!problem.empty()) throw InputError(path + ": " + problem);
}

}  // namespace

Json AnalyseBlobs(Buffer& image, const Placement& placement, const BlobParams& params,
                  const std::string& overlayPath, std::string* table) {
    if (placement.region.width <= params.step.x) {
        throw InputError("the region (" + std::to_string(placement.region.width) +
                         " pixels wide) must be wider than the x step " + std::to_string(params.step.x));
    }
    BlobResult result;
    std::unique_ptr<BlobAgent> agent(
        BlobFact(&image, placement.origin, placement.roi, &result, params.band.low, params.band.high));
    if (!agent) throw InputError("the blob agent could not be made (out of memory?)");
    agent->SetStep(params.step.x, params.step.y);
    agent->SetAreaLimits(params.minArea, params.maxArea);
    agent->SetFilterFlags(BLOB_FILTER_BORDER_CHILDREN | BLOB_FILTER_GREY |
                          (params.noBorder ? BLOB_FILTER_BORDER : 0));
    agent->SetOptions(BLOB_OPT_FIRST_MOMENTS | BLOB_OPT_SECOND_MOMENTS | BLOB_OPT_BOUNDARY | BLOB_OPT_RADII |
                      BLOB_OPT_LENGTH_WIDTH);
    const int status = agent->Go();
    if (status == BLOB_ERR_TOO_COMPLEX) {
        throw InputError(
            "too many regions for blob analysis (image too complex): narrow the band, use a "
            "coarser --step or a smaller --roi");
    }
    if (status != 0) throw InputError("blob analysis failed with status " + std::to_string(status));
    int objects = 0, holes = 0;
    for (Blob* blob : result.Blobs()) (blob->Color() == 0 ? objects : holes)++;
    Json record{{"band", {params.band.low, params.band.high}},
                {"step", {params.step.x, params.step.y}},
                {"min_area", params.minArea},
                {"max_area", params.maxArea},
                {"no_border", params.noBorder},
                {"objects", objects},
                {"holes", holes},
                {"regions", RegionsRecord(result, params.features)},
                {"tree", TreeRecord(*result.Root())["children"]}};
    *table += "  " + std::to_string(objects) + " objects, " + std::to_string(holes) + " holes (band " +
              std::to_string(params.band.low) + ":" + std::to_string(params.band.high) + ")\n";
    if (result.NParts() > 0) *table += TableOf(result);
    if (!overlayPath.empty()) {
        WriteOverlay(overlayPath, image, placement, result, params);
        record["overlay"] = overlayPath;
    }
    return record;
}

namespace {

struct BlobOptions {
    std::vector<std::string> inputs;
    std::string band;
    std::string roi;
    std::string mask;
    int minArea = 1;
    int maxArea = 2147483647;
    bool noBorder = false;
    std::string step = "1,1";
    std::string features = DefaultBlobFeatures();
    std::string json;
    std::string overlay;
    int jobs = 1;
    bool quiet = false;
    BatchOutputs streams;
    bool noLabels = false;
    bool noAxes = false;
};

FileOutcome BlobOne(const BlobOptions& options, const BlobParams& params, const std::optional<Region>& region,
                    const Buffer* mask, const std::string& input, const std::string& overlay) {
    DecodedImage decoded = LoadImage(input);
    const Placement placement = PlaceRegion(*decoded.image, region, mask, options.mask);
    FileOutcome outcome;
    outcome.record = ImageRecord(input, decoded);
    outcome.record["region"] = RegionRecord(placement);
    outcome.table = input + " (" + std::to_string(decoded.image->Width()) + " x " +
                    std::to_string(decoded.image->Height()) + ", region " + FormatRegion(placement.region) +
                    (placement.roi.IsMasked() ? ", masked" : "") + ")\n";
    outcome.record["blobs"] = AnalyseBlobs(*decoded.image, placement, params, overlay, &outcome.table);
    return outcome;
}

// JSON Lines and CSV hold one record per region, each with its image's file name.
std::vector<Json> BlobRows(const Json& record) {
    std::vector<Json> rows;
    if (!record.contains("blobs") || !record.at("blobs").contains("regions")) return rows;
    for (const Json& region : record.at("blobs").at("regions")) {
        Json row{{"file", record.value("file", "")}};
        row.update(region);
        rows.push_back(std::move(row));
    }
    return rows;
}

int RunBlob(const BlobOptions& options) {
    std::string problem;
    BlobParams params;
    params.band = *ParseBand(options.band, &problem);  // validated by CLI11
    params.step = ParseStep(options.step, &problem).value_or(Step{});
    params.minArea = options.minArea;
    params.maxArea = options.maxArea;
    params.noBorder = options.noBorder;
    params.overlayLabels = !options.noLabels;
    params.overlayAxes = !options.noAxes;
    if (!ParseBlobFeatures(options.features, &params.features, &problem)) {
        PrintError("blob", "--features", problem);
        return 2;
    }
    if (params.minArea > params.maxArea) {
        PrintError("blob", "--min-area", "is larger than --max-area: nothing could pass");
        return 2;
    }
    std::optional<Region> region;
    if (!options.roi.empty()) region = ParseRegion(options.roi, &problem);
    std::shared_ptr<const Buffer> mask;
    try {
        mask = LoadMask(options.mask);
    } catch (const InputError& e) {
        PrintError("blob", "--mask", e.what());
        return 1;
    }
    const std::vector<std::string> inputs = ExpandInputs(options.inputs);
    if (inputs.size() == 1 && !options.overlay.empty() &&
        !(problem = OutputFormatProblem(options.overlay)).empty()) {
        PrintError("blob", "--overlay " + options.overlay, problem);
        return 2;
    }
    std::vector<std::string> overlays(inputs.size());
    if (!options.overlay.empty() &&
        !OutputPaths(options.overlay, inputs, "-overlay.png", &overlays, &problem)) {
        PrintError("blob", "--overlay", problem);
        return 1;
    }
    return RunStreamedBatch(
        "blob", inputs, WithCommon(options.streams, options.json, options.jobs, options.quiet),
        [&](const std::string& input, size_t index) {
            return BlobOne(options, params, region, mask.get(), input, overlays[index]);
        },
        BlobRows);
}

}  // namespace

CommandRun AddBlobCommand(CLI::App& program) {
    auto options = std::make_shared<BlobOptions>();
    CLI::App* command = program.add_subcommand(
        "blob",
        "Blob analysis with the library's blob agent: pixels with LOW <= value <= HIGH are objects "
        "(8-connected), the rest background (4-connected); every object and hole is measured and placed "
        "in a tree (objects contain holes, holes contain objects). Writes the regions, their features "
        "and the tree as JSON, a colour overlay (boundaries: objects green, holes orange; centroids "
        "red; principal axes cyan; labels yellow; the --roi in blue) and prints a table.");
    command->add_option("images", options->inputs, "Images (PNG, PGM, PBM, PPM) or folders of images")
        ->required();
    command->add_option("--band", options->band, "Grey values LOW:HIGH that are object pixels, e.g. 0:100")
        ->required()
        ->check(BandValidator());
    command->add_option("--roi", options->roi, "Region x,y,w,h to analyse (default: the whole image)")
        ->check(RegionValidator());
    command->add_option(
        "--mask", options->mask,
        "Mask image the size of the region: only pixels under its non-zero pixels can be objects");
    command
        ->add_option("--min-area", options->minArea,
                     "Smallest filled area kept; smaller objects go with their holes, smaller holes are "
                     "filled into their object")
        ->check(CLI::Range(1, 2147483647))
        ->capture_default_str();
    command->add_option("--max-area", options->maxArea, "Largest filled area kept (its holes are kept)")
        ->check(CLI::Range(1, 2147483647))
        ->capture_default_str();
    command->add_flag("--no-border", options->noBorder,
                      "Drop regions that touch the region's border, with their holes");
    command
        ->add_option("--step", options->step,
                     "Sample every X-th pixel of every Y-th row (edges stay exact to the pixel), 1..64")
        ->check(StepValidator())
        ->capture_default_str();
    command->add_option("--features", options->features, "Features in the JSON, comma-separated, or 'all'")
        ->capture_default_str();
    command->add_option("--json", options->json,
                        "Write the regions, features and tree of every image to this file");
    command->add_option("--overlay", options->overlay,
                        "Write the overlay PNG here; a folder when there are several images (an existing "
                        "folder, or a name ending in '/')");
    command->add_flag("--no-labels", options->noLabels, "Leave the region numbers off the overlay");
    command->add_flag("--no-axes", options->noAxes, "Leave the principal axes off the overlay");
    AddJobsOption(command, &options->jobs);
    AddStreamOptions(command, &options->streams);
    command->add_flag("-q,--quiet", options->quiet, "Print nothing but errors");
    std::string names;
    for (const FeatureName& f : AllBlobFeatures()) names += (names.empty() ? "" : ", ") + std::string(f.name);
    command->footer(
        "Feature names (positions are in image coordinates; left, right, top, bottom are relative to\n"
        "the region): " +
        names +
        ".\n\n"
        "Example:\n  ombrel blob part.png --band 0:100 --min-area 20 --no-border --json part.json "
        "--overlay part-overlay.png\n  ombrel blob shots/ --band 0:90 --jobs 2 --json shots.json "
        "--overlay shots-overlays/");
    return [options] { return RunBlob(*options); };
}

}  // namespace ombrel::cli
