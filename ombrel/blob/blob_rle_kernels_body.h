// SPDX-License-Identifier: MIT
// Internal: the step-1 transition finder, written once over a lane-operations struct V (see
// framework/simd/lanes_<isa>.h); each blob_rle_kernels_<isa>.cpp instantiates it with its own lanes.
#pragma once
#include <cstdint>

#include "ombrel/blob/blob_rle.h"

namespace ombrel::blobrle {

template <class V>
struct TransitionBody {
    using T = typename V::T;

    // Each block gives one bit per pixel (1 = in the band); the changes are the bits that differ from their
    // left neighbour, the first pixel's neighbour being the class the previous block ended in.
    static int Transitions(int begin, int end, const uint8_t* p, int xoff, Band band, TransitionState* st,
                           int16_t* out) {
        const T low = V::set8(band.low), range = V::set8(band.range);
        constexpr uint64_t kBlockBits = V::N == 64 ? ~uint64_t{0} : (uint64_t{1} << V::N) - 1;
        uint64_t s = static_cast<uint64_t>(st->state);
        int count = st->count, i = begin;
        for (; i + V::N <= end; i += V::N) {
            const T d = V::sub8(V::load(p + i), low);
            const uint64_t in = V::bits8(V::cmpeq8(V::min8u(d, range), d));
            uint64_t change = (in ^ ((in << 1) | s)) & kBlockBits;
            s = in >> (V::N - 1);
            while (change != 0) {
                out[count++] = static_cast<int16_t>(i + __builtin_ctzll(change) + xoff);
                change &= change - 1;
            }
        }
        st->state = static_cast<int>(s);
        st->count = count;
        return i;
    }
};

}  // namespace ombrel::blobrle
