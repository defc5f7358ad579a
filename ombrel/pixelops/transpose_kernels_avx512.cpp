// SPDX-License-Identifier: MIT
// AVX-512 kernels of the transposition agent: 64-byte mirrors and row copies.
#include "ombrel/framework/simd/lanes_avx512.h"
#include "ombrel/pixelops/transpose_kernels_body.h"

namespace ombrel::transpose::avx512 {

int Reverse(int begin, int end, const LineJob& job) {
    return TransposeBody<simd::Avx512>::Reverse(begin, end, job);
}
int Copy(int begin, int end, const LineJob& job) {
    return TransposeBody<simd::Avx512>::Copy(begin, end, job);
}

}  // namespace ombrel::transpose::avx512
