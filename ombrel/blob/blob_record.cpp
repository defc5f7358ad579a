// SPDX-License-Identifier: MIT
// Region records: moment accumulation, completion features and the on-demand boundary features.
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

// Which routine a feature needs (0: none).
constexpr int kFeatureRoutine[NUMFEAT] = {0,                             // 0
                                          0, 0, 0, 0, 0, 0, 0, 0, 5, 5,  // 1..10
                                          0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  // 11..20
                                          0, 0, 1, 0, 0, 2, 2, 3, 3, 2,  // 21..30
                                          4, 4, 0, 0, 0, 1, 2, 4, 0, 0,  // 31..40
                                          0, 0, 0, 1, 3, 4, 4, 0, 0, 0,  // 41..50
                                          0, 0, 0, 0, 3, 3, 3, 3, 0, 0,  // 51..60
                                          0, 0, 0, 0};                   // 61..64

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

void Blob::FeatRout(int routno) {
    if (!Check(routno > 0 && routno < NUMFROUT, "blob", __LINE__, "routno > 0 && routno < NUMFROUT")) return;
    if (_computed & kRoutineBit[routno]) return;
    const int pre = kRoutinePrerequisite[routno];
    if (pre != 0) FeatRout(pre);
    switch (routno) {
        case 1:
            Perims();
            break;
        case 2:
            Radii();
            break;
        case 3:
            RAngle();
            break;
        case 4:
            LenWid();
            break;
        case 5:
            RelBdry();
            break;
        default:
            break;
    }
    _computed |= static_cast<uint8_t>(kRoutineBit[routno]);
}

void Blob::PreGetFeat(int featno) {
    const int routine = kFeatureRoutine[featno];
    if (routine != 0 && !(_computed & kRoutineBit[routine])) FeatRout(routine);
}

double Blob::GetFeat(int featno) {
    const bool hasRes = Check(_res != nullptr, "blob", __LINE__, "_res");
    if (!Check(featno > 0 && featno < NUMFEAT, "blob", __LINE__, "featno > 0 && featno < NUMFEAT"))
        return 0.0;
    if (!hasRes || _parent == nullptr || featno == BF_NONE || _f == nullptr) return 0.0;  // root: no parent
    EnsureDerived();
    PreGetFeat(featno);
    switch (featno) {
        case BF_COLOR:
            return _color;
        case BF_AREA:
            return _area;
        case BF_FILLED_AREA:
            return _filledArea;
        case BF_HOLES:
            return _nHoles;
        case BF_LEFT:
            return _left;
        case BF_RIGHT:
            return _right;
        case BF_TOP:
            return _top;
        case BF_BOTTOM:
            return _bottom;
        case BF_SUM_DX:
            return _f->_sumDx;
        case BF_SUM_DY:
            return _f->_sumDy;
        case BF_SUM_X:
            return double(_sumX);
        case BF_SUM_Y:
            return double(_sumY);
        case BF_XX:
            return _xx.Value() / 12.0;
        case BF_XY:
            return _xy.Value() / 4.0;
        case BF_YY:
            return _yy.Value() / 12.0;
        case BF_AREA_D:
            return _f->_dArea;
        case BF_CENTROID_X:
            return ImageX();
        case BF_CENTROID_Y:
            return ImageY();
        case BF_MINOR_AXIS:
            return _f->_minor;
        case BF_MAJOR_AXIS:
            return _f->_major;
        case BF_AXIS_ANGLE:
            return _f->_angle;
        case BF_PERIMETER:
            return _f->_perimeter;
        case BF_FILLED_AREA_D:
            return _f->_dFilled;
        case BF_AREA_FRACTION:
            return _res->_pixelCount != 0 ? _area / double(_res->_pixelCount) : 0.0;
        case BF_MIN_RADIUS:
            return _f->_minRadius;
        case BF_MAX_RADIUS:
            return _f->_maxRadius;
        case BF_MIN_RADIUS_ANGLE:
            return _f->_minAngle;
        case BF_MAX_RADIUS_ANGLE:
            return _f->_maxAngle;
        case BF_MEAN_RADIUS:
            return _f->_meanRadius;
        case BF_LENGTH:
            return _f->_length;
        case BF_WIDTH:
            return _f->_width;
        case BF_HOLE_AREA:
            return _f->_holeArea;
        case BF_AREA_OVER_FILLED:
            return _f->_areaOverFilled;
        case BF_AXIS_RATIO:
            return _f->_axisRatio;
        case BF_P2_OVER_AREA:
            return _f->_p2OverArea;
        case BF_RADIUS_RATIO:
            return _f->_radiusRatio;
        case BF_WIDTH_OVER_LENGTH:
            return _f->_widthOverLength;
        case BF_BOX_WIDTH:
            return _f->_boxWidth;
        case BF_BOX_HEIGHT:
            return _f->_boxHeight;
        case BF_BOX_AREA:
            return _f->_boxArea;
        case BF_FILLED_OVER_BOX:
            return _f->_filledOverBox;
        case BF_CENTROID_DISTANCE:
            return _f->_centroidDistance;
        case BF_COMPACTNESS:
            return _f->_compactness;
        case BF_RADIAL_ANGLE_DIFF:
            return _f->_angleDiff;
        case BF_LENBOX_OFFSET_ALONG:
            return _f->_offAlong;
        case BF_LENBOX_OFFSET_ACROSS:
            return _f->_offAcross;
        case BF_BOTTOM_END_X:
            return _bottomX;
        case BF_RIGHT_ROW:
            return _rightRow;
        case BF_TOP_X:
            return _topX;
        case BF_LEFT_ROW:
            return _leftRow;
        case BF_PARENT_LABEL:
            return _parent->_label;
        case BF_MEAN_GREY:
            return _area != 0 ? double(_greySum) / _area : 0.0;
        case BF_GREY_SUM:
            return double(_greySum);
        case BF_MIN_RADIUS_DX:
            return _f->_minDx;
        case BF_MIN_RADIUS_DY:
            return _f->_minDy;
        case BF_MAX_RADIUS_DX:
            return _f->_maxDx;
        case BF_MAX_RADIUS_DY:
            return _f->_maxDy;
        case BF_AXIS_FRAME_00:
            return _f->_frame[0][0];
        case BF_AXIS_FRAME_01:
            return _f->_frame[0][1];
        case BF_AXIS_FRAME_02:
            return _f->_frame[0][2];
        case BF_AXIS_FRAME_10:
            return _f->_frame[1][0];
        case BF_AXIS_FRAME_11:
            return _f->_frame[1][1];
        case BF_AXIS_FRAME_12:
            return _f->_frame[1][2];
        default:
            return 0.0;
    }
}

void Blob::BoundingBox(Rect& r) const {
    const Point o = _res != nullptr ? _res->_origin : Point{};
    r = Rect{_left + o.x, _top + o.y, _right + o.x, _bottom + o.y};
}

// ---- Result
// -------------------------------------------------------------------------------------------------
BlobResult::BlobResult() : BlobResult(0, 1.0, 1.0) {}
BlobResult::BlobResult(double scaleX, double scaleY) : BlobResult(0, scaleX, scaleY) {}
BlobResult::BlobResult(int drawMode, double scaleX, double scaleY)
    : _drawMode(drawMode),
      _scaleX(scaleX),
      _scaleY(scaleY),
      _blobPool(GetBlobMaxPoolSize()),
      _segPool(GetBlobMaxPoolSize()),
      _bdryPool(GetBlobMaxPoolSize()) {}

BlobResult::~BlobResult() = default;

void BlobResult::CleanUp() {
    _blobPool.Reset();
    _segPool.Reset();
    _bdryPool.Reset();
    _root = _head = _largest = nullptr;
    _nBlobs = 0;
    _nextSeq = 0;
    _error = BLOB_OK;
    _list.clear();
    _closed.clear();
    _closedDeleted = 0;
}

Blob* BlobResult::ByLabel(int label) const {
    if (label < 1 || label > static_cast<int>(_list.size())) return nullptr;
    return _list[static_cast<size_t>(label - 1)];
}

void BlobResult::Dump(FILE* out) const {
    if (out == nullptr) return;
    for (size_t i = 0; i < _list.size(); ++i) {
        const Blob* b = _list[i];
        if (b->_Next != nullptr)
            std::fprintf(out, "%-3d: blob: 0x%jx blob->_Next 0x%jx\n", static_cast<int>(i),
                         static_cast<uintmax_t>(reinterpret_cast<uintptr_t>(b)),
                         static_cast<uintmax_t>(reinterpret_cast<uintptr_t>(b->_Next)));
        else
            std::fprintf(out, "%-3d: blob: 0x%jx\n", static_cast<int>(i),
                         static_cast<uintmax_t>(reinterpret_cast<uintptr_t>(b)));
    }
}

// Labels the completed survivors in raster order of their first pixel (their smallest creation number),
// links the result list, and relinks every child list in the same order.
void BlobResult::BuildList() {
    _list.clear();
    _bySeq.assign(_nextSeq, nullptr);
    size_t listed = 0;
    for (const ClosedRegion& c : _closed) {
        Blob* b = c.blob;
        // A record deleted after it closed may have been reused by a later region: its number tells. Only
        // looked at when such deletions happened (reading every record costs a cache miss each).
        if (_closedDeleted != 0 && !(b->_inUse && b->_seq == c.seq && (b->_computed & BLOB_DONE_COMPLETION)))
            continue;
        if (c.seq < _bySeq.size()) {
            _bySeq[c.seq] = b;
            ++listed;
        }
    }
    if (listed > _featureCapacity) {
        const size_t capacity = std::max(listed, _featureCapacity + _featureCapacity / 2);
        _features.reset(new (std::nothrow) BlobFeatures[capacity]);
        _featureCapacity = _features ? capacity : 0;
        if (!_features && _error == BLOB_OK) _error = BLOB_ERR_NO_MEMORY;
    }
    // Squeeze out the numbers of merged-away and deleted regions (a third of a noisy image's, in no
    // predictable pattern) without a branch on each.
    size_t survivors = 0;
    for (Blob* b : _bySeq) {
        _bySeq[survivors] = b;
        survivors += b != nullptr;
    }
    _bySeq.resize(survivors);
    // A parent always has a smaller number than its children, so each child list is emptied (when its
    // owner is listed) before the first child is appended. After a failure a listed region may sit in an
    // open one: those lists are emptied first.
    if (_root != nullptr) _root->_child = _root->_lastChild = nullptr;
    if (_error != BLOB_OK)
        for (Blob* b : _bySeq) b->_parent->_child = b->_parent->_lastChild = nullptr;
    // The records lie in pool order, not in creation order, and a noisy image's are long out of the cache:
    // fetch far enough ahead for memory to answer in time (a few entries ahead was too late).
    constexpr size_t kPrefetchAhead = 24;
    for (size_t i = 0; i < _bySeq.size(); ++i) {
        if (i + kPrefetchAhead < _bySeq.size())
            __builtin_prefetch(&_bySeq[i + kPrefetchAhead]->_parent, 1);  // the tree fields' line
        Blob* b = _bySeq[i];
        b->_child = b->_lastChild = nullptr;
        b->_f = _list.size() < _featureCapacity ? &_features[_list.size()] : nullptr;
        b->_label = static_cast<int32_t>(_list.size()) + 1;
        if (!_list.empty()) _list.back()->_Next = b;
        b->_Next = nullptr;
        _list.push_back(b);
        Blob* p = b->_parent;
        b->_sibling = nullptr;
        b->_prevSibling = p->_lastChild;
        if (p->_lastChild != nullptr)
            p->_lastChild->_sibling = b;
        else
            p->_child = b;
        p->_lastChild = b;
    }
    if (_root != nullptr) _root->_label = 0;
    _nBlobs = static_cast<int32_t>(_list.size());
}

}  // namespace ombrel
