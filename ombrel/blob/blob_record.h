// SPDX-License-Identifier: MIT
/// \file
/// The region record Blob and its numbered features: what one connected region of blob analysis holds.
///
/// Coordinates. Every stored coordinate (extents, runs, boundary points) is relative to the region of
/// interest's origin; BoundingBox() adds the origin. Runs are half-open: a region's right and bottom are
/// exclusive. Features that are positions in image coordinates (17 and 18, the centroid; 43 and the axis
/// frame 59..64, which are built from it) carry the origin and -0.5: the x moment sums run over pixel
/// columns x and the y sums over row centres y + 0.5, so that
///     GetFeat(17) = originX + mean(x) - 0.5        GetFeat(18) = originY + mean(y)
/// where mean(x), mean(y) are the plain means of the region's pixel coordinates (with a row step > 1 each
/// scanned row stands for the rows of its step).
///
/// Boundary features (option 4): a region's outer contour is walked once from its first chain; points are run
/// starts on the left-hand chains and run ends (one past the last pixel) on the right-hand chains, on the
/// scanned rows, a vertical stretch counting as one point. Per point the mean-radius sum adds its squared
/// distance from the centroid less ((dx^2 + dy^2) * 0.1666667 + 0.5), dx, dy being the step from the previous
/// point. Length and width (option 32) are the ranges of the points' projections, rounded to 1/16 pixel, on
/// the axis direction (cos a, sin a) and its normal (-sin a, cos a) with the axis angle a as it stands (not
/// turned by pi); the two length-box offsets (46, 47) are the box centre minus the centroid along those two
/// directions, positive along them.
///
/// Derived features (16 onwards) are worked out when first read; they depend only on values that are final
/// when a region closes. Sums are kept wider than 32 bits (first moments and grey sums in 64 bits, the
/// overflow counts of the second moments in 32), so that regions of several megapixels stay exact.
///
/// Colours: -1 for the root (the unbounded background) and every region of its class, 0 for the other class.
/// With the usual thresholding, objects (pixels inside the band) have colour 0 and holes colour -1.
///
/// Moments and options: option 1 accumulates the first-moment sums (11, 12; the centroid), option 2 the
/// second-moment sums (13..15), each on its own: with option 2 alone the second sums are kept while the first
/// sums and the centroid stay 0. The axes (19..21, 35, 59..64) need both, since central moments need the
/// centroid; without both they are 0 and the axis ratio holds width / height.
#pragma once
#include <cstdint>

#include "ombrel/framework/export.h"
#include "ombrel/framework/geometry.h"

namespace ombrel {

class Blob;
class BlobResult;
class BlobAgent;
class swBlobAgent;
class HalvardMetaDC;
struct Matrix;

inline constexpr int NUMFEAT = 65;  ///< features are numbered 1..64
inline constexpr int NUMFROUT = 6;  ///< feature routines are numbered 1..5
/// Boundary points one cell holds.
inline constexpr int kBdryCellPoints = 23;

/// Feature numbers for Blob::GetFeat. [n] marks features computed on first request by routine n.
enum BlobFeature : int {
    BF_COLOR = 1,  ///< 0 or -1
    BF_AREA = 2,
    BF_FILLED_AREA = 3,  ///< area plus the filled areas of the children
    BF_HOLES = 4,        ///< number of direct children
    BF_LEFT = 5,         ///< region coordinates
    BF_RIGHT = 6,        ///< exclusive
    BF_TOP = 7,
    BF_BOTTOM = 8,   ///< exclusive
    BF_SUM_DX = 9,   ///< sum |dx| along the boundary [5]
    BF_SUM_DY = 10,  ///< sum |dy| along the boundary [5]
    BF_SUM_X = 11,   ///< twice the sum of x
    BF_SUM_Y = 12,   ///< twice the sum of (y + 0.5)
    BF_XX = 13,      ///< xx / 12
    BF_XY = 14,      ///< xy / 4
    BF_YY = 15,      ///< yy / 12
    BF_AREA_D = 16,
    BF_CENTROID_X = 17,  ///< image coordinates, see above
    BF_CENTROID_Y = 18,
    BF_MINOR_AXIS = 19,
    BF_MAJOR_AXIS = 20,
    BF_AXIS_ANGLE = 21,  ///< radians
    BF_NONE = 22,        ///< always 0.0
    BF_PERIMETER = 23,   ///< [1]
    BF_FILLED_AREA_D = 24,
    BF_AREA_FRACTION = 25,     ///< area / ROI pixel count
    BF_MIN_RADIUS = 26,        ///< [2]
    BF_MAX_RADIUS = 27,        ///< [2]
    BF_MIN_RADIUS_ANGLE = 28,  ///< [3]
    BF_MAX_RADIUS_ANGLE = 29,  ///< [3]
    BF_MEAN_RADIUS = 30,       ///< [2]
    BF_LENGTH = 31,            ///< [4]
    BF_WIDTH = 32,             ///< [4]
    BF_HOLE_AREA = 33,
    BF_AREA_OVER_FILLED = 34,
    BF_AXIS_RATIO = 35,         ///< minor / major (width / height without moments)
    BF_P2_OVER_AREA = 36,       ///< perimeter^2 / filled area [1]
    BF_RADIUS_RATIO = 37,       ///< minimum / maximum radius [2]
    BF_WIDTH_OVER_LENGTH = 38,  ///< [4]
    BF_BOX_WIDTH = 39,
    BF_BOX_HEIGHT = 40,
    BF_BOX_AREA = 41,
    BF_FILLED_OVER_BOX = 42,
    BF_CENTROID_DISTANCE = 43,     ///< from the image origin
    BF_COMPACTNESS = 44,           ///< [1]
    BF_RADIAL_ANGLE_DIFF = 45,     ///< [3]
    BF_LENBOX_OFFSET_ALONG = 46,   ///< [4]
    BF_LENBOX_OFFSET_ACROSS = 47,  ///< [4]
    BF_BOTTOM_END_X = 48,          ///< end x of the last run on the bottom row
    BF_RIGHT_ROW = 49,             ///< row of the right extreme
    BF_TOP_X = 50,                 ///< x of the first run on the top row
    BF_LEFT_ROW = 51,              ///< row of the left extreme
    BF_PARENT_LABEL = 52,
    BF_MEAN_GREY = 53,  ///< grey sum / area (needs filter flag 8)
    BF_GREY_SUM = 54,
    BF_MIN_RADIUS_DX = 55,  ///< [3]
    BF_MIN_RADIUS_DY = 56,  ///< [3]
    BF_MAX_RADIUS_DX = 57,  ///< [3]
    BF_MAX_RADIUS_DY = 58,  ///< [3]
    BF_AXIS_FRAME_00 = 59,  ///< (cos a, sin a, -(X cos a + Y sin a))
    BF_AXIS_FRAME_01 = 60,
    BF_AXIS_FRAME_02 = 61,
    BF_AXIS_FRAME_10 = 62,  ///< (-sin a, cos a, X sin a - Y cos a)
    BF_AXIS_FRAME_11 = 63,
    BF_AXIS_FRAME_12 = 64,
};

/// Option word of the agent and the result (default BLOB_OPT_FIRST_MOMENTS | BLOB_OPT_SECOND_MOMENTS).
enum BlobOption : int32_t {
    BLOB_OPT_FIRST_MOMENTS = 1,
    BLOB_OPT_SECOND_MOMENTS = 2,
    BLOB_OPT_BOUNDARY = 4,       ///< boundary lists; every boundary feature needs them
    BLOB_OPT_EXTENT_ONLY_0 = 8,  ///< regions of colour 0 keep only their extent
    BLOB_OPT_RADII = 16,         ///< radii and radial angles
    BLOB_OPT_LENGTH_WIDTH = 32,
};

/// Filter flags of the agent (default BLOB_FILTER_BORDER_CHILDREN).
enum BlobFilter : int32_t {
    BLOB_FILTER_MIN_TOP_ONLY = 1,      ///< the minimum-area filter looks at top-level regions only
    BLOB_FILTER_MAX_TOP_ONLY = 2,      ///< the maximum-area filter looks at top-level regions only
    BLOB_FILTER_BORDER = 4,            ///< delete regions touching the region's border
    BLOB_FILTER_GREY = 8,              ///< accumulate grey sums
    BLOB_FILTER_BORDER_CHILDREN = 16,  ///< the border filter deletes the children too
    BLOB_FILTER_PLAIN_AREA = 32,       ///< the area filters compare the area, not the filled area
};

/// Bits of Blob::Computed().
enum BlobComputed : uint8_t {
    BLOB_DONE_COMPLETION = 1,
    BLOB_DONE_PERIMETER = 2,
    BLOB_DONE_RADII = 4,
    BLOB_DONE_RADIAL_ANGLES = 8,
    BLOB_DONE_LENGTH_WIDTH = 16,
    BLOB_DONE_REL_BOUNDARY = 32,
    BLOB_MERGED_AWAY = 64,
};

/// One boundary point: column x (a run end) on rows y0..y1 (a vertical stretch is kept as one point).
struct BdryPoint {
    /// column
    int16_t x = 0;
    /// first row
    int16_t y0 = 0;
    /// last row
    int16_t y1 = 0;
};

/// A cell of a boundary chain. A chain runs top to bottom along one side of a column of runs; at its top
/// and bottom it is linked to the chain that closes the run there (bit value 1 of `flags`: closed).
struct BdryCell {
    /// the points, top to bottom
    BdryPoint pts[kBdryCellPoints];
    /// points in use
    int16_t count = 0;
    /// bit value 1: the chain is closed
    uint8_t flags = 0;
    BdryCell* next = nullptr;        ///< next cell down the chain
    BdryCell* first = nullptr;       ///< first cell of this chain (kept in every cell)
    BdryCell* topLink = nullptr;     ///< first cell of the chain joined at the top (set in the first cell)
    BdryCell* bottomLink = nullptr;  ///< first cell of the chain joined at the bottom (set in the first cell)
};

/// Features derived when a region closes, filled on first use (not initialised before).
struct BlobFeatures {
    /// Derived features.
    double _dArea, _cx, _cy, _centroidDistance;
    double _dFilled, _holeArea, _areaOverFilled, _filledOverBox;
    double _minor, _major, _angle, _axisRatio;
    double _frame[2][3];
    float _boxWidth, _boxHeight, _boxArea;
    /// Boundary features.
    int32_t _nBdry;
    double _sumDx, _sumDy;
    double _minR2, _maxR2, _sumR;
    int32_t _minIdx, _maxIdx;
    double _minPx, _minPy, _maxPx, _maxPy;  ///< region coordinates of the extreme points
    double _projMin[2], _projMax[2];        ///< 1/16 pixel, along and across the axis
    double _perimeter, _p2OverArea, _compactness;
    double _minRadius, _maxRadius, _meanRadius, _radiusRatio;
    double _minAngle, _maxAngle, _angleDiff;
    double _minDx, _minDy, _maxDx, _maxDy;
    double _length, _width, _widthOverLength, _offAlong, _offAcross;
};

/// A second-moment sum kept as count x 2147483647 + remainder.
struct OMBREL_API SplitSum {
    int32_t count = 0;  ///< overflow count
    /// the part below 2147483647
    int32_t remainder = 0;
    /// Carries into the count whenever the remainder would pass 2147483647; the value stays exact.
    void Add(int64_t increment) {
        const int64_t r = int64_t{remainder} + increment;
        if (r >= 0 && r <= 2147483647) {
            remainder = static_cast<int32_t>(r);
        } else if (r > 2147483647 && r <= int64_t{2} * 2147483647) {
            // A single carry, as Carry makes it: a large region's runs need one every few rows, and the
            // call (with its spills around it) cost more than the carry.
            ++count;
            remainder = static_cast<int32_t>(r - 2147483647);
        } else {
            Carry(r);
        }
    }
    /// Sets the sum to count x 2147483647 + `r` for any `r`, carrying as often as needed.
    void Carry(int64_t r);
    /// Adds another split sum.
    void AddSum(const SplitSum& other);
    /// The sum, as a double.
    double Value() const { return double(count) * 2147483647.0 + double(remainder); }
};

/// Aligned to a cache line: what every run updates (ExtendMoments) comes first and fills exactly the first
/// line, so a noisy image with hundreds of thousands of short-lived regions costs one miss per region touch.
class OMBREL_API Blob {
    /// Accumulated run by run.
    alignas(64) int16_t _left = 32767;  ///< aligns the record on a cache line
    int16_t _leftRow = 0, _right = -32767, _rightRow = 0;
    int16_t _top = 0, _topX = 0, _bottom = 0, _bottomX = 0;
    int32_t _area = 0;
    uint8_t _moments = 0;  ///< which sums ExtendMoments keeps: kFirstSums | kSecondSums (0: extent only)
    /// Twice the sums of x and of (y + 0.5). 64-bit: regions of a few megapixels overflow 32 bits.
    int64_t _sumX = 0;
    int64_t _sumY = 0;
    SplitSum _xx, _xy, _yy;

  public:
    /// Only the accumulated part is initialised: the derived features are written before they are read.
    Blob() noexcept {}

    /// Feature `featno` (1..64, see BlobFeature); 0.0 for the root, for 22 and outside 1..64. Runs the
    /// feature's routine first when it has not run yet. Regions that are not in the result list (only
    /// possible after a failed run: those still open) read 0.0.
    double GetFeat(int featno);
    /// Left, top, right, bottom in image coordinates (right and bottom exclusive).
    void BoundingBox(Rect& r) const;

    /// Tree and list.
    Blob* Parent() const { return _parent; }
    /// First child (holes of an object, objects in a hole), or null.
    Blob* FirstChild() const { return _child; }
    /// Next child of the same parent, or null.
    Blob* NextSibling() const { return _sibling; }
    /// Next region of the result list, or null.
    Blob* Next() const { return _Next; }
    /// Label in the result list (1..NParts()).
    int Label() const { return _label; }
    /// 0 or -1 (see the colours above).
    int Color() const { return _color; }
    /// True for the root, the background around everything.
    bool IsRoot() const { return _parent == nullptr; }
    /// Pixels of the region.
    int32_t Area() const { return _area; }
    /// Pixels of the region and of everything inside it.
    int32_t FilledArea() const { return _filledArea; }
    /// Direct children.
    int32_t NumHoles() const { return _nHoles; }
    /// Which feature routines have run (BLOB_DONE_* bits).
    uint8_t Computed() const { return _computed & 127; }
    /// The first boundary cell (with option 4), or null.
    const BdryCell* Bdry() const { return _bdry; }

    /// Drawing (through `dc`, in image coordinates; `xf` may be null for none).
    void HighlightBlob(HalvardMetaDC* dc, const Matrix* xf = nullptr);  ///< bounding box outline
    void DrawBoundary(HalvardMetaDC* dc, const Matrix* xf = nullptr);   ///< boundary chain (option 4)
    /// A cross of arms `halfSize` at the centroid.
    void DrawCentroid(HalvardMetaDC* dc, const Matrix* xf = nullptr, int halfSize = 3);

    /// Moment accumulation of a run [x0, x1) on row y standing for `stepY` rows.
    void ExtendMoments(int y, int x0, int x1, int64_t grey, int stepY);
    /// What ExtendMoments accumulates, from the result's options and the colour (call after both are set).
    void SetMomentLevel();
    ///@{
    /// Levels of SetMomentLevel: first-moment sums, second-moment sums.
    static constexpr uint8_t kFirstSums = 1;
    static constexpr uint8_t kSecondSums = 2;
    ///@}
    /// Adds the sums of `other` (a region merged into this one).
    void AddMoments(const Blob& other);

  private:
    friend class BlobResult;
    friend class BlobAgent;
    friend class swBlobAgent;

    /// Per feature number: the routine it needs first (0: none) and how it is read (null: always 0.0).
    struct FeatureEntry {
        uint8_t routine;
        double (*read)(const Blob&);
    };
    static const FeatureEntry kFeatures[];
    using Routine = void (Blob::*)();
    static const Routine kRoutines[];  ///< by routine number

    void Init(BlobResult* res);
    void FeatRout(int routno);
    void PreGetFeat(int featno);
    void Moments();
    void Holes();
    void Axes();
    void RelBdry();
    void Perims();
    void Radii();
    void RAngle();
    void LenWid();
    void SetFilled(int32_t filled, int32_t holes) {
        _filledArea = filled;
        _nHoles = holes;
    }
    void CompleteFeatures();  ///< Moments, box, Holes, Axes
    void EnsureDerived();     ///< CompleteFeatures on first use
    static constexpr uint8_t kDerivedReady = 128;
    bool HasMoments() const;
    double ImageX() const;
    double ImageY() const;
    template <class Fn>
    bool WalkBoundary(Fn&& fn) const;
    template <class Fn>
    static void VisitUpwards(const BdryCell* chain, Fn&& fn);

    /// Second cache line: the tree and the list, which is all that building the result list touches.
    Blob* _parent = nullptr;
    Blob* _child = nullptr;
    Blob* _sibling = nullptr;
    Blob* _prevSibling = nullptr;  ///< lets a child leave its parent's list without a walk
    Blob* _lastChild = nullptr;    ///< lets merges append a child list without a walk
    Blob* _Next = nullptr;         ///< result list
    BlobFeatures* _f = nullptr;    ///< the result's slot for this region once it is listed
    int32_t _label = -1;

    BdryCell* _bdry = nullptr;
    int32_t _color = -1;
    int32_t _filledArea = 0;
    int32_t _nHoles = 0;
    int64_t _greySum = 0;
    uint32_t _seq =
        0;  ///< creation order; the smallest of merged regions is kept (raster order of first pixel)
    int64_t _childFilled = 0;  ///< sum of the filled areas of the children (0 for a child still open)
    int32_t _nChildren = 0;

    uint8_t _computed = 0;
    bool _inUse = false;
    BlobResult* _res = nullptr;

  public:
    /// Pool bookkeeping (RefStoragePool).
    int32_t _refs = 0;
};

/// Inline: it runs once per run, and a call per run is a noticeable share of a noisy image.
inline void Blob::ExtendMoments(int y, int x0, int x1, int64_t grey, int stepY) {
    const int64_t len = x1 - x0;
    _area += static_cast<int32_t>(len * stepY);
    _greySum += grey * stepY;
    if (x0 < _left) {
        _left = static_cast<int16_t>(x0);
        _leftRow = static_cast<int16_t>(y);
    }
    if (x1 >= _right) {
        _right = static_cast<int16_t>(x1);
        _rightRow = static_cast<int16_t>(y);
    }
    _bottom = static_cast<int16_t>(y);
    _bottomX = static_cast<int16_t>(x1);
    if (_moments == 0) return;
    const int64_t m = x0 + x1 - 1;              // twice the mean x of the run
    const int64_t ty = 2 * int64_t{y} + stepY;  // twice the mean row (centre) of the rows it stands for
    if (_moments & kFirstSums) {
        _sumX += m * len * stepY;
        _sumY += ty * len * stepY;
    }
    if (!(_moments & kSecondSums)) return;
    _xx.Add((m * m * 3 + len * len) * len * stepY);
    _xy.Add(ty * len * m * stepY);
    _yy.Add((ty * len * ty * 3 + 1) * stepY);
}

}  // namespace ombrel
