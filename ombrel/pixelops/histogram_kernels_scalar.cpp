// SPDX-License-Identifier: MIT
// The reference: one pixel, one increment.
#include "ombrel/pixelops/histogram_kernels.h"

namespace ombrel {
namespace scalar {

int CountSpan(const uint8_t* p, int n, HistogramLanes& lanes) {
    for (int i = 0; i < n; ++i) ++lanes.lane[0][p[i]];
    return n < 0 ? 0 : n;
}

}  // namespace scalar

CountSpanFn SelectCountKernel(Isa isa) {
    switch (isa) {
        case Isa::Avx512:
        case Isa::Avx2:
            return &avx2::CountSpan;
        case Isa::Sse2:
            return &sse2::CountSpan;
        case Isa::Scalar:
            break;
    }
    return &scalar::CountSpan;
}

}  // namespace ombrel
