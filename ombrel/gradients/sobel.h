// SPDX-License-Identifier: MIT
/// \file
/// The Sobel agent: one 8-bit output image holding one of ten encodings of the 3x3 Sobel gradient of an
/// 8-bit source region, plus whole-image statistics gathered while it is written.
///
/// Per-pixel contract (software agent, every SIMD path and any future board agent give the same bytes):
///   The region starts at the source point (x0, y0); s = sparseness, Wd x Hd = the destination's size, which
///   (not the region's) sets the extent. Destination pixel (i, j) is the sample at source (x0 + s*i, y0 +
///   s*j). For that sample, with a b c / d e f / g h k its unit-spaced 3x3 neighbourhood (also when s > 1):
///     gx = ((c + 2f + k) - (a + 2d + g)) >> shift,  gy = ((a + 2b + c) - (g + 2h + k)) >> shift
///   (arithmetic shift, rounding toward minus infinity; gy is top minus bottom), each clamped to -127..127.
///   The stored byte v by encoding (m = the length table at (gx, gy), t = the direction table's code):
///     DX gx (two's complement)  DY gy  MAG m (0..180)  ANGLE t  QANGLE (m > threshold) << 7 | t >> 1
///     ABSDX |gx|  ABSDY |gy|  _3M5A (m & 0xE0) | t >> 3  _4GX4GY (gx & 0xF0) | ((gy >> 4) & 0x0F)
///     SUMABS |gx| + |gy|
///   Not computed, and written with the fill value (0; 0x40 for QANGLE): destination rows 0 and Hd - 1,
///   columns 0 and Wd - 1, pixels whose mask bit is clear (masked region: bit (s*i, s*j) of the region's
///   one-bit mask; a bit outside the mask image counts as clear), and pixels whose 3x3 neighbourhood is not
///   wholly inside the source (a region hanging over the source's edge is clipped this way; nothing outside
///   any buffer is read or written). A source that is not 8-bit computes nothing.
///   Statistics (32-bit, wrapping), cleared at every Go and kept over computed pixels only:
///     outputSum += v; nonZeroCount += (v != 0);
///     MAG, ABSDX, ABSDY, SUMABS, QANGLE only: when the figure (v; m for QANGLE) > threshold,
///       strongCount += 1, strongGraySum += e;
///     every encoding, when useThreshold2 and v > threshold2: excessSum += v - threshold2, excessCount += 1.
///   Masked regions: before the routine, every destination pixel (x, y) whose region mask bit (x, y) is clear
///   (region coordinates, not divided by s) is set to 0, through an inverted copy of the mask; when that copy
///   cannot be made (for instance a masked region of no width), Go returns -5500 - |k| (k the copy's status)
///   and writes nothing. An encoding outside 0..9 runs no routine: Go returns 0 after that mask step.
///   Shift values below 0 count as 0 and above 15 as 15 (a 11-bit raw sum is then 0 or -1 either way).
///   Sparseness below 1 computes nothing: the whole destination gets the fill value, the statistics 0.
#pragma once
#include <cstdint>

#include "ombrel/framework/agent.h"
#include "ombrel/framework/buffer.h"
#include "ombrel/framework/export.h"
#include "ombrel/framework/geometry.h"
#include "ombrel/framework/roi.h"
#include "ombrel/gradients/sobel_ops.h"
#include "ombrel/gradients/sobel_tables.h"

namespace ombrel {

/// Base of the status Go returns when the inverted mask image cannot be made.
inline constexpr int32_t kSobelMaskStatusBase = -5500;

/// The 3 x 3 Sobel gradient of an 8-bit region written in one of ten encodings, with statistics gathered
/// while it is written (per-pixel rule in sobel.h). Made by SobelFact.
class OMBREL_API SobelAgent : public Agent {
  public:
    /// Gradient of the rectangle `r` of `src` into `dst` in encoding `out`, both sums shifted right by
    /// `shift`, `threshold` for the strong-pixel statistics and QANGLE, every `sparseness`-th pixel.
    SobelAgent(Buffer* src, Buffer* dst, Rect r, SobelOut out, SobelShift shift, int threshold,
               int sparseness);
    /// As the Rect form, over `roi` placed at `p` (its mask bits select the pixels computed).
    SobelAgent(Buffer* src, Buffer* dst, Point p, const ROI& roi, SobelOut out, SobelShift shift,
               int threshold, int sparseness);
    /// As the Rect form, over the whole source.
    SobelAgent(Buffer* src, Buffer* dst, SobelOut out, SobelShift shift, int threshold, int sparseness);
    ~SobelAgent() override = default;

    /// Replaces the region; a masked region switches masking on.
    void SetSrcROI(const ROI& roi) override;
    /// Masking comes from the source region's mask bits only; a separate mask buffer is not used.
    virtual void SetMaskBuffer(Buffer* mask);

    ///@{
    /// The destination, encoding, shift, thresholds and sparseness (threshold2 counts the excess statistics
    /// when switched on with SetUseThreshold2).
    void SetDstBuf(Buffer* dst) { _dstBuf = dst; }
    void SetSobelOut(SobelOut out) { _sobelOut = out; }
    void SetSobelShift(SobelShift shift) { _sobelShift = shift; }
    void SetThreshold(int threshold) { _threshold = threshold; }
    void SetThreshold2(int threshold) { _threshold2 = threshold; }
    void SetUseThreshold2(bool on) { _useThreshold2 = on ? 1 : 0; }
    void SetSparseness(int sparseness) { _sparseness = sparseness; }
    ///@}

    ///@{
    /// The settings as they stand.
    Buffer* DstBuf() const { return _dstBuf; }
    SobelOut GetSobelOut() const { return _sobelOut; }
    SobelShift GetSobelShift() const { return _sobelShift; }
    int Threshold() const { return _threshold; }
    int Threshold2() const { return _threshold2; }
    bool UseThreshold2() const { return _useThreshold2 != 0; }
    int Sparseness() const { return _sparseness; }
    bool UseMask() const { return _useMask != 0; }
    ///@}

    ///@{
    /// The statistics of the last Go (see sobel.h): strong pixels' grey sum and count, sum and non-zero count
    /// of the written bytes, and the excess over threshold2 with its count.
    int32_t StrongGraySum() const { return _strongGraySum; }
    int32_t StrongCount() const { return _strongCount; }
    int32_t OutputSum() const { return _outputSum; }
    int32_t NonZeroCount() const { return _nonZeroCount; }
    int32_t ExcessSum() const { return _excessSum; }
    int32_t ExcessCount() const { return _excessCount; }
    ///@}

  protected:
    /// Stores the arguments and clears every other setting and accumulator.
    virtual void PreGo(Buffer* dst, SobelOut out, SobelShift shift, int threshold, int sparseness);

    Buffer* _dstBuf = nullptr;  ///< not owned
    SobelShift _sobelShift = SOBEL_SHIFT_0;
    SobelOut _sobelOut = MAG;
    int32_t _threshold = 0;
    int32_t _threshold2 = 0;
    int32_t _useThreshold2 = 0;
    int32_t _sparseness = 1;
    int32_t _useMask = 0;
    int32_t _strongGraySum = 0;
    int32_t _strongCount = 0;
    int32_t _outputSum = 0;
    int32_t _nonZeroCount = 0;
    int32_t _excessSum = 0;
    int32_t _excessCount = 0;
    int32_t _boardResult = 0;  ///< the board's result block only; cleared here
};

/// The software Sobel agent (host buffers).
class OMBREL_API swSobelAgent : public SobelAgent {
  public:
    /// The constructors of SobelAgent.
    using SobelAgent::SobelAgent;
    int Go() override;

  private:
    int ClearMaskedOut();
    void RunRoutine();
};

///@{
/// Factories. Each form checks its region first (lfsobel assertions; a failed one is reported and the agent
/// is still made). The software agent serves host buffers, and SUMABS on any buffers (the board has no such
/// mode); board buffers otherwise have no back end in this build (null); any other mix gives null.
/// The whole-image form checks the source's full rectangle as the Rect form does.
OMBREL_API SobelAgent* SobelFact(Buffer* src, Buffer* dst, SobelOut out, SobelShift shift, int threshold,
                                 int nSparseness);
OMBREL_API SobelAgent* SobelFact(Buffer* src, Buffer* dst, Rect sRect, SobelOut out, SobelShift shift,
                                 int threshold, int nSparseness);
OMBREL_API SobelAgent* SobelFact(Buffer* src, Buffer* dst, Point sPt, ROI* sRoi, SobelOut out,
                                 SobelShift shift, int threshold, int nSparseness);
OMBREL_API SobelAgent* SobelFact(Buffer* src, Buffer* dst, int left, int top, int right, int bottom,
                                 SobelOut out, SobelShift shift, int threshold, int nSparseness);
///@}

}  // namespace ombrel
