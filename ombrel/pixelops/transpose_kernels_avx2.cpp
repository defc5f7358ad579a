// SPDX-License-Identifier: MIT
// AVX2 kernels of the transposition agent: two 16 x 16 byte tiles per register, 32-byte mirrors.
#include "ombrel/framework/simd/lanes_avx2.h"
#include "ombrel/pixelops/transpose_kernels_body.h"

namespace ombrel::transpose::avx2 {

int Tile(int begin, int end, const TileJob& job) {
    return TransposeBody<simd::Avx2>::Tile(begin, end, job);
}
int Reverse(int begin, int end, const LineJob& job) {
    return TransposeBody<simd::Avx2>::Reverse(begin, end, job);
}
int Copy(int begin, int end, const LineJob& job) {
    return TransposeBody<simd::Avx2>::Copy(begin, end, job);
}

}  // namespace ombrel::transpose::avx2
