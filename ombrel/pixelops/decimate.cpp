// SPDX-License-Identifier: MIT
#include "ombrel/pixelops/decimate.h"

#include <algorithm>
#include <cstdint>
#include <new>
#include <vector>

#include "ombrel/framework/factory.h"
#include "ombrel/framework/hal.h"
#include "ombrel/framework/isa.h"
#include "ombrel/framework/kernel_family.h"
#include "ombrel/pixelops/decimate_kernels.h"

namespace ombrel {

DecimateAgent::DecimateAgent(Buffer* src, Buffer* dst, PixelStep step)
    : Agent(src), _dstBuf(dst), _step(step) {}

DecimateAgent::DecimateAgent(Buffer* src, Buffer* dst, Rect r, PixelStep step)
    : Agent(src, r), _dstBuf(dst), _step(step) {}

DecimateAgent::DecimateAgent(Buffer* src, Buffer* dst, Point p, const ROI& roi, PixelStep step)
    : Agent(src, p, roi), _dstBuf(dst), _step(step) {}

namespace {

constexpr const char* kModule = "decimate";

int WidthOf(const Buffer* b) {
    return b != nullptr ? b->Width() : 0;
}
int HeightOf(const Buffer* b) {
    return b != nullptr ? b->Height() : 0;
}
bool Usable(const Buffer* b) {
    return b != nullptr && b->BaseAddr() != nullptr && b->BitsPerPixel() == EIGHT;
}

// The outputs [lo, hi) along one axis whose sample origin + s - 1 + i * s lies inside the source and whose
// index lies inside the destination.
struct Samples {
    int64_t lo = 0, hi = 0;
};
Samples SampleRange(int64_t origin, int64_t extent, int64_t step, int64_t srcSize, int64_t dstSize) {
    const int64_t first = origin + step - 1;
    Samples s;
    s.lo = first >= 0 ? 0 : (-first + step - 1) / step;
    s.hi = std::min(extent / step, dstSize);
    if (srcSize - 1 < first) return Samples{};
    s.hi = std::min(s.hi, (srcSize - 1 - first) / step + 1);
    if (s.hi < s.lo) s.hi = s.lo;
    return s;
}

}  // namespace

int swDecimateAgent::Go() {
    const int roiW = _sRoi.Width(), roiH = _sRoi.Height();
    const int srcW = WidthOf(_srcBuf), srcH = HeightOf(_srcBuf);
    const int dstW = WidthOf(_dstBuf), dstH = HeightOf(_dstBuf);
    OMBREL_ASSERT(kModule, 57, _srcBuf, "_srcBuf");
    OMBREL_ASSERT(kModule, 58, _dstBuf, "_dstBuf");
    if (_step == PIXEL_STEP_2) {
        Check(dstW >= roiW / 2, kModule, 60, "_dstBuf->Width() >= _sRoi.Width()/2");
        Check(dstH >= roiH / 2, kModule, 61, "_dstBuf->Height() >= _sRoi.Height()/2");
    } else if (_step == PIXEL_STEP_1) {
        Check(dstW >= roiW, kModule, 64, "_dstBuf->Width() >= _sRoi.Width()");
        Check(dstH >= roiH, kModule, 65, "_dstBuf->Height() >= _sRoi.Height()");
    }
    Check(_sPt.x >= 0 && _sPt.x < srcW, kModule, 67, "_sPt.x >= 0 && _sPt.x < _srcBuf->Width()");
    Check(_sPt.y >= 0 && _sPt.y < srcH, kModule, 68, "_sPt.y >= 0 && _sPt.y < _srcBuf->Height()");
    Check(roiW != 0, kModule, 69, "_sRoi.Width()");
    Check(roiH != 0, kModule, 73, "_sRoi.Height()");
    Check(int64_t{_sPt.x} + roiW <= srcW, kModule, 74, "_sPt.x + _sRoi.Width() <= _srcBuf->Width()");
    Check(int64_t{_sPt.y} + roiH <= srcH, kModule, 75, "_sPt.y + _sRoi.Height() <= _srcBuf->Height()");

    if (_step != PIXEL_STEP_1 && _step != PIXEL_STEP_2) return 0;
    if (!Usable(_srcBuf) || !Usable(_dstBuf) || roiW <= 0 || roiH <= 0) return 0;
    const int step = _step;
    const Samples cols = SampleRange(_sPt.x, roiW, step, srcW, dstW);
    const Samples rows = SampleRange(_sPt.y, roiH, step, srcH, dstH);
    if (cols.lo >= cols.hi || rows.lo >= rows.hi) return 0;

    // The region's last column and row, cut to the source: where right and lower neighbours stop.
    const int64_t lastX = std::min<int64_t>(int64_t{_sPt.x} + roiW - 1, srcW - 1);
    const int64_t lastY = std::min<int64_t>(int64_t{_sPt.y} + roiH - 1, srcH - 1);
    const int64_t firstX = int64_t{_sPt.x} + step - 1, firstY = int64_t{_sPt.y} + step - 1;
    const int lo = static_cast<int>(cols.lo), hi = static_cast<int>(cols.hi);
    // An output at source column 0 has its left neighbour clamped: it goes alone, so that every vector
    // level can start on the rest of the row.
    const int head = firstX + cols.lo * step < 1 ? lo + 1 : lo;
    const Isa level = ActiveIsa();
    // Step 1 goes through a row of column sums, from the first output's left neighbour to the last one's
    // right neighbour; without memory for it, the one-pass kernels give the same bytes.
    std::vector<uint16_t> sums;
    const int64_t sumBase = std::max<int64_t>(0, firstX + cols.lo - 1);
    const int64_t sumEnd = std::min(lastX, firstX + cols.hi);  // inclusive
    if (step == 1) {
        try {
            sums.resize(static_cast<size_t>(sumEnd - sumBase + 1));
        } catch (const std::bad_alloc&) {
            sums.clear();
        }
    }
    for (int64_t j = rows.lo; j < rows.hi; ++j) {
        const int64_t y = firstY + j * step;
        decimate::RowJob job;
        job.up = _srcBuf->Row(static_cast<int>(y >= 1 ? y - 1 : 0));
        job.mid = _srcBuf->Row(static_cast<int>(y));
        job.down = _srcBuf->Row(static_cast<int>(std::min(y + 1, lastY)));
        job.first = firstX;
        job.last = lastX;
        job.step = step;
        job.d = _dstBuf->Row(static_cast<int>(j));
        if (!sums.empty()) {
            const decimate::ColumnJob columns{job.up + sumBase, job.mid + sumBase, job.down + sumBase,
                                              sums.data()};
            decimate::kColumnSumKernels.Run(level, 0, static_cast<int>(sums.size()), columns);
            const decimate::SumRowJob fromSums{sums.data(), sumBase, firstX, lastX, job.d};
            if (head > lo) decimate::kStepOneKernels.Run(level, lo, head, fromSums);
            decimate::kStepOneKernels.Run(level, head, hi, fromSums);
            continue;
        }
        if (head > lo) decimate::kRowKernels.Run(level, lo, head, job);
        decimate::kRowKernels.Run(level, head, hi, job);
    }
    return 0;
}

DecimateAgent* DecimateFact(Buffer* src, Buffer* dst, PixelStep step) {
    return MakeAgent<swDecimateAgent>({{src, HostTypes::Any}, {dst, HostTypes::Any}}, src, dst, step);
}

DecimateAgent* DecimateFact(Buffer* src, Buffer* dst, Rect r, PixelStep step) {
    return MakeAgent<swDecimateAgent>({{src, HostTypes::Any}, {dst, HostTypes::Any}}, src, dst, r, step);
}

DecimateAgent* DecimateFact(Buffer* src, Buffer* dst, Point p, const ROI& roi, PixelStep step) {
    return MakeAgent<swDecimateAgent>({{src, HostTypes::Any}, {dst, HostTypes::Any}}, src, dst, p, roi, step);
}

DecimateAgent* DecimateFact(Buffer* src, Buffer* dst, int left, int top, int right, int bottom,
                            PixelStep step) {
    return DecimateFact(src, dst, RectFromInts(left, top, right, bottom), step);
}

}  // namespace ombrel
