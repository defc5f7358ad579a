// SPDX-License-Identifier: MIT
#include "ombrel/pixelops/grey_statistics.h"

#include <algorithm>
#include <cmath>

namespace ombrel {
namespace {

int64_t Count(int bin) {
    return bin > 0 ? bin : 0;
}

// The value of the pixel at 0-based rank `rank` in sorted order.
int ValueAtRank(std::span<const int> bins, int64_t rank) {
    int64_t seen = 0;
    for (size_t v = 0; v < bins.size(); ++v) {
        seen += Count(bins[v]);
        if (seen > rank) return static_cast<int>(v);
    }
    return static_cast<int>(bins.size()) - 1;
}

}  // namespace

GreyStatistics StatisticsOfHistogram(std::span<const int> bins) {
    GreyStatistics s;
    int64_t sum = 0;
    for (size_t v = 0; v < bins.size(); ++v) {
        const int64_t c = Count(bins[v]);
        if (c == 0) continue;
        if (s.count == 0) s.min = static_cast<int>(v);
        s.max = static_cast<int>(v);
        s.count += c;
        sum += c * static_cast<int64_t>(v);
    }
    if (s.count == 0) return s;
    s.empty = false;
    s.mean = double(sum) / double(s.count);
    double squares = 0.0;  // about the mean: no cancellation for large counts
    for (size_t v = 0; v < bins.size(); ++v) {
        const double d = double(v) - s.mean;
        squares += double(Count(bins[v])) * d * d;
    }
    s.std = std::sqrt(squares / double(s.count));
    const int64_t half = s.count / 2;
    s.median = s.count % 2 == 1 ? ValueAtRank(bins, half)
                                : (ValueAtRank(bins, half - 1) + ValueAtRank(bins, half)) / 2.0;
    return s;
}

int OtsuThreshold(std::span<const int> bins) {
    int64_t total = 0;
    double weighted = 0.0;
    int lowest = -1, highest = -1;
    for (size_t v = 0; v < bins.size(); ++v) {
        const int64_t c = Count(bins[v]);
        if (c == 0) continue;
        if (lowest < 0) lowest = static_cast<int>(v);
        highest = static_cast<int>(v);
        total += c;
        weighted += double(v) * double(c);
    }
    if (total == 0) return 0;
    if (lowest == highest) return lowest;
    // Class 0 is v <= t, with weight q1 and first moment m1 (its mean is m1 / q1).
    const double scale = 1.0 / double(total), mean = weighted * scale;
    constexpr double kEps = 1.1920929e-7;  // single-precision epsilon: ignore splits that leave a class empty
    double q1 = 0.0, m1 = 0.0, best = 0.0;
    int threshold = lowest;
    for (int t = 0; t + 1 < static_cast<int>(bins.size()); ++t) {
        const double p = double(Count(bins[t])) * scale;
        q1 += p;
        m1 += t * p;
        const double q2 = 1.0 - q1;
        if (std::min(q1, q2) < kEps || std::max(q1, q2) > 1.0 - kEps) continue;
        const double mu1 = m1 / q1, mu2 = (mean - m1) / q2;
        const double between = q1 * q2 * (mu1 - mu2) * (mu1 - mu2);
        if (between > best) {
            best = between;
            threshold = t;
        }
    }
    return threshold;
}

}  // namespace ombrel
