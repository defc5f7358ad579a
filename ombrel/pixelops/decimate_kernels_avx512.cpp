// SPDX-License-Identifier: MIT
// AVX-512 kernels of the decimation agent: one register of outputs or of 16-bit column sums per step.
#include "ombrel/framework/simd/lanes_avx512.h"
#include "ombrel/pixelops/decimate_kernels_body.h"

namespace ombrel::decimate::avx512 {

int Row(int begin, int end, const RowJob& job) {
    return DecimateBody<simd::Avx512>::Row(begin, end, job);
}

int ColumnSums(int begin, int end, const ColumnJob& job) {
    return DecimateBody<simd::Avx512>::ColumnSums(begin, end, job);
}
int StepOneFromSums(int begin, int end, const SumRowJob& job) {
    return DecimateBody<simd::Avx512>::StepOneFromSums(begin, end, job);
}

}  // namespace ombrel::decimate::avx512
