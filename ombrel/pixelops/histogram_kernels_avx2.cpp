// SPDX-License-Identifier: MIT
#include <cstdint>
#include <cstring>

#include "ombrel/pixelops/histogram_kernels.h"

namespace ombrel::avx2 {
namespace {
#include "ombrel/pixelops/histogram_kernels_unrolled.h"
}  // namespace

int CountSpan(const uint8_t* p, int n, HistogramLanes& lanes) {
    return CountSpanUnrolled(p, n, lanes);
}

}  // namespace ombrel::avx2
