// SPDX-License-Identifier: MIT
/// \file
/// The auto focus agent: a sharpness figure of a region, the sum of the absolute differences between the
/// region and the region displaced by a small step, relative to the region's brightness; with the region's
/// mean grey level and a spread figure from its grey-level histogram.
///
/// Contract (software agent; any board agent gives the same figures). (x, y) = source point, w x h = region
/// extent, (hs, vs) = the displacement (1, 1 unless set):
///   PreGo: when x + w + hs > source width the extent becomes (w - hs, h); then, when y + h + vs > source
///   height, (w, h - vs): the region shrinks by the displacement, whatever the overflow, and stays shrunk.
///   Go, for every region pixel (i, j) (a masked region: its spans only):
///     diffSum   = sum of |S(x + hs + i, y + vs + j) - S(x + i, y + j)|, each written as an unsigned byte by
///                 the arithmetic agent's DIFF (gain 1, offset 0, clipped to 0..255) and summed from its
///                 result word 0 (signed mode: both bytes read as signed and the byte written by the
///                 arithmetic agent's rule for a signed destination, clip and second flag off);
///     the histogram agent over the undisplaced region, 256 bins: pixelCount = number of non-zero pixels,
///     pixelSum = sum of the pixels (signed bytes in signed mode), bins[v] = number of pixels of value v;
///     mean   = pixelSum / pixelCount (double), 0 when pixelCount <= 0;
///     stdDev = sqrt(sum over bins i of bins[i] * (c_i - mean)^2 / (N - 1)), N = 256 bins, bin width
///              w = 256 / N, c_0 = (w - 1) / 2, c_(i+1) = c_i + w, and in signed mode a centre beyond 127
///              is reduced by 128 (so bins 128..255 get centres 0..127); 0 when pixelCount <= 0. The divisor
///              is the number of bins less one: a relative spread, not the pixels' standard deviation;
///     focus  = diffSum / pixelSum * 1000, 0 when pixelSum is 0.
///   Work is clipped to the part of the region inside every buffer: the histogram counts the region pixels
///   inside the source; a difference needs its displaced pixel inside the source, and where the region
///   hangs over the source's left or top edge its copy holds 0 (those pixels meet 0).
/// Lifecycle: unprepared, every Go builds the two sub-agents and the two intermediate images and frees them
/// at its end; after PreGo(true) they are kept until the agent is destroyed and a Go allocates nothing. A
/// change of region or displacement while prepared needs a new PreGo(true); a new source buffer of at least
/// the same size does not (both sub-agents are handed the agent's source on every Go).
/// Status: 0; kAutoFocusNoMemoryBase - |k| when an intermediate image cannot be made (k its own error code,
/// for example a region with no pixels); a sub-agent's negative status as it is; kAutoFocusNoSubAgent when a
/// sub-agent could not be made at all (no source, a source the histogram does not accept, no memory).
#pragma once
#include <cstdint>
#include <vector>

#include "ombrel/framework/agent.h"
#include "ombrel/framework/buffer.h"
#include "ombrel/framework/export.h"
#include "ombrel/framework/geometry.h"
#include "ombrel/framework/roi.h"

namespace ombrel {

class ArithAgent;
class HistogramAgent;

/// Status base when an intermediate image cannot be made (see above).
inline constexpr int32_t kAutoFocusNoMemoryBase = -23500;
/// Status when a sub-agent could not be made.
inline constexpr int32_t kAutoFocusNoSubAgent = -23599;

/// A sharpness figure of a region: the sum of absolute differences between the region and itself displaced by
/// a small step, per mille of the region's grey sum, with the region's histogram figures (rules in
/// auto_focus.h). Made by AutoFocusFact.
class OMBREL_API AutoFocusAgent : public Agent {
  public:
    ///@{
    /// The region: the whole source, the rectangle `r`, or `roi` placed at `p`.
    explicit AutoFocusAgent(Buffer* src);
    AutoFocusAgent(Buffer* src, Rect r);
    AutoFocusAgent(Buffer* src, Point p, const ROI& roi);
    ///@}
    /// Frees the kept sub-agents and images.
    ~AutoFocusAgent() override;
    AutoFocusAgent(const AutoFocusAgent&) = delete;
    AutoFocusAgent& operator=(const AutoFocusAgent&) = delete;

    /// Builds the sub-agents and images for the current region and displacement; with keep, they persist
    /// across runs. 0 or kAutoFocusNoMemoryBase - |k|.
    virtual int PreGo(bool keep);
    int Go() override;

    /// The displacement between the two images subtracted (1 and 1 after construction).
    void SetSparseness(int horizontal, int vertical) {
        _horizontalSparseness = horizontal;
        _verticalSparseness = vertical;
    }
    /// Reads the image as signed bytes.
    void SetSigned(bool on) { _signed = on; }

    /// diffSum / pixelSum x 1000 (0 when pixelSum is 0).
    double Focus() const { return _focus; }
    /// Sum of the region's pixels.
    double PixelSum() const { return _pixelSum; }
    /// Sum of the absolute differences.
    double DiffSum() const { return _diffSum; }
    /// Non-zero pixels of the region (the histogram agent's count).
    double PixelCount() const { return _pixelCount; }
    /// pixelSum / pixelCount.
    double Mean() const { return _mean; }
    /// The histogram spread figure (over the bins, not the pixels' standard deviation; see above).
    double StdDev() const { return _stdDev; }
    ///@{
    /// The displacement.
    int HorizontalSparseness() const { return _horizontalSparseness; }
    int VerticalSparseness() const { return _verticalSparseness; }
    ///@}
    /// True after PreGo(true).
    bool Prepared() const { return _prepared; }
    /// Signed mode.
    bool Signed() const { return _signed; }
    /// Histogram bins (256).
    int HistRes() const { return _histRes; }
    /// The region's histogram of the last run.
    const std::vector<int>& HistCounts() const { return _histCounts; }
    /// The region as PreGo shrank it.
    const Rect& RegionRect() const { return _regionRect; }

  protected:
    /// Shared part of the constructors: default settings.
    void Setup();
    /// Reports every failed precondition of the current set-up.
    void DoAssertions();

    ArithAgent* _subtractor = nullptr;
    HistogramAgent* _histogram = nullptr;
    Buffer* _regionCopy = nullptr;
    Buffer* _diffBuf = nullptr;
    Rect _regionRect{};
    int32_t _horizontalSparseness = 1;
    int32_t _verticalSparseness = 1;
    bool _prepared = false;
    bool _signed = false;
    int32_t _histRes = 256;
    std::vector<int> _histCounts;
    double _focus = 0;
    double _pixelSum = 0;
    double _diffSum = 0;
    double _pixelCount = 0;
    double _mean = 0;
    double _stdDev = 0;

  private:
    void FreeParts();
    void RecordRegion();
    int MakeImages();
    void ComputeResults();
};

///@{
/// The agent for a source the library owns (HOST_BUFFER); null for a wrapped or board source (no board back
/// end in this build), or when memory runs out. Reports "src" (lfautofocusagent) for a null source.
OMBREL_API AutoFocusAgent* AutoFocusFact(Buffer* src);
OMBREL_API AutoFocusAgent* AutoFocusFact(Buffer* src, Rect r);
OMBREL_API AutoFocusAgent* AutoFocusFact(Buffer* src, Point p, const ROI& roi);
///@}

}  // namespace ombrel
