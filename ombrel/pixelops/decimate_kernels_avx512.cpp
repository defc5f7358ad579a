// SPDX-License-Identifier: MIT
// AVX-512 kernel of the decimation agent: 64 outputs per step.
#include "ombrel/framework/simd/lanes_avx512.h"
#include "ombrel/pixelops/decimate_kernels_body.h"

namespace ombrel::decimate::avx512 {

int Row(int begin, int end, const RowJob& job) {
    return DecimateBody<simd::Avx512>::Row(begin, end, job);
}

}  // namespace ombrel::decimate::avx512
