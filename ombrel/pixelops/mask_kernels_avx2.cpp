// SPDX-License-Identifier: MIT
// AVX2 kernel of the mask agent: 32 pixels per step.
#include "ombrel/framework/simd/lanes_avx2.h"
#include "ombrel/pixelops/mask_kernels_body.h"

namespace ombrel::mask::avx2 {

int Span(int begin, int end, const SpanJob& job) {
    return MaskBody<simd::Avx2>::Span(begin, end, job);
}

}  // namespace ombrel::mask::avx2
