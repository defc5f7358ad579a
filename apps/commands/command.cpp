// SPDX-License-Identifier: MIT
#include "command.h"

#include "../output_file.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace ombrel::cli {

ProgramSettings& Settings() {
    static ProgramSettings settings;
    return settings;
}

void AddProgramOptions(CLI::App* command, ProgramSettings* settings) {
    // arith has a --bits of its own (the mask of its shift), so its images are read with their full range.
    if (command->get_option_no_throw("--bits") == nullptr) {
        command
            ->add_option(
                "--bits", settings->bits,
                "Bits a high-bit-depth sensor fills in 16-bit files (e.g. 12): 0..2^N-1 maps to 0..255, "
                "larger values saturate (default: the file's whole range)")
            ->check(CLI::Range(1, 16));
    }
    const std::string name = command->get_name();
    if (name == "mask" || name == "binmorph" || name == "break") {
        command->add_flag("--raw-values", settings->rawValues,
                          "Write binary images as 0/1 instead of 0/255 (0/1 looks black in a viewer)");
    }
    if (command->get_option_no_throw("--roi") != nullptr) {
        command->add_flag("--clip-roi", settings->clipRoi,
                          "Clip a --roi that reaches outside the image to the image (and say so) instead "
                          "of refusing it");
    }
}

namespace {

DecodeLimits ProgramLimits() {
    DecodeLimits limits;
    limits.bits = Settings().bits;
    return limits;
}

// The part of `region` inside a width x height image, or nullopt when nothing is.
std::optional<Region> ClipRegion(const Region& r, int width, int height) {
    const int64_t left = std::max<int64_t>(r.x, 0), top = std::max<int64_t>(r.y, 0);
    const int64_t right = std::min<int64_t>(int64_t{r.x} + r.width, width);
    const int64_t bottom = std::min<int64_t>(int64_t{r.y} + r.height, height);
    if (right <= left || bottom <= top) return std::nullopt;
    return Region{static_cast<int>(left), static_cast<int>(top), static_cast<int>(right - left),
                  static_cast<int>(bottom - top)};
}

}  // namespace

DecodedImage LoadImage(const std::string& path) {
    DecodedImage decoded = ReadImageFile(path, ProgramLimits());
    if (!decoded) throw InputError(decoded.error);
    return decoded;
}

Json ImageRecord(const std::string& path, const DecodedImage& image) {
    Json record;
    record["file"] = path;
    record["format"] = image.format;
    record["width"] = image.image->Width();
    record["height"] = image.image->Height();
    record["source_bits"] = image.sourceBits;
    record["converted_from_colour"] = image.sourceColour;
    return record;
}

void SaveImage(const std::string& path, const Buffer& image) {
    const std::string problem = WriteImage(path, image);
    if (!problem.empty()) throw InputError(path + ": " + problem);
}

void SaveBinaryImage(const std::string& path, const Buffer& image) {
    std::string error;
    auto scaled = detail::AllocateGrey(image.Width(), image.Height(), &error);
    if (!scaled) throw InputError(error);
    const uint8_t set = Settings().rawValues ? 1 : 255;
    for (int y = 0; y < image.Height(); ++y) {
        const uint8_t* in = image.Row(y);
        uint8_t* out = scaled->Row(y);
        for (int x = 0; x < image.Width(); ++x) out[x] = in[x] != 0 ? set : 0;
    }
    SaveImage(path, *scaled);
}

void SaveJson(const std::string& path, const Json& document) {
    const std::string problem = WriteJsonFile(path, document);
    if (!problem.empty()) throw InputError(path + ": " + problem);
}

Placement PlaceRegion(const Buffer& image, const std::optional<Region>& region, const Buffer* mask,
                      const std::string& maskPath) {
    Placement placement;
    placement.region = region.value_or(Region{0, 0, image.Width(), image.Height()});
    std::string problem = RegionProblem(placement.region, image.Width(), image.Height());
    if (!problem.empty() && region && Settings().clipRoi) {
        const std::optional<Region> inside = ClipRegion(*region, image.Width(), image.Height());
        if (!inside) throw InputError(problem + ", and no part of it lies inside the image");
        placement.clippedFrom = *region;
        placement.region = *inside;
        std::fprintf(stderr, "ombrel: note: %s, clipped to %s\n", problem.c_str(),
                     FormatRegion(*inside).c_str());
        problem.clear();
    }
    if (!problem.empty()) throw InputError(problem + " (--clip-roi clips it to the image)");
    placement.origin = Point{placement.region.x, placement.region.y};
    if (mask == nullptr) {
        placement.roi = ROI(placement.region.width, placement.region.height);
        return placement;
    }
    if (mask->Width() != placement.region.width || mask->Height() != placement.region.height) {
        throw InputError("mask " + maskPath + " is " + std::to_string(mask->Width()) + " x " +
                         std::to_string(mask->Height()) + " pixels but the region is " +
                         std::to_string(placement.region.width) + " x " +
                         std::to_string(placement.region.height));
    }
    placement.roi = ROI(mask);  // copied into the region's own one-bit mask
    if (placement.roi.GetMaskbits() == nullptr || placement.roi.GetMaskbits()->BaseAddr() == nullptr) {
        throw InputError("not enough memory for the mask");
    }
    return placement;
}

std::shared_ptr<const Buffer> LoadMask(const std::string& path) {
    if (path.empty()) return nullptr;
    DecodedImage decoded = ReadImageFile(path, ProgramLimits());
    if (!decoded) throw InputError("mask " + path + ": " + decoded.error);
    return std::shared_ptr<const Buffer>(std::move(decoded.image));
}

Json RegionRecord(const Placement& placement) {
    Json record{{"x", placement.region.x},
                {"y", placement.region.y},
                {"width", placement.region.width},
                {"height", placement.region.height},
                {"masked", placement.roi.IsMasked()}};
    if (placement.clippedFrom) {
        const Region& r = *placement.clippedFrom;
        record["clipped_from"] = Json{{"x", r.x}, {"y", r.y}, {"width", r.width}, {"height", r.height}};
    }
    return record;
}

bool RefuseUnwritable(const std::string& command, const std::string& path) {
    if (path.empty()) return false;
    const std::string problem = OutputPathProblem(path);
    if (problem.empty()) return false;
    PrintError(command, path, problem);
    return true;
}

void AddJobsOption(CLI::App* command, int* jobs) {
    command
        ->add_option("-j,--jobs", *jobs,
                     "Images processed at once, each on its own thread with its own agents")
        ->check(CLI::Range(1, 256))
        ->capture_default_str();
}

CLI::Validator OutputImageValidator() {
    return CLI::Validator([](std::string& path) { return OutputFormatProblem(path); },
                          "OUT.png|OUT.pgm|OUT.pbm");
}

}  // namespace ombrel::cli
