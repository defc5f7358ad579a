// SPDX-License-Identifier: MIT
#include "blob_features.h"

#include <cmath>
#include <numbers>

#include <ombrel/blob/blob_feature_set.h>

namespace ombrel::cli {
namespace {

// The standard figures of a region record, in the order they are written.
const std::vector<std::pair<const char*, const char*>>& StandardFields() {
    static const std::vector<std::pair<const char*, const char*>> fields = {
        {"label", "1..N in raster order of the region's first pixel; 0 is the background"},
        {"kind",
         "object (pixels in the band, 8-connected) or hole (background inside an object, 4-connected)"},
        {"parent", "label of the enclosing region (0: the background)"},
        {"children", "labels of the regions directly inside this one"},
        {"bounding_box", "left, top, right, bottom in image pixels; right and bottom exclusive"},
        {"area", "number of pixels (integer)"},
        {"centroid",
         "[x, y] mean pixel column and row in image pixels, pixel (x, y) centred at (x, y) "
         "(OpenCV m10/m00, m01/m00; scikit-image centroid reversed)"},
        {"perimeter",
         "pixels: length of the outer boundary (holes not included), followed through the "
         "midpoints of the pixel edges between region and outside and straightened into chords "
         "within 0.5 pixel of them, so that straight edges at any angle are exact"},
        {"circularity",
         "4 pi area / perimeter^2: about 1 for a disc, 0.785 for a square (above 1 for regions of a few "
         "pixels)"},
        {"major_axis",
         "pixels: 4 sqrt(l1), l1 the larger eigenvalue of the covariance of the pixel indices "
         "(the axis of the ellipse with the same second moments; scikit-image "
         "axis_major_length)"},
        {"minor_axis", "pixels: 4 sqrt(l2), l2 the smaller eigenvalue"},
        {"orientation",
         "degrees in (-90, 90]: angle of the major axis from +x towards +y (y points down, so "
         "clockwise on screen): 0.5 atan2(2 mu11, mu20 - mu02)"},
        {"eccentricity", "sqrt(1 - l2 / l1): 0 for a circle, towards 1 for a line"},
        {"euler_number", "1 - number of holes, from the 2x2 pixel patterns (integer)"},
        {"convex_area",
         "pixels whose centres lie in the convex hull of the region's pixel centres (integer)"},
        {"solidity", "area / convex_area, at most 1"},
        {"note",
         "with --step above 1 the agent samples the image: only area, centroid and the features are "
         "given, the other standard figures are null"},
    };
    return fields;
}

}  // namespace

const std::vector<FeatureName>& AllBlobFeatures() {
    static const std::vector<FeatureName> features = [] {
        std::vector<FeatureName> list;
        for (const BlobFeatureInfo& f : BlobFeatureTable())
            list.push_back({f.name, f.number, f.integer, std::string(f.unit) == "rad"});
        return list;
    }();
    return features;
}

const char* DefaultBlobFeatures() {
    return "area,filled_area,holes,centroid_x,centroid_y,major_axis,minor_axis,axis_angle,perimeter,"
           "compactness,mean_grey";
}

bool ParseBlobFeatures(const std::string& list, std::vector<FeatureName>* features, std::string* error) {
    features->clear();
    if (list == "all") {
        *features = AllBlobFeatures();
        return true;
    }
    size_t start = 0;
    while (start <= list.size()) {
        const size_t end = std::min(list.find(',', start), list.size());
        const std::string name = list.substr(start, end - start);
        bool found = false;
        for (const FeatureName& f : AllBlobFeatures()) {
            if (name == f.name) {
                features->push_back(f);
                found = true;
                break;
            }
        }
        if (!found) {
            *error = "unknown feature '" + name + "' (use 'all' or names such as area,centroid_x,perimeter)";
            return false;
        }
        start = end + 1;
    }
    return true;
}

Json FeatureValue(const FeatureName& feature, double value) {
    if (!std::isfinite(value)) return nullptr;
    if (feature.integer) return static_cast<int64_t>(std::llround(value));
    if (feature.angle) return value * 180.0 / std::numbers::pi;
    return value;
}

Json BlobFieldDescriptions() {
    Json fields;
    for (const auto& [name, text] : StandardFields()) fields[name] = text;
    Json features;
    features["about"] =
        "the blob agent's numbered features (Blob::GetFeat), computed by the library's own rules and kept "
        "exactly; integer features are written as integers and angles in degrees (the library returns "
        "radians). Positions carry the region of interest's origin";
    for (const BlobFeatureInfo& f : BlobFeatureTable()) {
        std::string unit = f.unit;
        if (unit == "rad") unit = "degrees";
        features[f.name] = "feature " + std::to_string(f.number) + ": " + f.description +
                           (unit.empty() ? "" : " [" + unit + "]");
    }
    fields["features"] = features;
    return fields;
}

std::string BlobFieldHelp() {
    std::string text = "Fields of each region (JSON \"field_descriptions\" repeats them):\n";
    for (const auto& [name, description] : StandardFields())
        text += "  " + std::string(name) + ": " + description + "\n";
    text += "  features: the agent's numbered features selected by --features, by their own rules:\n";
    for (const BlobFeatureInfo& f : BlobFeatureTable()) {
        std::string unit = f.unit;
        if (unit == "rad") unit = "degrees";
        text += "    " + std::string(f.name) + " (" + std::to_string(f.number) + "): " + f.description +
                (unit.empty() ? "" : " [" + unit + "]") + "\n";
    }
    return text;
}

}  // namespace ombrel::cli
