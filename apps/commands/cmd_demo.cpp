// SPDX-License-Identifier: MIT
// ombrel demo: a synthetic inspection scene, analysed, with every output written to one folder.
#include <algorithm>
#include <cstdio>
#include <filesystem>

#include <scenes/synthetic_scene.h>

#include "command.h"

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
    const std::string scenePath = (fs::path(options.out) / "scene.png").string();
    const std::string jsonPath = (fs::path(options.out) / "demo.json").string();
    try {
        SaveImage(scenePath, *scene);
        Json document;
        document["tool"] = "ombrel demo";
        document["scene"] = {{"file", scenePath},
                             {"width", kSceneWidth},
                             {"height", kSceneHeight},
                             {"seed", kSceneSeed},
                             {"parts_drawn", PartsRecord(parts)}};
        SaveJson(jsonPath, document);
    } catch (const InputError& e) {
        PrintError("demo", "output", e.what());
        return 1;
    }
    const auto holed = std::count_if(parts.begin(), parts.end(), [](const auto& p) { return p.holeRadius > 0; });
    std::printf("Synthetic inspection scene: %d x %d pixels, %zu dark parts (%td with a hole) on a lit,\n"
                "noisy background, with a scratch and a speck as defects.\n\n",
                kSceneWidth, kSceneHeight, parts.size(), holed);
    std::printf("Files written:\n  %s  the scene\n  %s  everything found, as JSON\n", scenePath.c_str(),
                jsonPath.c_str());
    return 0;
}

}  // namespace

CommandRun AddDemoCommand(CLI::App& program) {
    auto options = std::make_shared<DemoOptions>();
    CLI::App* command = program.add_subcommand(
        "demo", "Make a synthetic inspection scene (parts with holes, a scratch and a speck on a lit, noisy "
                "background), analyse it, and write the scene, the results as JSON and an overlay to a folder.");
    command->add_option("-o,--out", options->out, "Folder for the outputs (created when missing)")
        ->capture_default_str();
    command->footer("Example:\n  ombrel demo --out ombrel-demo");
    return [options] { return RunDemo(*options); };
}

}  // namespace ombrel::cli
