// SPDX-License-Identifier: MIT
// AVX2 kernel of the convolution agent: one register of outputs per step.
#include "ombrel/framework/simd/lanes_avx2.h"
#include "ombrel/pixelops/conv_kernels_body.h"

namespace ombrel::conv::avx2 {

int Row(int begin, int end, const RowJob& job) {
    return ConvBody<simd::Avx2>::Row(begin, end, job);
}

}  // namespace ombrel::conv::avx2
