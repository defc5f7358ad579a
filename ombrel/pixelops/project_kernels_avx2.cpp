// SPDX-License-Identifier: MIT
// AVX2 kernels of the projection agent: 32 pixels per step.
#include "ombrel/framework/simd/lanes_avx2.h"
#include "ombrel/pixelops/project_kernels_body.h"

namespace ombrel::project::avx2 {

int ColumnSums(int begin, int end, const ColumnJob& job) {
    return ProjectBody<simd::Avx2>::ColumnSums(begin, end, job);
}

int RowSum(int begin, int end, const RowJob& job) {
    return ProjectBody<simd::Avx2>::RowSum(begin, end, job);
}

}  // namespace ombrel::project::avx2
