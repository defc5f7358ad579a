// SPDX-License-Identifier: MIT
// AVX-512BW transition finder of blob row coding: 64 pixels per block.
#include "ombrel/blob/blob_rle_kernels_body.h"
#include "ombrel/framework/simd/lanes_avx512.h"

namespace ombrel::blobrle::avx512 {

int Transitions(int begin, int end, const uint8_t* p, int xoff, Band band, TransitionState* st,
                int16_t* out) {
    return TransitionBody<simd::Avx512>::Transitions(begin, end, p, xoff, band, st, out);
}

}  // namespace ombrel::blobrle::avx512
