// SPDX-License-Identifier: MIT
// SSE2 kernels of the projection agent: 16 pixels per step.
#include "ombrel/framework/simd/lanes_sse2.h"
#include "ombrel/pixelops/project_kernels_body.h"

namespace ombrel::project::sse2 {

int ColumnSums(int begin, int end, const ColumnJob& job) {
    return ProjectBody<simd::Sse2>::ColumnSums(begin, end, job);
}

int RowSum(int begin, int end, const RowJob& job) {
    return ProjectBody<simd::Sse2>::RowSum(begin, end, job);
}

}  // namespace ombrel::project::sse2
