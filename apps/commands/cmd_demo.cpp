// SPDX-License-Identifier: MIT
// ombrel demo: a synthetic inspection scene, analysed, with every output written to one folder.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>

#include <ombrel/framework/angles.h>
#include <ombrel/gradients/scene_angle.h>
#include <ombrel/morph/binmorph.h>
#include <ombrel/tools/break.h>
#include <scenes/synthetic_scene.h>

#include "analyses.h"

namespace ombrel::cli {
namespace {

constexpr int kSceneWidth = 640;
constexpr int kSceneHeight = 480;
constexpr int kScenePartCount = 6;
constexpr uint64_t kSceneSeed = 2024;

struct DemoOptions {
    std::string out = "ombrel-demo";
};

Json PartsRecord(const std::vector<scenes::PartShape>& parts) {
    Json list = Json::array();
    for (const scenes::PartShape& p : parts) {
        list.push_back({{"centre_x", p.cx},
                        {"centre_y", p.cy},
                        {"outer_radius", p.outerRadius},
                        {"hole_radius", p.holeRadius},
                        {"shape", p.square ? "square" : "disc"}});
    }
    return list;
}

// The turn applied to the scene for the rotation measurement, counter-clockwise as seen on screen.
constexpr double kDemoTurnDegrees = 12.0;

// The scene turned counter-clockwise about its centre, bilinear; points that fall outside the scene read
// its nearest edge pixel.
std::unique_ptr<Buffer> Turned(const Buffer& scene, double degrees) {
    const int w = scene.Width(), h = scene.Height();
    auto out = std::make_unique<Buffer>(w, h, EIGHT);
    const double t = degrees * kPi / 180.0, c = std::cos(t), s = std::sin(t);
    const double cx = (w - 1) / 2.0, cy = (h - 1) / 2.0;
    auto at = [&](int x, int y) {
        return double(scene.Row(std::clamp(y, 0, h - 1))[std::clamp(x, 0, w - 1)]);
    };
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const double u = x - cx, v = cy - y;  // y up
            const double sx = cx + c * u + s * v, sy = cy - (-s * u + c * v);
            const int x0 = int(std::floor(sx)), y0 = int(std::floor(sy));
            const double fx = sx - x0, fy = sy - y0;
            const double top = at(x0, y0) * (1 - fx) + at(x0 + 1, y0) * fx;
            const double bottom = at(x0, y0 + 1) * (1 - fx) + at(x0 + 1, y0 + 1) * fx;
            out->Row(y)[x] = static_cast<uint8_t>(std::lround(top * (1 - fy) + bottom * fy));
        }
    }
    return out;
}

// The scene angle of the scene and of a turned copy over the central half of the image (which stays inside
// the turned image), and the rotation between them.
Json AnalyseRotation(const Buffer& scene, const std::string& turnedPath, std::string* text) {
    auto turned = Turned(scene, kDemoTurnDegrees);
    SaveImage(turnedPath, *turned);
    const int w = scene.Width(), h = scene.Height();
    const Rect centre{w / 4, h / 4, w / 4 + w / 2, h / 4 + h / 2};
    std::unique_ptr<SceneAngleAgent> original(SceneAngleFact(const_cast<Buffer*>(&scene), centre));
    std::unique_ptr<SceneAngleAgent> rotated(SceneAngleFact(turned.get(), centre));
    if (!original || !rotated || original->Go() != 0 || rotated->Go() != 0)
        throw InputError("the scene angle agent could not run (out of memory?)");
    const double diff = rotated->AngleDiff(original.get());
    const double toDegrees = 180.0 / kPi;
    Json record = {{"turned_image", turnedPath},
                   {"applied_turn_deg", kDemoTurnDegrees},
                   {"region", {{"x", centre.left}, {"y", centre.top}, {"width", w / 2}, {"height", h / 2}}},
                   {"scene_angle_deg", original->Angle() * toDegrees},
                   {"turned_angle_deg", rotated->Angle() * toDegrees},
                   {"angle_diff_rad", diff},
                   {"angle_diff_deg", diff * toDegrees}};
    char line[200];
    std::snprintf(
        line, sizeof line,
        "Rotation: the scene turned by %.1f deg measures %.2f deg by scene angle (AngleDiff, modulo "
        "90 deg)\n",
        kDemoTurnDegrees, diff * toDegrees);
    *text += line;
    return record;
}

// The band that separates the dark parts (grey 30..50) and defects from the lit background (178 and up).
constexpr Band kDemoBand{0, 100};

// A board of conducting traces (the golden template: one-pixel lines, set to 1) and an inspected copy with
// one trace cut; break detection must find the cut and nothing else.
constexpr int kTraceWidth = 320, kTraceHeight = 120;
constexpr int kCutX = 150, kCutY = 60, kCutLength = 6;

std::unique_ptr<Buffer> TraceBoard(bool cut) {
    auto board = std::make_unique<Buffer>(kTraceWidth, kTraceHeight, EIGHT);
    for (int y = 20; y < kTraceHeight - 10; y += 20)
        for (int x = 10; x < kTraceWidth - 10; ++x) board->Row(y)[x] = 1;
    for (int x = 40; x < kTraceWidth - 10; x += 80)
        for (int y = 20; y <= kTraceHeight - 20; ++y) board->Row(y)[x] = 1;
    if (cut)
        for (int x = kCutX; x < kCutX + kCutLength; ++x) board->Row(kCutY)[x] = 0;
    return board;
}

// Break detection on the cut board against its template: the breaks found, a picture of them (trace grey,
// breaks white) and the JSON record.
Json AnalyseBreaks(const std::string& tracePath, const std::string& breaksPath, std::string* text) {
    auto golden = TraceBoard(false), inspected = TraceBoard(true);
    auto dilated = TraceBoard(true);
    BinMorphOperator dilate(DilateFull);
    swBinMorphAgent grow(inspected.get(), dilated.get(), BMBORDER_CLEAR, &dilate, 1);
    grow.Go();
    BreakAgent agent(inspected.get(), golden.get(), dilated.get(), BMBORDER_CLEAR, 0, 1);
    int status = agent.Go();
    if (status == 0) status = agent.PostGo();
    if (status != 0) throw InputError("break detection failed with status " + std::to_string(status));
    const Buffer& breaks = *agent.Breaks();
    Buffer tracePicture(kTraceWidth, kTraceHeight, EIGHT), breaksPicture(kTraceWidth, kTraceHeight, EIGHT);
    Json points = Json::array();
    for (int y = 0; y < kTraceHeight; ++y)
        for (int x = 0; x < kTraceWidth; ++x) {
            const bool isBreak = breaks.Row(y)[x] & 1;
            tracePicture.Row(y)[x] = inspected->Row(y)[x] ? 255 : 0;
            breaksPicture.Row(y)[x] = isBreak ? 255 : (inspected->Row(y)[x] ? 96 : 0);
            if (isBreak) points.push_back({{"x", x}, {"y", y}});
        }
    SaveImage(tracePath, tracePicture);
    SaveImage(breaksPath, breaksPicture);
    char line[200];
    std::snprintf(
        line, sizeof line,
        "Break detection: a %d x %d board of traces, one cut %d pixels long at (%d..%d, %d): %zu break "
        "pixel(s) found\n",
        kTraceWidth, kTraceHeight, kCutLength, kCutX, kCutX + kCutLength - 1, kCutY, points.size());
    *text += line;
    return {{"trace_image", tracePath},
            {"breaks_image", breaksPath},
            {"cut", {{"x", kCutX}, {"y", kCutY}, {"length", kCutLength}}},
            {"break_pixels", points.size()},
            {"breaks", points}};
}

int RunDemo(const DemoOptions& options) {
    namespace fs = std::filesystem;
    std::error_code ec;
    fs::create_directories(options.out, ec);
    if (ec || !fs::is_directory(options.out)) {
        PrintError("demo", options.out, ec ? "cannot create the folder: " + ec.message() : "is not a folder");
        return 1;
    }
    std::vector<scenes::PartShape> parts;
    auto scene = scenes::MakePartsScene(kSceneWidth, kSceneHeight, kScenePartCount, kSceneSeed, &parts);
    if (!scene) {
        PrintError("demo", "scene", "not enough memory to make the scene");
        return 1;
    }
    const fs::path dir(options.out);
    const std::string scenePath = (dir / "scene.png").string();
    const std::string overlayPath = (dir / "overlay.png").string();
    const std::string jsonPath = (dir / "report.json").string();
    const std::string turnedPath = (dir / "turned.png").string();
    const std::string tracePath = (dir / "traces.png").string();
    const std::string breaksPath = (dir / "breaks.png").string();
    std::string text;
    try {
        SaveImage(scenePath, *scene);
        const Placement whole = PlaceRegion(*scene, std::nullopt, nullptr, "");
        Json document;
        document["tool"] = "ombrel demo";
        document["field_descriptions"] = {{"histogram", HistogramFieldDescriptions()},
                                          {"blobs.regions", BlobFieldDescriptions()}};
        document["scene"] = {{"file", scenePath},
                             {"width", kSceneWidth},
                             {"height", kSceneHeight},
                             {"seed", kSceneSeed},
                             {"parts_drawn", PartsRecord(parts)}};
        document["histogram"] = AnalyseHistogram(*scene, whole, HistogramParams{}, &text);
        BlobParams blobParams;
        blobParams.band = kDemoBand;
        std::string error;
        ParseBlobFeatures(DefaultBlobFeatures(), &blobParams.features, &error);
        document["blobs"] = AnalyseBlobs(*scene, whole, blobParams, overlayPath, &text);
        document["rotation"] = AnalyseRotation(*scene, turnedPath, &text);
        document["breaks"] = AnalyseBreaks(tracePath, breaksPath, &text);
        SaveJson(jsonPath, document);
    } catch (const InputError& e) {
        PrintError("demo", "output", e.what());
        return 1;
    }
    const auto holed =
        std::count_if(parts.begin(), parts.end(), [](const auto& p) { return p.holeRadius > 0; });
    std::printf(
        "Ombrel demo: a synthetic inspection scene, %d x %d pixels: %zu dark parts (%td with a hole)\n"
        "on a lit, noisy background, with a scratch and a speck as defects.\n\n",
        kSceneWidth, kSceneHeight, parts.size(), holed);
    std::printf("%s\n", text.c_str());
    std::printf(
        "Files written:\n"
        "  %-28s the scene (8-bit grey PNG)\n"
        "  %-28s what blob analysis found: boundaries (objects green, holes orange),\n"
        "  %-28s centroids, principal axes and labels\n"
        "  %-28s the scene turned by %.0f degrees, for the rotation measurement\n"
        "  %-28s a board of traces with one cut, for break detection\n"
        "  %-28s the breaks found on it (white), the traces in grey\n"
        "  %-28s histogram, regions, features, the tree of objects and holes, the rotation\n"
        "  %-28s and the breaks\n\n",
        scenePath.c_str(), overlayPath.c_str(), "", turnedPath.c_str(), kDemoTurnDegrees, tracePath.c_str(),
        breaksPath.c_str(), jsonPath.c_str(), "");
    std::printf(
        "Next, on the scene or your own images:\n"
        "  ombrel blob %s --band 0:100 --min-area 20 --json parts.json --overlay parts.png\n"
        "  ombrel hist %s --bins 32\n"
        "  ombrel angle %s %s --overlay angle.png\n"
        "  ombrel --help\n",
        scenePath.c_str(), scenePath.c_str(), turnedPath.c_str(), scenePath.c_str());
    return 0;
}

}  // namespace

CommandRun AddDemoCommand(CLI::App& program) {
    auto options = std::make_shared<DemoOptions>();
    CLI::App* command = program.add_subcommand(
        "demo",
        "Make a synthetic inspection scene (parts with holes, a scratch and a speck on a lit, noisy "
        "background), analyse it, and write the scene, the results as JSON and an overlay to a folder.");
    command->add_option("-o,--out", options->out, "Folder for the outputs (created when missing)")
        ->capture_default_str();
    command->footer("Example:\n  ombrel demo --out ombrel-demo");
    return [options] { return RunDemo(*options); };
}

}  // namespace ombrel::cli
