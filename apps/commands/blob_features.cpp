// SPDX-License-Identifier: MIT
#include "blob_features.h"

#include <ombrel/blob/blob_result.h>

namespace ombrel::cli {

const std::vector<FeatureName>& AllBlobFeatures() {
    static const std::vector<FeatureName> features = {
        {"colour", BF_COLOR},
        {"area", BF_AREA},
        {"filled_area", BF_FILLED_AREA},
        {"holes", BF_HOLES},
        {"left", BF_LEFT},
        {"right", BF_RIGHT},
        {"top", BF_TOP},
        {"bottom", BF_BOTTOM},
        {"boundary_sum_dx", BF_SUM_DX},
        {"boundary_sum_dy", BF_SUM_DY},
        {"sum_x", BF_SUM_X},
        {"sum_y", BF_SUM_Y},
        {"moment_xx", BF_XX},
        {"moment_xy", BF_XY},
        {"moment_yy", BF_YY},
        {"area_double", BF_AREA_D},
        {"centroid_x", BF_CENTROID_X},
        {"centroid_y", BF_CENTROID_Y},
        {"minor_axis", BF_MINOR_AXIS},
        {"major_axis", BF_MAJOR_AXIS},
        {"axis_angle", BF_AXIS_ANGLE},
        {"perimeter", BF_PERIMETER},
        {"filled_area_double", BF_FILLED_AREA_D},
        {"area_fraction", BF_AREA_FRACTION},
        {"min_radius", BF_MIN_RADIUS},
        {"max_radius", BF_MAX_RADIUS},
        {"min_radius_angle", BF_MIN_RADIUS_ANGLE},
        {"max_radius_angle", BF_MAX_RADIUS_ANGLE},
        {"mean_radius", BF_MEAN_RADIUS},
        {"length", BF_LENGTH},
        {"width", BF_WIDTH},
        {"hole_area", BF_HOLE_AREA},
        {"area_over_filled", BF_AREA_OVER_FILLED},
        {"axis_ratio", BF_AXIS_RATIO},
        {"perimeter2_over_area", BF_P2_OVER_AREA},
        {"radius_ratio", BF_RADIUS_RATIO},
        {"width_over_length", BF_WIDTH_OVER_LENGTH},
        {"box_width", BF_BOX_WIDTH},
        {"box_height", BF_BOX_HEIGHT},
        {"box_area", BF_BOX_AREA},
        {"filled_over_box", BF_FILLED_OVER_BOX},
        {"centroid_distance", BF_CENTROID_DISTANCE},
        {"compactness", BF_COMPACTNESS},
        {"radial_angle_diff", BF_RADIAL_ANGLE_DIFF},
        {"length_box_offset_along", BF_LENBOX_OFFSET_ALONG},
        {"length_box_offset_across", BF_LENBOX_OFFSET_ACROSS},
        {"bottom_end_x", BF_BOTTOM_END_X},
        {"right_row", BF_RIGHT_ROW},
        {"top_x", BF_TOP_X},
        {"left_row", BF_LEFT_ROW},
        {"parent_label", BF_PARENT_LABEL},
        {"mean_grey", BF_MEAN_GREY},
        {"grey_sum", BF_GREY_SUM},
        {"min_radius_dx", BF_MIN_RADIUS_DX},
        {"min_radius_dy", BF_MIN_RADIUS_DY},
        {"max_radius_dx", BF_MAX_RADIUS_DX},
        {"max_radius_dy", BF_MAX_RADIUS_DY},
        {"axis_frame_00", BF_AXIS_FRAME_00},
        {"axis_frame_01", BF_AXIS_FRAME_01},
        {"axis_frame_02", BF_AXIS_FRAME_02},
        {"axis_frame_10", BF_AXIS_FRAME_10},
        {"axis_frame_11", BF_AXIS_FRAME_11},
        {"axis_frame_12", BF_AXIS_FRAME_12},
    };
    return features;
}

const char* DefaultBlobFeatures() {
    return "area,filled_area,holes,centroid_x,centroid_y,major_axis,minor_axis,axis_angle,perimeter,"
           "compactness,"
           "mean_grey";
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

}  // namespace ombrel::cli
