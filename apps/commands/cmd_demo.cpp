// SPDX-License-Identifier: MIT
// ombrel demo: a synthetic inspection scene, analysed, with every output written to one folder.
#include <algorithm>
#include <cstdio>
#include <filesystem>

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

// The band that separates the dark parts (grey 30..50) and defects from the lit background (178 and up).
constexpr Band kDemoBand{0, 100};

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
    std::string text;
    try {
        SaveImage(scenePath, *scene);
        const Placement whole = PlaceRegion(*scene, std::nullopt, nullptr, "");
        Json document;
        document["tool"] = "ombrel demo";
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
        "  %-28s histogram, regions, features and the tree of objects and holes\n\n",
        scenePath.c_str(), overlayPath.c_str(), "", jsonPath.c_str());
    std::printf(
        "Next, on the scene or your own images:\n"
        "  ombrel blob %s --band 0:100 --min-area 20 --json parts.json --overlay parts.png\n"
        "  ombrel hist %s --bins 32\n"
        "  ombrel --help\n",
        scenePath.c_str(), scenePath.c_str());
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
