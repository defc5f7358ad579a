// SPDX-License-Identifier: MIT
// --band for blob and mask: a fixed LOW:HIGH, or a band chosen per image from Otsu's threshold of the
// region's histogram (counted by the library's histogram agent over the region and mask).
//   auto-dark   objects are the dark class:  0 .. t
//   auto-light  objects are the light class: t+1 .. 255
//   auto        objects are the class with fewer pixels (the dark one on a tie)
// An image of one grey value has no split: t is that value and auto picks the dark class (all pixels).
#pragma once
#include <algorithm>
#include <optional>
#include <string>

#include "command.h"

namespace ombrel::cli {

enum class BandMode { Fixed, Auto, AutoDark, AutoLight };

struct BandChoice {
    BandMode mode = BandMode::Fixed;
    Band band;  // the fixed band (Fixed only)
};

// "LOW:HIGH", "auto", "auto-dark" or "auto-light"; nullopt with `error` set otherwise.
std::optional<BandChoice> ParseBandChoice(const std::string& text, std::string* error);
// CLI11 check built on ParseBandChoice.
CLI::Validator BandChoiceValidator();

// The band used on one image and, for the automatic modes, the threshold it came from.
struct ChosenBand {
    Band band;
    std::optional<int> threshold;  // Otsu's t (automatic modes only)
    std::string mode;              // "fixed", "auto", "auto-dark", "auto-light"
    std::string objects;           // "dark" or "light" (automatic modes only)
};

// Resolves `choice` on the region of `image`; throws InputError when the histogram cannot be counted.
ChosenBand ChooseBand(const BandChoice& choice, Buffer& image, const Placement& placement);

// "band 0:87" or "band 0:87 (auto: dark objects, Otsu threshold 87)".
std::string DescribeBand(const ChosenBand& chosen);

// What the --band option's help says about the automatic modes.
extern const char* const kAutoBandHelp;

}  // namespace ombrel::cli
