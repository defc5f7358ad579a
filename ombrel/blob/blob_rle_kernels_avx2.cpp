// SPDX-License-Identifier: MIT
#include <immintrin.h>

#include "ombrel/blob/blob_rle.h"

namespace ombrel::blobrle::avx2 {
namespace {

// Bit i set when pixel i of the block is in the band.
inline uint32_t InBandMask(const uint8_t* p, __m256i low, __m256i range) {
    const __m256i d = _mm256_sub_epi8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)), low);
    return static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(_mm256_min_epu8(d, range), d)));
}

}  // namespace

int Transitions(const uint8_t* p, int start, int cnt, int xoff, Band band, int* state, int16_t* out, int* n) {
    const __m256i low = _mm256_set1_epi8(static_cast<char>(band.low));
    const __m256i range = _mm256_set1_epi8(static_cast<char>(band.range));
    uint32_t s = static_cast<uint32_t>(*state);
    int count = *n, i = start;
    for (; i + 32 <= cnt; i += 32) {
        const uint32_t m = InBandMask(p + i, low, range);
        uint32_t change = m ^ ((m << 1) | s);
        s = m >> 31;
        while (change != 0) {
            out[count++] = static_cast<int16_t>(i + __builtin_ctz(change) + xoff);
            change &= change - 1;
        }
    }
    *state = static_cast<int>(s);
    *n = count;
    return i;
}

}  // namespace ombrel::blobrle::avx2
