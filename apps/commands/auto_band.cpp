// SPDX-License-Identifier: MIT
#include "auto_band.h"

#include <memory>
#include <vector>

#include <ombrel/pixelops/grey_statistics.h>
#include <ombrel/pixelops/histogram.h>

namespace ombrel::cli {

const char* const kAutoBandHelp =
    "Grey values LOW:HIGH that are object pixels (e.g. 0:100), or a band from Otsu's threshold t of "
    "the region's histogram: auto-dark = 0:t, auto-light = t+1:255, auto = the class with fewer pixels "
    "(the dark one on a tie); the threshold chosen is printed and written to the JSON";

std::optional<BandChoice> ParseBandChoice(const std::string& text, std::string* error) {
    if (text == "auto") return BandChoice{BandMode::Auto, {}};
    if (text == "auto-dark") return BandChoice{BandMode::AutoDark, {}};
    if (text == "auto-light") return BandChoice{BandMode::AutoLight, {}};
    const std::optional<Band> band = ParseBand(text, error);
    if (!band) {
        *error += " (or auto, auto-dark, auto-light)";
        return std::nullopt;
    }
    return BandChoice{BandMode::Fixed, *band};
}

CLI::Validator BandChoiceValidator() {
    return CLI::Validator(
        [](std::string& text) {
            std::string error;
            return ParseBandChoice(text, &error) ? std::string() : error;
        },
        "LOW:HIGH|auto|auto-dark|auto-light");
}

ChosenBand ChooseBand(const BandChoice& choice, Buffer& image, const Placement& placement) {
    ChosenBand chosen;
    if (choice.mode == BandMode::Fixed) {
        chosen.band = choice.band;
        chosen.mode = "fixed";
        return chosen;
    }
    std::vector<int> bins;
    std::unique_ptr<HistogramAgent> agent(
        HistogramFact(&image, HISTRES_256, placement.origin, placement.roi, &bins));
    if (!agent || agent->Go() != 0 || bins.size() != 256)
        throw InputError("the histogram for --band auto could not be counted (out of memory?)");
    const int t = OtsuThreshold(bins);
    int64_t dark = 0, light = 0;
    for (int v = 0; v < 256; ++v) (v <= t ? dark : light) += bins[v];
    bool darkObjects = choice.mode == BandMode::AutoDark;
    if (choice.mode == BandMode::Auto) darkObjects = dark <= light || light == 0;
    chosen.threshold = t;
    chosen.band = darkObjects ? Band{0, t} : Band{std::min(t + 1, 255), 255};
    chosen.mode = choice.mode == BandMode::Auto ? "auto" : darkObjects ? "auto-dark" : "auto-light";
    chosen.objects = darkObjects ? "dark" : "light";
    return chosen;
}

std::string DescribeBand(const ChosenBand& chosen) {
    std::string text = "band " + std::to_string(chosen.band.low) + ":" + std::to_string(chosen.band.high);
    if (chosen.threshold)
        text += " (" + chosen.mode + ": " + chosen.objects + " objects, Otsu threshold " +
                std::to_string(*chosen.threshold) + ")";
    return text;
}

}  // namespace ombrel::cli
