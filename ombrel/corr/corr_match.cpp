// SPDX-License-Identifier: MIT
#include "ombrel/corr/corr_match.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <utility>

#include "ombrel/corr/corr_kernels.h"
#include "ombrel/framework/allocation.h"
#include "ombrel/framework/factory.h"
#include "ombrel/framework/hal.h"
#include "ombrel/framework/isa.h"
#include "ombrel/framework/kernel_family.h"

namespace ombrel {

// ---- CorrResult ----

int CorrResultCompare(const void* a, const void* b) {
    if (a == nullptr || b == nullptr) return 0;
    const CorrPoint* pa = *static_cast<CorrPoint* const*>(a);
    const CorrPoint* pb = *static_cast<CorrPoint* const*>(b);
    if (pa == nullptr || pb == nullptr) return 0;
    if (pa->_score < pb->_score) return 1;
    if (pa->_score == pb->_score) return 0;
    return -1;
}

namespace {

// A 64-bit key that orders as the scores do, descending: larger score, smaller key; -0 and +0 alike.
uint64_t DescendingKey(double score) {
    uint64_t bits;
    std::memcpy(&bits, &score, sizeof bits);
    if (score == 0.0) bits = 0;
    const uint64_t ascending = (bits >> 63) != 0 ? ~bits : bits | (uint64_t{1} << 63);
    return ~ascending;
}

// Stable radix sort of 64-bit words by their bits from `low` up to `top` (exclusive), every digit's counts
// taken in one read; a pass whose digit is the same in every word moves nothing and is skipped. Digits are
// eleven bits, or up to fourteen where that saves a pass (each pass over a large list is a read and a
// scattered write of all of it; 16384 counts still fit the second-level cache). Returns where the result
// is, a or b.
uint64_t* RadixByBits(uint64_t* a, uint64_t* b, size_t n, int low, int top) {
    constexpr int kNarrow = 11, kWide = 14;
    const int bits = top - low;
    if (bits <= 0) return a;
    int passes = (bits + kNarrow - 1) / kNarrow;
    int digit = kNarrow;
    if (passes > 1 && (bits + passes - 2) / (passes - 1) <= kWide) {
        digit = (bits + passes - 2) / (passes - 1);
        --passes;
    }
    const uint64_t mask = (uint64_t{1} << digit) - 1;
    std::unique_ptr<uint32_t[]> counts(new (std::nothrow) uint32_t[static_cast<size_t>(passes) << digit]());
    if (!counts) return nullptr;
    for (size_t k = 0; k < n; ++k) {
        const uint64_t w = a[k];
        for (int p = 0; p < passes; ++p)
            ++counts[(static_cast<size_t>(p) << digit) + ((w >> (low + digit * p)) & mask)];
    }
    for (int p = 0; p < passes; ++p) {
        const int shift = low + digit * p;
        uint32_t* c = counts.get() + (static_cast<size_t>(p) << digit);
        if (c[(a[0] >> shift) & mask] == n) continue;
        uint32_t start = 0;
        for (size_t d = 0; d <= mask; ++d) start += std::exchange(c[d], start);
        for (size_t k = 0; k < n; ++k) b[c[(a[k] >> shift) & mask]++] = a[k];
        std::swap(a, b);
    }
    return a;
}

// The order qsort with CorrResultCompare gives here (the C library sorts by merging, which keeps equal
// scores in their order): descending score, ties in list order. Each word is the key's high bits over the
// list index (the index takes as few low bits as n needs, so the key keeps as many as it can); a stable
// radix sort over the key bits that differ at all, then the rare runs whose kept key bits are equal are
// ordered by their whole keys, ties by index. keys[k] is DescendingKey of entry k; a and b hold n words
// each. Returns the sorted words, in a or b (null when memory is short); `*indexMask` selects the list
// index in each word.
uint64_t* SortIndicesByScore(const uint64_t* keys, uint64_t* a, uint64_t* b, size_t n, uint64_t* indexMask) {
    const int indexBits = n > 1 ? static_cast<int>(std::bit_width(n - 1)) : 0;
    const uint64_t mask = indexBits == 0 ? 0 : ~uint64_t{0} >> (64 - indexBits);
    *indexMask = mask;
    if (n == 0) return a;
    uint64_t differ = 0;
    const uint64_t first = keys[0] & ~mask;
    for (size_t k = 0; k < n; ++k) {
        a[k] = (keys[k] & ~mask) | k;
        differ |= keys[k] ^ first;
    }
    differ &= ~mask;
    uint64_t* sorted = RadixByBits(a, b, n, indexBits, static_cast<int>(std::bit_width(differ)));
    if (sorted == nullptr) return nullptr;
    const auto less = [keys, mask](uint64_t x, uint64_t y) {
        const uint64_t kx = keys[x & mask], ky = keys[y & mask];
        return kx < ky || (kx == ky && (x & mask) < (y & mask));
    };
    for (size_t lo = 0; lo < n;) {
        size_t hi = lo + 1;
        while (hi < n && ((sorted[hi] ^ sorted[lo]) & ~mask) == 0) ++hi;
        if (hi - lo > 1) std::sort(&sorted[lo], &sorted[hi], less);
        lo = hi;
    }
    return sorted;
}

// The list sorted as qsort sorts it; false, with the list untouched, where that order is not defined (a
// null entry or a NaN score compares equal to everything) or memory is short.
bool StableSortByScore(CorrPoint** list, int32_t count) {
    const size_t n = static_cast<size_t>(count);
    std::unique_ptr<uint64_t[]> keys(new (std::nothrow) uint64_t[n]), a(new (std::nothrow) uint64_t[n]),
        b(new (std::nothrow) uint64_t[n]);
    std::unique_ptr<CorrPoint*[]> old(new (std::nothrow) CorrPoint*[n]);
    if (!keys || !a || !b || !old) return false;
    for (size_t k = 0; k < n; ++k) {
        if (list[k] == nullptr || std::isnan(list[k]->_score)) return false;
        keys[k] = DescendingKey(list[k]->_score);
    }
    uint64_t mask = 0;
    const uint64_t* sorted = SortIndicesByScore(keys.get(), a.get(), b.get(), n, &mask);
    if (sorted == nullptr) return false;
    std::memcpy(old.get(), list, n * sizeof(CorrPoint*));
    for (size_t k = 0; k < n; ++k) list[k] = old[sorted[k] & mask];
    return true;
}

}  // namespace

void CorrResult::Sort() {
    if (_sortedCorrPtList == nullptr || _count <= 0) return;
    if (!StableSortByScore(_sortedCorrPtList, _count))
        std::qsort(_sortedCorrPtList, static_cast<size_t>(_count), sizeof(CorrPoint*), CorrResultCompare);
}

void CorrResult::FreeLists() {
    std::free(_corrPtList);
    std::free(_sortedCorrPtList);
    _corrPtList = nullptr;
    _sortedCorrPtList = nullptr;
    _count = 0;
}

// ---- CorrMatchAgent ----

CorrMatchAgent::CorrMatchAgent(Buffer* src, CorrTemplate* tpl, CorrResult* result, int imgSigned,
                               int tplSigned, int xStep, int yStep)
    : Agent(src) {
    Init(tpl, result, nullptr, imgSigned, tplSigned, xStep, yStep, 0);
}
CorrMatchAgent::CorrMatchAgent(Buffer* src, Rect r, CorrTemplate* tpl, CorrResult* result, int imgSigned,
                               int tplSigned, int xStep, int yStep)
    : Agent(src, r) {
    Init(tpl, result, nullptr, imgSigned, tplSigned, xStep, yStep, 0);
}
CorrMatchAgent::CorrMatchAgent(Buffer* src, Point* p, ROI* roi, CorrTemplate* tpl, CorrResult* result,
                               int imgSigned, int tplSigned, int xStep, int yStep)
    : Agent(src, p != nullptr ? *p : Point{}, roi != nullptr ? *roi : ROI()) {
    Init(tpl, result, nullptr, imgSigned, tplSigned, xStep, yStep, 0);
}
CorrMatchAgent::CorrMatchAgent(Buffer* src, CorrTemplate* tpl, CorrPoint* best, int imgSigned, int tplSigned,
                               int xStep, int yStep)
    : Agent(src) {
    Init(tpl, nullptr, best, imgSigned, tplSigned, xStep, yStep, 1);
}
CorrMatchAgent::CorrMatchAgent(Buffer* src, Rect r, CorrTemplate* tpl, CorrPoint* best, int imgSigned,
                               int tplSigned, int xStep, int yStep)
    : Agent(src, r) {
    Init(tpl, nullptr, best, imgSigned, tplSigned, xStep, yStep, 1);
}
CorrMatchAgent::CorrMatchAgent(Buffer* src, Point* p, ROI* roi, CorrTemplate* tpl, CorrPoint* best,
                               int imgSigned, int tplSigned, int xStep, int yStep)
    : Agent(src, p != nullptr ? *p : Point{}, roi != nullptr ? *roi : ROI()) {
    Init(tpl, nullptr, best, imgSigned, tplSigned, xStep, yStep, 1);
}

void CorrMatchAgent::Init(CorrTemplate* tpl, CorrResult* result, CorrPoint* best, int imgSigned,
                          int tplSigned, int xStep, int yStep, int mode) {
    // A missing template counts as a template in error.
    _error = tpl != nullptr ? tpl->GetError() : BUFFER_BAD_SIZE;
    _corrTemplate = tpl;
    _corrResults = result;
    _best = best;
    _imgSigned = imgSigned;
    _tplSigned = tplSigned;
    _xStep = xStep;
    _yStep = yStep;
    _mode = mode;
    _maskSetting = 0;
    _positionOnly = 0;
    _status = 0;
    _error |= PreGo();
}

void CorrMatchAgent::SetSrcBuf(Buffer* src) {
    Agent::SetSrcBuf(src);
    _dirty = 1;
}
void CorrMatchAgent::SetSrcPt(const Point& p) {
    Agent::SetSrcPt(p);
    _dirty = 1;
}
void CorrMatchAgent::SetExtent(const double& w, const double& h) {
    Agent::SetExtent(w, h);
    _dirty = 1;
}
void CorrMatchAgent::SetExtent(int w, int h) {
    Agent::SetExtent(w, h);
    _dirty = 1;
}
void CorrMatchAgent::SetSrcROI(const ROI& roi) {
    Agent::SetSrcROI(roi);
    _dirty = 1;
}

int CorrMatchAgent::PreGo() {
    _prepared = false;
    const Buffer* src = _srcBuf;
    const bool haveSrc = src != nullptr;
    const int sw = haveSrc ? src->Width() : 0, sh = haveSrc ? src->Height() : 0;
    OMBREL_ASSERT("corr", 501, haveSrc, "_srcBuf");
    OMBREL_ASSERT("corr", 502, _xStep > 0, "_xStep > 0");
    OMBREL_ASSERT("corr", 503, _yStep > 0, "_yStep > 0");
    OMBREL_ASSERT("corr", 504, _corrTemplate != nullptr && _corrTemplate->GetBuffer() != nullptr,
                  "_corrTemplate->GetBuffer()");
    OMBREL_ASSERT("corr", 505, _sPt.x >= 0 && _sPt.x < sw, "_sPt.x >= 0 && _sPt.x < _srcBuf->Width()");
    OMBREL_ASSERT("corr", 506, _sPt.y >= 0 && _sPt.y < sh, "_sPt.y >= 0 && _sPt.y < _srcBuf->Height()");
    OMBREL_ASSERT("corr", 507, _sRoi.Width() != 0, "_sRoi.Width()");
    OMBREL_ASSERT("corr", 508, _sRoi.Height() != 0, "_sRoi.Height()");
    OMBREL_ASSERT("corr", 509, int64_t{_sPt.x} + _sRoi.Width() <= sw,
                  "_sPt.x + _sRoi.Width() <= _srcBuf->Width()");
    OMBREL_ASSERT("corr", 510, int64_t{_sPt.y} + _sRoi.Height() <= sh,
                  "_sPt.y + _sRoi.Height() <= _srcBuf->Height()");
    if (_error != 0) {
        _status = -13500 - std::abs(_error);
        return _status;
    }
    const Buffer* tb = _corrTemplate != nullptr ? _corrTemplate->GetBuffer() : nullptr;
    const bool usable = haveSrc && src->BaseAddr() != nullptr && src->BitsPerPixel() == EIGHT &&
                        tb != nullptr && tb->BaseAddr() != nullptr && _xStep > 0 && _yStep > 0;
    _tw = tb != nullptr ? tb->Width() : 0;
    _th = tb != nullptr ? tb->Height() : 0;
    _tplBase = tb != nullptr ? tb->BaseAddr() : nullptr;
    _srcBase = haveSrc ? src->BaseAddr() : nullptr;
    const Point hot = _corrTemplate != nullptr ? _corrTemplate->GetHotSpot() : Point{};
    // 64-bit: hot spots and regions are the caller's and may be absurd.
    int64_t x0 = int64_t{_sPt.x} - hot.x, y0 = int64_t{_sPt.y} - hot.y;
    int64_t x1 = x0 + _sRoi.Width(), y1 = y0 + _sRoi.Height();
    x0 = std::max<int64_t>(x0, 0);
    y0 = std::max<int64_t>(y0, 0);
    if (_tw + x1 > int64_t{sw} + 1) x1 = int64_t{sw} + 1 - _tw;
    if (_th + y1 > int64_t{sh} + 1) y1 = int64_t{sh} + 1 - _th;
    const auto clamp32 = [](int64_t v) {
        return static_cast<int32_t>(std::clamp<int64_t>(v, std::numeric_limits<int32_t>::min() / 2,
                                                        std::numeric_limits<int32_t>::max() / 2));
    };
    _ixStart = clamp32(x0);
    _ixStop = clamp32(x1);
    _iyStart = clamp32(y0);
    _iyStop = clamp32(y1);
    OMBREL_ASSERT("corr", 452, !(_iyStop < _iyStart), "!(iy_stop < iy_start)");
    OMBREL_ASSERT("corr", 453, !(_ixStop < _ixStart), "!(ix_stop < ix_start)");
    if (_iyStop < _iyStart || _ixStop < _ixStart || !usable) {
        aprintf("WARNING invalid corr specified - no correlation will be performed\n");
        return -1;
    }
    if (_corrTemplate->GetSigned() != _tplSigned) _corrTemplate->Recompute(_tplSigned);
    if (_corrTemplate->GetMask() != _maskSetting) {
        _corrTemplate->SetMask(_maskSetting);
        _corrTemplate->Recompute(0);  // deliberately back to unsigned
    }
    const int64_t nx = (int64_t{_ixStop} - _ixStart) / _xStep, ny = (int64_t{_iyStop} - _iyStart) / _yStep;
    if (_mode == 0 && _corrResults != nullptr) {
        _corrResults->FreeLists();
        const int64_t capacity = (ny + 1) * (nx + 1);
        const bool fits = capacity < std::numeric_limits<int32_t>::max() / int64_t{sizeof(CorrPoint)};
        if (fits) {
            _corrResults->_corrPtList =
                static_cast<CorrPoint*>(detail::Calloc(static_cast<size_t>(capacity + 1), sizeof(CorrPoint)));
            _corrResults->_sortedCorrPtList =
                static_cast<CorrPoint**>(detail::Calloc(static_cast<size_t>(capacity), sizeof(CorrPoint*)));
        }
        OMBREL_ASSERT("corr", 482, _corrResults->_corrPtList != nullptr, "_corrResults->_corrPtList");
        OMBREL_ASSERT("corr", 483, _corrResults->_sortedCorrPtList != nullptr,
                      "_corrResults->_sortedCorrPtList");
        if (_corrResults->_corrPtList == nullptr || _corrResults->_sortedCorrPtList == nullptr) {
            _corrResults->FreeLists();
            _dirty = 0;
            return -13505;
        }
        // calloc gave zeroed points: the best point starts with score 0 at (0, 0).
        _best = &_corrResults->_corrPtList[capacity];
    }
    _dirty = 0;
    _prepared = _mode == 1 || _corrResults != nullptr;
    return 0;
}

int CorrMatchAgent::Columns() const {
    if (_ixStop <= _ixStart || _xStep < 1) return 0;
    return static_cast<int>((int64_t{_ixStop} - _ixStart + _xStep - 1) / _xStep);
}
int CorrMatchAgent::Rows() const {
    if (_iyStop <= _iyStart || _yStep < 1) return 0;
    return static_cast<int>((int64_t{_iyStop} - _iyStart + _yStep - 1) / _yStep);
}

namespace {

// Vertex of the parabola through (-1, l), (0, c), (1, r): the offset in [-0.5, 0.5] and its height. No
// maximum (a flat or upward triple) keeps the centre.
void Parabola(double l, double c, double r, double* offset, double* height) {
    const double curvature = l - 2.0 * c + r;
    *offset = 0.0;
    *height = c;
    if (!(curvature < 0.0)) return;
    const double d = std::clamp(0.5 * (l - r) / curvature, -0.5, 0.5);
    *offset = d;
    *height = c - 0.25 * (l - r) * d;
}

}  // namespace

bool CorrMatchAgent::RefinePeak(int k, CorrSubpixel* out) const {
    if (out == nullptr || _corrResults == nullptr || _corrResults->_corrPtList == nullptr) return false;
    const int cols = Columns(), rows = Rows();
    if (k < 0 || k >= _corrResults->_count || cols == 0) return false;
    const int cx = k % cols, cy = k / cols;
    const auto score = [&](int x, int y) { return _corrResults->_corrPtList[y * cols + x]._score; };
    const CorrPoint& p = _corrResults->_corrPtList[k];
    const double c = p._score;
    double dx = 0, dy = 0, hx = c, hy = c;
    if (cx > 0 && cx + 1 < cols) Parabola(score(cx - 1, cy), c, score(cx + 1, cy), &dx, &hx);
    if (cy > 0 && cy + 1 < rows) Parabola(score(cx, cy - 1), c, score(cx, cy + 1), &dy, &hy);
    out->position = Fpoint{p._pos.x + dx * _xStep, p._pos.y + dy * _yStep};
    // Both axes' rises added to the centre; never above 1, which no correlation exceeds.
    out->score = std::min(hx + hy - c, std::max(c, 1.0));
    return true;
}

// ---- swCorrMatchAgent ----

CorrPoint* swCorrMatchAgent::NextPoint(int64_t k) {
    CorrPoint* pt = &_corrResults->_corrPtList[k];
    *pt = CorrPoint();
    _corrResults->_sortedCorrPtList[k] = pt;
    return pt;
}

void swCorrMatchAgent::Visit(CorrPoint* pt, int ix, int iy, double score) {
    const Point hot = _corrTemplate->GetHotSpot();
    pt->_pos = Point{hot.x + ix, hot.y + iy};
    pt->_score = score;
    if ((score == 0.0 && _best->_score == 0.0) || _best->_score < score) {
        _best->_pos = pt->_pos;
        _best->_score = score;
        _best->_sumI = pt->_sumI;
        _best->_sumI2 = pt->_sumI2;
        _best->_sumTI = pt->_sumTI;
    }
}

void swCorrMatchAgent::Score(CorrPoint* pt, int ix, int iy) {
    int pitch = _srcBuf->Pitch();
    _corrTemplate->FastComputeSums(_srcBuf->Row(iy) + ix, &pitch, _imgSigned, pt);
}

// The plain loop: FastComputeSums at every position.
void swCorrMatchAgent::RunPlain() {
    int64_t k = 0;
    CorrPoint local;
    for (int64_t y64 = _iyStart; y64 < _iyStop; y64 += _yStep) {  // 64-bit: steps may be huge
        const int iy = static_cast<int>(y64);
        for (int64_t x64 = _ixStart; x64 < _ixStop; x64 += _xStep) {
            const int ix = static_cast<int>(x64);
            CorrPoint* pt = _mode == 0 ? NextPoint(k++) : &(local = CorrPoint());
            pt->_positionOnly = _positionOnly;
            Score(pt, ix, iy);
            Visit(pt, ix, iy, pt->_score);
        }
    }
    if (_mode == 0) _corrResults->_count = static_cast<int32_t>(k);
}

namespace {

constexpr int kRowsAtOnce = 4;  // output rows per cross-row kernel call

template <class T>
void Grow(std::vector<T>& v, size_t n) {
    if (v.size() < n) v.resize(n);
}

}  // namespace

bool swCorrMatchAgent::Reserve(int width, int span, int cols) {
    try {
        if (_mode == 0) {
            const size_t n = static_cast<size_t>(Rows()) * static_cast<size_t>(cols);
            Grow(_sortKeys, n), Grow(_sortA, n), Grow(_sortB, n);
        }
        const size_t stride = static_cast<size_t>((_tw + 15) / 16 * 16);
        Grow(_tplPrepared, stride * static_cast<size_t>(_th));
        Grow(_col, width), Grow(_col2, width), Grow(_winI, span), Grow(_winI2, span);
        Grow(_spanTI, size_t{kRowsAtOnce} * span), Grow(_rowI, cols), Grow(_rowI2, cols), Grow(_rowTI, cols),
            Grow(_rowScore, cols);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

// The template as the cross-row kernels take it: signed bytes t' (an unsigned byte minus 128, so that it fits
// a signed byte; a signed byte as it is), rows padded with zeros to a multiple of 16. Then sum t*i =
// sum t'*i + 128 * sum i for an unsigned template. Prepared at every Go: the caller may have written into
// the template since the last one. Returns sum t'.
int64_t swCorrMatchAgent::PrepareTemplate() {
    const Buffer* tb = _corrTemplate->GetBuffer();
    const int stride = (_tw + 15) / 16 * 16;
    const bool ts = _corrTemplate->GetSigned() != 0;
    int64_t sum = 0;
    for (int r = 0; r < _th; ++r) {
        const uint8_t* src = tb->Row(r);
        int8_t* dst = _tplPrepared.data() + static_cast<size_t>(r) * stride;
        for (int k = 0; k < _tw; ++k) {
            dst[k] = ts ? static_cast<int8_t>(src[k]) : static_cast<int8_t>(src[k] ^ 0x80);
            sum += dst[k];
        }
        std::fill(dst + _tw, dst + stride, int8_t{0});
    }
    return sum;
}

// sumTI of `rows` output rows from iy (step _yStep), contiguous positions, into _spanTI (one row of span
// values after another) by the cross-row kernels.
void swCorrMatchAgent::CrossSpans(int iy, int rows, int span) {
    corr::CrossRowJob job;
    job.t = _tplPrepared.data();
    job.tw = _tw;
    job.th = _th;
    job.tStride = (_tw + 15) / 16 * 16;
    job.tSum = _tplSum;
    job.img = _srcBuf->Row(iy) + _ixStart;
    job.imgPitch = _srcBuf->Pitch();
    job.readable = int64_t{_srcBuf->Width()} - _ixStart;
    job.imgSigned = _imgSigned;
    job.outRows = rows;
    job.rowStep = rows > 1 ? _yStep : 1;
    job.outStride = span;
    job.out = _spanTI.data();
    corr::kCrossRowKernels.Run(ActiveIsa(), 0, span, job);
}

// sumTI of the row's positions into _rowTI: from row j of _spanTI (every _xStep-th position), or one
// position at a time when the step is large.
void swCorrMatchAgent::CrossSums(int iy, int cols, int span, int j) {
    if (_xStep > 8) {
        corr::DotJob job;
        job.t = _corrTemplate->GetBuffer()->BaseAddr();
        job.tPitch = _corrTemplate->GetBuffer()->Pitch();
        job.imgPitch = _srcBuf->Pitch();
        job.rows = _th;
        job.tSigned = _corrTemplate->GetSigned();
        job.imgSigned = _imgSigned;
        for (int c = 0; c < cols; ++c) {
            job.sum = 0;
            job.img = _srcBuf->Row(iy) + _ixStart + int64_t{c} * _xStep;
            corr::kDotKernels.Run(ActiveIsa(), 0, _tw, job);
            _rowTI[c] = job.sum;
        }
        return;
    }
    const int64_t offset = _corrTemplate->GetSigned() ? 0 : 128;
    const int64_t* spanTI = _spanTI.data() + static_cast<size_t>(j) * span;
    for (int c = 0; c < cols; ++c) _rowTI[c] = spanTI[static_cast<size_t>(c) * _xStep] + offset * _rowI[c];
}

// Scores the row's positions and keeps them: list entries in raster order, and the best point.
void swCorrMatchAgent::KeepRow(int iy, int cols, int64_t* k) {
    corr::ScoreJob sj;
    sj.sumI = _rowI.data();
    sj.sumI2 = _rowI2.data();
    sj.sumTI = _rowTI.data();
    sj.score = _rowScore.data();
    sj.count = _corrTemplate->GetCount();
    sj.sum = _corrTemplate->GetSum();
    sj.sumSq = _corrTemplate->GetSumSq();
    sj.positionOnly = _positionOnly;
    corr::kScoreKernels.Run(ActiveIsa(), 0, cols, sj);
    const Point hot = _corrTemplate->GetHotSpot();
    const int y = hot.y + iy;
    if (_mode == 1) {
        KeepBestOfRow(hot.x, y, cols);
        return;
    }
    for (int j = 0; j < cols; ++j) {
        const double s = _rowScore[j];
        const int x = hot.x + static_cast<int>(_ixStart + int64_t{j} * _xStep);
        if (_mode == 0) {
            CorrPoint* pt = &_corrResults->_corrPtList[(*k)++];  // the sorted list is written by Go
            pt->_pos = Point{x, y};
            pt->_score = s;
            pt->_sumI = static_cast<double>(_rowI[j]);
            pt->_sumI2 = static_cast<double>(_rowI2[j]);
            pt->_sumTI = static_cast<double>(_rowTI[j]);
            pt->_user1 = pt->_user2 = 0;
            pt->_positionOnly = _positionOnly;
            _sortKeys[*k - 1] = DescendingKey(s);
        }
        if ((s == 0.0 && _best->_score == 0.0) || _best->_score < s) {
            _best->_pos = Point{x, y};
            _best->_score = s;
            _best->_sumI = static_cast<double>(_rowI[j]);
            _best->_sumI2 = static_cast<double>(_rowI2[j]);
            _best->_sumTI = static_cast<double>(_rowTI[j]);
        }
    }
}

// The best-point rule over a row at once. Scores are never negative or NaN, so visiting the row in order
// ends with: the first position of the row's maximum m when m > best; the row's last position when m and
// best are both 0 (every zero replaces a zero best); else the best as it was.
void swCorrMatchAgent::KeepBestOfRow(int hotX, int y, int cols) {
    const double* score = _rowScore.data();
    double m0 = 0.0, m1 = 0.0, m2 = 0.0, m3 = 0.0;  // four chains: a max waits on the one before
    int j = 0;
    for (; j + 4 <= cols; j += 4) {
        m0 = std::max(m0, score[j]);
        m1 = std::max(m1, score[j + 1]);
        m2 = std::max(m2, score[j + 2]);
        m3 = std::max(m3, score[j + 3]);
    }
    for (; j < cols; ++j) m0 = std::max(m0, score[j]);
    const double m = std::max(std::max(m0, m1), std::max(m2, m3));
    int at = -1;
    if (_best->_score < m)
        at = static_cast<int>(std::find(score, score + cols, m) - score);
    else if (m == 0.0 && _best->_score == 0.0 && cols > 0)
        at = cols - 1;
    if (at < 0) return;
    _best->_pos = Point{hotX + static_cast<int>(_ixStart + int64_t{at} * _xStep), y};
    _best->_score = score[at];
    _best->_sumI = static_cast<double>(_rowI[at]);
    _best->_sumI2 = static_cast<double>(_rowI2[at]);
    _best->_sumTI = static_cast<double>(_rowTI[at]);
}

// sumI and sumI2 of the row's positions from the column sums: a window of tw columns slid along the row
// (one add and one subtract a position), every _xStep-th kept.
void swCorrMatchAgent::WindowSums(const int64_t* col, const int64_t* col2, int tw, int span, int cols) {
    int64_t* wI = _xStep == 1 ? _rowI.data() : _winI.data();
    int64_t* wI2 = _xStep == 1 ? _rowI2.data() : _winI2.data();
    int64_t s = 0, s2 = 0;
    for (int k = 0; k < tw; ++k) s += col[k], s2 += col2[k];
    wI[0] = s, wI2[0] = s2;
    for (int x = 1; x < span; ++x) {
        s += col[x + tw - 1] - col[x - 1];
        s2 += col2[x + tw - 1] - col2[x - 1];
        wI[x] = s, wI2[x] = s2;
    }
    if (_xStep == 1) return;
    for (int j = 0; j < cols; ++j) {
        _rowI[j] = wI[static_cast<size_t>(j) * _xStep];
        _rowI2[j] = wI2[static_cast<size_t>(j) * _xStep];
    }
}

// The same sums, exactly: sumI and sumI2 of every window from column sums kept over the template's rows,
// sumTI from the cross-row kernels, scores from the score kernels (CorrScore's doubles). Valid only
// unmasked (the template's mask flag is 0).
bool swCorrMatchAgent::RunFast() {
    const int tw = _tw, th = _th;
    const int x0 = _ixStart;
    const int span = _ixStop - _ixStart;  // positions of a row at step 1
    const int width = span - 1 + tw;      // columns read: [x0, x0 + width)
    const int cols = Columns();
    if (!Reserve(width, span, cols)) return false;
    _tplSum = PrepareTemplate();
    int64_t* col = _col.data();
    int64_t* col2 = _col2.data();
    const Isa isa = ActiveIsa();
    corr::ColumnJob cj;
    cj.col = col;
    cj.col2 = col2;
    cj.imgSigned = _imgSigned;
    const auto moveRow = [&](int addY, int subY) {  // subY < 0: nothing leaves
        cj.add = _srcBuf->Row(addY) + x0;
        cj.sub = subY >= 0 ? _srcBuf->Row(subY) + x0 : nullptr;
        corr::kColumnKernels.Run(isa, 0, width, cj);
    };
    int64_t k = 0;
    int batchRows = 0, batchLeft = 0;  // output rows in _spanTI, and those not used yet
    int windowTop = -1;                // rows [windowTop, windowTop + th) are in col
    for (int64_t y64 = _iyStart; y64 < _iyStop; y64 += _yStep) {  // 64-bit: steps may be huge
        const int iy = static_cast<int>(y64);
        if (windowTop >= 0 && iy - windowTop < th) {
            for (int y = windowTop; y < iy; ++y) moveRow(y + th, y);
        } else {
            std::fill(col, col + width, 0);
            std::fill(col2, col2 + width, 0);
            for (int y = iy; y < iy + th; ++y) moveRow(y, -1);
        }
        windowTop = iy;
        WindowSums(col, col2, tw, span, cols);
        // The cross sums of several output rows in one kernel call, which shares their image rows.
        if (batchLeft == 0 && _xStep <= 8) {
            const int64_t remaining = (int64_t{_iyStop} - iy + _yStep - 1) / _yStep;
            const int rows = static_cast<int>(std::min<int64_t>(remaining, kRowsAtOnce));
            CrossSpans(iy, rows, span);
            batchRows = batchLeft = rows;
        }
        const int j = _xStep <= 8 ? batchRows - batchLeft-- : 0;
        CrossSums(iy, cols, span, j);
        KeepRow(iy, cols, &k);
    }
    if (_mode == 0) _corrResults->_count = static_cast<int32_t>(k);
    return true;
}

int swCorrMatchAgent::Go() {
    if (_error != 0 || _status != 0) return 1;
    OMBREL_ASSERT("swcorr", 14, !_dirty, "!_dirty");
    if (_dirty && PreGo() != 0) return 1;
    if (!_prepared || _best == nullptr) return 1;
    // The template may have been changed since PreGo: its cached shape must still hold.
    const Buffer* tb = _corrTemplate->GetBuffer();
    if (tb == nullptr || tb->BaseAddr() != _tplBase || tb->Width() != _tw || tb->Height() != _th ||
        _srcBuf->BaseAddr() != _srcBase)
        return 1;
    if (_mode == 1) {
        _best->_score = 0.0;
        _positionOnly = 1;
    } else {
        _positionOnly = 0;
    }
    if (_corrTemplate->GetMask() == 0 && RunFast()) {
        // The list is in raster order and the keys of its scores are at hand: the order Sort() gives,
        // without reading every entry back.
        if (_mode == 0) {
            const size_t n = static_cast<size_t>(_corrResults->_count);
            uint64_t mask = 0;
            const uint64_t* sorted =
                SortIndicesByScore(_sortKeys.data(), _sortA.data(), _sortB.data(), n, &mask);
            if (sorted != nullptr) {
                for (size_t k = 0; k < n; ++k)
                    _corrResults->_sortedCorrPtList[k] = &_corrResults->_corrPtList[sorted[k] & mask];
            } else {  // no memory for the counts: the list in raster order, sorted the general way
                for (size_t k = 0; k < n; ++k)
                    _corrResults->_sortedCorrPtList[k] = &_corrResults->_corrPtList[k];
                _corrResults->Sort();
            }
        }
        return 0;
    }
    RunPlain();
    if (_mode == 0) _corrResults->Sort();
    return 0;
}

// ---- factories ----

CorrMatchAgent* CorrMatchFact(Buffer* src, CorrTemplate* tpl, CorrResult* result, int imgSigned,
                              int tplSigned, int xStep, int yStep) {
    return MakeAgent<swCorrMatchAgent>({{src}}, src, tpl, result, imgSigned, tplSigned, xStep, yStep);
}
CorrMatchAgent* CorrMatchFact(Buffer* src, Rect r, CorrTemplate* tpl, CorrResult* result, int imgSigned,
                              int tplSigned, int xStep, int yStep) {
    return MakeAgent<swCorrMatchAgent>({{src}}, src, r, tpl, result, imgSigned, tplSigned, xStep, yStep);
}
CorrMatchAgent* CorrMatchFact(Buffer* src, int left, int top, int right, int bottom, CorrTemplate* tpl,
                              CorrResult* result, int imgSigned, int tplSigned, int xStep, int yStep) {
    return CorrMatchFact(src, RectFromInts(left, top, right, bottom), tpl, result, imgSigned, tplSigned,
                         xStep, yStep);
}
CorrMatchAgent* CorrMatchFact(Buffer* src, Point* p, ROI* roi, CorrTemplate* tpl, CorrResult* result,
                              int imgSigned, int tplSigned, int xStep, int yStep) {
    return MakeAgent<swCorrMatchAgent>({{src}}, src, p, roi, tpl, result, imgSigned, tplSigned, xStep, yStep);
}
CorrMatchAgent* CorrMatchFact(Buffer* src, CorrTemplate* tpl, CorrPoint* best, int imgSigned, int tplSigned,
                              int xStep, int yStep) {
    return MakeAgent<swCorrMatchAgent>({{src}}, src, tpl, best, imgSigned, tplSigned, xStep, yStep);
}
CorrMatchAgent* CorrMatchFact(Buffer* src, Rect r, CorrTemplate* tpl, CorrPoint* best, int imgSigned,
                              int tplSigned, int xStep, int yStep) {
    return MakeAgent<swCorrMatchAgent>({{src}}, src, r, tpl, best, imgSigned, tplSigned, xStep, yStep);
}
CorrMatchAgent* CorrMatchFact(Buffer* src, int left, int top, int right, int bottom, CorrTemplate* tpl,
                              CorrPoint* best, int imgSigned, int tplSigned, int xStep, int yStep) {
    return CorrMatchFact(src, RectFromInts(left, top, right, bottom), tpl, best, imgSigned, tplSigned, xStep,
                         yStep);
}
CorrMatchAgent* CorrMatchFact(Buffer* src, Point* p, ROI* roi, CorrTemplate* tpl, CorrPoint* best,
                              int imgSigned, int tplSigned, int xStep, int yStep) {
    return MakeAgent<swCorrMatchAgent>({{src}}, src, p, roi, tpl, best, imgSigned, tplSigned, xStep, yStep);
}

// ---- top N ----

std::vector<CorrPoint> CorrTopN(const CorrResult& result, int n, double minDistance) {
    std::vector<CorrPoint> kept;
    if (result._sortedCorrPtList == nullptr || n <= 0) return kept;
    const double min2 = minDistance * minDistance;
    for (int k = 0; k < result._count && static_cast<int>(kept.size()) < n; ++k) {
        const CorrPoint* p = result._sortedCorrPtList[k];
        const bool far = std::all_of(kept.begin(), kept.end(), [&](const CorrPoint& q) {
            const double dx = double(p->_pos.x) - q._pos.x, dy = double(p->_pos.y) - q._pos.y;
            return dx * dx + dy * dy >= min2;
        });
        if (far) kept.push_back(*p);
    }
    return kept;
}

}  // namespace ombrel
