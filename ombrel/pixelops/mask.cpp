// SPDX-License-Identifier: MIT
#include "ombrel/pixelops/mask.h"

#include <algorithm>
#include <cstring>

#include "ombrel/framework/factory.h"
#include "ombrel/framework/isa.h"
#include "ombrel/framework/kernel_family.h"
#include "ombrel/framework/region_clip.h"
#include "ombrel/pixelops/mask_kernels.h"

namespace ombrel {

void fillWithValue(uint8_t* base, int width, int height, int value, int pitch) {
    if (base == nullptr || width <= 0 || height <= 0) return;
    const auto byte = static_cast<uint8_t>(value);
    if (pitch == width) {
        std::memset(base, byte, static_cast<size_t>(width) * static_cast<size_t>(height));
        return;
    }
    for (int y = 0; y < height; ++y) std::memset(base + int64_t{y} * pitch, byte, static_cast<size_t>(width));
}

MaskAgent::MaskAgent(Buffer* src, Buffer* dst, Point p, const ROI& roi, unsigned op)
    : Agent(src, p, roi), _opCode(op), _dstBuf(dst) {}

MaskAgent::MaskAgent(Buffer* src, Buffer* dst, Point p, const ROI& roi, int low, int high, unsigned op)
    : Agent(src, p, roi), _bandLow(low), _bandHigh(high), _opCode(op), _dstBuf(dst) {}

swMaskAgent::swMaskAgent(Buffer* src, Buffer* dst, Point p, const ROI& roi, unsigned op)
    : MaskAgent(src, dst, p, roi, op) {}

swMaskAgent::swMaskAgent(Buffer* src, Buffer* dst, Point p, const ROI& roi, int low, int high, unsigned op)
    : MaskAgent(src, dst, p, roi, low, high, op) {}

namespace {

bool IsKnownOp(uint32_t op) {
    switch (op) {
        case MASK_ADD:
        case MASK_SUB:
        case MASK_ABSDIFF:
        case MASK_AND:
        case MASK_OR:
        case MASK_XOR:
        case MASK_COPY:
        case MASK_MIN:
        case MASK_MAX:
        case MASK_BAND:
        case MASK_COPY_ALT:
            return true;
        default:
            return false;
    }
}

// Clears the destination row by row through its pitch: for 8-bit images `width` bytes per row, as the fill
// helper is given; a destination of another depth is cleared over its own row bytes, never past its pitch.
void ClearDestination(const Buffer& dst) {
    const int64_t rowBytes =
        std::min<int64_t>(Buffer::RowBytes(dst.Width(), dst.BitsPerPixel()), dst.Pitch());
    fillWithValue(dst.BaseAddr(), static_cast<int>(rowBytes), dst.Height(), 0, dst.Pitch());
}

}  // namespace

int swMaskAgent::Go() {
    if (_dstBuf == nullptr || _dstBuf->BaseAddr() == nullptr) return 0;
    ClearDestination(*_dstBuf);
    if (!IsKnownOp(_opCode) || _srcBuf == nullptr) return 0;
    if (_srcBuf->BitsPerPixel() != EIGHT || _dstBuf->BitsPerPixel() != EIGHT) return 0;

    const Rect clip = ClipRegionToBuffers(_sRoi, {{_srcBuf, _sPt}, {_dstBuf, Point{0, 0}}});
    const Isa level = ActiveIsa();
    const Buffer& src = *_srcBuf;
    const Buffer& dst = *_dstBuf;
    ForEachSpan(_sRoi, clip, [&](int row, int column, int length) {
        mask::SpanJob job;
        job.op = _opCode, job.low = _bandLow, job.high = _bandHigh;
        job.s = src.Row(_sPt.y + row) + _sPt.x + column;
        job.d = dst.Row(row) + column;
        mask::kSpanKernels.Run(level, 0, length, job);
    });
    return 0;
}

MaskAgent* MaskFact(Buffer* src, Buffer* dst, Point p, const ROI& roi, unsigned op) {
    return MakeAgent<swMaskAgent>({{src, HostTypes::Any}, {dst, HostTypes::OwnedOnly}}, src, dst, p, roi, op);
}

MaskAgent* MaskFact(Buffer* src, Buffer* dst, Point p, const ROI& roi, int low, int high, unsigned op) {
    return MakeAgent<swMaskAgent>({{src, HostTypes::Any}, {dst, HostTypes::OwnedOnly}}, src, dst, p, roi, low,
                                  high, op);
}

MaskAgent* MaskFact(Buffer* src, Buffer* dst, int x, int y, ROI* roi, int low, int high) {
    const ROI empty;
    return MaskFact(src, dst, Point{x, y}, roi != nullptr ? *roi : empty, low, high, MASK_BAND);
}

}  // namespace ombrel
