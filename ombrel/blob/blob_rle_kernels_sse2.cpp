// SPDX-License-Identifier: MIT
#include <emmintrin.h>

#include "ombrel/blob/blob_rle.h"

namespace ombrel::blobrle::sse2 {
namespace {

// Bit i set when pixel i of the block is in the band.
inline uint32_t InBandMask(const uint8_t* p, __m128i low, __m128i range) {
    const __m128i d = _mm_sub_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)), low);
    return static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_min_epu8(d, range), d)));
}

}  // namespace

int Transitions(const uint8_t* p, int start, int cnt, int xoff, Band band, int* state, int16_t* out, int* n) {
    const __m128i low = _mm_set1_epi8(static_cast<char>(band.low));
    const __m128i range = _mm_set1_epi8(static_cast<char>(band.range));
    uint32_t s = static_cast<uint32_t>(*state);
    int count = *n, i = start;
    for (; i + 16 <= cnt; i += 16) {
        const uint32_t m = InBandMask(p + i, low, range);
        uint32_t change = (m ^ ((m << 1) | s)) & 0xFFFFu;
        s = m >> 15;
        while (change != 0) {
            out[count++] = static_cast<int16_t>(i + __builtin_ctz(change) + xoff);
            change &= change - 1;
        }
    }
    *state = static_cast<int>(s);
    *n = count;
    return i;
}

}  // namespace ombrel::blobrle::sse2
