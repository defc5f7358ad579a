// SPDX-License-Identifier: MIT
// Ours, beside the histogram agent: the statistics of a region as numpy computes them on its pixels, and
// Otsu's threshold, both from a histogram of one bin per grey value (the agent run with HISTRES_256). The
// agent's own figures (pixel count without zeros, integer mean, ...) are not changed by anything here.
//
//   count    number of pixels (zeros included)
//   mean     sum / count                                   numpy.mean
//   std      sqrt(sum((v - mean)^2) / count)               numpy.std (ddof = 0)
//   median   middle value, or the mean of the two middle values for an even count   numpy.median
//   min, max smallest and largest value present
// A histogram with no pixels gives count 0 and every other figure 0 with `empty` set; no figure is ever
// infinite or not-a-number.
//
// Otsu's threshold t (0..254) maximises the between-class variance w0 w1 (m0 - m1)^2 of the classes v <= t
// and v > t; the first t wins a tie, as in cv::threshold with THRESH_OTSU (which keeps v > t as 255). A
// histogram with a single grey value (or none) has no split and gives that value (0 for none).
#pragma once
#include <cstdint>
#include <span>

#include "ombrel/framework/export.h"

namespace ombrel {

/// Statistics of the pixels counted in a histogram, as numpy computes them on the pixels themselves.
struct GreyStatistics {
    int64_t count = 0;    ///< pixels, zeros included
    double mean = 0.0;    ///< sum / count
    double std = 0.0;     ///< population standard deviation (numpy's default, ddof = 0)
    double median = 0.0;  ///< middle value (mean of the two middle values for an even count)
    int min = 0;          ///< smallest value present
    int max = 0;          ///< largest value present
    bool empty = true;    ///< no pixel was counted (then every figure is 0)
};

/// Statistics from `bins`, where bins[v] counts the pixels of value v (v = 0 .. bins.size() - 1; negative
/// counts are read as 0).
OMBREL_API GreyStatistics StatisticsOfHistogram(std::span<const int> bins);

/// Otsu's threshold of `bins` (one bin per grey value): the classes are v <= t and v > t.
OMBREL_API int OtsuThreshold(std::span<const int> bins);

}  // namespace ombrel
