// SPDX-License-Identifier: MIT
/// \file
/// The mask agent: copies the pixels of a source region that lie under the region's mask into a fresh
/// destination image, combining each with the destination pixel by one operation.
///
/// Per-pixel contract (software agent, every SIMD path and any future board agent give the same bytes):
///   1. The whole destination, Width() x Height() bytes walked through its pitch, is set to 0 first
///      (fillWithValue); bytes between a row's width and its pitch are never written.
///   2. The region is placed on the source at the agent's origin and on the destination at (0, 0); every
///      pixel under the region's mask (every pixel of the rectangle when it has none) is visited once, with
///      s = source byte and d = destination byte, both unsigned, and d becomes (modulo 256):
///        MASK_ADD 0: d + s          MASK_SUB 1: d - s          MASK_ABSDIFF 2: |s - d|
///        MASK_AND 3: d & s          MASK_OR 4:  d | s          MASK_XOR 5:     d ^ s
///        MASK_COPY 8: s             MASK_MIN 9: min(d, s)      MASK_MAX 10:    max(d, s)
///        MASK_BAND 11: 1 when low <= s <= high, else d unchanged                MASK_COPY_ALT 13: s
///      Any other code visits nothing. Because the clear comes first, d is 0 at every visit: codes 0, 2, 4,
///      5, 8, 10 and 13 give a masked copy, 3 and 9 give 0, 1 the negated source, 11 a 0/1 band image. This
///      is the agent's intended behaviour, kept as it is.
///   3. Go() returns 0.
/// Work is clipped to the part of the region inside both buffers; both must be 8-bit (otherwise the
/// destination is only cleared, over the bytes of its own rows).
#pragma once
#include <cstdint>

#include "ombrel/framework/agent.h"
#include "ombrel/framework/buffer.h"
#include "ombrel/framework/export.h"
#include "ombrel/framework/geometry.h"
#include "ombrel/framework/roi.h"
#include "ombrel/pixelops/mask_ops.h"

namespace ombrel {

/// The board driver's fill helper, host version: sets `width` bytes of each of `height` rows, `pitch` bytes
/// apart, starting at `base`, to the low byte of `value`. Does nothing for a null base or a non-positive
/// size.
OMBREL_API void fillWithValue(uint8_t* base, int width, int height, int value, int pitch);

/// Copies the source pixels under the region's mask into a cleared destination, combined by one operation
/// (rule in mask.h). Made by MaskFact.
class OMBREL_API MaskAgent : public Agent {
  public:
    ///@{
    /// Band 1..255: with MASK_BAND every non-zero source pixel under the mask becomes 1.
    /// The region `roi` placed at `p` on `src`, written to `dst` from (0, 0) with operation `op` (a MaskOp);
    /// the band `low`..`high` serves MASK_BAND (default 1..255).
    MaskAgent(Buffer* src, Buffer* dst, Point p, const ROI& roi, unsigned op);
    MaskAgent(Buffer* src, Buffer* dst, Point p, const ROI& roi, int low, int high, unsigned op);
    ///@}
    ~MaskAgent() override = default;

    ///@{
    /// The band, the operation code and the destination, as set.
    int BandLow() const { return _bandLow; }
    int BandHigh() const { return _bandHigh; }
    unsigned OpCode() const { return _opCode; }
    Buffer* DstBuf() const { return _dstBuf; }
    /// Re-aim a kept agent (an owning agent re-uses its mask agent between runs).
    void SetBand(int low, int high) {
        _bandLow = low;
        _bandHigh = high;
    }
    void SetDstBuf(Buffer* dst) { _dstBuf = dst; }
    ///@}

  protected:
    int32_t _bandLow = 1;
    int32_t _bandHigh = 255;
    uint32_t _opCode = MASK_COPY;
    Buffer* _dstBuf = nullptr;  ///< not owned
};

/// The software mask agent (host buffers).
class OMBREL_API swMaskAgent : public MaskAgent {
  public:
    ///@{
    /// As MaskAgent's constructors.
    swMaskAgent(Buffer* src, Buffer* dst, Point p, const ROI& roi, unsigned op);
    swMaskAgent(Buffer* src, Buffer* dst, Point p, const ROI& roi, int low, int high, unsigned op);
    ///@}
    int Go() override;
};

///@{
/// The software agent when both buffers are host buffers and the destination is one the library owns
/// (HOST_BUFFER); null for board buffers (no back end yet), a mix, a wrapped destination or no memory.
/// The software mask agent for host buffers; null for board buffers (no back end in this build) or a mix. The
/// last form takes the band and copies with MASK_COPY.
OMBREL_API MaskAgent* MaskFact(Buffer* src, Buffer* dst, Point p, const ROI& roi, unsigned op);
OMBREL_API MaskAgent* MaskFact(Buffer* src, Buffer* dst, Point p, const ROI& roi, int low, int high,
                               unsigned op);
/// Origin given as two ints and the region by pointer; the two trailing ints are the band, and the operation
/// is MASK_BAND, the one the band belongs to. A null region counts as an empty one.
OMBREL_API MaskAgent* MaskFact(Buffer* src, Buffer* dst, int x, int y, ROI* roi, int low, int high);
///@}

}  // namespace ombrel
