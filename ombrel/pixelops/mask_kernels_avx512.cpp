// SPDX-License-Identifier: MIT
// AVX-512BW kernel of the mask agent: 64 pixels per step.
#include "ombrel/framework/simd/lanes_avx512.h"
#include "ombrel/pixelops/mask_kernels_body.h"

namespace ombrel::mask::avx512 {

int Span(int begin, int end, const SpanJob& job) {
    return MaskBody<simd::Avx512>::Span(begin, end, job);
}

}  // namespace ombrel::mask::avx512
