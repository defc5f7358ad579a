// SPDX-License-Identifier: MIT
/// \file
/// Decimation: a region of an 8-bit image smoothed with the 3x3 binomial kernel and sampled every first or
/// every second pixel in both directions (step 2 halves the region).
///
/// Per-pixel contract (the software agent, every SIMD level and any future board agent give these bytes).
/// With s the step, the region's columns x0 .. xl and rows y0 .. yl (x0 = origin x, xl = x0 + width - 1,
/// likewise for rows):
///   - the sampled columns are x0 + s - 1, x0 + 2s - 1, ... up to xl, the sampled rows likewise; output
///     pixel (i, j), the i-th sampled column and the j-th sampled row, is written to destination (i, j);
///     an output is width / s columns by height / s rows;
///   - the neighbours of a sample (x, y) are clamped lopsidedly, on purpose: a neighbour before the sample
///     is clamped only at the image's first column or row (x - 1 is taken as 0 when x < 1), so a region away
///     from the image's top-left edge reads one pixel outside itself above and to the left; a neighbour after
///     the sample is clamped at the region's last column or row (min(x + 1, xl), min(y + 1, yl));
///   - out = (4 * centre + 2 * (left + right + up + down) + the four diagonal neighbours) >> 4, an exact
///     integer sum with a truncating shift.
/// The region's mask, if it has one, is not consulted: the region's rectangle is decimated.
/// Steps other than 1 and 2 write nothing. Go() returns 0 in every case.
///
/// Preconditions are assertions (module "decimate"); the agent then goes on with what it has, reading a
/// missing buffer as one of 0 x 0 pixels. Safety: a region hanging over the source is cut to it (its last
/// column and row become the source's last where they lay beyond), samples outside the source are skipped,
/// and outputs are written only where they fall inside the destination. Both buffers must be 8-bit.
#pragma once

#include "ombrel/framework/agent.h"
#include "ombrel/framework/buffer.h"
#include "ombrel/framework/export.h"
#include "ombrel/framework/geometry.h"
#include "ombrel/framework/roi.h"

namespace ombrel {

/// The sampling step.
enum PixelStep : int32_t { PIXEL_STEP_1 = 1, PIXEL_STEP_2 = 2 };

/// Decimation: every `step`-th pixel of the source region, in both directions, written from (0, 0) of the
/// destination (rule in decimate.h). Made by DecimateFact.
class OMBREL_API DecimateAgent : public Agent {
  public:
    ///@{
    /// Every `step`-th pixel into `dst`, over the whole source image, the rectangle `r`, or `roi` placed at
    /// `p`.
    DecimateAgent(Buffer* src, Buffer* dst, PixelStep step);
    DecimateAgent(Buffer* src, Buffer* dst, Rect r, PixelStep step);
    DecimateAgent(Buffer* src, Buffer* dst, Point p, const ROI& roi, PixelStep step);
    ///@}
    ~DecimateAgent() override = default;

    /// The destination (not owned).
    Buffer* DstBuf() const { return _dstBuf; }
    /// Replaces the destination.
    void SetDstBuf(Buffer* dst) { _dstBuf = dst; }
    /// The step.
    PixelStep Step() const { return _step; }
    /// Sets the step.
    void SetStep(PixelStep step) { _step = step; }

  protected:
    Buffer* _dstBuf = nullptr;  ///< not owned
    PixelStep _step = PIXEL_STEP_2;
};

/// The software decimation agent (host buffers).
class OMBREL_API swDecimateAgent : public DecimateAgent {
  public:
    /// The constructors of DecimateAgent.
    using DecimateAgent::DecimateAgent;
    int Go() override;
};

///@{
/// The software agent when both buffers are host buffers (either host type); null for board buffers (no back
/// end yet), a mix, or no memory. The factories make no assertions of their own.
OMBREL_API DecimateAgent* DecimateFact(Buffer* src, Buffer* dst, PixelStep step);
OMBREL_API DecimateAgent* DecimateFact(Buffer* src, Buffer* dst, Rect r, PixelStep step);
OMBREL_API DecimateAgent* DecimateFact(Buffer* src, Buffer* dst, Point p, const ROI& roi, PixelStep step);
OMBREL_API DecimateAgent* DecimateFact(Buffer* src, Buffer* dst, int left, int top, int right, int bottom,
                                       PixelStep step);
///@}

}  // namespace ombrel
