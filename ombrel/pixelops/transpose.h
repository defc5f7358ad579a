// SPDX-License-Identifier: MIT
/// \file
/// Transposition: a region of an 8-bit image turned by a quarter turn either way or a half turn, or
/// mirrored top to bottom or left to right, into a destination image.
///
/// Per-pixel contract (the software agent, every SIMD level and any future board agent give these bytes).
/// W and H are the region's width and height, src(c, r) the region's pixel in column c and row r (source
/// pixel origin + (c, r)), dst(x, y) the destination pixel:
///   0 TRANSPOSE_ROT90_CCW   rotate 90 degrees counter-clockwise   dst(r, W - 1 - c)         = src(c, r)
///   1 TRANSPOSE_ROT90_CW    rotate 90 degrees clockwise           dst(H - 1 - r, c)         = src(c, r)
///   2 TRANSPOSE_ROT180      rotate 180 degrees                    dst(W - 1 - c, H - 1 - r) = src(c, r)
///   3 TRANSPOSE_FLIP_TB     mirror top to bottom                  dst(c, H - 1 - r)         = src(c, r)
///   4 TRANSPOSE_FLIP_LR     mirror left to right                  dst(W - 1 - c, r)         = src(c, r)
/// Any other value writes nothing. Destination bytes no source pixel maps to are left as they were; the
/// region's mask, if it has one, is not consulted (its rectangle is turned). Go() returns 0 in every case.
///
/// Preconditions are assertions (module "swtranspose"): both buffers present, then the destination's size
/// for the operation (at least H x W for the quarter turns, W x H for the others); a missing buffer is read
/// as one of 0 x 0 pixels and the agent goes on. Safety: only the pixels of the region inside the source
/// whose mapped position lies inside the destination are copied; positions are never shifted by the cut.
/// Both buffers must be 8-bit.
#pragma once
#include <cstdint>

#include "ombrel/framework/agent.h"
#include "ombrel/framework/buffer.h"
#include "ombrel/framework/export.h"
#include "ombrel/framework/geometry.h"
#include "ombrel/framework/roi.h"

namespace ombrel {

/// Quarter turns, half turn and flips.
enum TransOpType : int32_t {
    TRANSPOSE_ROT90_CCW = 0,
    TRANSPOSE_ROT90_CW = 1,
    TRANSPOSE_ROT180 = 2,
    TRANSPOSE_FLIP_TB = 3,
    TRANSPOSE_FLIP_LR = 4
};

/// Rotation by quarter turns and flips of the source region into the destination (rule in transpose.h). Made
/// by TransposeFact.
class OMBREL_API TransposeAgent : public Agent {
  public:
    ///@{
    /// Operation `op` into `dst`, over the whole source image, the rectangle `r`, or `roi` placed at `p`.
    TransposeAgent(Buffer* src, Buffer* dst, TransOpType op);
    TransposeAgent(Buffer* src, Buffer* dst, Rect r, TransOpType op);
    TransposeAgent(Buffer* src, Buffer* dst, Point p, const ROI& roi, TransOpType op);
    ///@}
    ~TransposeAgent() override = default;

    /// The operation.
    TransOpType Op() const { return _op; }
    /// Sets the operation.
    void SetOp(TransOpType op) { _op = op; }
    /// The destination (not owned).
    Buffer* DstBuf() const { return _dstBuf; }
    /// Replaces the destination.
    void SetDstBuf(Buffer* dst) { _dstBuf = dst; }

  protected:
    TransOpType _op = TRANSPOSE_ROT90_CCW;
    Buffer* _dstBuf = nullptr;  ///< not owned
};

/// The software transpose agent (host buffers).
class OMBREL_API swTransposeAgent : public TransposeAgent {
  public:
    /// The constructors of TransposeAgent.
    using TransposeAgent::TransposeAgent;
    int Go() override;

  private:
    void QuarterTurn(int64_t c0, int64_t c1, int64_t r0, int64_t r1) const;
    void RowByRow(int64_t c0, int64_t c1, int64_t r0, int64_t r1) const;
};

///@{
/// The software agent when the source is a host buffer and the destination one the library owns
/// (HOST_BUFFER); null for board buffers (no back end yet), a mix, a wrapped destination or no memory. The
/// factories make no assertions of their own.
OMBREL_API TransposeAgent* TransposeFact(Buffer* src, Buffer* dst, TransOpType op);
OMBREL_API TransposeAgent* TransposeFact(Buffer* src, Buffer* dst, Rect r, TransOpType op);
OMBREL_API TransposeAgent* TransposeFact(Buffer* src, Buffer* dst, Point p, const ROI& roi, TransOpType op);
///@}

}  // namespace ombrel
