// SPDX-License-Identifier: MIT
/// \file
/// The projection agent: sums the 8-bit pixels of a rectangular region along its columns or along its rows
/// and writes the normalised sums as one row of 8-bit values (a projection profile), or, with zones, one
/// profile per zone.
///
/// Per-pixel contract (software agent, every SIMD path and any future board agent give the same bytes).
/// The region is the rectangle of the agent's extent at its origin, x0..x1-1 by y0..y1-1 in the image; a
/// mask in the region is ignored. Sums are unsigned 32-bit (they wrap modulo 2^32).
///   1. The whole destination row 0 (all Width() bytes; never the padding) is set to 0.
///   2. Shift: with n the number of pixels in one sum -- the region height for HORIZONTAL and the region
///      width for VERTICAL without zones, the zone size with zones -- the shift is bitlength(n) (1 for n = 1,
///      8 for n = 255, 9 for n = 256). Each output byte is sum >> shift, so it always fits in 8 bits and lies
///      below the mean by up to a factor of 2: this normalisation is intended.
///   3. Without zones: HORIZONTAL (0) writes the sum of column x to destination (x - x0, 0); VERTICAL (1)
///      writes the sum of row y to destination (y - y0, 0).
///   4. With zones of size s and spacing d: HORIZONTAL walks each column downwards: start = y0; while
///      start < y1: end = start + s; when end > y1 the zone moves back to end at y1 (start = y1 - s) and is
///      the last; the k-th zone's sum goes to destination (x - x0, k); the next start is start + d. VERTICAL
///      walks each row from x0 to x1 the same way and writes the k-th zone of row y to (k, y - y0). A zone
///      moved back past the region's first row or column reads the image pixels before it (zones are
///      defined on the image, not on the region).
///   5. Go() runs the assertions below, then the projection, and returns 0.
/// Assertions (module "project"), in order, each reported and then gone past: "_srcBuf" (63), "_dstBuf"
/// (64), "_type == HORIZONTAL || _type == VERTICAL" (65), "_sPt.x >= 0 && _sPt.x < _srcBuf->Width()" (66),
/// "_sPt.y >= 0 && _sPt.y < _srcBuf->Height()" (67), "_sRoi.Width()" (68), "_sRoi.Height()" (69),
/// "_sPt.x + _sRoi.Width() <= _srcBuf->Width()" (70), "_sPt.y + _sRoi.Height() <= _srcBuf->Height()" (71);
/// without zones "_dstBuf->Width() >= _sRoi.Width()" (73, HORIZONTAL) or "_dstBuf->Width() >= _sRoi.Height()"
/// (74, VERTICAL); with zones "_dstBuf->Height() >= _sRoi.Height() / _zoneSpace" (76, HORIZONTAL) or
/// "_dstBuf->Height() >= _sRoi.Width() / _zoneSpace" (77, VERTICAL); last "_dstRow >= 0 && _dstRow <
/// _sRoi.Height()" (79). Checks that read a null source or destination are skipped (its own check failed);
/// with zones and a spacing of 0 (which the checks cannot divide by) 76/77 are reported as failed and each
/// column or row gets only its first zone instead of looping for ever. Safety: pixels outside the source
/// contribute nothing to a sum; outputs that fall outside the destination are dropped; a source or
/// destination that is not 8-bit, or an unknown type, writes nothing but the clear.
#pragma once
#include <cstdint>

#include "ombrel/framework/agent.h"
#include "ombrel/framework/buffer.h"
#include "ombrel/framework/export.h"
#include "ombrel/framework/geometry.h"
#include "ombrel/framework/roi.h"

namespace ombrel {

/// HORIZONTAL (0): one sum per column of the region; VERTICAL (1): one sum per row.
enum ProjectType : int32_t { HORIZONTAL = 0, VERTICAL = 1 };

/// Projection: the normalised sums of the region's columns or rows, written to a row of the destination (rule
/// in project.h). Made by ProjectFact.
class OMBREL_API ProjectAgent : public Agent {
  public:
    ///@{
    /// Projection of `type` into `dst`, over the whole source image, the rectangle `r`, or `roi` placed at
    /// `p`.
    ProjectAgent(Buffer* src, Buffer* dst, ProjectType type);
    ProjectAgent(Buffer* src, Buffer* dst, Rect r, ProjectType type);
    ProjectAgent(Buffer* src, Buffer* dst, Point p, const ROI& roi, ProjectType type);
    ///@}
    ~ProjectAgent() override = default;

    /// Zones of `size` pixels every `space` pixels along each column (row). A size below 5 or a negative
    /// spacing prints a note and turns zones off; the spacing is stored as given in every case.
    void SetZoneSizeSpace(int size, int space);

    /// The destination (not owned).
    Buffer* DstBuf() const { return _dstBuf; }
    /// Columns (HORIZONTAL) or rows (VERTICAL).
    ProjectType Type() const { return _type; }
    /// The destination row written.
    int DstRow() const { return _dstRow; }
    ///@{
    /// Zone size and spacing as set by SetZoneSizeSpace.
    int ZoneSize() const { return _zoneSize; }
    int ZoneSpace() const { return _zoneSpace; }
    ///@}
    /// The normalising shift of the last Go (see the contract above).
    int Shift() const { return _shift; }

  protected:
    /// Reports every failed precondition, in order; the projection goes on regardless.
    void DoAssertions() const;
    /// The number of pixels in one sum and the shift it gives.
    int PixelsPerSum() const;
    /// Bits needed to hold `n`.
    static int BitLength(int64_t n);

    Buffer* _dstBuf = nullptr;  ///< not owned
    ProjectType _type = HORIZONTAL;
    int32_t _dstRow = 0;
    int32_t _shift = 0;
    bool _autoShift = true;
    int32_t _zoneSize = 0;  ///< 0: no zones
    int32_t _zoneSpace = 0;
};

/// The software projection agent (host buffers).
class OMBREL_API swProjectAgent : public ProjectAgent {
  public:
    ///@{
    /// As ProjectAgent's constructors.
    swProjectAgent(Buffer* src, Buffer* dst, Rect r, ProjectType type);
    swProjectAgent(Buffer* src, Buffer* dst, Point p, const ROI& roi, ProjectType type);
    ///@}
    int Go() override;

  private:
    void ProjectColumns();
    void ProjectRows();
};

///@{
/// The software agent when the source is a buffer the library owns (HOST_BUFFER) and the destination any
/// host buffer; null for board buffers (no back end yet), a mix, or no memory. Reports "src && dst"
/// (module "lfproject") when either is missing.
OMBREL_API ProjectAgent* ProjectFact(Buffer* src, Buffer* dst, ProjectType type);
OMBREL_API ProjectAgent* ProjectFact(Buffer* src, Buffer* dst, Rect r, ProjectType type);
OMBREL_API ProjectAgent* ProjectFact(Buffer* src, Buffer* dst, Point p, const ROI& roi, ProjectType type);
OMBREL_API ProjectAgent* ProjectFact(Buffer* src, Buffer* dst, int left, int top, int right, int bottom,
                                     ProjectType type);
///@}

}  // namespace ombrel
