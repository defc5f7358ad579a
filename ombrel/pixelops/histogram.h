// SPDX-License-Identifier: MIT
/// \file
/// The histogram agent: counts the grey values of an 8-bit region into the caller's vector of bins and
/// derives the region's pixel count, sum, mean, standard deviation and median bin centre.
///
/// Contract of a run (software agent, every kernel level and any future board agent give the same figures):
///   shift s = the smallest s in 0..7 with 2^s >= 256 / resolution (integer division), else 8;
///   every element of the vector is set to 0, then for each region pixel v (unsigned byte):
///     bins[(v >> s) + binOffset] += 1   (an index outside the vector is skipped, never written);
///     pixelCount += 1 only when v != 0  (zero pixels are binned but not counted);
///     pixelSum   += v, or v read as a signed byte in signed mode (the bin index always uses unsigned v).
///   With pixelCount > 0 and w = 256 / resolution: mean = double(pixelSum / pixelCount), integer division;
///   bins i = 0..resolution-1 are walked with centre c from (w - 1) * 0.5 and a running count:
///     running += bins[i]; var += bins[i] * (c - mean)^2; c += w;
///     if running < pixelCount / 2 (integer division): median = c;
///     signed mode only: if c > 127.0, c -= 128.0 (a wrap by 128, not 256).
///   stdDev = sqrt(var / (pixelCount - 1)); one counted pixel divides by zero (inf or NaN, not reported).
///   The median is thus the centre of the bin after the last one still below half, and 0 when the first bin
///   already reaches half. binOffset is clamped to -256..255 before each run.
/// Work is clipped to the part of the region inside the source; a source that is not 8-bit is not read.
#pragma once
#include <cstdint>
#include <vector>

#include "ombrel/framework/agent.h"
#include "ombrel/framework/buffer.h"
#include "ombrel/framework/export.h"
#include "ombrel/framework/geometry.h"
#include "ombrel/framework/roi.h"

namespace ombrel {

/// Number of bins; 256 gives one bin per grey value. Other positive counts are accepted as values.
enum HistRes : int32_t {
    HISTRES_1 = 1,
    HISTRES_2 = 2,
    HISTRES_4 = 4,
    HISTRES_8 = 8,
    HISTRES_16 = 16,
    HISTRES_32 = 32,
    HISTRES_64 = 64,
    HISTRES_128 = 128,
    HISTRES_256 = 256
};

/// Error word of an agent whose vector could not be sized (out of memory).
constexpr int32_t kHistogramNoMemory = -1;

/// Histogram of an 8-bit region into the caller's vector, with the count, sum, mean, deviation and median
/// defined in histogram.h (the mean is an integer quotient and zeros are left out of the count: these are the
/// operation's own figures, not numpy's). Made by HistogramFact.
class OMBREL_API HistogramAgent : public Agent {
  public:
    ///@{
    /// Each form resizes *results to exactly `res` elements (none for a non-positive count).
    HistogramAgent(Buffer* src, HistRes res, std::vector<int>* results);
    HistogramAgent(Buffer* src, Rect r, HistRes res, std::vector<int>* results);
    HistogramAgent(Buffer* src, Point p, const ROI& roi, HistRes res, std::vector<int>* results);
    ///@}
    ~HistogramAgent() override = default;

    /// Number of bins.
    int Resolution() const { return _resolution; }
    /// The caller's bin vector.
    std::vector<int>* Results() const { return _results; }
    /// Non-zero pixels of the last run.
    int PixelCount() const { return _pixelCount; }
    /// Sum of the pixels of the last run (signed bytes in signed mode).
    int PixelSum() const { return _pixelSum; }
    /// pixelSum / pixelCount in integer division, as a double (0 when no pixel counted).
    double Mean() const { return _mean; }
    /// The deviation of the bin centres about Mean(), over pixelCount - 1 (infinite for one counted pixel).
    double StdDev() const { return _stdDev; }
    /// The centre of the bin after the last one still below half the count.
    double Median() const { return _median; }
    /// Added to every bin index.
    int BinOffset() const { return _binOffset; }
    /// Whether PixelSum reads signed bytes.
    bool Signed() const { return _signed; }
    /// 0, or kHistogramNoMemory when the vector could not be sized.
    int GetError() const { return _error; }

    /// Sets the bin offset (clamped to -256..255 when run).
    void SetBinOffset(int offset) { _binOffset = offset; }
    /// Signed mode (see the contract).
    void SetSigned(bool on) { _signed = on; }

  protected:
    /// Zeroes the figures before a run.
    void ResetStatistics();

    int32_t _resolution = 0;
    std::vector<int>* _results = nullptr;  ///< the caller's; not owned
    int32_t _binOffset = 0;
    int32_t _pixelCount = 0;
    int32_t _pixelSum = 0;
    double _mean = 0.0;
    double _stdDev = 0.0;
    double _median = 0.0;
    int32_t _boardStatistics[4] = {};  ///< figures only the board computes; zero in software
    bool _signed = false;
    int32_t _error = 0;

  private:
    void SizeResults();
};

/// The software histogram agent (host buffers).
class OMBREL_API swHistogramAgent : public HistogramAgent {
  public:
    ///@{
    /// As HistogramAgent's constructors.
    swHistogramAgent(Buffer* src, HistRes res, std::vector<int>* results);
    swHistogramAgent(Buffer* src, Rect r, HistRes res, std::vector<int>* results);
    swHistogramAgent(Buffer* src, Point p, const ROI& roi, HistRes res, std::vector<int>* results);
    ///@}
    /// Returns the error word when it is set (and does nothing), else runs and returns 0.
    int Go() override;

  private:
    void ReportAndClamp();
    void CountRegion(int shift);
    void ComputeStatistics();
};

///@{
/// The software agent for a source the library owns (HOST_BUFFER); null for a wrapped or board source (no
/// board back end yet) or when memory runs out. Reports "aBuf && aHistogram" (lfhisto) and goes on.
OMBREL_API HistogramAgent* HistogramFact(Buffer* aBuf, HistRes res, std::vector<int>* aHistogram);
OMBREL_API HistogramAgent* HistogramFact(Buffer* aBuf, HistRes res, Rect r, std::vector<int>* aHistogram);
OMBREL_API HistogramAgent* HistogramFact(Buffer* aBuf, HistRes res, Point p, const ROI& roi,
                                         std::vector<int>* aHistogram);
OMBREL_API HistogramAgent* HistogramFact(Buffer* aBuf, HistRes res, int left, int top, int right, int bottom,
                                         std::vector<int>* aHistogram);
///@}

}  // namespace ombrel
