// SPDX-License-Identifier: MIT
#include "ombrel/gradients/sobel.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "ombrel/framework/factory.h"
#include "ombrel/framework/hal.h"
#include "ombrel/framework/isa.h"
#include "ombrel/framework/kernel_family.h"
#include "ombrel/framework/region_clip.h"
#include "ombrel/gradients/sobel_kernels.h"

namespace ombrel {

SobelAgent::SobelAgent(Buffer* src, Buffer* dst, Rect r, SobelOut out, SobelShift shift, int threshold,
                       int sparseness)
    : Agent(src, r) {
    PreGo(dst, out, shift, threshold, sparseness);
}

SobelAgent::SobelAgent(Buffer* src, Buffer* dst, Point p, const ROI& roi, SobelOut out, SobelShift shift,
                       int threshold, int sparseness)
    : Agent(src, p, roi) {
    PreGo(dst, out, shift, threshold, sparseness);
    _useMask = _sRoi.GetMaskbits() != nullptr ? 1 : 0;
}

SobelAgent::SobelAgent(Buffer* src, Buffer* dst, SobelOut out, SobelShift shift, int threshold,
                       int sparseness)
    : Agent(src) {
    PreGo(dst, out, shift, threshold, sparseness);
}

void SobelAgent::PreGo(Buffer* dst, SobelOut out, SobelShift shift, int threshold, int sparseness) {
    _dstBuf = dst;
    _sobelOut = out;
    _sobelShift = shift;
    _threshold = threshold;
    _sparseness = sparseness;
    _threshold2 = 0;
    _useThreshold2 = 0;
    _useMask = 0;
    _strongGraySum = _strongCount = _outputSum = _nonZeroCount = _excessSum = _excessCount = _boardResult = 0;
}

void SobelAgent::SetSrcROI(const ROI& roi) {
    Agent::SetSrcROI(roi);
    _useMask = _sRoi.GetMaskbits() != nullptr ? 1 : 0;
}

void SobelAgent::SetMaskBuffer(Buffer*) {}

namespace {

bool IsWritable8Bit(const Buffer* b) {
    return b != nullptr && b->BaseAddr() != nullptr && b->BitsPerPixel() == EIGHT;
}

int64_t FloorDiv(int64_t a, int64_t b) {
    return a >= 0 ? a / b : -((-a + b - 1) / b);
}

void FillRow(uint8_t* row, int64_t from, int64_t to, uint8_t fill) {
    if (from < to) std::memset(row + from, fill, static_cast<size_t>(to - from));
}

// One-bit mask bit (x, y); a bit outside the mask image counts as clear.
bool MaskBit(const Buffer& mask, int64_t x, int64_t y) {
    if (mask.BaseAddr() == nullptr || mask.BitsPerPixel() != ONE) return false;
    if (x < 0 || y < 0 || x >= mask.Width() || y >= mask.Height()) return false;
    return (mask.Row(static_cast<int>(y))[x / 8] & (0x80 >> (x % 8))) != 0;
}

}  // namespace

// Every destination pixel whose region mask bit is clear starts at 0: the spans of an inverted copy of the
// mask, walked over the destination from its origin.
int swSobelAgent::ClearMaskedOut() {
    Buffer inverted(_sRoi.Width(), _sRoi.Height(), ONE);
    if (inverted.GetError() != 0) return kSobelMaskStatusBase - std::abs(inverted.GetError());
    if (const Buffer* mask = _sRoi.GetMaskbits(); mask != nullptr && mask->BitsPerPixel() == ONE)
        inverted.CopyFrom(mask);
    const int64_t rowBytes = Buffer::RowBytes(inverted.Width(), ONE);
    for (int y = 0; y < inverted.Height(); ++y) {
        uint8_t* row = inverted.Row(y);
        for (int64_t b = 0; b < rowBytes; ++b) row[b] = static_cast<uint8_t>(~row[b]);
    }
    if (!IsWritable8Bit(_dstBuf)) return 0;
    const ROI excluded(&inverted);
    const Buffer& dst = *_dstBuf;
    ForEachSpan(
        excluded, ClipRegionToBuffers(excluded, {{_dstBuf, Point{0, 0}}}),
        [&](int row, int column, int length) { std::memset(dst.Row(row) + column, 0, size_t(length)); });
    return 0;
}

void swSobelAgent::RunRoutine() {
    _strongGraySum = _strongCount = _outputSum = _nonZeroCount = _excessSum = _excessCount = 0;
    if (!IsWritable8Bit(_dstBuf)) return;
    const Buffer& dst = *_dstBuf;
    const int wd = dst.Width(), hd = dst.Height();
    const uint8_t fill = SobelFillValue(_sobelOut);
    const int64_t s = _sparseness;
    const bool srcOk = IsWritable8Bit(_srcBuf);
    if (s < 1 || !srcOk) {
        for (int j = 0; j < hd; ++j) FillRow(dst.Row(j), 0, wd, fill);
        return;
    }
    const Buffer& src = *_srcBuf;
    const int64_t x0 = _sPt.x, y0 = _sPt.y;
    // Output columns whose neighbourhood lies inside the source: x0 + s*i - 1 >= 0, x0 + s*i + 1 < width.
    const int64_t iLo = std::max<int64_t>(1, -FloorDiv(x0 - 1, s));
    const int64_t iHi = std::min<int64_t>(wd - 1, FloorDiv(src.Width() - 2 - x0, s) + 1);
    const int64_t n = std::max<int64_t>(iHi - iLo, 0);
    const Buffer* mask = _useMask != 0 ? _sRoi.GetMaskbits() : nullptr;

    std::vector<uint8_t> keep(mask != nullptr ? size_t(n) : 0);
    std::vector<uint8_t> planes(s > 1 ? size_t(n) * 9 : 0);
    uint64_t acc[6] = {};
    sobel::RowJob job;
    job.out = _sobelOut;
    job.shift = std::clamp<int>(_sobelShift, 0, 15);
    job.threshold = _threshold, job.threshold2 = _threshold2, job.useThreshold2 = _useThreshold2 != 0;
    job.directions = SobelDirectionBytes();
    job.acc = acc;
    job.keep = mask != nullptr ? keep.data() : nullptr;
    const Isa level = ActiveIsa();

    for (int j = 0; j < hd; ++j) {
        uint8_t* row = dst.Row(j);
        const int64_t y = y0 + s * j;
        if (j == 0 || j >= hd - 1 || n == 0 || y - 1 < 0 || y + 1 >= src.Height()) {
            FillRow(row, 0, wd, fill);
            continue;
        }
        FillRow(row, 0, iLo, fill);
        FillRow(row, iHi, wd, fill);
        for (int r = 0; r < 3; ++r) {
            const uint8_t* srcRow = src.Row(static_cast<int>(y + r - 1));
            for (int c = 0; c < 3; ++c) {
                const int64_t first = x0 + s * iLo + c - 1;
                if (s == 1) {
                    job.p[r][c] = srcRow + first;
                    continue;
                }
                uint8_t* plane = planes.data() + size_t(r * 3 + c) * size_t(n);
                for (int64_t i = 0; i < n; ++i) plane[i] = srcRow[first + s * i];
                job.p[r][c] = plane;
            }
        }
        if (mask != nullptr)
            for (int64_t i = 0; i < n; ++i) keep[i] = MaskBit(*mask, s * (iLo + i), s * j) ? 1 : 0;
        job.d = row + iLo;
        sobel::kRowKernels.Run(level, 0, static_cast<int>(n), job);
    }
    // The accumulators are 32-bit and wrap.
    _strongGraySum = static_cast<int32_t>(static_cast<uint32_t>(acc[sobel::kStrongGraySum]));
    _strongCount = static_cast<int32_t>(static_cast<uint32_t>(acc[sobel::kStrongCount]));
    _outputSum = static_cast<int32_t>(static_cast<uint32_t>(acc[sobel::kOutputSum]));
    _nonZeroCount = static_cast<int32_t>(static_cast<uint32_t>(acc[sobel::kNonZeroCount]));
    _excessSum = static_cast<int32_t>(static_cast<uint32_t>(acc[sobel::kExcessSum]));
    _excessCount = static_cast<int32_t>(static_cast<uint32_t>(acc[sobel::kExcessCount]));
}

int swSobelAgent::Go() {
    try {
        if (_useMask != 0)
            if (const int status = ClearMaskedOut(); status != 0) return status;
        if (!IsSobelOut(_sobelOut)) return 0;
        RunRoutine();
    } catch (const std::bad_alloc&) {
        return kSobelMaskStatusBase - std::abs(int{BUFFER_NO_MEMORY});
    }
    return 0;
}

namespace {

constexpr const char* kFactoryModule = "lfsobel";

// The region checks of the factories, evaluated without dividing by zero or reading a null buffer: either
// makes the check fail.
bool RoiFits(const Buffer* src, const Buffer* dst, Point sPt, const ROI* sRoi, int nSparseness) {
    if (src == nullptr || dst == nullptr || sRoi == nullptr || nSparseness == 0) return false;
    return !((sPt.x < 0) || (sPt.y < 0) || (int64_t{sPt.x} + sRoi->Width() > src->Width()) ||
             (int64_t{sPt.y} + sRoi->Height() > src->Height()) ||
             ((sRoi->Width() / nSparseness) > dst->Width()) ||
             ((sRoi->Height() / nSparseness) > dst->Height()));
}

bool RectFits(const Buffer* src, const Buffer* dst, const Rect& sRect, int nSparseness) {
    if (src == nullptr || dst == nullptr || nSparseness == 0) return false;
    return !((sRect.left < 0) || (sRect.top < 0) || (sRect.right > src->Width()) ||
             (sRect.bottom > src->Height()) ||
             (((int64_t{sRect.right} - sRect.left) / nSparseness) > dst->Width()) ||
             (((int64_t{sRect.bottom} - sRect.top) / nSparseness) > dst->Height()));
}

void CheckRect(const Buffer* src, const Buffer* dst, const Rect& sRect, int nSparseness) {
    Check(RectFits(src, dst, sRect, nSparseness), kFactoryModule, __LINE__,
          "!((sRect.left<0) || (sRect.top<0) || (sRect.right > src->Width()) || (sRect.bottom > "
          "src->Height()) || ( ((sRect.right - sRect.left) / nSparseness) > dst->Width()) || ( "
          "((sRect.bottom - "
          "sRect.top) / nSparseness) > dst->Height()))");
}

template <class... Args>
SobelAgent* Make(Buffer* src, Buffer* dst, SobelOut out, Args&&... args) {
    const Implementation impl = ChooseImplementation({{src}, {dst}});
    if (impl == Implementation::Software || out == SUMABS) {
        try {
            return new (std::nothrow) swSobelAgent(src, dst, std::forward<Args>(args)...);
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
    }
    if (impl == Implementation::Board) NoteNoBoardBackEnd();
    return nullptr;
}

}  // namespace

SobelAgent* SobelFact(Buffer* src, Buffer* dst, SobelOut out, SobelShift shift, int threshold,
                      int nSparseness) {
    const Rect whole{0, 0, src != nullptr ? src->Width() : 0, src != nullptr ? src->Height() : 0};
    CheckRect(src, dst, whole, nSparseness);
    return Make(src, dst, out, out, shift, threshold, nSparseness);
}

SobelAgent* SobelFact(Buffer* src, Buffer* dst, Rect sRect, SobelOut out, SobelShift shift, int threshold,
                      int nSparseness) {
    CheckRect(src, dst, sRect, nSparseness);
    return Make(src, dst, out, sRect, out, shift, threshold, nSparseness);
}

SobelAgent* SobelFact(Buffer* src, Buffer* dst, Point sPt, ROI* sRoi, SobelOut out, SobelShift shift,
                      int threshold, int nSparseness) {
    Check(RoiFits(src, dst, sPt, sRoi, nSparseness), kFactoryModule, __LINE__,
          "!( (sPt.x<0) || (sPt.y<0) || (sPt.x+sRoi->Width() > src->Width()) || (sPt.y+sRoi->Height() > "
          "src->Height()) || ((sRoi->Width() / nSparseness) > dst->Width()) || ((sRoi->Height() / "
          "nSparseness) > "
          "dst->Height()))");
    const ROI empty;
    return Make(src, dst, out, sPt, sRoi != nullptr ? *sRoi : empty, out, shift, threshold, nSparseness);
}

SobelAgent* SobelFact(Buffer* src, Buffer* dst, int left, int top, int right, int bottom, SobelOut out,
                      SobelShift shift, int threshold, int nSparseness) {
    return SobelFact(src, dst, RectFromInts(left, top, right, bottom), out, shift, threshold, nSparseness);
}

}  // namespace ombrel
