// SPDX-License-Identifier: MIT
// AVX-512 kernels of the transposition agent: four 16 x 16 byte tiles per register, 64-byte mirrors.
#include "ombrel/framework/simd/lanes_avx512.h"
#include "ombrel/pixelops/transpose_kernels_body.h"

namespace ombrel::transpose::avx512 {

int Tile(int begin, int end, const TileJob& job) {
    return TransposeBody<simd::Avx512>::Tile(begin, end, job);
}
int Reverse(int begin, int end, const LineJob& job) {
    return TransposeBody<simd::Avx512>::Reverse(begin, end, job);
}
int Copy(int begin, int end, const LineJob& job) {
    return TransposeBody<simd::Avx512>::Copy(begin, end, job);
}

}  // namespace ombrel::transpose::avx512
