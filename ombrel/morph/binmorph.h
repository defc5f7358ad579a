// SPDX-License-Identifier: MIT
/// \file
/// Binary morphology: one 3x3 neighbourhood operation, held as a 512-entry bit table, applied any number of
/// times to a binary image stored one byte per pixel.
///
/// Pixels: bit value 1 is the binary value; bit value 2 freezes a pixel. The 9-bit neighbourhood code of a
/// pixel has one bit per cell of its 3x3 window, each the cell's bit value 1:
///     bit 2 upper left   bit 1 upper    bit 0 upper right
///     bit 5 left         bit 4 centre   bit 3 right
///     bit 8 lower left   bit 7 lower    bit 6 lower right
/// The table is 16 words; the result for code c is bit (c mod 32) of word (c / 32).
///
/// Per-pixel contract of one pass (software agent, every SIMD path and any future board agent give these
/// bytes). The pass works on a rectangle of w x h pixels read from `in` at an origin and written to `out`
/// from its own origin:
///   - a neighbour outside the rectangle reads the border mode's value (BMBORDER_CLEAR: 0, BMBORDER_SET: 1);
///     a rectangle 1 pixel wide or high is no special case: both of its side columns (or rows) lie outside
///     and read the border value;
///   - a frozen pixel (bit value 2 set) is copied as its whole byte and is never looked up;
///   - every other pixel is written as its table bit, 0 or 1;
///   - the pass counts the written pixels whose bit value 1 is set (frozen ones included).
/// Rows are read before any row they border is written, so `in` and `out` may be the same buffer.
///
/// Go() with an iteration count n:
///   n <= 0: nothing changes. n == 1: one pass, source (agent's origin and region) to destination (0, 0).
///   n >= 2: a temporary copy of the destination (its failure returns -3500 - |status|, destination
///   unchanged); while two or more remain: one pass into the temporary buffer (the first from the source's
///   region, later ones from the destination's whole area), one pass from the temporary buffer's whole area
///   into the destination; with one left: a pass from the destination's whole area into the temporary
///   buffer, then the temporary buffer copied into the destination. The whole-area passes stop early once a
///   pass changes nothing, since every later pass would repeat it: the bytes and counts are the same, and a
///   huge count costs no more than the passes the image needs to settle (an operation that never settles
///   runs every pass).
///   Finally the changed flag is 0, or 1 with the previous count replaced when the last pass's set-pixel
///   count differs from it. Go() returns 0.
///
/// Regions: the region's bounding rectangle is processed (a mask is not consulted). Work is clipped to the
/// part of the region inside both buffers, and the clipped rectangle is the one whose outside reads the
/// border value; with nothing inside, no pixel is touched. Buffers that are not 8-bit are not touched.
/// A null operator, or one without a table, writes 0 for every pixel that is not frozen.
///
/// Speed: each row is reduced once to 3-bit codes shared by the three output rows that read it; at AVX2 and
/// AVX-512 the table is read with byte shuffles for a whole vector of pixels at once (SSE2 has no byte
/// shuffle and runs the scalar reference). Iterations alternate between the destination and one temporary
/// buffer; nothing is allocated per pass.
#pragma once
#include <cstdint>

#include "ombrel/framework/agent.h"
#include "ombrel/framework/buffer.h"
#include "ombrel/framework/export.h"
#include "ombrel/framework/geometry.h"
#include "ombrel/framework/roi.h"
#include "ombrel/morph/binmorph_ops.h"

namespace ombrel {

/// Error of an operator built for a code outside 0..17 (or from a null table).
constexpr int kBinMorphUnknownOp = 3001;

/// Status base of a failed temporary buffer: Go returns kBinMorphTempBase - |status|.
constexpr int kBinMorphTempBase = -3500;

/// The table of an operation. Rules of the predefined ones (n = set bits among all nine, ctr = bit 4):
///    0 ErodeKeep6   ctr and n >= 7            1 ErodeFull      ctr and n = 9
///    2 DilateMin2   ctr, or n >= 2            3 Copy           ctr
///    4 ErodeKeep2   ctr and n >= 3            6 DilateFull     n >= 1
///    5 KeepSquareOrDiagonal  the code holds all bits of one of 27, 54, 216, 432, 94, 307, 409, 244
///    7 FillBridges  ctr; or, ctr clear, the set bits are not all inside one of 417, 204, 102, 267, 484,
///                   457, 295, 79
///    8..13          0 when the GrowNoMergeLut entry of the code is 1 and the trigger holds (8: right or
///                   lower set; 9: upper or left set; 10 Up: lower set, upper clear; 11 Down: upper set,
///                   lower clear; 12 Left: right set, left clear; 13 Right: left set, right clear);
///                   otherwise 0 for an end pixel (n = 1; n = 2 with ctr; or the code is one of 21, 81,
///                   336, 276, 85, 277, 340, 337, 341); otherwise ctr
///   14 ETPTL        ctr and none of the bits 75      15 ETPBR   ctr and none of the bits 420
///   16 TFP          ctr and n <= 7                   17 FillPinholes  ctr; or ctr clear and n = 8
class OMBREL_API BinMorphOperator {
  public:
    /// The table of predefined operation `code` (0..17; others set error 3001).
    explicit BinMorphOperator(BinMorphOpCode code);
    /// Copies 16 words as the table; a null pointer gives an operator without a table (error 3001).
    explicit BinMorphOperator(const unsigned int* lut);

    /// The table bit of a code, non-zero when set; 0 without a table and for codes outside 0..511.
    int Bmo(int code) const;
    /// Builds the table of a predefined operation; a code above 17 (or below 0) sets error 3001 and
    /// leaves the operator without a table.
    void BuildLut(int code);

    /// 0, or kBinMorphUnknownOp when the operator has no table.
    int GetError() const { return _error; }
    /// The table in use: 16 words, or null when the error is set.
    const uint32_t* Lut() const { return _lutInUse; }

  private:
    int32_t _error = 0;
    uint32_t _lut[16] = {};
    const uint32_t* _lutInUse = nullptr;
};

/// Fills the process-wide GrowNoMergeLut (once; later calls find it filled). Called whenever a table is
/// built.
OMBREL_API void CreateGrowNoMergeLut();
/// The 256 entries, indexed by the complement of the 8-bit neighbour code (bits 0-3 of the 9-bit code as
/// they are, bits 5-8 moved down to 4-7): entry 1 when the clear neighbours form at most one 8-connected
/// group within the ring (133 entries). Filled on first use.
OMBREL_API const uint8_t* GrowNoMergeLut();
/// The entry for a 9-bit code.
OMBREL_API int GrowNoMergeEntry(int code);

/// Binary morphology: each pass replaces every pixel by its operator's table bit for the pixel's 3 x 3
/// neighbourhood code, `iterations` passes in a row (rules in binmorph.h). Made by BinMorphFact.
class OMBREL_API BinMorphAgent : public Agent {
  public:
    ///@{
    /// Operator `op` applied `iterations` times from `src` into `dst`, with `border` for pixels outside, over
    /// the whole source, the rectangle `r`, or `roi` placed at `p`.
    BinMorphAgent(Buffer* src, Buffer* dst, BMBORDER border, BinMorphOperator* op, int iterations);
    BinMorphAgent(Buffer* src, Buffer* dst, Rect r, BMBORDER border, BinMorphOperator* op, int iterations);
    BinMorphAgent(Buffer* src, Buffer* dst, Point p, const ROI& roi, BMBORDER border, BinMorphOperator* op,
                  int iterations);
    ///@}
    ~BinMorphAgent() override = default;

    int Go() override;
    /// Runs with operator `op` instead of the one set (Go() runs with the one set).
    virtual int Go(BinMorphOperator* op) = 0;

    ///@{
    /// The destination, border mode, operator and pass count, as set.
    void SetDstBuf(Buffer* dst) { _dstBuf = dst; }
    void SetBorder(BMBORDER border) { _border = border; }
    void SetOperator(BinMorphOperator* op) { _op = op; }
    void SetIterations(int iterations) { _iterations = iterations; }

    Buffer* DstBuf() const { return _dstBuf; }
    BMBORDER Border() const { return _border; }
    BinMorphOperator* Operator() const { return _op; }
    int Iterations() const { return _iterations; }
    ///@}
    /// Set pixels written by the last pass of the last Go.
    int SetPixelCount() const { return _count; }
    /// SetPixelCount() of the run before the last.
    int PreviousCount() const { return _previousCount; }
    /// 1 when the last Go's count differed from the previous run's, else 0.
    int Changed() const { return _changed; }
    /// Status of the temporary buffer of the last Go (0, or the buffer's error).
    int TempBufferStatus() const { return _tempStatus; }

  protected:
    Buffer* _dstBuf = nullptr;  ///< not owned
    BMBORDER _border = BMBORDER_CLEAR;
    BinMorphOperator* _op = nullptr;  ///< not owned; may be shared by several agents
    int32_t _iterations = 1;
    int32_t _count = 0;
    int32_t _previousCount = 0;
    int32_t _changed = 0;
    int32_t _tempStatus = 0;
};

/// The software binary-morphology agent (host buffers).
class OMBREL_API swBinMorphAgent : public BinMorphAgent {
  public:
    /// The constructors of BinMorphAgent.
    using BinMorphAgent::BinMorphAgent;
    using BinMorphAgent::Go;
    int Go(BinMorphOperator* op) override;
};

///@{
/// Factories. "(src->Width() == dst->Width()) && (src->Height() == dst->Height())" is asserted (module
/// lfbinmorph) and different sizes (or a missing buffer) give null. A host source (either host type) with a
/// destination the library owns (HOST_BUFFER) gives the software agent; board buffers give null in this build
/// (no board back end), any other mix null.
OMBREL_API BinMorphAgent* BinMorphFact(Buffer* src, Buffer* dst, BMBORDER border, BinMorphOperator* op,
                                       int iterations);
OMBREL_API BinMorphAgent* BinMorphFact(Buffer* src, Buffer* dst, Rect r, BMBORDER border,
                                       BinMorphOperator* op, int iterations);
OMBREL_API BinMorphAgent* BinMorphFact(Buffer* src, Buffer* dst, Point p, const ROI& roi, BMBORDER border,
                                       BinMorphOperator* op, int iterations);
OMBREL_API BinMorphAgent* BinMorphFact(Buffer* src, Buffer* dst, int left, int top, int right, int bottom,
                                       BMBORDER border, BinMorphOperator* op, int iterations);
///@}

}  // namespace ombrel
