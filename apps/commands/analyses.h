// SPDX-License-Identifier: MIT
// The analyses behind the subcommands, callable on an image already in memory (the demo runs them on its
// scene). Each returns the JSON record of its results and appends its terminal text to `table`.
#pragma once
#include <string>

#include "auto_band.h"
#include "blob_features.h"
#include "command.h"

namespace ombrel::cli {

struct HistogramParams {
    int bins = 256;
    bool signedPixels = false;
};

// What each field of a histogram record means (formula and unit).
Json HistogramFieldDescriptions();

// Runs the library's histogram agent over `placement` on `image` and adds numpy's figures and Otsu's
// threshold beside the agent's; throws InputError when it cannot.
Json AnalyseHistogram(Buffer& image, const Placement& placement, const HistogramParams& params,
                      std::string* table);

struct BlobParams {
    Band band;                            // used as given when bandMode is Fixed
    BandMode bandMode = BandMode::Fixed;  // else chosen per image from Otsu's threshold
    int minArea = 1;
    int maxArea = 2147483647;
    bool noBorder = false;
    Step step;
    std::vector<FeatureName> features;
    bool overlayLabels = true;  // region numbers on the overlay (--no-labels clears)
    bool overlayAxes = true;    // principal axes on the overlay (--no-axes clears)
};

// Runs the library's blob agent over `placement` on `image` and, when `overlayPath` is not empty, writes
// the colour overlay there; throws InputError when it cannot.
Json AnalyseBlobs(Buffer& image, const Placement& placement, const BlobParams& params,
                  const std::string& overlayPath, std::string* table);

}  // namespace ombrel::cli
