// SPDX-License-Identifier: MIT
// SSE2 kernel of the mask agent: 16 pixels per step.
#include "ombrel/framework/simd/lanes_sse2.h"
#include "ombrel/pixelops/mask_kernels_body.h"

namespace ombrel::mask::sse2 {

int Span(int begin, int end, const SpanJob& job) {
    return MaskBody<simd::Sse2>::Span(begin, end, job);
}

}  // namespace ombrel::mask::sse2
