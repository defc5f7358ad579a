// SPDX-License-Identifier: MIT
// SSE2 kernel of the Sobel agent: 16 output pixels per step.
#include "ombrel/framework/simd/lanes_sse2.h"
#include "ombrel/gradients/sobel_kernels_body.h"

namespace ombrel::sobel::sse2 {

int Row(int begin, int end, const RowJob& job) {
    return SobelBody<simd::Sse2>::Row(begin, end, job);
}

}  // namespace ombrel::sobel::sse2
