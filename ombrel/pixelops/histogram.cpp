// SPDX-License-Identifier: MIT
#include "ombrel/pixelops/histogram.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "ombrel/framework/factory.h"
#include "ombrel/framework/hal.h"
#include "ombrel/framework/isa.h"
#include "ombrel/framework/kernel_family.h"
#include "ombrel/framework/region_clip.h"
#include "ombrel/pixelops/histogram_kernels.h"

namespace ombrel {
namespace {

constexpr const char* kModule = "histo";
constexpr const char* kFactModule = "lfhisto";

// The smallest s in 0..7 with 2^s >= 256 / resolution, else 8. A resolution of 0 (already reported) is
// read as 256 / 0 = 0 rather than divided by.
int BinShift(int resolution) {
    const int ratio = resolution != 0 ? 256 / resolution : 0;
    for (int s = 0; s <= 7; ++s)
        if ((1 << s) >= ratio) return s;
    return 8;
}

// Adds `count` to an int bin with the wrap-around of 32-bit arithmetic, without signed overflow.
void AddToBin(int& bin, uint64_t count) {
    bin = static_cast<int32_t>(static_cast<uint32_t>(bin) + static_cast<uint32_t>(count));
}

}  // namespace

// ---- HistogramAgent ---------------------------------------------------------------------------------------

HistogramAgent::HistogramAgent(Buffer* src, HistRes res, std::vector<int>* results)
    : Agent(src), _resolution(res), _results(results) {
    SizeResults();
}

HistogramAgent::HistogramAgent(Buffer* src, Rect r, HistRes res, std::vector<int>* results)
    : Agent(src, r), _resolution(res), _results(results) {
    SizeResults();
}

HistogramAgent::HistogramAgent(Buffer* src, Point p, const ROI& roi, HistRes res, std::vector<int>* results)
    : Agent(src, p, roi), _resolution(res), _results(results) {
    SizeResults();
}

void HistogramAgent::SizeResults() {
    if (_results == nullptr) return;
    try {
        _results->resize(static_cast<size_t>(std::max(_resolution, 0)));
    } catch (const std::exception&) {
        _error = kHistogramNoMemory;
    }
}

void HistogramAgent::ResetStatistics() {
    _pixelCount = 0;
    _pixelSum = 0;
    _mean = 0.0;
    _stdDev = 0.0;
    _median = 0.0;
    std::fill(std::begin(_boardStatistics), std::end(_boardStatistics), 0);
}

// ---- swHistogramAgent -------------------------------------------------------------------------------------

swHistogramAgent::swHistogramAgent(Buffer* src, HistRes res, std::vector<int>* results)
    : HistogramAgent(src, res, results) {}

swHistogramAgent::swHistogramAgent(Buffer* src, Rect r, HistRes res, std::vector<int>* results)
    : HistogramAgent(src, r, res, results) {}

swHistogramAgent::swHistogramAgent(Buffer* src, Point p, const ROI& roi, HistRes res,
                                   std::vector<int>* results)
    : HistogramAgent(src, p, roi, res, results) {}

int swHistogramAgent::Go() {
    if (_error != 0) return _error;
    ReportAndClamp();
    ResetStatistics();
    const int shift = BinShift(_resolution);
    if (_results != nullptr) std::fill(_results->begin(), _results->end(), 0);
    CountRegion(shift);
    if (_pixelCount > 0) ComputeStatistics();
    return 0;
}

// Conditions that read the source are only evaluated when there is one; without it "_srcBuf" alone is
// reported for them.
void swHistogramAgent::ReportAndClamp() {
    const bool haveSrc = Check(_srcBuf != nullptr, kModule, 101, "_srcBuf");
    if (haveSrc) {
        Check(_sPt.x >= 0 && _sPt.x < _srcBuf->Width(), kModule, 102,
              "_sPt.x >= 0 && _sPt.x < _srcBuf->Width()");
        Check(_sPt.y >= 0 && _sPt.y < _srcBuf->Height(), kModule, 103,
              "_sPt.y >= 0 && _sPt.y < _srcBuf->Height()");
    }
    Check(_sRoi.Width() != 0, kModule, 104, "_sRoi.Width()");
    Check(_sRoi.Height() != 0, kModule, 105, "_sRoi.Height()");
    if (haveSrc) {
        Check(int64_t{_sPt.x} + _sRoi.Width() <= _srcBuf->Width(), kModule, 106,
              "_sPt.x + _sRoi.Width() <= _srcBuf->Width()");
        Check(int64_t{_sPt.y} + _sRoi.Height() <= _srcBuf->Height(), kModule, 107,
              "_sPt.y + _sRoi.Height() <= _srcBuf->Height()");
    }
    Check(_resolution != 0, kModule, 108, "_resolution");
    Check(_results != nullptr, kModule, 109, "_results");
    _binOffset = std::clamp(_binOffset, -256, 255);
}

// Counts the region's values once into 256 raw counters, then folds them into the caller's bins: the same
// sums as binning pixel by pixel, with one bounds test per value instead of one per pixel.
void swHistogramAgent::CountRegion(int shift) {
    if (_srcBuf == nullptr || _srcBuf->BitsPerPixel() != EIGHT) return;
    const Rect clip = ClipRegionToBuffers(_sRoi, {{_srcBuf, _sPt}});
    if (clip.IsEmpty()) return;

    histogram::Lanes lanes{};
    const Isa level = ActiveIsa();
    const Buffer& src = *_srcBuf;
    ForEachSpan(_sRoi, clip, [&](int row, int column, int length) {
        histogram::kCountKernels.Run(level, 0, length, src.Row(_sPt.y + row) + _sPt.x + column, &lanes);
    });

    const int64_t bins = _results != nullptr ? static_cast<int64_t>(_results->size()) : 0;
    uint64_t counted = 0;
    int64_t sum = 0;
    for (int v = 0; v < 256; ++v) {
        uint64_t count = 0;
        for (const auto& lane : lanes.lane) count += lane[v];
        if (count == 0) continue;
        const int64_t index = (v >> shift) + int64_t{_binOffset};
        if (index >= 0 && index < bins) AddToBin((*_results)[static_cast<size_t>(index)], count);
        if (v != 0) counted += count;
        sum += (_signed ? static_cast<int8_t>(v) : v) * static_cast<int64_t>(count);
    }
    // 32-bit figures, wrapping as 32-bit accumulators would on a region too large for them.
    _pixelCount = static_cast<int32_t>(static_cast<uint32_t>(counted));
    _pixelSum = static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(sum)));
}

void swHistogramAgent::ComputeStatistics() {
    const int width = _resolution != 0 ? 256 / _resolution : 0;
    _mean = static_cast<double>(_pixelSum / _pixelCount);
    const int half = _pixelCount / 2;
    const int64_t available = _results != nullptr ? static_cast<int64_t>(_results->size()) : 0;
    double centre = (width - 1) * 0.5;
    int64_t running = 0;
    double variance = 0.0;
    for (int64_t i = 0; i < _resolution; ++i) {
        // Bins beyond a vector the caller shrank since construction read as empty.
        const int bin = i < available ? (*_results)[static_cast<size_t>(i)] : 0;
        running += bin;
        variance += bin * ((centre - _mean) * (centre - _mean));
        centre += width;
        if (running < half) _median = centre;
        if (_signed && centre > 127.0) centre -= 128.0;
    }
    _stdDev = std::sqrt(variance / (_pixelCount - 1));
}

// ---- HistogramFact ----------------------------------------------------------------------------------------

namespace {

template <class... Region>
HistogramAgent* MakeHistogram(Buffer* aBuf, HistRes res, std::vector<int>* aHistogram, Region&&... region) {
    return MakeAgent<swHistogramAgent>({{aBuf, HostTypes::OwnedOnly}}, aBuf, std::forward<Region>(region)...,
                                       res, aHistogram);
}

}  // namespace

HistogramAgent* HistogramFact(Buffer* aBuf, HistRes res, std::vector<int>* aHistogram) {
    OMBREL_ASSERT_HERE(kFactModule, aBuf && aHistogram, "aBuf && aHistogram");
    return MakeHistogram(aBuf, res, aHistogram);
}

HistogramAgent* HistogramFact(Buffer* aBuf, HistRes res, Rect r, std::vector<int>* aHistogram) {
    OMBREL_ASSERT_HERE(kFactModule, aBuf && aHistogram, "aBuf && aHistogram");
    return MakeHistogram(aBuf, res, aHistogram, r);
}

HistogramAgent* HistogramFact(Buffer* aBuf, HistRes res, Point p, const ROI& roi,
                              std::vector<int>* aHistogram) {
    OMBREL_ASSERT_HERE(kFactModule, aBuf && aHistogram, "aBuf && aHistogram");
    return MakeHistogram(aBuf, res, aHistogram, p, roi);
}

HistogramAgent* HistogramFact(Buffer* aBuf, HistRes res, int left, int top, int right, int bottom,
                              std::vector<int>* aHistogram) {
    return HistogramFact(aBuf, res, RectFromInts(left, top, right, bottom), aHistogram);
}

}  // namespace ombrel
