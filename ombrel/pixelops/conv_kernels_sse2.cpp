// SPDX-License-Identifier: MIT
// SSE2 kernel of the convolution agent: one register of outputs per step.
#include "ombrel/framework/simd/lanes_sse2.h"
#include "ombrel/pixelops/conv_kernels_body.h"

namespace ombrel::conv::sse2 {

int Row(int begin, int end, const RowJob& job) {
    return ConvBody<simd::Sse2>::Row(begin, end, job);
}

}  // namespace ombrel::conv::sse2
