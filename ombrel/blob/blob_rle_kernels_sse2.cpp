// SPDX-License-Identifier: MIT
// SSE2 transition finder of blob row coding: 16 pixels per block.
#include "ombrel/blob/blob_rle_kernels_body.h"
#include "ombrel/framework/simd/lanes_sse2.h"

namespace ombrel::blobrle::sse2 {

int Transitions(int begin, int end, const uint8_t* p, int xoff, Band band, TransitionState* st,
                int16_t* out) {
    return TransitionBody<simd::Sse2>::Transitions(begin, end, p, xoff, band, st, out);
}

}  // namespace ombrel::blobrle::sse2
