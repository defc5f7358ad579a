// SPDX-License-Identifier: MIT
// ombrel graymorph: grey-level erosion, dilation and their compositions over a flat structuring element
// given as a size or as a pattern of 0/1 cells.
#include <cctype>
#include <map>

#include <ombrel/morph/graymorph.h>

#include "command.h"

namespace ombrel::cli {
namespace {

const std::map<std::string, GRAYMORPHOP>& GrayMorphOps() {
    static const std::map<std::string, GRAYMORPHOP> ops = {
        {"erode", GRAYMORPH_ERODE}, {"dilate", GRAYMORPH_DILATE},     {"open", GRAYMORPH_OPEN},
        {"close", GRAYMORPH_CLOSE}, {"gradient", GRAYMORPH_GRADIENT}, {"tophat", GRAYMORPH_TOPHAT},
        {"well", GRAYMORPH_WELL}};
    return ops;
}

struct GrayMorphOptions {
    std::vector<std::string> inputs;
    std::string roi;
    std::string op = "erode";
    std::string size = "3x3";
    std::string pattern;
    std::string hot;
    std::string polarity = "normal";
    int iterations = 1;
    std::string out;
    std::string json;
    int jobs = 1;
    bool quiet = false;
    BatchOutputs streams;
};

// "W" or "WxH", each 1..kGrayMorphMaxSide.
bool ParseSize(const std::string& text, int* w, int* h) {
    const size_t x = text.find('x');
    try {
        size_t used = 0;
        *w = std::stoi(text.substr(0, x), &used);
        if (used != (x == std::string::npos ? text.size() : x)) return false;
        *h = *w;
        if (x != std::string::npos) {
            *h = std::stoi(text.substr(x + 1), &used);
            if (used != text.size() - x - 1) return false;
        }
    } catch (const std::exception&) {
        return false;
    }
    return *w >= 1 && *h >= 1 && *w <= kGrayMorphMaxSide && *h <= kGrayMorphMaxSide &&
           int64_t{*w} * *h <= kGrayMorphMaxCells;
}

// The element the options describe, or an empty string's worth of problem.
std::string BuildElement(const GrayMorphOptions& options, std::unique_ptr<GrayMorphElem>* element) {
    int w = 0, h = 0;
    if (!ParseSize(options.size, &w, &h))
        return "--size " + options.size + ": expected W or WxH, each 1.." + std::to_string(kGrayMorphMaxSide);
    int hotX = w / 2, hotY = h / 2;
    if (!options.hot.empty()) {
        if (std::sscanf(options.hot.c_str(), "%d,%d", &hotX, &hotY) != 2 || hotX < 0 || hotY < 0 ||
            hotX >= w || hotY >= h)
            return "--hot " + options.hot + ": expected X,Y inside the " + std::to_string(w) + "x" +
                   std::to_string(h) + " element";
    }
    if (options.pattern.empty()) {
        element->reset(
            new GrayMorphElem(hotX, hotY, w, h, std::vector<unsigned char>(size_t(w) * h, 255).data()));
        return {};
    }
    size_t cells = 0;
    for (char c : options.pattern) {
        if (c == ',' || c == ' ') continue;
        if (c != '0' && c != '1') return "--pattern: '" + std::string(1, c) + "' is not a cell (use 0 and 1)";
        ++cells;
    }
    if (cells != size_t(w) * h)
        return "--pattern: " + std::to_string(cells) + " cells for a " + std::to_string(w) + "x" +
               std::to_string(h) + " element, which needs " + std::to_string(size_t(w) * h);
    if (options.pattern.find('1') == std::string::npos) return "--pattern: the element has no member";
    element->reset(new GrayMorphElem(hotX, hotY, w, h, options.pattern.c_str()));
    return {};
}

FileOutcome GrayMorphOne(const GrayMorphOptions& options, const std::optional<Region>& region,
                         GrayMorphElem& element, const std::string& input, const std::string& output) {
    DecodedImage decoded = LoadImage(input);
    const Placement placement = PlaceRegion(*decoded.image, region, nullptr, "");
    std::string error;
    auto result = detail::AllocateGrey(decoded.image->Width(), decoded.image->Height(), &error);
    if (!result) throw InputError(error);
    const GMPOLARITY polarity = options.polarity == "inverted" ? GM_POLARITY_INVERTED : GM_POLARITY_NORMAL;
    std::unique_ptr<GrayMorphAgent> agent(GrayMorphFact(decoded.image.get(), result.get(), placement.origin,
                                                        placement.roi, GrayMorphOps().at(options.op),
                                                        polarity, options.iterations, &element));
    if (!agent) throw InputError("the grey morphology agent could not be made (out of memory?)");
    if (agent->Go() != 0 || agent->GetStatus() > 0)
        throw InputError("the grey morphology agent failed with status " +
                         std::to_string(agent->GetStatus()));
    auto picture = detail::AllocateGrey(placement.region.width, placement.region.height, &error);
    if (!picture) throw InputError(error);
    picture->CopyFrom(result.get(), Rect{0, 0, picture->Width(), picture->Height()});
    SaveImage(output, *picture);

    FileOutcome outcome;
    outcome.record = ImageRecord(input, decoded);
    outcome.record["region"] = RegionRecord(placement);
    outcome.record["operation"] = options.op;
    outcome.record["polarity"] = options.polarity;
    outcome.record["iterations"] = options.iterations;
    outcome.record["element"] = {{"width", element.GetElementWidth()},
                                 {"height", element.GetElementHeight()},
                                 {"hot_x", element.GetElementHotX()},
                                 {"hot_y", element.GetElementHotY()},
                                 {"members", element.Members()}};
    outcome.record["output"] = output;
    outcome.table = input + ": " + options.op + " with a " + std::to_string(element.GetElementWidth()) + "x" +
                    std::to_string(element.GetElementHeight()) + " element (" +
                    std::to_string(element.Members()) + " members) -> " + output + "\n";
    return outcome;
}

int RunGrayMorph(const GrayMorphOptions& options) {
    std::string problem;
    std::optional<Region> region;
    if (!options.roi.empty()) region = ParseRegion(options.roi, &problem);
    std::unique_ptr<GrayMorphElem> element;
    if (!(problem = BuildElement(options, &element)).empty()) {
        const size_t colon = problem.find(':');
        PrintError("graymorph", problem.substr(0, colon), problem.substr(colon + 2));
        return 2;
    }
    const std::vector<std::string> inputs = ExpandInputs(options.inputs);
    if (inputs.size() == 1 && !(problem = OutputFormatProblem(options.out)).empty()) {
        PrintError("graymorph", "--out " + options.out, problem);
        return 2;
    }
    std::vector<std::string> outputs;
    if (!OutputPaths(options.out, inputs, "-graymorph.png", &outputs, &problem)) {
        PrintError("graymorph", "--out", problem);
        return 1;
    }
    // Agents on several threads share the element read-only.
    return RunStreamedBatch("graymorph", inputs,
                            WithCommon(options.streams, options.json, options.jobs, options.quiet),
                            [&](const std::string& input, size_t index) {
                                return GrayMorphOne(options, region, *element, input, outputs[index]);
                            });
}

}  // namespace

CommandRun AddGrayMorphCommand(CLI::App& program) {
    auto options = std::make_shared<GrayMorphOptions>();
    CLI::App* command = program.add_subcommand(
        "graymorph",
        "Grey-level morphology with a flat structuring element: erode (minimum), dilate (maximum), open, "
        "close, gradient |max - min|, tophat |image - opening| and well |image - closing|. Outside the "
        "region never wins. The output is the region's size.");
    command->add_option("images", options->inputs, "Images (PNG, PGM, PBM, PPM) or folders of images")
        ->required();
    command->add_option("--op", options->op, "Operation: erode, dilate, open, close, gradient, tophat, well")
        ->check(CLI::IsMember(GrayMorphOps()))
        ->capture_default_str();
    command->add_option("--size", options->size, "Element size W or WxH (a full rectangle unless --pattern)")
        ->capture_default_str();
    command->add_option("--pattern", options->pattern,
                        "Element cells row by row, 1 member and 0 not, commas and spaces ignored, e.g. "
                        "\"0,1,0,1,1,1,0,1,0\" with --size 3");
    command->add_option("--hot", options->hot, "Hot spot X,Y inside the element (default: its centre)");
    command->add_option("--polarity", options->polarity, "normal, or inverted to swap minimum and maximum")
        ->check(CLI::IsMember({"normal", "inverted"}))
        ->capture_default_str();
    command->add_option("--iterations", options->iterations, "Filter passes per step, 0..10000")
        ->check(CLI::Range(0, 10000))
        ->capture_default_str();
    command->add_option("--roi", options->roi, "Region x,y,w,h of the image (default: the whole image)")
        ->check(RegionValidator());
    command
        ->add_option("-o,--out", options->out,
                     "Output image (.png, .pgm, .pbm); a folder when there are several images")
        ->required();
    command->add_option("--json", options->json, "Write what was done for every image to this file");
    AddJobsOption(command, &options->jobs);
    AddStreamOptions(command, &options->streams);
    command->add_flag("-q,--quiet", options->quiet, "Print nothing but errors");
    command->footer(
        "Example:\n  ombrel graymorph part.png --op open --size 7 --out opened.png\n"
        "  ombrel graymorph part.png --op tophat --size 3 --pattern 0,1,0,1,1,1,0,1,0 --out spots.png");
    return [options] { return RunGrayMorph(*options); };
}

}  // namespace ombrel::cli
