// SPDX-License-Identifier: MIT
// ombrel break: the library's break detection, comparing a binary image with a binary template (and a
// dilated copy of the image, made here with a 3x3 dilation unless given).
#include <ombrel/framework/halvard_metadc.h>
#include <ombrel/morph/binmorph.h>
#include <ombrel/tools/break.h>

#include <vector>

#include "command.h"

namespace ombrel::cli {
namespace {

constexpr uint32_t kBreakColour = 0xFF0000;  // red, 0xRRGGBB

struct BreakOptions {
    std::vector<std::string> inputs;
    std::string templ;
    std::string dilated;
    std::string border = "clear";
    int iterations = 0;
    bool binarizeMode = false;
    int threshold = 128;
    std::string out;
    std::string overlay;
    std::string json;
    int jobs = 1;
    bool quiet = false;
    BatchOutputs streams;
};

// A 0/1 copy of an image: pixels >= threshold are set.
std::unique_ptr<Buffer> Binary(const Buffer& grey, int threshold) {
    std::string error;
    auto b = detail::AllocateGrey(grey.Width(), grey.Height(), &error);
    if (!b) throw InputError(error);
    for (int y = 0; y < grey.Height(); ++y)
        for (int x = 0; x < grey.Width(); ++x) b->Row(y)[x] = grey.Row(y)[x] >= threshold ? 1 : 0;
    return b;
}

// The image in grey with every break drawn in red: the pixel itself and a cross around it, so that a
// single-pixel break can be seen at a glance.
void WriteBreakOverlay(const std::string& path, const Buffer& grey, const Json& points) {
    const int w = grey.Width(), h = grey.Height();
    std::vector<uint8_t> rgb(static_cast<size_t>(w) * h * 3);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < 3; ++c) rgb[(static_cast<size_t>(y) * w + x) * 3 + c] = grey.Row(y)[x];
    HalvardMetaDC dc;
    dc.SelectObject(kBreakColour, 1);
    for (const Json& p : points) dc.CrossAt(p["x"].get<int>(), p["y"].get<int>(), 4);
    dc.RenderRgb(rgb.data(), w, h, w * 3);
    for (const Json& p : points) {
        uint8_t* px = &rgb[(static_cast<size_t>(p["y"].get<int>()) * w + p["x"].get<int>()) * 3];
        px[0] = 255, px[1] = 0, px[2] = 0;
    }
    const std::string problem = WritePngRgb(path, w, h, rgb.data(), static_cast<size_t>(w) * 3);
    if (!problem.empty()) throw InputError(problem);
}

FileOutcome BreakOne(const BreakOptions& options, const Buffer& templ, const std::string& input,
                     const std::string& output, const std::string& overlay) {
    DecodedImage decoded = LoadImage(input);
    if (decoded.image->Width() != templ.Width() || decoded.image->Height() != templ.Height())
        throw InputError("the image is " + std::to_string(decoded.image->Width()) + " x " +
                         std::to_string(decoded.image->Height()) + " but the template " +
                         std::to_string(templ.Width()) + " x " + std::to_string(templ.Height()));
    auto image = Binary(*decoded.image, options.threshold);
    std::unique_ptr<Buffer> dilated;
    if (!options.dilated.empty()) {
        DecodedImage given = LoadImage(options.dilated);
        if (given.image->Width() != templ.Width() || given.image->Height() != templ.Height())
            throw InputError("the dilated image " + options.dilated + " is not the template's size");
        dilated = Binary(*given.image, options.threshold);
    } else {
        dilated = Binary(*decoded.image, options.threshold);
        BinMorphOperator dilate(DilateFull);
        swBinMorphAgent agent(image.get(), dilated.get(), BMBORDER_CLEAR, &dilate, 1);
        agent.Go();
    }
    const BMBORDER border = options.border == "set" ? BMBORDER_SET : BMBORDER_CLEAR;
    BreakAgent agent(image.get(), const_cast<Buffer*>(&templ), dilated.get(), border, options.iterations,
                     options.binarizeMode ? 0 : 1);
    int status = agent.Go();
    if (status == 0) status = agent.PostGo();
    if (status != 0) throw InputError("break detection failed with status " + std::to_string(status));
    const Buffer& breaks = *agent.Breaks();
    std::string error;
    auto picture = detail::AllocateGrey(breaks.Width(), breaks.Height(), &error);
    if (!picture) throw InputError(error);
    Json points = Json::array();
    for (int y = 0; y < breaks.Height(); ++y)
        for (int x = 0; x < breaks.Width(); ++x) {
            const bool set = breaks.Row(y)[x] & 1;
            picture->Row(y)[x] = set ? 255 : 0;
            if (set && points.size() < 10000) points.push_back({{"x", x}, {"y", y}});
        }
    SaveBinaryImage(output, *picture);
    if (!overlay.empty()) WriteBreakOverlay(overlay, *decoded.image, points);
    FileOutcome outcome;
    outcome.record = ImageRecord(input, decoded);
    outcome.record["template"] = options.templ;
    outcome.record["mode"] = options.binarizeMode ? "binarize-and-mask" : "xor";
    outcome.record["iterations"] = options.iterations;
    outcome.record["converging"] = agent.Converging();
    outcome.record["break_pixels"] = points.size();
    outcome.record["breaks"] = points;
    outcome.record["output"] = output;
    if (!overlay.empty()) outcome.record["overlay"] = overlay;
    outcome.table = input + ": " + std::to_string(points.size()) + " break pixels -> " + output + "\n";
    return outcome;
}

int RunBreak(const BreakOptions& options) {
    std::shared_ptr<Buffer> templ;
    try {
        templ = Binary(*LoadImage(options.templ).image, options.threshold);
    } catch (const InputError& e) {
        PrintError("break", options.templ, e.what());
        return 1;
    }
    std::string problem;
    const std::vector<std::string> inputs = ExpandInputs(options.inputs);
    if (inputs.size() == 1 && !(problem = OutputFormatProblem(options.out)).empty()) {
        PrintError("break", "--out " + options.out, problem);
        return 2;
    }
    std::vector<std::string> outputs;
    if (!OutputPaths(options.out, inputs, "-breaks.png", &outputs, &problem)) {
        PrintError("break", "--out", problem);
        return 1;
    }
    std::vector<std::string> overlays(inputs.size());
    if (!options.overlay.empty() &&
        !OutputPaths(options.overlay, inputs, "-overlay.png", &overlays, &problem)) {
        PrintError("break", "--overlay", problem);
        return 1;
    }
    return RunStreamedBatch("break", inputs,
                            WithCommon(options.streams, options.json, options.jobs, options.quiet),
                            [&](const std::string& input, size_t index) {
                                return BreakOne(options, *templ, input, outputs[index], overlays[index]);
                            });
}

}  // namespace

CommandRun AddBreakCommand(CLI::App& program) {
    auto options = std::make_shared<BreakOptions>();
    CLI::App* command = program.add_subcommand(
        "break",
        "Find breaks: pixels of a binary template (pixels >= THRESHOLD are set) that the image misses, "
        "thinned and reduced to end points by the library's break detection. The output marks them 255.");
    command->add_option("images", options->inputs, "Images (PNG, PGM, PBM, PPM) or folders of images")
        ->required();
    command->add_option("-t,--template", options->templ, "Template image, the images' size")->required();
    command->add_option("--dilated", options->dilated,
                        "Dilated image to compare with (default: the image dilated by a 3x3 square)");
    command->add_option("--iterations", options->iterations, "Passes of each loop, 0..10000; 0 converges")
        ->check(CLI::Range(0, 10000))
        ->capture_default_str();
    command->add_option("--border", options->border, "What pixels outside read: clear (0) or set (1)")
        ->check(CLI::IsMember({"clear", "set"}))
        ->capture_default_str();
    command->add_flag("--binarize-mask", options->binarizeMode,
                      "Difference = template AND NOT image (default: image XOR template)");
    command->add_option("--threshold", options->threshold, "Grey level from which a pixel is set, 1..255")
        ->check(CLI::Range(1, 255))
        ->capture_default_str();
    command
        ->add_option("-o,--out", options->out,
                     "Output image (.png, .pgm, .pbm); a folder when there are several images")
        ->required();
    command->add_option(
        "--overlay", options->overlay,
        "Colour PNG of the image with every break marked in red; a folder when there are several "
        "images");
    command->add_option("--json", options->json, "Write the breaks found in every image to this file");
    AddJobsOption(command, &options->jobs);
    AddStreamOptions(command, &options->streams);
    command->add_flag("-q,--quiet", options->quiet, "Print nothing but errors");
    command->footer(
        "Example:\n  ombrel break trace.png --template golden.png --out breaks.png --overlay marked.png "
        "--json "
        "breaks.json");
    return [options] { return RunBreak(*options); };
}

}  // namespace ombrel::cli
