// SPDX-License-Identifier: MIT
// Option values shared by several subcommands: their text forms, parsing and validation, so that every
// subcommand accepts and refuses them with the same words.
#pragma once
#include <optional>
#include <string>

#include <ombrel/framework/geometry.h>
#include <CLI/CLI.hpp>

namespace ombrel::cli {

struct Band {
    int low = 0;
    int high = 255;
};

struct Region {
    int x = 0, y = 0, width = 0, height = 0;
    Rect AsRect() const { return Rect{x, y, x + width, y + height}; }
};

struct Step {
    int x = 1, y = 1;
};

// Each parser returns the value, or nullopt with `error` saying what is wrong in the user's terms.
std::optional<Band> ParseBand(const std::string& text, std::string* error);      // "LOW:HIGH", 0..255
std::optional<Region> ParseRegion(const std::string& text, std::string* error);  // "x,y,w,h"
std::optional<Step> ParseStep(const std::string& text, std::string* error);      // "X,Y", 1..64

// CLI11 validators built on the parsers.
CLI::Validator BandValidator();
CLI::Validator RegionValidator();
CLI::Validator StepValidator();

// Empty when `region` lies wholly inside a width x height image, else the problem.
std::string RegionProblem(const Region& region, int width, int height);

std::string FormatRegion(const Region& region);

}  // namespace ombrel::cli
