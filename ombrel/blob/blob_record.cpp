// SPDX-License-Identifier: MIT
// Region records: moment accumulation, completion features, the on-demand boundary features and the feature
// table.
#include "ombrel/blob/blob_record.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "ombrel/blob/blob_boundary_walk.h"
#include "ombrel/blob/blob_result.h"
#include "ombrel/framework/angles.h"
#include "ombrel/framework/hal.h"

namespace ombrel {
namespace {

constexpr int32_t kSplitUnit = 2147483647;
static_assert(alignof(Blob) == 64, "a record starts on a cache line");

constexpr int kRoutineBit[NUMFROUT] = {0,
                                       BLOB_DONE_PERIMETER,
                                       BLOB_DONE_RADII,
                                       BLOB_DONE_RADIAL_ANGLES,
                                       BLOB_DONE_LENGTH_WIDTH,
                                       BLOB_DONE_REL_BOUNDARY};
constexpr int kRoutinePrerequisite[NUMFROUT] = {0, 5, 1, 2, 1, 0};

}  // namespace

// ---- Split sums
// ---------------------------------------------------------------------------------------------
void SplitSum::Carry(int64_t r) {
    if (r > kSplitUnit) {
        // All the carries at once: a long run of a region far from the origin adds up to 2^47 (tens of
        // thousands of carries), which one at a time was a noticeable share of a noisy image. The remainder
        // ends in [1, 2147483647], as one carry after another leaves it.
        const int64_t carries = (r - 1) / kSplitUnit;
        count += static_cast<int32_t>(carries);
        r -= carries * kSplitUnit;
    }
    while (r < 0 && count > 0) {
        --count;
        r += kSplitUnit;
    }
    remainder = static_cast<int32_t>(r);
}

void SplitSum::AddSum(const SplitSum& other) {
    count += other.count;
    Add(other.remainder);
}

// ---- Accumulation
// -------------------------------------------------------------------------------------------
void Blob::AddMoments(const Blob& other) {
    _area += other._area;
    _greySum += other._greySum;
    _sumX += other._sumX;
    _sumY += other._sumY;
    _xx.AddSum(other._xx);
    _xy.AddSum(other._xy);
    _yy.AddSum(other._yy);
    if (other._left < _left || (other._left == _left && other._leftRow < _leftRow)) {
        _left = other._left;
        _leftRow = other._leftRow;
    }
    if (other._right > _right || (other._right == _right && other._rightRow > _rightRow)) {
        _right = other._right;
        _rightRow = other._rightRow;
    }
    if (other._top < _top || (other._top == _top && other._topX < _topX)) {
        _top = other._top;
        _topX = other._topX;
    }
    if (other._bottom > _bottom || (other._bottom == _bottom && other._bottomX > _bottomX)) {
        _bottom = other._bottom;
        _bottomX = other._bottomX;
    }
    _seq = std::min(_seq, other._seq);
}

// ---- Completion features
// ------------------------------------------------------------------------------------
bool Blob::HasMoments() const {
    const int32_t options = _res != nullptr ? _res->_options : 0;
    if ((options & BLOB_OPT_EXTENT_ONLY_0) && _color == 0) return false;
    return (options & BLOB_OPT_FIRST_MOMENTS) && _area > 0;
}

void Blob::Moments() {
    _f->_dArea = _area;
    if (HasMoments()) {
        _f->_cx = (double(_sumX) / 2.0) / _f->_dArea;
        _f->_cy = (double(_sumY) / 2.0) / _f->_dArea;
    } else {
        // No sums were kept: the centroid is the region's origin (the slot may hold a previous run's values).
        _f->_cx = _f->_cy = 0.0;
    }
    const double x = ImageX(), y = ImageY();
    _f->_centroidDistance = std::sqrt(x * x + y * y);
}

double Blob::ImageX() const {
    return _f->_cx + (_res != nullptr ? _res->_origin.x : 0) - 0.5;
}
double Blob::ImageY() const {
    return _f->_cy + (_res != nullptr ? _res->_origin.y : 0) - 0.5;
}

void Blob::Holes() {
    _f->_dFilled = _filledArea;
    _f->_holeArea = double(_filledArea) - double(_area);
    _f->_areaOverFilled = _filledArea != 0 ? double(_area) / _filledArea : 0.0;
    const double box = double(_f->_boxWidth) * double(_f->_boxHeight);
    _f->_filledOverBox = box != 0.0 ? _filledArea / box : 0.0;
}

void Blob::Axes() {
    const int32_t options = _res != nullptr ? _res->_options : 0;
    const bool second = (options & BLOB_OPT_SECOND_MOMENTS) && HasMoments();
    _f->_minor = _f->_major = _f->_angle = 0.0;
    for (auto& row : _f->_frame) row[0] = row[1] = row[2] = 0.0;
    if (!second) {
        _f->_axisRatio = _f->_boxHeight != 0.0f ? double(_f->_boxWidth) / double(_f->_boxHeight) : 0.0;
        return;
    }
    const double area = _f->_dArea;
    const double cx = double(_sumX) / (2.0 * area), cy = double(_sumY) / (2.0 * area);
    const double mxx = ((_xx.Value() / area) / 3.0 - 4.0 * cx * cx) / kPi;
    const double myy = ((_yy.Value() / area) / 3.0 - 4.0 * cy * cy) / kPi;
    const double mxy = (_xy.Value() / area - 4.0 * cx * cy) / kPi;
    const double d = std::sqrt((mxx - myy) * (mxx - myy) + 4.0 * mxy * mxy);
    const double s = std::sqrt(std::sqrt(std::fabs(mxx * myy - mxy * mxy)) / area);
    if (s > 0.0) {
        _f->_major = std::sqrt(2.0 * std::fabs(d + mxx + myy) / s);
        _f->_minor = std::sqrt(2.0 * std::fabs(mxx + myy - d) / s);
    }
    _f->_angle = (mxy == 0.0 && mxx - myy == 0.0) ? 0.0 : 0.5 * std::atan2(2.0 * mxy, mxx - myy);
    const double c = std::cos(_f->_angle), sn = std::sin(_f->_angle);
    const double X = ImageX(), Y = ImageY();
    _f->_frame[0][0] = c;
    _f->_frame[0][1] = sn;
    _f->_frame[0][2] = -(X * c + Y * sn);
    _f->_frame[1][0] = -sn;
    _f->_frame[1][1] = c;
    _f->_frame[1][2] = X * sn - Y * c;
    _f->_axisRatio = _f->_major != 0.0 ? _f->_minor / _f->_major : 0.0;
}

void Blob::CompleteFeatures() {
    Moments();
    _f->_boxWidth = static_cast<float>(_right - _left);
    _f->_boxHeight = static_cast<float>(_bottom - _top);
    _f->_boxArea = _f->_boxWidth * _f->_boxHeight;
    Holes();
    Axes();
    _computed |= kDerivedReady;
}

void Blob::EnsureDerived() {
    if (!(_computed & kDerivedReady)) CompleteFeatures();
}

void Blob::RelBdry() {
    _f->_nBdry = 0;
    _f->_sumDx = _f->_sumDy = 0.0;
    _f->_minR2 = _f->_maxR2 = _f->_sumR = 0.0;
    _f->_minIdx = _f->_maxIdx = -1;
    const int32_t options = _res != nullptr ? _res->_options : 0;
    if (!(options & BLOB_OPT_BOUNDARY)) return;
    const bool radii = options & BLOB_OPT_RADII;
    const bool lenWid = options & BLOB_OPT_LENGTH_WIDTH;
    const double ca = std::cos(_f->_angle), sa = std::sin(_f->_angle);
    bool havePrev = false, haveFirst = false;
    double px = 0, py = 0, fx = 0, fy = 0;
    int64_t projMin[2] = {0, 0}, projMax[2] = {0, 0};
    auto visitEnd = [&](double x, double y) {
        const double dx = havePrev ? x - px : 0.0, dy = havePrev ? y - py : 0.0;
        if (havePrev) {
            _f->_sumDx += std::fabs(dx);
            _f->_sumDy += std::fabs(dy);
        } else {
            fx = x;
            fy = y;
            haveFirst = true;
        }
        const double rx = x - _f->_cx, ry = y - _f->_cy;
        const double r2 = rx * rx + ry * ry;
        if (radii) {
            if (_f->_minIdx < 0 || r2 < _f->_minR2) {
                _f->_minR2 = r2;
                _f->_minIdx = _f->_nBdry;
                _f->_minPx = x;
                _f->_minPy = y;
            }
            if (_f->_maxIdx < 0 || r2 > _f->_maxR2) {
                _f->_maxR2 = r2;
                _f->_maxIdx = _f->_nBdry;
                _f->_maxPx = x;
                _f->_maxPy = y;
            }
            _f->_sumR += r2 - ((dx * dx + dy * dy) * 0.1666667 + 0.5);
        }
        if (lenWid) {
            const int64_t u = std::llround((rx * ca + ry * sa) * 16.0);
            const int64_t v = std::llround((-rx * sa + ry * ca) * 16.0);
            const bool first = !havePrev;
            projMin[0] = first ? u : std::min(projMin[0], u);
            projMax[0] = first ? u : std::max(projMax[0], u);
            projMin[1] = first ? v : std::min(projMin[1], v);
            projMax[1] = first ? v : std::max(projMax[1], v);
        }
        px = x;
        py = y;
        havePrev = true;
    };
    WalkBoundary([&](const BdryPoint& p, bool upward) {
        visitEnd(p.x, upward ? p.y1 : p.y0);
        if (p.y1 != p.y0) visitEnd(p.x, upward ? p.y0 : p.y1);
        ++_f->_nBdry;  // a vertical stretch is one point
    });
    if (haveFirst && havePrev) {  // close the loop
        _f->_sumDx += std::fabs(fx - px);
        _f->_sumDy += std::fabs(fy - py);
    }
    for (int i = 0; i < 2; ++i) {
        _f->_projMin[i] = double(projMin[i]);
        _f->_projMax[i] = double(projMax[i]);
    }
}

void Blob::Perims() {
    _f->_perimeter = _f->_p2OverArea = _f->_compactness = 0.0;
    const int32_t options = _res != nullptr ? _res->_options : 0;
    if (!(options & BLOB_OPT_BOUNDARY)) return;
    const double s = _f->_sumDx + _f->_sumDy;
    if (s <= 0.0) return;
    const double r = (2.0 - std::sqrt(2.0)) * _f->_nBdry / s;
    _f->_perimeter = s * (1.0 + r * (0.7 * r - 0.87));
    _f->_p2OverArea = _filledArea != 0 ? _f->_perimeter * _f->_perimeter / _filledArea : 0.0;
    _f->_compactness = _f->_p2OverArea != 0.0 ? std::min(1.0, 4.0 * kPi / _f->_p2OverArea) : 0.0;
}

void Blob::Radii() {
    _f->_minRadius = _f->_maxRadius = _f->_meanRadius = _f->_radiusRatio = 0.0;
    const int32_t options = _res != nullptr ? _res->_options : 0;
    if (!(options & BLOB_OPT_RADII) || _f->_nBdry <= 0) return;
    _f->_minRadius = std::sqrt(_f->_minR2);
    _f->_maxRadius = std::sqrt(_f->_maxR2);
    _f->_meanRadius = std::sqrt(std::max(0.0, _f->_sumR / _f->_nBdry));
    _f->_radiusRatio = _f->_maxRadius != 0.0 ? _f->_minRadius / _f->_maxRadius : 0.0;
}

void Blob::RAngle() {
    _f->_minAngle = _f->_maxAngle = _f->_angleDiff = 0.0;
    _f->_minDx = _f->_minDy = _f->_maxDx = _f->_maxDy = 0.0;
    const int32_t options = _res != nullptr ? _res->_options : 0;
    if (!(options & BLOB_OPT_RADII) || _f->_minIdx < 0) return;
    _f->_minDx = _f->_minPx - _f->_cx;
    _f->_minDy = _f->_minPy - _f->_cy;
    _f->_maxDx = _f->_maxPx - _f->_cx;
    _f->_maxDy = _f->_maxPy - _f->_cy;
    _f->_minAngle = std::atan2(_f->_minDy, _f->_minDx);
    _f->_maxAngle = std::atan2(_f->_maxDy, _f->_maxDx);
    double diff = _f->_maxAngle - _f->_minAngle;
    while (diff > kPi) diff -= kTwoPi;
    while (diff <= -kPi) diff += kTwoPi;
    _f->_angleDiff = diff;
}

void Blob::LenWid() {
    _f->_length = _f->_width = _f->_widthOverLength = _f->_offAlong = _f->_offAcross = 0.0;
    const int32_t options = _res != nullptr ? _res->_options : 0;
    if (!(options & BLOB_OPT_LENGTH_WIDTH) || _f->_nBdry <= 0) return;
    _f->_length = (_f->_projMax[0] - _f->_projMin[0]) / 16.0;
    _f->_width = (_f->_projMax[1] - _f->_projMin[1]) / 16.0;
    _f->_widthOverLength = _f->_length != 0.0 ? _f->_width / _f->_length : 0.0;
    // Centre of the projection box relative to the centroid, positive along (cos a, sin a) and
    // across along (-sin a, cos a).
    _f->_offAlong = (_f->_projMax[0] + _f->_projMin[0]) / 32.0;
    _f->_offAcross = (_f->_projMax[1] + _f->_projMin[1]) / 32.0;
}

// ---- Feature table
// Per feature number: the routine that computes it on first request (0: none) and how it is read (null:
// always 0.0). Routine 1 perimeter, 2 radii, 3 radial angles, 4 length and width, 5 relative boundary.
const Blob::FeatureEntry Blob::kFeatures[NUMFEAT] = {
    {0, nullptr},                                                       // numbers start at 1
    {0, [](const Blob& b) -> double { return b._color; }},              // 1
    {0, [](const Blob& b) -> double { return b._area; }},               // 2
    {0, [](const Blob& b) -> double { return b._filledArea; }},         // 3
    {0, [](const Blob& b) -> double { return b._nHoles; }},             // 4
    {0, [](const Blob& b) -> double { return b._left; }},               // 5
    {0, [](const Blob& b) -> double { return b._right; }},              // 6
    {0, [](const Blob& b) -> double { return b._top; }},                // 7
    {0, [](const Blob& b) -> double { return b._bottom; }},             // 8
    {5, [](const Blob& b) -> double { return b._f->_sumDx; }},          // 9
    {5, [](const Blob& b) -> double { return b._f->_sumDy; }},          // 10
    {0, [](const Blob& b) -> double { return double(b._sumX); }},       // 11
    {0, [](const Blob& b) -> double { return double(b._sumY); }},       // 12
    {0, [](const Blob& b) -> double { return b._xx.Value() / 12.0; }},  // 13
    {0, [](const Blob& b) -> double { return b._xy.Value() / 4.0; }},   // 14
    {0, [](const Blob& b) -> double { return b._yy.Value() / 12.0; }},  // 15
    {0, [](const Blob& b) -> double { return b._f->_dArea; }},          // 16
    {0, [](const Blob& b) -> double { return b.ImageX(); }},            // 17
    {0, [](const Blob& b) -> double { return b.ImageY(); }},            // 18
    {0, [](const Blob& b) -> double { return b._f->_minor; }},          // 19
    {0, [](const Blob& b) -> double { return b._f->_major; }},          // 20
    {0, [](const Blob& b) -> double { return b._f->_angle; }},          // 21
    {0, nullptr},                                                       // 22: none
    {1, [](const Blob& b) -> double { return b._f->_perimeter; }},      // 23
    {0, [](const Blob& b) -> double { return b._f->_dFilled; }},        // 24
    {0,
     [](const Blob& b)
         -> double { return b._res->_pixelCount != 0 ? b._area / double(b._res->_pixelCount) : 0.0; }},  // 25
    {2, [](const Blob& b) -> double { return b._f->_minRadius; }},                                       // 26
    {2, [](const Blob& b) -> double { return b._f->_maxRadius; }},                                       // 27
    {3, [](const Blob& b) -> double { return b._f->_minAngle; }},                                        // 28
    {3, [](const Blob& b) -> double { return b._f->_maxAngle; }},                                        // 29
    {2, [](const Blob& b) -> double { return b._f->_meanRadius; }},                                      // 30
    {4, [](const Blob& b) -> double { return b._f->_length; }},                                          // 31
    {4, [](const Blob& b) -> double { return b._f->_width; }},                                           // 32
    {0, [](const Blob& b) -> double { return b._f->_holeArea; }},                                        // 33
    {0, [](const Blob& b) -> double { return b._f->_areaOverFilled; }},                                  // 34
    {0, [](const Blob& b) -> double { return b._f->_axisRatio; }},                                       // 35
    {1, [](const Blob& b) -> double { return b._f->_p2OverArea; }},                                      // 36
    {2, [](const Blob& b) -> double { return b._f->_radiusRatio; }},                                     // 37
    {4, [](const Blob& b) -> double { return b._f->_widthOverLength; }},                                 // 38
    {0, [](const Blob& b) -> double { return b._f->_boxWidth; }},                                        // 39
    {0, [](const Blob& b) -> double { return b._f->_boxHeight; }},                                       // 40
    {0, [](const Blob& b) -> double { return b._f->_boxArea; }},                                         // 41
    {0, [](const Blob& b) -> double { return b._f->_filledOverBox; }},                                   // 42
    {0, [](const Blob& b) -> double { return b._f->_centroidDistance; }},                                // 43
    {1, [](const Blob& b) -> double { return b._f->_compactness; }},                                     // 44
    {3, [](const Blob& b) -> double { return b._f->_angleDiff; }},                                       // 45
    {4, [](const Blob& b) -> double { return b._f->_offAlong; }},                                        // 46
    {4, [](const Blob& b) -> double { return b._f->_offAcross; }},                                       // 47
    {0, [](const Blob& b) -> double { return b._bottomX; }},                                             // 48
    {0, [](const Blob& b) -> double { return b._rightRow; }},                                            // 49
    {0, [](const Blob& b) -> double { return b._topX; }},                                                // 50
    {0, [](const Blob& b) -> double { return b._leftRow; }},                                             // 51
    {0, [](const Blob& b) -> double { return b._parent->_label; }},                                      // 52
    {0, [](const Blob& b) -> double { return b._area != 0 ? double(b._greySum) / b._area : 0.0; }},      // 53
    {0, [](const Blob& b) -> double { return double(b._greySum); }},                                     // 54
    {3, [](const Blob& b) -> double { return b._f->_minDx; }},                                           // 55
    {3, [](const Blob& b) -> double { return b._f->_minDy; }},                                           // 56
    {3, [](const Blob& b) -> double { return b._f->_maxDx; }},                                           // 57
    {3, [](const Blob& b) -> double { return b._f->_maxDy; }},                                           // 58
    {0, [](const Blob& b) -> double { return b._f->_frame[0][0]; }},                                     // 59
    {0, [](const Blob& b) -> double { return b._f->_frame[0][1]; }},                                     // 60
    {0, [](const Blob& b) -> double { return b._f->_frame[0][2]; }},                                     // 61
    {0, [](const Blob& b) -> double { return b._f->_frame[1][0]; }},                                     // 62
    {0, [](const Blob& b) -> double { return b._f->_frame[1][1]; }},                                     // 63
    {0, [](const Blob& b) -> double { return b._f->_frame[1][2]; }},                                     // 64
};

// The routines in the order of their numbers, and the bits that say they ran.
const Blob::Routine Blob::kRoutines[NUMFROUT] = {nullptr,       &Blob::Perims, &Blob::Radii,
                                                 &Blob::RAngle, &Blob::LenWid, &Blob::RelBdry};

void Blob::FeatRout(int routno) {
    if (!Check(routno > 0 && routno < NUMFROUT, "blob", __LINE__, "routno > 0 && routno < NUMFROUT")) return;
    if (_computed & kRoutineBit[routno]) return;
    const int pre = kRoutinePrerequisite[routno];
    if (pre != 0) FeatRout(pre);
    (this->*kRoutines[routno])();
    _computed |= static_cast<uint8_t>(kRoutineBit[routno]);
}

void Blob::PreGetFeat(int featno) {
    const int routine = kFeatures[featno].routine;
    if (routine != 0 && !(_computed & kRoutineBit[routine])) FeatRout(routine);
}

double Blob::GetFeat(int featno) {
    const bool hasRes = Check(_res != nullptr, "blob", __LINE__, "_res");
    if (!Check(featno > 0 && featno < NUMFEAT, "blob", __LINE__, "featno > 0 && featno < NUMFEAT"))
        return 0.0;
    if (!hasRes || _parent == nullptr || featno == BF_NONE || _f == nullptr) return 0.0;  // root: no parent
    EnsureDerived();
    PreGetFeat(featno);
    const FeatureEntry& feature = kFeatures[featno];
    return feature.read != nullptr ? feature.read(*this) : 0.0;
}

void Blob::BoundingBox(Rect& r) const {
    const Point o = _res != nullptr ? _res->_origin : Point{};
    r = Rect{_left + o.x, _top + o.y, _right + o.x, _bottom + o.y};
}

}  // namespace ombrel
