// SPDX-License-Identifier: MIT
// The option parsers take text straight from the command line: any text gives a value in range or a message.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "options.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::string error;
    if (auto band = ombrel::cli::ParseBand(text, &error)) {
        if (band->low < 0 || band->high > 255 || band->low > band->high) std::abort();
    } else if (error.empty()) {
        std::abort();
    }
    error.clear();
    if (auto region = ombrel::cli::ParseRegion(text, &error)) {
        if (region->x < 0 || region->y < 0 || region->width < 1 || region->height < 1) std::abort();
        // The containment test must not overflow for any accepted region.
        (void)ombrel::cli::RegionProblem(*region, 1 << 30, 1 << 30);
    } else if (error.empty()) {
        std::abort();
    }
    error.clear();
    if (auto step = ombrel::cli::ParseStep(text, &error)) {
        if (step->x < 1 || step->y < 1 || step->x > 64 || step->y > 64) std::abort();
    } else if (error.empty()) {
        std::abort();
    }
    return 0;
}
