// SPDX-License-Identifier: MIT
/// \file
/// Pixel arithmetic: a destination image computed byte by byte from source A (unary operations) or from
/// sources A and B (binary operations), then scaled by a gain and shifted by an offset, with optional signed
/// reading, signed writing and clipping.
///
/// Placement: source A is read from the agent's origin over its region, source B from corner B, and the
/// destination is written from (0, 0); region pixel (x, y) meets A(sPt + (x, y)), B(cornerB + (x, y)) and
/// D(x, y). A masked region writes only its spans; destination bytes outside them are left as they were.
///
/// Per-pixel contract (every path -- scalar, SSE2, AVX2 and the packed path behind the vector switch --
/// writes these bytes). a and b are the source bytes, read as signed bytes (-128..127) when that source's
/// sign is set and as unsigned bytes (0..255) otherwise; only the operations whose sign and clipping are
/// adjustable read signs, the others always read unsigned. `low` and `high` are the band (SetBand, default 0
/// and 255).
///
///   op  name        value v                         sources  signs/clip  default clip
///    0  NOT         255 - a  (the bitwise complement)   A       fixed        off
///    1  NEGATE      -a                                  A       fixed        off
///    2  COPY        a                                   A       adjustable   on
///    3  BINARIZE    1 if low <= a <= high, else 0       A       fixed        off
///    4  MASKSHIFT   (a OP mask) << shift  (>> -shift    A       fixed        off
///                   when shift < 0; OP: AND, OR, XOR;
///                   mask's low 8 bits; shift limited
///                   to -7..7)
///    5  ABS         |a|                                 A       adjustable   off
///    6  PASSRANGE   a if low <= a <= high, else 0       A       fixed        off
///    7  ADD         a + b                               A, B    adjustable   on
///    8  SUB         a - b                               A, B    adjustable   on (SetSignClip: off)
///    9  DIFF        |a - b|                             A, B    adjustable   on
///   10  AND         a & b                               A, B    fixed        off
///   11  OR          a | b                               A, B    fixed        off
///   12  XOR         a ^ b                               A, B    fixed        off
///   13  MIN         min(a, b)                           A, B    fixed        off
///   14  MAX         max(a, b)                           A, B    fixed        off
///   15  MULT        a * b, unsigned (MultiplyBuffers)   A, B    adjustable   on
///
/// Gain and offset (SetNorm holds the gain as multiplier m and shift s, m / 2^s ~ gain, and splits the
/// offset into a pre-offset P applied before the gain and a post-offset Q applied after it):
///     r = floor((v + P) * m / 2^s) + Q          exact integers; the shift rounds toward minus infinity
/// With gain exactly 1.0 (m = 1, s = 0) this is r = v + P + Q, the "noGain" routines.
///
/// Writing r (every operation except ADD at gain 1.0 and MULT):
///     unsigned destination: 0 <= r <= 255 -> r
///                           r > 255       -> 255 when the clip flag or the second flag is set, else r & 255
///                           r < 0         -> 0 when the second flag is set, else 255 when the clip flag is
///                                            set, else r & 255   (the clip flag alone turns a negative
///                                            result into 255: it means "overflow to white"; the second
///                                            flag means "clamp to 0..255" and wins)
///     signed destination:   r clamped to -128..127 when the second flag is set; the byte is r & 255
/// ADD at gain exactly 1.0 keeps the 10-bit window of its original routine, quirks included: w = r mod 1024,
/// the byte is w & 255; when 256 <= w < 512 it becomes 255 if the clip flag or the second flag is set; when
/// w >= 512 it becomes 255 if the clip flag is set and then 0 if the second flag is set. The destination sign
/// is not consulted. It agrees with the rule above whenever -512 <= r <= 511 and the destination is unsigned.
///
/// MULT (MultiplyBuffers) reads both sources unsigned and ignores the signs (its parameter block has none);
/// source B is read from its own pixel (0, 0), not from corner B, and the region's bounding rectangle is
/// used (a mask is ignored). With P = 0, m = 1, Q = 0 and the second flag clear (DoMultiplyBuffers): the
/// byte is (a * b) >> s, limited to 255 when the clip flag is set, else its low 8 bits. Otherwise
/// (DoMultiplyBuffersFull): r = floor((a * b + P) * m / 2^s) + Q written by the unsigned rule above.
///
/// Results: word 0 is the sum of the bytes written (as unsigned bytes, modulo 2^32), word 1 the number of
/// written bytes that are not 0. Go() returns 0, or kArithNoImage when a buffer the operation needs is
/// missing, has no pixels or is not 8-bit, or kArithBadOp for an unknown operation (nothing is written then).
///
/// Speed: by default the widest vector kernels the CPU has run wherever they give the bytes above. With
/// SetVectorInstructions(true) (and MMX, SSE and SSE2 present) the packed path runs instead: the gain is held
/// as gain x 128 in 16-bit lanes wherever that is exact, else as m and s; its bytes are the same.
///
/// Safety: all work is clipped to the part of the region inside source A, source B and the destination.
#pragma once
#include <cstdint>

#include "ombrel/framework/agent.h"
#include "ombrel/framework/buffer.h"
#include "ombrel/framework/export.h"
#include "ombrel/framework/geometry.h"
#include "ombrel/framework/isa.h"
#include "ombrel/framework/roi.h"
#include "ombrel/pixelops/arith_ops.h"

namespace ombrel {

/// The two result words of the last Go: word[0] the sum of the bytes written, word[1] the non-zero count.
struct ArithResults {
    /// sum of the bytes written, count of non-zero bytes written
    int32_t word[2] = {0, 0};
};

/// Go() status when a buffer the operation needs is missing, empty or not 8-bit.
constexpr int kArithNoImage = -1;
/// Go() status for an operation code outside 0..15.
constexpr int kArithBadOp = -2;

/// Pixel arithmetic on one or two 8-bit sources into an 8-bit destination; the per-pixel rule of every
/// operation, the gain, offset, sign and clip rules are in arith.h. Made by ArithFact.
class OMBREL_API ArithAgent : public Agent {
  public:
    /// Operation `op` on the rectangle `r` of `srcA` (and `srcB`), scaled by `gain`, shifted by `offset`,
    /// into `dest`.
    ArithAgent(Buffer* srcA, Rect r, Buffer* srcB, ArithOp op, double gain, int offset, Buffer* dest);
    /// A null region pointer gives an empty region.
    ArithAgent(Buffer* srcA, Point p, const ROI* roi, Buffer* srcB, ArithOp op, double gain, int offset,
               Buffer* dest);
    /// Operation `op` over the whole of `srcA`.
    ArithAgent(Buffer* srcA, Buffer* srcB, ArithOp op, double gain, int offset, Buffer* dest);
    ~ArithAgent() override;

    ///@{
    /// Where source B is read: region pixel (x, y) meets B(corner + (x, y)). Default (0, 0).
    virtual void SetCornerB(int x, int y);
    virtual void SetCornerB(Point cornerB);
    ///@}
    /// Runs MULT (Go calls it for that operation); returns Go's status.
    virtual int MultiplyBuffers() = 0;
    /// Runs every operation but MULT (Go calls it); returns Go's status.
    virtual int ProcessOp() = 0;
    int Go() override;

    /// gain in -256..255 and offset in -65536..65791. Out of range is reported, and both are then used as
    /// given: a gain of 255 or more (or -256 or less) becomes multiplier round(gain) with shift 0, so
    /// SetNorm(300, 0) multiplies by 300 and SetNorm(-300, 1000) gives pre-offset -3 and post-offset 100.
    /// Multipliers saturate to 32 bits and a NaN gain gives multiplier 0; every path stays exact for them.
    void SetNorm(double gain, int offset);
    /// Refused, with a note, for the operations whose sign and clipping are fixed. A signed destination
    /// always ends with the clip flag off; ADD and DIFF on an unsigned destination always end with the second
    /// flag off, SUB on an unsigned destination with the clip flag off.
    void SetSignClip(ArithSign signA, ArithSign signB, ArithSign signDest, bool clip, bool flag);
    /// MASKSHIFT's bitwise operation, mask (low 8 bits) and shift (-7..7, negative shifts right).
    void SetMaskShift(ArithMaskOp op, int mask, int shift);
    /// The band of BINARIZE and PASSRANGE, both ends included (default 0 and 255).
    void SetBand(int low, int high);
    /// Replaces source B.
    void SetSrcB(Buffer* srcB);
    /// The result words of the last Go.
    void GetResults(ArithResults* results) const;

    ///@{
    /// The settings as they stand (the gain as given and as split by SetNorm into pre-offset, multiplier,
    /// shift and post-offset; the clip and second flags; the signs; the band).
    ArithOp Op() const { return mOpCode; }
    Buffer* SrcB() const { return mSrcB; }
    Buffer* Dest() const { return mDest; }
    Point CornerB() const { return mCornerB; }
    double Gain() const { return mGain; }
    int Offset() const { return mOffset; }
    int PreOffset() const { return mPreOffset; }
    int Multiplier() const { return mGainMult; }
    int Shift() const { return mGainShift; }
    int PostOffset() const { return mPostOffset; }
    bool Clip() const { return mClip != 0; }
    bool SecondFlag() const { return mSecondFlag != 0; }
    ArithSign SignA() const { return mSignA; }
    ArithSign SignB() const { return mSignB; }
    ArithSign SignDest() const { return mSignDest; }
    int BandLow() const { return mBandLow; }
    int BandHigh() const { return mBandHigh; }
    ///@}

  protected:
    Buffer* mSrcB = nullptr;
    Point mCornerB;
    Buffer* mDest = nullptr;
    ArithOp mOpCode = _ARITH_COPY;
    double mGain = 1.0;
    int32_t mOffset = 0;
    int32_t mPreOffset = 0;
    int32_t mGainMult = 1;
    int32_t mGainShift = 0;  ///< 0..9
    int32_t mPostOffset = 0;
    ArithSign mSignA = _ARITH_UNSIGNED;
    ArithSign mSignB = _ARITH_UNSIGNED;
    ArithSign mSignDest = _ARITH_UNSIGNED;
    int32_t mClip = 0;
    int32_t mSecondFlag = 0;
    int32_t mBandLow = 0;
    int32_t mBandHigh = 255;
    ArithMaskOp mMaskOp = _ARITH_MASK_AND;
    int32_t mMask = 0xFF;
    int32_t mMaskShift = 0;
    int32_t mResults[2] = {0, 0};

  private:
    void Setup(Buffer* srcA, Buffer* dest, ArithOp op, double gain, int offset, Buffer* srcB);
};

/// The software implementation: host buffers.
class OMBREL_API swArithAgent : public ArithAgent {
  public:
    /// The constructors of ArithAgent.
    using ArithAgent::ArithAgent;
    int MultiplyBuffers() override;
    int ProcessOp() override;

  private:
    bool BuffersUsable(bool needB) const;
    bool PackedPath() const;
    Isa KernelLevel() const;
    int DoMultiplyBuffers(const Rect& clip);
    int DoMultiplyBuffersFull(const Rect& clip);
};

///@{
/// Factories: the software agent when every buffer given is a host buffer (either host type), null when
/// board buffers are given (no board back end in this build), for a mix, or when srcA or dest is null. srcB
/// may be null (it is optional here; a binary operation without it reports and fails in Go).
OMBREL_API ArithAgent* ArithFact(Buffer* srcA, Buffer* srcB, ArithOp op, float gain, int offset,
                                 Buffer* dest);
OMBREL_API ArithAgent* ArithFact(Buffer* srcA, Rect r, Buffer* srcB, ArithOp op, float gain, int offset,
                                 Buffer* dest);
OMBREL_API ArithAgent* ArithFact(Buffer* srcA, const Point& p, const ROI& roi, Buffer* srcB, ArithOp op,
                                 float gain, int offset, Buffer* dest);
OMBREL_API ArithAgent* ArithFact(Buffer* srcA, int left, int top, int right, int bottom, Buffer* srcB,
                                 ArithOp op, float gain, int offset, Buffer* dest);
///@}

}  // namespace ombrel
