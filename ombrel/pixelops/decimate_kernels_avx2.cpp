// SPDX-License-Identifier: MIT
// AVX2 kernel of the decimation agent: 32 outputs per step.
#include "ombrel/framework/simd/lanes_avx2.h"
#include "ombrel/pixelops/decimate_kernels_body.h"

namespace ombrel::decimate::avx2 {

int Row(int begin, int end, const RowJob& job) {
    return DecimateBody<simd::Avx2>::Row(begin, end, job);
}

}  // namespace ombrel::decimate::avx2
