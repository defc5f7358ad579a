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

void AddJobsOption(CLI::App* command, int* jobs) {
    command->add_option("-j,--jobs", *jobs, "Images processed at once, each on its own thread with its own agents")
        ->check(CLI::Range(1, 256))
        ->capture_default_str();
}

CLI::Validator OutputImageValidator() {
    return CLI::Validator([](std::string& path) { return OutputFormatProblem(path); }, "OUT.png|OUT.pgm|OUT.pbm");
}

}  // namespace ombrel::cli
