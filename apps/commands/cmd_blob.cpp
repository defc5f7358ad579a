// SPDX-License-Identifier: MIT
// ombrel blob: blob analysis of thresholded images through the library's blob agent: regions, their
// features and the tree of objects and holes, as JSON, a colour overlay and a table.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>

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

// The standard figures of one region, beside the agent's: null where the pixels cannot be rebuilt.
struct Standard {
    bool shape = false;  // pixels rebuilt: every figure valid
    ShapeMeasures m;
};

// The band's class over the region of interest: 1 where a pixel is in the band (and under the mask).
std::unique_ptr<Buffer> InBandImage(const Buffer& image, const Placement& placement, const Band& band) {
    std::string problem;
    auto inBand = detail::AllocateGrey(placement.region.width, placement.region.height, &problem);
    if (!inBand) throw InputError(problem);
    const Buffer* mask = placement.roi.IsMasked() ? placement.roi.GetMaskbits() : nullptr;
    for (int y = 0; y < placement.region.height; ++y) {
        const int iy = placement.origin.y + y;
        uint8_t* out = inBand->Row(y);
        for (int x = 0; x < placement.region.width; ++x) {
            const int ix = placement.origin.x + x;
            // Pixels outside the image (a region that hangs over its edge) are background, as in the agent.
            if (iy < 0 || ix < 0 || iy >= image.Height() || ix >= image.Width()) {
                out[x] = 0;
                continue;
            }
            const uint8_t v = image.Row(iy)[ix];
            bool selected = v >= band.low && v <= band.high;
            if (selected && mask != nullptr) {
                selected = mask->BitsPerPixel() == 1 ? (mask->Row(y)[x >> 3] >> (7 - (x & 7))) & 1
                                                     : mask->Row(y)[x] != 0;
            }
            out[x] = selected ? 1 : 0;
        }
    }
    return inBand;
}

std::vector<Standard> StandardFigures(BlobResult& result, const Buffer* inBand, const Placement& placement) {
    std::vector<Standard> figures(result.Blobs().size());
    for (size_t i = 0; i < figures.size(); ++i) {
        Blob& blob = *result.Blobs()[i];
        RegionPixels pixels;
        if (inBand != nullptr && BlobPixels(blob, *inBand, placement.origin, &pixels)) {
            figures[i].shape = true;
            figures[i].m = MeasureShape(pixels);
        } else {
            // Sampled: the agent's moments still give the mean pixel index (its x sits half a pixel left).
            figures[i].m.area = blob.Area();
            figures[i].m.centroidX = blob.GetFeat(BF_CENTROID_X) + 0.5;
            figures[i].m.centroidY = blob.GetFeat(BF_CENTROID_Y);
        }
    }
    return figures;
}

double Degrees(double radians) {
    return radians * 180.0 / std::numbers::pi;
}

Json RegionsRecord(const BlobResult& result, const std::vector<Standard>& figures,
                   const std::vector<FeatureName>& features) {
    Json regions = Json::array();
    for (size_t i = 0; i < figures.size(); ++i) {
        Blob* blob = result.Blobs()[i];
        const Standard& s = figures[i];
        Json children = Json::array();
        for (const Blob* c = blob->FirstChild(); c != nullptr; c = c->NextSibling())
            children.push_back(c->Label());
        Json values = Json::object();
        for (const FeatureName& f : features) values[f.name] = FeatureValue(f, blob->GetFeat(f.number));
        const Blob* parent = blob->Parent();
        auto shape = [&](double v) -> Json { return s.shape && std::isfinite(v) ? Json(v) : Json(nullptr); };
        regions.push_back(
            {{"label", blob->Label()},
             {"kind", Kind(*blob)},
             {"parent", parent == nullptr || parent->IsRoot() ? 0 : parent->Label()},
             {"children", children},
             {"bounding_box", BoxRecord(*blob)},
             {"area", s.m.area},
             {"centroid", {s.m.centroidX, s.m.centroidY}},
             {"perimeter", shape(s.m.perimeter)},
             {"circularity", shape(s.m.circularity)},
             {"major_axis", shape(s.m.majorAxis)},
             {"minor_axis", shape(s.m.minorAxis)},
             {"orientation", shape(Degrees(s.m.orientation))},
             {"eccentricity", shape(s.m.eccentricity)},
             {"euler_number", s.shape ? Json(s.m.eulerNumber) : Json(nullptr)},
             {"convex_area", s.shape ? Json(static_cast<int64_t>(s.m.convexArea)) : Json(nullptr)},
             {"solidity", shape(s.m.solidity)},
             {"features", values}});
    }
    return regions;
}

std::string TableOf(const BlobResult& result, const std::vector<Standard>& figures) {
    std::string table =
        "  label  kind      area  holes   centroid x, y      box left,top - right,bottom   major  minor  "
        "orient.  perimeter  circ.\n";
    for (size_t i = 0; i < figures.size(); ++i) {
        if (static_cast<int>(i) == kTableRows) {
            table += "  ... and " + std::to_string(result.NParts() - kTableRows) +
                     " more regions (see the JSON)\n";
            break;
        }
        const Blob* blob = result.Blobs()[i];
        const Standard& s = figures[i];
        Rect r;
        blob->BoundingBox(r);
        char line[240];
        std::snprintf(line, sizeof line, "  %5d  %-6s %8lld  %5d  %7.2f, %7.2f   %5d,%5d - %5d,%5d",
                      blob->Label(), Kind(*blob), static_cast<long long>(s.m.area), blob->NumHoles(),
                      s.m.centroidX, s.m.centroidY, r.left, r.top, r.right, r.bottom);
        table += line;
        if (s.shape) {
            std::snprintf(line, sizeof line, "    %6.1f %6.1f  %6.1f   %9.1f  %5.3f\n", s.m.majorAxis,
                          s.m.minorAxis, Degrees(s.m.orientation), s.m.perimeter, s.m.circularity);
        } else {
            std::snprintf(line, sizeof line, "         -      -       -           -      -\n");
        }
        table += line;
    }
    table +=
        "  (centroid: mean pixel index; orientation in degrees from +x towards +y, y down; see --help)\n";
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

// The principal axis of an object through its centroid: the major axis along the orientation and the
// minor axis across it, each drawn over its full length (the drawing puts pixel centres at +0.5).
void DrawAxes(HalvardMetaDC* dc, const Standard& s) {
    const double major = s.m.majorAxis, minor = s.m.minorAxis;
    if (!s.shape || !(major > 0) || !std::isfinite(major)) return;
    const double a = s.m.orientation;
    const double cx = s.m.centroidX + 0.5, cy = s.m.centroidY + 0.5;
    const double c = std::cos(a), sn = std::sin(a);
    dc->SelectObject(kAxisColour);
    dc->MoveTo(cx - c * major / 2, cy - sn * major / 2);
    dc->LineTo(cx + c * major / 2, cy + sn * major / 2);
    if (minor > 0 && std::isfinite(minor)) {
        dc->MoveTo(cx + sn * minor / 2, cy - c * minor / 2);
        dc->LineTo(cx - sn * minor / 2, cy + c * minor / 2);
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
                  BlobResult& result, const BlobParams& params, const std::vector<Standard>& figures) {
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
    for (size_t i = 0; i < figures.size(); ++i) {
        Blob* blob = result.Blobs()[i];
        if (blob->Color() != 0) continue;
        if (params.overlayAxes) DrawAxes(&dc, figures[i]);
        dc.SelectObject(kCentroidColour);
        // At the mean pixel index, the figure the JSON gives (the drawing puts pixel centres at +0.5).
        dc.CrossAt(figures[i].m.centroidX + 0.5, figures[i].m.centroidY + 0.5, 2 + textScale);
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
    const ChosenBand chosen = ChooseBand(BandChoice{params.bandMode, params.band}, image, placement);
    const Band band = chosen.band;
    BlobResult result;
    std::unique_ptr<BlobAgent> agent(
        BlobFact(&image, placement.origin, placement.roi, &result, band.low, band.high));
    if (!agent) throw InputError("the blob agent could not be made (out of memory?)");
    agent->SetStep(params.step.x, params.step.y);
    agent->SetAreaLimits(params.minArea, params.maxArea);
    if (params.noBorder) agent->SetFilterFlags(agent->FilterFlags() | BLOB_FILTER_BORDER);
    // What the requested features need, the centroid for sampled images, and boundaries for the overlay.
    std::vector<int> needed{BF_CENTROID_X};
    for (const FeatureName& f : params.features) needed.push_back(f.number);
    if (!overlayPath.empty()) needed.push_back(BF_PERIMETER);
    EnableBlobFeatures(*agent, needed);
    const int status = agent->Go();
    if (status == BLOB_ERR_TOO_COMPLEX) {
        throw InputError(
            "too many regions for blob analysis (image too complex): narrow the band, use a "
            "coarser --step or a smaller --roi");
    }
    if (status != 0) throw InputError("blob analysis failed with status " + std::to_string(status));
    std::unique_ptr<Buffer> inBand;
    if (params.step.x == 1 && params.step.y == 1) inBand = InBandImage(image, placement, band);
    const std::vector<Standard> figures = StandardFigures(result, inBand.get(), placement);
    int objects = 0, holes = 0;
    for (Blob* blob : result.Blobs()) (blob->Color() == 0 ? objects : holes)++;
    Json record{{"band", {band.low, band.high}}, {"band_mode", chosen.mode}};
    if (chosen.threshold) {
        record["threshold"] = *chosen.threshold;
        record["objects_are"] = chosen.objects;
    }
    record.update(Json{{"step", {params.step.x, params.step.y}},
                       {"min_area", params.minArea},
                       {"max_area", params.maxArea},
                       {"no_border", params.noBorder},
                       {"objects", objects},
                       {"holes", holes},
                       {"regions", RegionsRecord(result, figures, params.features)},
                       {"tree", TreeRecord(*result.Root())["children"]}});
    *table += "  " + std::to_string(objects) + " objects, " + std::to_string(holes) + " holes (" +
              DescribeBand(chosen) + ")\n";
    if (result.NParts() > 0) *table += TableOf(result, figures);
    if (!overlayPath.empty()) {
        WriteOverlay(overlayPath, image, placement, result, params, figures);
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
    const BandChoice band = *ParseBandChoice(options.band, &problem);  // validated by CLI11
    params.band = band.band;
    params.bandMode = band.mode;
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
    BatchOutputs outputs = WithCommon(options.streams, options.json, options.jobs, options.quiet);
    outputs.fieldDescriptions = BlobFieldDescriptions();
    return RunStreamedBatch(
        "blob", inputs, outputs,
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
    command->add_option("--band", options->band, kAutoBandHelp)->required()->check(BandChoiceValidator());
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
    command
        ->add_option("--features", options->features,
                     "The agent's numbered features written under \"features\", comma-separated, or 'all' "
                     "(each turns on what the agent needs to compute it)")
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
    command->footer(
        BlobFieldHelp() +
        "\nEvery region gets the standard figures above; --features selects the agent's own figures.\n\n"
        "Example:\n  ombrel blob part.png --band 0:100 --min-area 20 --no-border --json part.json "
        "--overlay part-overlay.png\n  ombrel blob shots/ --band 0:90 --jobs 2 --json shots.json "
        "--overlay shots-overlays/\n  ombrel blob coins.png --band auto-light --features all --json "
        "coins.json");
    return [options] { return RunBlob(*options); };
}

}  // namespace ombrel::cli
