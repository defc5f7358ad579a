// SPDX-License-Identifier: MIT
// ombrel average: the running average of a stream of frames, through the library's frame-averaging agent.
#include <memory>

#include <ombrel/pixelops/frame_average.h>

#include "command.h"

namespace ombrel::cli {
namespace {

struct AverageOptions {
    std::vector<std::string> inputs;
    int window = 8;
    std::string roi;
    std::string out;
    std::string json;
    bool quiet = false;
};

std::string Size(int width, int height) {
    return std::to_string(width) + " x " + std::to_string(height);
}

int RunAverage(const AverageOptions& options) {
    if (RefuseUnwritable("average", options.json)) return 2;
    std::string problem;
    std::optional<Region> roi;
    if (!options.roi.empty()) roi = ParseRegion(options.roi, &problem);
    if (!(problem = OutputFormatProblem(options.out)).empty()) {
        PrintError("average", "--out " + options.out, problem);
        return 2;
    }
    const std::vector<std::string> inputs = ExpandInputs(options.inputs);
    std::unique_ptr<Buffer> destination;
    int firstWidth = 0, firstHeight = 0;  // frames after the first must have its size
    std::unique_ptr<FrameAverageAgent> agent;
    Region region;
    Json frames = Json::array();
    // Frames are a stream: they are read and averaged one at a time, in order.
    for (const std::string& input : inputs) {
        DecodedImage decoded;
        try {
            decoded = LoadImage(input);
            const Buffer& image = *decoded.image;
            if (agent == nullptr) {
                region = PlaceRegion(image, roi, nullptr, "").region;
                destination = detail::AllocateGrey(region.width, region.height, &problem);
                if (!destination) throw InputError(problem);
                agent.reset(FrameAverageFact(decoded.image.get(), destination.get(), options.window,
                                             region.AsRect()));
                if (!agent) throw InputError("the frame-averaging agent could not be made (out of memory?)");
                firstWidth = image.Width(), firstHeight = image.Height();
            }
            if (image.Width() != firstWidth || image.Height() != firstHeight)
                throw InputError("is " + Size(image.Width(), image.Height()) + ", the first frame " +
                                 Size(firstWidth, firstHeight) +
                                 ": frames of one average must have one size");
        } catch (const InputError& e) {
            PrintError("average", input, e.what());
            return 1;
        }
        // The agent keeps a copy of every frame it needs, so the decoded image can go after Go.
        agent->SetSrcBuf(decoded.image.get());
        const int status = agent->Go();
        agent->SetSrcBuf(nullptr);
        if (status != 0) {
            PrintError("average", input,
                       "the frame-averaging agent failed with status " + std::to_string(status));
            return 1;
        }
        frames.push_back(
            Json{{"file", input}, {"queued", agent->GetQLength()}, {"ms", agent->GetPerformance()}});
    }
    try {
        SaveImage(options.out, *destination);
    } catch (const InputError& e) {
        PrintError("average", options.out, e.what());
        return 1;
    }
    if (!options.quiet)
        std::printf("%zu frames, window %d (%d in the last average) -> %s (%s)\n", inputs.size(),
                    options.window, agent->GetQLength(), options.out.c_str(),
                    Size(region.width, region.height).c_str());
    if (!options.json.empty()) {
        Json document;
        document["tool"] = "ombrel average";
        document["window"] = options.window;
        document["region"] =
            Json{{"x", region.x}, {"y", region.y}, {"width", region.width}, {"height", region.height}};
        document["output"] = options.out;
        document["frames"] = frames;
        document["ms_unit"] = "milliseconds the agent took for that frame";
        const std::string written = WriteJsonFile(options.json, document);
        if (!written.empty()) {
            PrintError("average", "--json " + options.json, written);
            return 1;
        }
    }
    return 0;
}

}  // namespace

CommandRun AddAverageCommand(CLI::App& program) {
    auto options = std::make_shared<AverageOptions>();
    CLI::App* command = program.add_subcommand(
        "average",
        "Average a stream of frames (the images in the order given, folders in name order) over a sliding "
        "window with the library's frame-averaging agent, and write the average after the last frame. "
        "While the window fills, each average is the exact mean of the frames so far; once it is full, the "
        "sum of the window is shifted right by log2(N) for N = 2, 4, 8, 16 or 32. For any other N the "
        "agent then writes the low byte of the plain sum, as the library specifies: choose a power of two "
        "up to 32, or no more frames than the window (then the result is the exact mean).");
    command->add_option("frames", options->inputs, "Frames (PNG, PGM, PBM, PPM) or folders of frames")
        ->required();
    command->add_option("-n,--window", options->window, "Window size N: the number of frames averaged")
        ->check(CLI::Range(1, 4096))
        ->capture_default_str();
    command->add_option("--roi", options->roi, "Region x,y,w,h of every frame (default: the whole frame)")
        ->check(RegionValidator());
    command->add_option("-o,--out", options->out, "Output image (.png, .pgm, .pbm)")->required();
    command->add_option("--json", options->json, "Write the frames and the queue length after each");
    command->add_flag("-q,--quiet", options->quiet, "Print nothing but errors");
    command->footer("Example:\n  ombrel average grabs/ --window 8 --out mean.png --json average.json");
    return [options] { return RunAverage(*options); };
}

}  // namespace ombrel::cli
