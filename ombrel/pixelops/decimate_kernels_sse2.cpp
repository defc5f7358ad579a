// SPDX-License-Identifier: MIT
// SSE2 kernels of the decimation agent: one register of outputs or of 16-bit column sums per step.
#include "ombrel/framework/simd/lanes_sse2.h"
#include "ombrel/pixelops/decimate_kernels_body.h"

namespace ombrel::decimate::sse2 {

int Row(int begin, int end, const RowJob& job) {
    return DecimateBody<simd::Sse2>::Row(begin, end, job);
}

int ColumnSums(int begin, int end, const ColumnJob& job) {
    return DecimateBody<simd::Sse2>::ColumnSums(begin, end, job);
}
int StepOneFromSums(int begin, int end, const SumRowJob& job) {
    return DecimateBody<simd::Sse2>::StepOneFromSums(begin, end, job);
}

}  // namespace ombrel::decimate::sse2
