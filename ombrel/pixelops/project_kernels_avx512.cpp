// SPDX-License-Identifier: MIT
// AVX-512 kernels of the projection agent: 64 pixels per step.
#include "ombrel/framework/simd/lanes_avx512.h"
#include "ombrel/pixelops/project_kernels_body.h"

namespace ombrel::project::avx512 {

int ColumnSums(int begin, int end, const ColumnJob& job) {
    return ProjectBody<simd::Avx512>::ColumnSums(begin, end, job);
}

int RowSum(int begin, int end, const RowJob& job) {
    return ProjectBody<simd::Avx512>::RowSum(begin, end, job);
}

}  // namespace ombrel::project::avx512
