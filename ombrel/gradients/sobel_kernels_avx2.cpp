// SPDX-License-Identifier: MIT
// AVX2 kernel of the Sobel agent: 32 output pixels per step.
#include "ombrel/framework/simd/lanes_avx2.h"
#include "ombrel/gradients/sobel_kernels_body.h"

namespace ombrel::sobel::avx2 {

int Row(int begin, int end, const RowJob& job) {
    return SobelBody<simd::Avx2>::Row(begin, end, job);
}

}  // namespace ombrel::sobel::avx2
