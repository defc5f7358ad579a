// SPDX-License-Identifier: MIT
// ombrel conv: the library's convolution agent, which filters a region with an arbitrary kernel (not
// mirrored), divides by the power of two just above the root of the kernel's energy, keeps the low 8 bits
// (wrapping, on purpose) and samples every xstep-th column and ystep-th row.
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>

#include <ombrel/corr/corr_template.h>
#include <ombrel/pixelops/conv.h>

#include "command.h"

namespace ombrel::cli {
namespace {

struct ConvOptions {
    std::vector<std::string> inputs;
    std::string roi;
    std::string kernel = "box3";
    std::string hot;
    int xStep = 1;
    int yStep = 1;
    bool signedImage = false;
    std::string out;
    std::string json;
    int jobs = 1;
    bool quiet = false;
    BatchOutputs streams;
};

struct KernelSpec {
    int width = 0, height = 0;
    std::vector<int> values;  // row after row
    bool isSigned = false;    // any value below 0
};

const std::map<std::string, KernelSpec>& Presets() {
    static const std::map<std::string, KernelSpec> presets = {
        {"box3", {3, 3, std::vector<int>(9, 1), false}},
        {"box5", {5, 5, std::vector<int>(25, 1), false}},
        {"gauss3", {3, 3, {1, 2, 1, 2, 4, 2, 1, 2, 1}, false}},
        {"sharpen", {3, 3, {0, -1, 0, -1, 5, -1, 0, -1, 0}, true}},
        {"sobelx", {3, 3, {-1, 0, 1, -2, 0, 2, -1, 0, 1}, true}},
        {"sobely", {3, 3, {-1, -2, -1, 0, 0, 0, 1, 2, 1}, true}},
        {"laplace", {3, 3, {0, 1, 0, 1, -4, 1, 0, 1, 0}, true}}};
    return presets;
}

// A kernel file: integers separated by spaces, one kernel row per line, every row as long; '#' starts a
// comment. Values are -128..127 when any is negative (signed kernel), otherwise 0..255.
KernelSpec ReadKernelFile(const std::string& path) {
    std::ifstream in(path);
    if (!in) throw InputError(path + ": cannot be read (neither a preset nor a readable kernel file)");
    KernelSpec k;
    std::string line;
    int lineNo = 0;
    while (std::getline(in, line)) {
        ++lineNo;
        line = line.substr(0, line.find('#'));
        std::istringstream row(line);
        std::vector<int> values;
        std::string word;
        while (row >> word) {
            size_t used = 0;
            int v = 0;
            try {
                v = std::stoi(word, &used);
            } catch (const std::exception&) {
                used = 0;
            }
            if (used != word.size() || v < -128 || v > 255)
                throw InputError(path + ": line " + std::to_string(lineNo) + ": '" + word +
                                 "' is not an integer from -128 to 255");
            values.push_back(v);
        }
        if (values.empty()) continue;
        if (k.width == 0) k.width = static_cast<int>(values.size());
        if (static_cast<int>(values.size()) != k.width)
            throw InputError(path + ": line " + std::to_string(lineNo) + " has " +
                             std::to_string(values.size()) + " values, the first row " +
                             std::to_string(k.width));
        if (++k.height > 256 || k.width > 256) throw InputError(path + ": a kernel is at most 256 x 256");
        k.values.insert(k.values.end(), values.begin(), values.end());
    }
    if (k.values.empty()) throw InputError(path + ": no kernel values");
    for (int v : k.values) k.isSigned = k.isSigned || v < 0;
    if (k.isSigned)
        for (int v : k.values)
            if (v > 127) throw InputError(path + ": a kernel with negative values takes -128..127 only");
    return k;
}

KernelSpec LoadKernel(const std::string& name) {
    const auto found = Presets().find(name);
    return found != Presets().end() ? found->second : ReadKernelFile(name);
}

Point ParseHot(const std::string& text, const KernelSpec& k) {
    if (text.empty()) return Point{k.width / 2, k.height / 2};
    int x = 0, y = 0;
    char comma = 0, extra = 0;
    std::istringstream in(text);
    if (!(in >> x >> comma >> y) || comma != ',' || (in >> extra))
        throw InputError("--hot " + text + ": expected X,Y");
    return Point{x, y};
}

FileOutcome ConvOne(const ConvOptions& options, const std::optional<Region>& region, const KernelSpec& spec,
                    const std::string& input, const std::string& output) {
    DecodedImage decoded = LoadImage(input);
    const Placement placement = PlaceRegion(*decoded.image, region, nullptr, "");
    const Region& r = placement.region;
    Buffer kernelImage(spec.width, spec.height, EIGHT);
    for (int y = 0; y < spec.height; ++y)
        for (int x = 0; x < spec.width; ++x)
            kernelImage.Row(y)[x] =
                static_cast<uint8_t>(spec.values[static_cast<size_t>(y) * spec.width + x]);
    CorrTemplate tpl(&kernelImage, 0);
    tpl.SetHotSpot(ParseHot(options.hot, spec));
    std::string error;
    auto full = detail::AllocateGrey(r.width, r.height, &error);
    if (!full) throw InputError(error);
    std::unique_ptr<ConvAgent> agent(ConvFact(decoded.image.get(), full.get(), r.AsRect(), &tpl,
                                              options.signedImage ? 1 : 0, spec.isSigned ? 1 : 0,
                                              options.xStep, options.yStep));
    if (!agent) throw InputError("the convolution agent could not be made (out of memory?)");
    const int status = agent->Go();
    if (status != 0) throw InputError("the convolution agent failed with status " + std::to_string(status));
    if (agent->SxStop() <= agent->SxStart() || agent->SyStop() <= agent->SyStart())
        throw InputError("the " + std::to_string(spec.width) + " x " + std::to_string(spec.height) +
                         " kernel leaves no sample in the region");
    const int width =
        std::min((agent->SxStop() - agent->SxStart() + options.xStep - 1) / options.xStep, r.width);
    const int height =
        std::min((agent->SyStop() - agent->SyStart() + options.yStep - 1) / options.yStep, r.height);
    auto destination = detail::AllocateGrey(width, height, &error);
    if (!destination) throw InputError(error);
    for (int y = 0; y < height; ++y) std::copy_n(full->Row(y), width, destination->Row(y));
    SaveImage(output, *destination);
    FileOutcome outcome;
    outcome.record = ImageRecord(input, decoded);
    outcome.record["region"] = RegionRecord(placement);
    outcome.record["kernel"] = {{"name", options.kernel},     {"width", spec.width},
                                {"height", spec.height},      {"signed", spec.isSigned},
                                {"values", spec.values},      {"hot_x", tpl.GetHotSpot().x},
                                {"hot_y", tpl.GetHotSpot().y}};
    outcome.record["x_step"] = options.xStep;
    outcome.record["y_step"] = options.yStep;
    outcome.record["signed_image"] = options.signedImage;
    outcome.record["shift"] = agent->Shift();
    outcome.record["divisor"] = 1 << agent->Shift();
    outcome.record["sample_range"] = {{"x_start", agent->SxStart()},
                                      {"x_stop", agent->SxStop()},
                                      {"y_start", agent->SyStart()},
                                      {"y_stop", agent->SyStop()}};
    outcome.record["output"] = output;
    outcome.record["output_width"] = width;
    outcome.record["output_height"] = height;
    outcome.table = input + ": filtered with " + options.kernel + " (sum >> " +
                    std::to_string(agent->Shift()) + ", steps " + std::to_string(options.xStep) + "," +
                    std::to_string(options.yStep) + ") -> " + output + " (" + std::to_string(width) + " x " +
                    std::to_string(height) + ")\n";
    return outcome;
}

int RunConv(const ConvOptions& options) {
    std::string problem;
    std::optional<Region> region;
    if (!options.roi.empty()) region = ParseRegion(options.roi, &problem);
    KernelSpec spec;
    try {
        spec = LoadKernel(options.kernel);
        ParseHot(options.hot, spec);
    } catch (const InputError& e) {
        std::fprintf(stderr, "ombrel conv: %s\n", e.what());
        return 2;
    }
    const std::vector<std::string> inputs = ExpandInputs(options.inputs);
    if (inputs.size() == 1 && !(problem = OutputFormatProblem(options.out)).empty()) {
        PrintError("conv", "--out " + options.out, problem);
        return 2;
    }
    std::vector<std::string> outputs;
    if (!OutputPaths(options.out, inputs, "-conv.png", &outputs, &problem)) {
        PrintError("conv", "--out", problem);
        return 1;
    }
    return RunStreamedBatch("conv", inputs,
                            WithCommon(options.streams, options.json, options.jobs, options.quiet),
                            [&](const std::string& input, size_t index) {
                                return ConvOne(options, region, spec, input, outputs[index]);
                            });
}

}  // namespace

CommandRun AddConvCommand(CLI::App& program) {
    auto options = std::make_shared<ConvOptions>();
    CLI::App* command = program.add_subcommand(
        "conv",
        "Filter a region with a kernel using the library's convolution agent: out = low 8 bits of "
        "(sum of kernel x pixel) >> s, where 2^s is the power of two just above sqrt(sum of squared kernel "
        "values) (box3: s = 2, i.e. sum / 4). The kernel is not mirrored (correlation form), results above "
        "255 wrap instead of saturating, negative sums wrap too. The kernel's hot spot sits on each sampled "
        "pixel; samples whose kernel would leave the image are dropped, so the output is smaller than the "
        "region by about the kernel size, divided by the steps.");
    command->add_option("images", options->inputs, "Images (PNG, PGM, PBM, PPM) or folders of images")
        ->required();
    command->add_option("--roi", options->roi, "Region x,y,w,h of the image (default: the whole image)")
        ->check(RegionValidator());
    command
        ->add_option(
            "-k,--kernel", options->kernel,
            "Preset (box3, box5, gauss3, sharpen, sobelx, sobely, laplace) or a text file of "
            "integers, one kernel row per line; a kernel with a negative value is signed (-128..127)")
        ->capture_default_str();
    command->add_option("--hot", options->hot, "Kernel hot spot X,Y (default: the kernel's centre)");
    command->add_option("--xstep", options->xStep, "Sample every n-th column (1 or more)")
        ->check(CLI::Range(1, 1 << 20))
        ->capture_default_str();
    command->add_option("--ystep", options->yStep, "Sample every n-th row (1 or more)")
        ->check(CLI::Range(1, 1 << 20))
        ->capture_default_str();
    command->add_flag("--signed-image", options->signedImage, "Read image bytes as signed (-128..127)");
    command
        ->add_option("-o,--out", options->out,
                     "Output image (.png, .pgm); a folder when there are several images")
        ->required();
    command->add_option("--json", options->json, "Write what was done for every image to this file");
    AddJobsOption(command, &options->jobs);
    AddStreamOptions(command, &options->streams);
    command->add_flag("-q,--quiet", options->quiet, "Print nothing but errors");
    command->footer(
        "Example:\n  ombrel conv part.png --kernel gauss3 --out smooth.png\n"
        "  ombrel conv part.png --kernel my.kernel --xstep 2 --ystep 2 --roi 40,30,320,240 --out half.png "
        "--json done.json");
    return [options] { return RunConv(*options); };
}

}  // namespace ombrel::cli
