// SPDX-License-Identifier: MIT
// AVX-512 kernel of the Sobel agent: 64 output pixels per step.
#include "ombrel/framework/simd/lanes_avx512.h"
#include "ombrel/gradients/sobel_kernels_body.h"

namespace ombrel::sobel::avx512 {

int Row(int begin, int end, const RowJob& job) {
    return SobelBody<simd::Avx512>::Row(begin, end, job);
}

}  // namespace ombrel::sobel::avx512
