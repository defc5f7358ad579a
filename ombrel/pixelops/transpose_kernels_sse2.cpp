// SPDX-License-Identifier: MIT
// SSE2 kernels of the transposition agent: 16 x 16 byte tiles, 16-byte mirrors.
#include "ombrel/framework/simd/lanes_sse2.h"
#include "ombrel/pixelops/transpose_kernels_body.h"

namespace ombrel::transpose::sse2 {

int Tile(int begin, int end, const TileJob& job) {
    return TransposeBody<simd::Sse2>::Tile(begin, end, job);
}
int Reverse(int begin, int end, const LineJob& job) {
    return TransposeBody<simd::Sse2>::Reverse(begin, end, job);
}
int Copy(int begin, int end, const LineJob& job) {
    return TransposeBody<simd::Sse2>::Copy(begin, end, job);
}

}  // namespace ombrel::transpose::sse2
