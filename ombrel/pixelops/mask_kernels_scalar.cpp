// SPDX-License-Identifier: MIT
// The reference: one pixel at a time, read as the operation table reads.
#include <algorithm>
#include <cstdlib>

#include "ombrel/pixelops/mask.h"
#include "ombrel/pixelops/mask_kernels.h"

namespace ombrel::scalar {
namespace {

template <class Op>
void Apply(const uint8_t* s, uint8_t* d, int n, Op op) {
    for (int i = 0; i < n; ++i) d[i] = static_cast<uint8_t>(op(int{d[i]}, int{s[i]}));
}

}  // namespace

int MaskSpan(uint32_t op, int low, int high, const uint8_t* s, uint8_t* d, int n) {
    if (n <= 0) return 0;
    switch (op) {
        case MASK_ADD:
            Apply(s, d, n, [](int dv, int sv) { return dv + sv; });
            break;
        case MASK_SUB:
            Apply(s, d, n, [](int dv, int sv) { return dv - sv; });
            break;
        case MASK_ABSDIFF:
            Apply(s, d, n, [](int dv, int sv) { return std::abs(sv - dv); });
            break;
        case MASK_AND:
            Apply(s, d, n, [](int dv, int sv) { return dv & sv; });
            break;
        case MASK_OR:
            Apply(s, d, n, [](int dv, int sv) { return dv | sv; });
            break;
        case MASK_XOR:
            Apply(s, d, n, [](int dv, int sv) { return dv ^ sv; });
            break;
        case MASK_COPY:
        case MASK_COPY_ALT:
            Apply(s, d, n, [](int, int sv) { return sv; });
            break;
        case MASK_MIN:
            Apply(s, d, n, [](int dv, int sv) { return std::min(dv, sv); });
            break;
        case MASK_MAX:
            Apply(s, d, n, [](int dv, int sv) { return std::max(dv, sv); });
            break;
        case MASK_BAND:
            Apply(s, d, n, [low, high](int dv, int sv) { return (low <= sv && sv <= high) ? 1 : dv; });
            break;
        default:
            break;
    }
    return n;
}

}  // namespace ombrel::scalar

namespace ombrel {

MaskSpanFn SelectMaskKernel(Isa isa) {
    switch (isa) {
        case Isa::Avx512:
            return &avx512::MaskSpan;
        case Isa::Avx2:
            return &avx2::MaskSpan;
        case Isa::Sse2:
            return &sse2::MaskSpan;
        case Isa::Scalar:
            break;
    }
    return &scalar::MaskSpan;
}

}  // namespace ombrel
