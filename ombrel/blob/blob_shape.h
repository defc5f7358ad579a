// SPDX-License-Identifier: MIT
// Ours, beside the blob agent: the standard shape measures of one region, as OpenCV and scikit-image users
// know them, computed from the region's pixels. The agent's numbered features (Blob::GetFeat) keep their own
// conventions and are not changed by anything here.
//
// Conventions (all in image coordinates, pixel (x, y) has its centre at (x, y), y pointing down):
//   area          number of pixels
//   centroid      mean pixel index (mean x, mean y); a single pixel at (5, 5) has centroid (5, 5)
//   major/minor   4 sqrt(l1), 4 sqrt(l2), l1 >= l2 the eigenvalues of the covariance of the pixel
//                 indices (mu20, mu11, mu02 divided by the area): the axes of the ellipse with the same
//                 second moments (scikit-image's axis_major_length / axis_minor_length)
//   orientation   0.5 atan2(2 mu11, mu20 - mu02) in radians, in (-pi/2, pi/2]: the major axis' angle from
//                 +x towards +y (clockwise on screen, since y points down); 0 for a region with no spread
//   perimeter     length of the outer boundary: the boundary between the region and the outside, followed
//                 through the midpoints of its pixel edges (the 0.5 level line of the region's indicator)
//                 and replaced by the longest chords that stay within half a pixel of those midpoints, so
//                 that a straight edge at any angle is measured as one straight line. Holes are not included.
//   circularity   4 pi area / perimeter^2 (about 1 for a disc, pi/4 for a square)
//   euler_number  number of connected components minus number of holes, from the 2x2 pixel patterns
//                 (1 - holes for one region)
//   convex_area   number of pixels whose centres lie in the convex hull of the region's pixel centres
//                 (edges included; scikit-image's area_convex)
//   solidity      area / convex_area, in (0, 1]
// Object regions (colour 0) are 8-connected and their holes 4-connected; background regions (colour -1)
// the other way round.
#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

#include "ombrel/blob/blob_record.h"
#include "ombrel/framework/buffer.h"
#include "ombrel/framework/export.h"
#include "ombrel/framework/geometry.h"

namespace ombrel {

/// The pixels of one region: a width x height window placed at (left, top) in image coordinates, with
/// pixels[y * width + x] = 1 for a pixel of the region and 0 otherwise.
struct RegionPixels {
    int left = 0;                 ///< image column of the window's first column
    int top = 0;                  ///< image row of the window's first row
    int width = 0;                ///< window width in pixels
    int height = 0;               ///< window height in pixels
    bool eightConnected = true;   ///< how the region's pixels connect (true for objects, false for holes)
    std::vector<uint8_t> pixels;  ///< width * height values, 0 or 1

    /// 1 when (x, y), in window coordinates, is a pixel of the region; 0 outside the window.
    int At(int x, int y) const {
        return x >= 0 && y >= 0 && x < width && y < height ? pixels[std::size_t(y) * width + x] : 0;
    }
};

/// Standard measures of one region (see the conventions above). Angles in radians.
struct ShapeMeasures {
    int64_t area = 0;           ///< pixels
    double centroidX = 0.0;     ///< mean pixel column (image coordinates)
    double centroidY = 0.0;     ///< mean pixel row (image coordinates)
    double majorAxis = 0.0;     ///< pixels
    double minorAxis = 0.0;     ///< pixels
    double orientation = 0.0;   ///< radians, (-pi/2, pi/2]
    double eccentricity = 0.0;  ///< sqrt(1 - minor^2 / major^2), 0 for a circle
    double perimeter = 0.0;     ///< pixels, outer boundary
    double circularity = 0.0;   ///< 4 pi area / perimeter^2 (0 when the perimeter is 0)
    int eulerNumber = 0;        ///< components - holes
    double convexArea = 0.0;    ///< pixels inside the convex hull of the pixel centres
    double solidity = 0.0;      ///< area / convexArea
};

/// Measures the region; all zero for a region without pixels or when memory runs out.
OMBREL_API ShapeMeasures MeasureShape(const RegionPixels& region);

/// The length of the outer boundary of `region` as described above (0 for no pixels, or when memory runs
/// out).
OMBREL_API double OuterPerimeter(const RegionPixels& region);

/// Rebuilds the pixels of `blob` from the image it was found in. `inBand` is the agent's classification,
/// an 8-bit buffer of the region of interest's size whose non-zero pixels are the band's class (in band and,
/// for a masked region, under the mask); the blob's coordinates are relative to it and `origin` is the
/// region of interest's place in the image. The region is the connected component of the blob's first
/// pixel plus everything it encloses except its listed children (holes that the area filters deleted were
/// filled into it, as the agent does). Returns false, leaving `out` empty, when the rebuilt region does not
/// have the blob's area (a row or column step above 1 samples the image), for the root, for a buffer that is
/// not 8-bit, or when memory runs out. Nothing outside `inBand` is read.
OMBREL_API bool BlobPixels(Blob& blob, const Buffer& inBand, Point origin, RegionPixels* out);

}  // namespace ombrel
