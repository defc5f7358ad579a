// SPDX-License-Identifier: MIT
#include "ombrel/blob/blob_feature_set.h"

#include <cstring>

namespace ombrel {
namespace {

constexpr int32_t kFirst = BLOB_OPT_FIRST_MOMENTS;
constexpr int32_t kMoments = BLOB_OPT_FIRST_MOMENTS | BLOB_OPT_SECOND_MOMENTS;
constexpr int32_t kBoundary = BLOB_OPT_BOUNDARY;
constexpr int32_t kRadii = BLOB_OPT_BOUNDARY | BLOB_OPT_RADII | BLOB_OPT_FIRST_MOMENTS;
constexpr int32_t kLenWid = BLOB_OPT_BOUNDARY | BLOB_OPT_LENGTH_WIDTH | kMoments;

const BlobFeatureInfo kTable[] = {
    {BF_COLOR, "colour", true, "", "0 for the band's class (objects), -1 for the other (holes)"},
    {BF_AREA, "area", true, "px^2", "pixel count (sum of run lengths x row step)"},
    {BF_FILLED_AREA, "filled_area", true, "px^2", "area plus the filled areas of the children"},
    {BF_HOLES, "holes", true, "", "number of direct children"},
    {BF_LEFT, "left", true, "px", "leftmost column, relative to the region of interest"},
    {BF_RIGHT, "right", true, "px", "rightmost column + 1, relative to the region of interest"},
    {BF_TOP, "top", true, "px", "top row, relative to the region of interest"},
    {BF_BOTTOM, "bottom", true, "px", "bottom row + 1, relative to the region of interest"},
    {BF_SUM_DX, "boundary_sum_dx", true, "px", "sum of |dx| between successive boundary points"},
    {BF_SUM_DY, "boundary_sum_dy", true, "px", "sum of |dy| between successive boundary points"},
    {BF_SUM_X, "sum_x", true, "px", "twice the sum of the pixel columns (region coordinates)"},
    {BF_SUM_Y, "sum_y", true, "px", "twice the sum of the row centres y + 0.5 (region coordinates)"},
    {BF_XX, "moment_xx", false, "px^2", "second-moment sum of x, scaled: xx / 12"},
    {BF_XY, "moment_xy", false, "px^2", "second-moment sum of x*y, scaled: xy / 4"},
    {BF_YY, "moment_yy", false, "px^2", "second-moment sum of y, scaled: yy / 12"},
    {BF_AREA_D, "area_double", true, "px^2", "area as a floating-point number"},
    {BF_CENTROID_X, "centroid_x", false, "px", "origin x + mean pixel column - 0.5 (half a pixel left)"},
    {BF_CENTROID_Y, "centroid_y", false, "px", "origin y + mean pixel row"},
    {BF_MINOR_AXIS, "minor_axis", false, "px",
     "sqrt(2|mxx + myy - d| / s), d = sqrt((mxx - myy)^2 + 4 mxy^2), s = sqrt(sqrt(|mxx myy - mxy^2|) / "
     "area), "
     "central moments divided by pi"},
    {BF_MAJOR_AXIS, "major_axis", false, "px", "sqrt(2|mxx + myy + d| / s), as minor_axis"},
    {BF_AXIS_ANGLE, "axis_angle", false, "rad", "0.5 atan2(2 mxy, mxx - myy), from +x towards +y (y down)"},
    {BF_PERIMETER, "perimeter", false, "px",
     "s (1 + r (0.7 r - 0.87)), s = sum|dx| + sum|dy|, r = (2 - sqrt 2) N / s, N boundary points"},
    {BF_FILLED_AREA_D, "filled_area_double", true, "px^2", "filled area as a floating-point number"},
    {BF_AREA_FRACTION, "area_fraction", false, "", "area / pixel count of the region of interest"},
    {BF_MIN_RADIUS, "min_radius", false, "px", "smallest distance of a boundary point from the centroid"},
    {BF_MAX_RADIUS, "max_radius", false, "px", "largest distance of a boundary point from the centroid"},
    {BF_MIN_RADIUS_ANGLE, "min_radius_angle", false, "rad", "atan2 direction of the nearest boundary point"},
    {BF_MAX_RADIUS_ANGLE, "max_radius_angle", false, "rad", "atan2 direction of the farthest boundary point"},
    {BF_MEAN_RADIUS, "mean_radius", false, "px", "sqrt(mean corrected squared boundary distance)"},
    {BF_LENGTH, "length", false, "px", "extent of the boundary along the axis angle (1/16 px steps)"},
    {BF_WIDTH, "width", false, "px", "extent of the boundary across the axis angle (1/16 px steps)"},
    {BF_HOLE_AREA, "hole_area", true, "px^2", "filled area - area"},
    {BF_AREA_OVER_FILLED, "area_over_filled", false, "", "area / filled area"},
    {BF_AXIS_RATIO, "axis_ratio", false, "", "minor_axis / major_axis (box width / height without moments)"},
    {BF_P2_OVER_AREA, "perimeter2_over_area", false, "", "perimeter^2 / filled area"},
    {BF_RADIUS_RATIO, "radius_ratio", false, "", "min_radius / max_radius"},
    {BF_WIDTH_OVER_LENGTH, "width_over_length", false, "", "width / length"},
    {BF_BOX_WIDTH, "box_width", true, "px", "right - left"},
    {BF_BOX_HEIGHT, "box_height", true, "px", "bottom - top"},
    {BF_BOX_AREA, "box_area", true, "px^2", "box_width x box_height"},
    {BF_FILLED_OVER_BOX, "filled_over_box", false, "", "filled area / box_area"},
    {BF_CENTROID_DISTANCE, "centroid_distance", false, "px",
     "distance of (centroid_x, centroid_y) from (0, 0)"},
    {BF_COMPACTNESS, "compactness", false, "", "4 pi / perimeter2_over_area, at most 1"},
    {BF_RADIAL_ANGLE_DIFF, "radial_angle_diff", false, "rad",
     "max_radius_angle - min_radius_angle, wrapped into (-pi, pi]"},
    {BF_LENBOX_OFFSET_ALONG, "length_box_offset_along", false, "px",
     "centre of the length box - centroid, along the axis"},
    {BF_LENBOX_OFFSET_ACROSS, "length_box_offset_across", false, "px",
     "centre of the length box - centroid, across the axis"},
    {BF_BOTTOM_END_X, "bottom_end_x", true, "px", "end x (exclusive) of the last run on the bottom row"},
    {BF_RIGHT_ROW, "right_row", true, "px", "row where the right extreme was reached"},
    {BF_TOP_X, "top_x", true, "px", "x of the first run on the top row"},
    {BF_LEFT_ROW, "left_row", true, "px", "row where the left extreme was reached"},
    {BF_PARENT_LABEL, "parent_label", true, "", "label of the enclosing region (0: the background)"},
    {BF_MEAN_GREY, "mean_grey", false, "grey", "grey sum / area"},
    {BF_GREY_SUM, "grey_sum", true, "grey", "sum of the grey values of the region's pixels"},
    {BF_MIN_RADIUS_DX, "min_radius_dx", false, "px",
     "x offset of the nearest boundary point from the centroid"},
    {BF_MIN_RADIUS_DY, "min_radius_dy", false, "px",
     "y offset of the nearest boundary point from the centroid"},
    {BF_MAX_RADIUS_DX, "max_radius_dx", false, "px", "x offset of the farthest boundary point"},
    {BF_MAX_RADIUS_DY, "max_radius_dy", false, "px", "y offset of the farthest boundary point"},
    {BF_AXIS_FRAME_00, "axis_frame_00", false, "", "cos a"},
    {BF_AXIS_FRAME_01, "axis_frame_01", false, "", "sin a"},
    {BF_AXIS_FRAME_02, "axis_frame_02", false, "px", "-(X cos a + Y sin a), (X, Y) = centroid"},
    {BF_AXIS_FRAME_10, "axis_frame_10", false, "", "-sin a"},
    {BF_AXIS_FRAME_11, "axis_frame_11", false, "", "cos a"},
    {BF_AXIS_FRAME_12, "axis_frame_12", false, "px", "X sin a - Y cos a"},
};

}  // namespace

std::span<const BlobFeatureInfo> BlobFeatureTable() {
    return kTable;
}

const BlobFeatureInfo* FindBlobFeature(int number) {
    for (const BlobFeatureInfo& f : kTable)
        if (f.number == number) return &f;
    return nullptr;
}

const BlobFeatureInfo* FindBlobFeature(const char* name) {
    if (name == nullptr) return nullptr;
    for (const BlobFeatureInfo& f : kTable)
        if (std::strcmp(f.name, name) == 0) return &f;
    return nullptr;
}

BlobFeatureNeeds NeedsOfBlobFeature(int number) {
    BlobFeatureNeeds needs;
    switch (number) {
        case BF_SUM_X:
        case BF_SUM_Y:
        case BF_CENTROID_X:
        case BF_CENTROID_Y:
        case BF_CENTROID_DISTANCE:
            needs.options = kFirst;
            break;
        case BF_XX:
        case BF_XY:
        case BF_YY:
            needs.options = BLOB_OPT_SECOND_MOMENTS;
            break;
        case BF_MINOR_AXIS:
        case BF_MAJOR_AXIS:
        case BF_AXIS_ANGLE:
        case BF_AXIS_RATIO:
        case BF_AXIS_FRAME_00:
        case BF_AXIS_FRAME_01:
        case BF_AXIS_FRAME_02:
        case BF_AXIS_FRAME_10:
        case BF_AXIS_FRAME_11:
        case BF_AXIS_FRAME_12:
            needs.options = kMoments;
            break;
        case BF_SUM_DX:
        case BF_SUM_DY:
        case BF_PERIMETER:
        case BF_P2_OVER_AREA:
        case BF_COMPACTNESS:
            needs.options = kBoundary;
            break;
        case BF_MIN_RADIUS:
        case BF_MAX_RADIUS:
        case BF_MEAN_RADIUS:
        case BF_RADIUS_RATIO:
        case BF_MIN_RADIUS_ANGLE:
        case BF_MAX_RADIUS_ANGLE:
        case BF_RADIAL_ANGLE_DIFF:
        case BF_MIN_RADIUS_DX:
        case BF_MIN_RADIUS_DY:
        case BF_MAX_RADIUS_DX:
        case BF_MAX_RADIUS_DY:
            needs.options = kRadii;
            break;
        case BF_LENGTH:
        case BF_WIDTH:
        case BF_WIDTH_OVER_LENGTH:
        case BF_LENBOX_OFFSET_ALONG:
        case BF_LENBOX_OFFSET_ACROSS:
            needs.options = kLenWid;
            break;
        case BF_MEAN_GREY:
        case BF_GREY_SUM:
            needs.filters = BLOB_FILTER_GREY;
            break;
        default:
            break;
    }
    return needs;
}

void EnableBlobFeatures(BlobAgent& agent, std::span<const int> numbers) {
    int32_t options = agent.Options(), filters = agent.FilterFlags();
    for (int number : numbers) {
        const BlobFeatureNeeds needs = NeedsOfBlobFeature(number);
        options |= needs.options;
        filters |= needs.filters;
        // Extent-only objects keep no moments, whatever else is on.
        if (needs.options & kMoments) options &= ~BLOB_OPT_EXTENT_ONLY_0;
    }
    agent.SetOptions(options);
    agent.SetFilterFlags(filters);
}

}  // namespace ombrel
