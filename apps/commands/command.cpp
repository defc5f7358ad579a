// SPDX-License-Identifier: MIT
#include "command.h"

namespace ombrel::cli {

DecodedImage LoadImage(const std::string& path) {
    DecodedImage decoded = ReadImageFile(path);
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

void SaveJson(const std::string& path, const Json& document) {
    const std::string problem = WriteJsonFile(path, document);
    if (!problem.empty()) throw InputError(path + ": " + problem);
}

Placement PlaceRegion(const Buffer& image, const std::optional<Region>& region, const Buffer* mask,
                      const std::string& maskPath) {
    Placement placement;
    placement.region = region.value_or(Region{0, 0, image.Width(), image.Height()});
    const std::string problem = RegionProblem(placement.region, image.Width(), image.Height());
    if (!problem.empty()) throw InputError(problem);
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
    DecodedImage decoded = ReadImageFile(path);
    if (!decoded) throw InputError("mask " + path + ": " + decoded.error);
    return std::shared_ptr<const Buffer>(std::move(decoded.image));
}

Json RegionRecord(const Placement& placement) {
    return Json{{"x", placement.region.x},
                {"y", placement.region.y},
                {"width", placement.region.width},
                {"height", placement.region.height},
                {"masked", placement.roi.IsMasked()}};
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
