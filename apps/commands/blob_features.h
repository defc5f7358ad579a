// SPDX-License-Identifier: MIT
// The blob figures the program reports: the library's numbered features by name (--features) and the
// descriptions of every field of a blob record (--help and the JSON's "field_descriptions").
#pragma once
#include <string>
#include <vector>

#include "../batch.h"

namespace ombrel::cli {

struct FeatureName {
    const char* name;
    int number;            // Blob::GetFeat number
    bool integer = false;  // written as an integer
    bool angle = false;    // radians in the library, written in degrees
};

// Every feature with a value (1..64 except 22, which is always 0), in number order.
const std::vector<FeatureName>& AllBlobFeatures();
// What --features reports when it is not given.
const char* DefaultBlobFeatures();
// Parses a comma-separated list of names (or "all"); false with `error` naming an unknown name.
bool ParseBlobFeatures(const std::string& list, std::vector<FeatureName>* features, std::string* error);

// The value of a feature as the program writes it: integers as integers, angles in degrees.
Json FeatureValue(const FeatureName& feature, double libraryValue);

// What each field of a blob record means (formula and unit), for the JSON document.
Json BlobFieldDescriptions();
// The same as text for --help.
std::string BlobFieldHelp();

}  // namespace ombrel::cli
