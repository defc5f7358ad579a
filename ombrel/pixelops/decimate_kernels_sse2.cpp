// SPDX-License-Identifier: MIT
// SSE2 kernel of the decimation agent: 16 outputs per step.
#include "ombrel/framework/simd/lanes_sse2.h"
#include "ombrel/pixelops/decimate_kernels_body.h"

namespace ombrel::decimate::sse2 {

int Row(int begin, int end, const RowJob& job) {
    return DecimateBody<simd::Sse2>::Row(begin, end, job);
}

}  // namespace ombrel::decimate::sse2
