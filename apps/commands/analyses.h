// SPDX-License-Identifier: MIT
// The analyses behind the subcommands, callable on an image already in memory (the demo runs them on its
// scene). Each returns the JSON record of its results and appends its terminal text to `table`.
#pragma once
#include <string>

#include "command.h"

namespace ombrel::cli {

struct HistogramParams {
    int bins = 256;
    bool signedPixels = false;
};

// Runs the library's histogram agent over `placement` on `image`; throws InputError when it cannot.
Json AnalyseHistogram(Buffer& image, const Placement& placement, const HistogramParams& params, std::string* table);

}  // namespace ombrel::cli
