// SPDX-License-Identifier: MIT
// Names for the blob features the program reports (--features), mapped to the library's feature numbers.
#pragma once
#include <string>
#include <vector>

namespace ombrel::cli {

struct FeatureName {
    const char* name;
    int number;  // Blob::GetFeat number
};

// Every feature with a value (1..64 except 22, which is always 0), in number order.
const std::vector<FeatureName>& AllBlobFeatures();
// What --features reports when it is not given.
const char* DefaultBlobFeatures();
// Parses a comma-separated list of names (or "all"); false with `error` naming an unknown name.
bool ParseBlobFeatures(const std::string& list, std::vector<FeatureName>* features, std::string* error);

}  // namespace ombrel::cli
