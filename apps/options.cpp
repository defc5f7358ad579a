// SPDX-License-Identifier: MIT
#include "options.h"

#include <charconv>
#include <vector>

namespace ombrel::cli {
namespace {

// Splits on `separator` and parses each part as a whole decimal integer.
bool ParseInts(const std::string& text, char separator, std::vector<long long>* values) {
    values->clear();
    size_t start = 0;
    while (true) {
        const size_t end = text.find(separator, start);
        const std::string part =
            text.substr(start, end == std::string::npos ? std::string::npos : end - start);
        long long v = 0;
        const char* first = part.data();
        const char* last = part.data() + part.size();
        auto [ptr, ec] = std::from_chars(first, last, v);
        if (part.empty() || ec != std::errc() || ptr != last) return false;
        values->push_back(v);
        if (end == std::string::npos) return true;
        start = end + 1;
    }
}

CLI::Validator MakeValidator(const char* description,
                             std::function<bool(const std::string&, std::string*)> accepts) {
    return CLI::Validator(
        [accepts](std::string& text) {
            std::string error;
            return accepts(text, &error) ? std::string() : error;
        },
        description);
}

}  // namespace

std::optional<Band> ParseBand(const std::string& text, std::string* error) {
    std::vector<long long> v;
    if (!ParseInts(text, ':', &v) || v.size() != 2) {
        *error = "'" + text + "' is not a band: expected LOW:HIGH, for example 0:100";
        return std::nullopt;
    }
    if (v[0] < 0 || v[1] > 255 || v[0] > v[1]) {
        *error = "band " + text + " is not valid: need 0 <= LOW <= HIGH <= 255";
        return std::nullopt;
    }
    return Band{static_cast<int>(v[0]), static_cast<int>(v[1])};
}

std::optional<Region> ParseRegion(const std::string& text, std::string* error) {
    std::vector<long long> v;
    if (!ParseInts(text, ',', &v) || v.size() != 4) {
        *error = "'" + text + "' is not a region: expected x,y,w,h, for example 10,20,300,200";
        return std::nullopt;
    }
    if (v[0] < 0 || v[1] < 0 || v[2] < 1 || v[3] < 1 || v[0] > 1000000 || v[1] > 1000000 || v[2] > 1000000 ||
        v[3] > 1000000) {
        *error = "region " + text + " is not valid: x and y must be at least 0, w and h at least 1";
        return std::nullopt;
    }
    return Region{static_cast<int>(v[0]), static_cast<int>(v[1]), static_cast<int>(v[2]),
                  static_cast<int>(v[3])};
}

std::optional<Step> ParseStep(const std::string& text, std::string* error) {
    std::vector<long long> v;
    if (!ParseInts(text, ',', &v) || v.size() != 2) {
        *error = "'" + text + "' is not a step: expected X,Y, for example 2,2";
        return std::nullopt;
    }
    if (v[0] < 1 || v[1] < 1 || v[0] > 64 || v[1] > 64) {
        *error = "step " + text + " is not valid: X and Y must be 1 to 64";
        return std::nullopt;
    }
    return Step{static_cast<int>(v[0]), static_cast<int>(v[1])};
}

CLI::Validator BandValidator() {
    return MakeValidator("LOW:HIGH",
                         [](const std::string& t, std::string* e) { return ParseBand(t, e).has_value(); });
}

CLI::Validator RegionValidator() {
    return MakeValidator("x,y,w,h",
                         [](const std::string& t, std::string* e) { return ParseRegion(t, e).has_value(); });
}

CLI::Validator StepValidator() {
    return MakeValidator("X,Y",
                         [](const std::string& t, std::string* e) { return ParseStep(t, e).has_value(); });
}

std::string FormatRegion(const Region& r) {
    return std::to_string(r.x) + "," + std::to_string(r.y) + "," + std::to_string(r.width) + "," +
           std::to_string(r.height);
}

std::string RegionProblem(const Region& r, int width, int height) {
    if (static_cast<long long>(r.x) + r.width <= width && static_cast<long long>(r.y) + r.height <= height) {
        return "";
    }
    return "region " + FormatRegion(r) + " lies outside the " + std::to_string(width) + " x " +
           std::to_string(height) + " image";
}

}  // namespace ombrel::cli
