// SPDX-License-Identifier: MIT
#include "ombrel/pixelops/transpose.h"

#include <algorithm>
#include <cstddef>

#include "ombrel/framework/factory.h"
#include "ombrel/framework/hal.h"
#include "ombrel/framework/isa.h"
#include "ombrel/framework/kernel_family.h"
#include "ombrel/pixelops/transpose_kernels.h"

namespace ombrel {

TransposeAgent::TransposeAgent(Buffer* src, Buffer* dst, TransOpType op)
    : Agent(src), _op(op), _dstBuf(dst) {}

TransposeAgent::TransposeAgent(Buffer* src, Buffer* dst, Rect r, TransOpType op)
    : Agent(src, r), _op(op), _dstBuf(dst) {}

TransposeAgent::TransposeAgent(Buffer* src, Buffer* dst, Point p, const ROI& roi, TransOpType op)
    : Agent(src, p, roi), _op(op), _dstBuf(dst) {}

namespace {

constexpr const char* kModule = "swtranspose";

// Columns of a quarter turn done per pass down the region: a band's tiles then touch this many destination
// rows, which stay in the first-level cache until the next band fills their next bytes. 32 rather than 64:
// with a power-of-two pitch 64 destination rows share too few cache sets (1024-pixel images ran half as
// fast), and 32 columns are one AVX2 step.
constexpr int64_t kColumnBlock = 32;

int WidthOf(const Buffer* b) {
    return b != nullptr ? b->Width() : 0;
}
int HeightOf(const Buffer* b) {
    return b != nullptr ? b->Height() : 0;
}
bool Usable(const Buffer* b) {
    return b != nullptr && b->BaseAddr() != nullptr && b->BitsPerPixel() == EIGHT;
}
bool IsQuarterTurn(int op) {
    return op == TRANSPOSE_ROT90_CCW || op == TRANSPOSE_ROT90_CW;
}

// The destination-size assertions of each operation.
void AssertDestinationSize(int op, int roiW, int roiH, int dstW, int dstH) {
    if (op < TRANSPOSE_ROT90_CCW || op > TRANSPOSE_FLIP_LR) return;
    if (IsQuarterTurn(op)) {
        const bool ccw = op == TRANSPOSE_ROT90_CCW;
        Check(dstH >= roiW, kModule, ccw ? 22 : 31, "_dstBuf->Height() >= _sRoi.Width()");
        Check(dstW >= roiH, kModule, ccw ? 23 : 32, "_dstBuf->Width() >= _sRoi.Height()");
        return;
    }
    const int line = op == TRANSPOSE_ROT180 ? 40 : op == TRANSPOSE_FLIP_TB ? 49 : 58;
    Check(dstW >= roiW, kModule, line, "_dstBuf->Width() >= _sRoi.Width()");
    Check(dstH >= roiH, kModule, line + 1, "_dstBuf->Height() >= _sRoi.Height()");
}

}  // namespace

int swTransposeAgent::Go() {
    OMBREL_ASSERT_HERE(kModule, _srcBuf, "_srcBuf");
    OMBREL_ASSERT_HERE(kModule, _dstBuf, "_dstBuf");
    const int op = _op;
    const int64_t W = _sRoi.Width(), H = _sRoi.Height();
    const int64_t dstW = WidthOf(_dstBuf), dstH = HeightOf(_dstBuf);
    AssertDestinationSize(op, _sRoi.Width(), _sRoi.Height(), WidthOf(_dstBuf), HeightOf(_dstBuf));
    if (op < TRANSPOSE_ROT90_CCW || op > TRANSPOSE_FLIP_LR) return 0;
    if (!Usable(_srcBuf) || !Usable(_dstBuf) || W <= 0 || H <= 0) return 0;

    // Region columns [c0, c1) and rows [r0, r1) inside the source...
    int64_t c0 = std::max<int64_t>(0, -int64_t{_sPt.x}),
            c1 = std::min<int64_t>(W, _srcBuf->Width() - int64_t{_sPt.x});
    int64_t r0 = std::max<int64_t>(0, -int64_t{_sPt.y}),
            r1 = std::min<int64_t>(H, _srcBuf->Height() - int64_t{_sPt.y});
    // ...whose mapped positions lie inside the destination.
    switch (op) {
        case TRANSPOSE_ROT90_CCW:  // x = r, y = W - 1 - c
            r1 = std::min(r1, dstW), c0 = std::max(c0, W - dstH);
            break;
        case TRANSPOSE_ROT90_CW:  // x = H - 1 - r, y = c
            r0 = std::max(r0, H - dstW), c1 = std::min(c1, dstH);
            break;
        case TRANSPOSE_ROT180:  // x = W - 1 - c, y = H - 1 - r
            c0 = std::max(c0, W - dstW), r0 = std::max(r0, H - dstH);
            break;
        case TRANSPOSE_FLIP_TB:  // x = c, y = H - 1 - r
            c1 = std::min(c1, dstW), r0 = std::max(r0, H - dstH);
            break;
        default:  // TRANSPOSE_FLIP_LR: x = W - 1 - c, y = r
            c0 = std::max(c0, W - dstW), r1 = std::min(r1, dstH);
            break;
    }
    if (c0 >= c1 || r0 >= r1) return 0;
    if (IsQuarterTurn(op))
        QuarterTurn(c0, c1, r0, r1);
    else
        RowByRow(c0, c1, r0, r1);
    return 0;
}

// Quarter turns by bands of 16 source rows turned tile by tile, in blocks of columns so that the
// destination rows being filled stay in cache. Clockwise feeds each band bottom up, which puts its bytes
// in destination order.
void swTransposeAgent::QuarterTurn(int64_t c0, int64_t c1, int64_t r0, int64_t r1) const {
    const Isa level = ActiveIsa();
    const Buffer& src = *_srcBuf;
    const Buffer& dst = *_dstBuf;
    const int64_t W = _sRoi.Width(), H = _sRoi.Height();
    const bool ccw = _op == TRANSPOSE_ROT90_CCW;
    const int64_t bands = (r1 - r0 + transpose::kBandRows - 1) / transpose::kBandRows;
    for (int64_t cb = c0; cb < c1; cb += kColumnBlock) {
        const int columns = static_cast<int>(std::min(kColumnBlock, c1 - cb));
        const int64_t sx = _sPt.x + cb;
        for (int64_t band = 0; band < bands; ++band) {
            transpose::TileJob job;
            if (ccw) {  // column c -> destination row W - 1 - c, band row k -> destination column rb + k
                const int64_t rb = r0 + band * transpose::kBandRows;
                job.rows = static_cast<int>(std::min<int64_t>(transpose::kBandRows, r1 - rb));
                job.s = src.Row(static_cast<int>(_sPt.y + rb)) + sx;
                job.sStep = src.Pitch();
                job.d = dst.Row(static_cast<int>(W - 1 - cb)) + rb;
                job.dStep = -static_cast<ptrdiff_t>(dst.Pitch());
            } else {  // bands from the bottom up, so that destination rows fill left to right: column c ->
                      // destination row c; fed row k (source row rb + rows - 1 - k) -> column H - rb - rows +
                      // k
                const int64_t rEnd = r1 - band * transpose::kBandRows;
                const int64_t rb = std::max(r0, rEnd - transpose::kBandRows);
                job.rows = static_cast<int>(rEnd - rb);
                job.s = src.Row(static_cast<int>(_sPt.y + rEnd - 1)) + sx;
                job.sStep = -static_cast<ptrdiff_t>(src.Pitch());
                job.d = dst.Row(static_cast<int>(cb)) + (H - rEnd);
                job.dStep = dst.Pitch();
            }
            transpose::kTileKernels.Run(level, 0, columns, job);
        }
    }
}

// Mirrors and the half turn: each source row goes to one destination row, copied or reversed.
void swTransposeAgent::RowByRow(int64_t c0, int64_t c1, int64_t r0, int64_t r1) const {
    const Isa level = ActiveIsa();
    const int64_t W = _sRoi.Width(), H = _sRoi.Height();
    const int n = static_cast<int>(c1 - c0);
    const bool reverse = _op != TRANSPOSE_FLIP_TB;
    const bool upsideDown = _op != TRANSPOSE_FLIP_LR;
    for (int64_t r = r0; r < r1; ++r) {
        transpose::LineJob job;
        job.s = _srcBuf->Row(static_cast<int>(_sPt.y + r)) + (_sPt.x + c0);
        uint8_t* row = _dstBuf->Row(static_cast<int>(upsideDown ? H - 1 - r : r));
        job.d = row + (reverse ? W - 1 - c0 : c0);
        (reverse ? transpose::kReverseKernels : transpose::kCopyKernels).Run(level, 0, n, job);
    }
}

TransposeAgent* TransposeFact(Buffer* src, Buffer* dst, TransOpType op) {
    return MakeAgent<swTransposeAgent>({{src, HostTypes::Any}, {dst, HostTypes::OwnedOnly}}, src, dst, op);
}

TransposeAgent* TransposeFact(Buffer* src, Buffer* dst, Rect r, TransOpType op) {
    return MakeAgent<swTransposeAgent>({{src, HostTypes::Any}, {dst, HostTypes::OwnedOnly}}, src, dst, r, op);
}

TransposeAgent* TransposeFact(Buffer* src, Buffer* dst, Point p, const ROI& roi, TransOpType op) {
    return MakeAgent<swTransposeAgent>({{src, HostTypes::Any}, {dst, HostTypes::OwnedOnly}}, src, dst, p, roi,
                                       op);
}

}  // namespace ombrel
