// SPDX-License-Identifier: MIT
// Ours, beside the blob agent: names, units and one-line formulas of the numbered features (Blob::GetFeat),
// and what a caller must switch on before Go() for a feature to be computed.
//
// A feature whose option or filter bit was off reads 0.0 (perimeter without boundary lists, mean grey
// without grey sums). EnableBlobFeatures() adds exactly the bits the requested features need to the agent's
// present option word and filter flags, so the defaults (border filter with children) stay as they are:
//
//     std::unique_ptr<BlobAgent> agent(BlobFact(&image, &result, 0, 100));
//     EnableBlobFeatures(*agent, {BF_PERIMETER, BF_MEAN_GREY, BF_MAJOR_AXIS});
//     agent->Go();
//     double p = result.First()->GetFeat(BF_PERIMETER);
//
// None of this changes how a feature is computed: the values are the agent's own.
#pragma once
#include <cstdint>
#include <initializer_list>
#include <span>

#include "ombrel/blob/blob_agent.h"
#include "ombrel/blob/blob_record.h"
#include "ombrel/framework/export.h"

namespace ombrel {

/// Description of one numbered blob feature (see BlobFeature).
struct BlobFeatureInfo {
    int number;               ///< the GetFeat number, 1..64
    const char* name;         ///< a stable snake_case name, e.g. "perimeter"
    bool integer;             ///< the value is always a whole number (counts, coordinates, sums of pixels)
    const char* unit;         ///< "px", "px^2", "rad", "grey", "" (a ratio or a code)
    const char* description;  ///< the formula in one line
};

/// Bits that must be set on a blob agent before Go() for a feature to be computed.
struct BlobFeatureNeeds {
    int32_t options = 0;  ///< BlobOption bits (BlobAgent::SetOptions)
    int32_t filters = 0;  ///< BlobFilter bits (BlobAgent::SetFilterFlags)
};

/// Every feature that has a value (1..64 except 22, which is always 0.0), in number order.
OMBREL_API std::span<const BlobFeatureInfo> BlobFeatureTable();

/// The entry of feature `number`, or null when there is none (22, or outside 1..64).
OMBREL_API const BlobFeatureInfo* FindBlobFeature(int number);

/// The entry named `name` (as in BlobFeatureInfo::name), or null.
OMBREL_API const BlobFeatureInfo* FindBlobFeature(const char* name);

/// The option and filter bits feature `number` needs (none for an unknown number). Positions relative to
/// the centroid need the first moments; axis-based features need both moment sums.
OMBREL_API BlobFeatureNeeds NeedsOfBlobFeature(int number);

/// ORs the bits of every feature in `numbers` into the agent's option word and filter flags, leaving every
/// other bit as it was; clears BLOB_OPT_EXTENT_ONLY_0 when a requested feature needs moments of objects.
OMBREL_API void EnableBlobFeatures(BlobAgent& agent, std::span<const int> numbers);

/// The same for a braced list: EnableBlobFeatures(agent, {BF_PERIMETER, BF_MEAN_GREY}).
inline void EnableBlobFeatures(BlobAgent& agent, std::initializer_list<int> numbers) {
    EnableBlobFeatures(agent, std::span<const int>(numbers.begin(), numbers.size()));
}

}  // namespace ombrel
