// SPDX-License-Identifier: MIT
// Internal: the vector body of the convolution kernel, written once over a lane-operations struct V (see
// framework/simd/lanes_<isa>.h) and instantiated by each conv_kernels_<isa>.cpp with its own lanes.
//
// Step 1 only. Source bytes are widened to 16 bits, two neighbouring kernel columns are interleaved pairwise
// with their pixels and multiplied with madd16 into 32-bit lanes: each 16-bit product is exact and a pair
// fits 32 bits, and 32-bit lane additions wrap exactly as the reference's sum. An odd last column pairs with
// a zero instead of a load, so nothing past the kernel's extent is read. The 32-bit results, shifted and cut
// to their low byte, pack back in order: unpacklo/hi16 split each 128-bit lane the same way packs32 joins it.
#pragma once
#include <cstdint>

#include "ombrel/pixelops/conv_kernels.h"

namespace ombrel::conv {

template <class V>
struct ConvBody {
    using T = typename V::T;
    static constexpr int H = V::N / 2;  // outputs per 16-bit vector

    static T Widen(const uint8_t* p, bool isSigned) { return isSigned ? V::load8to16s(p) : V::load8to16(p); }

    static T Pair(int16_t a, int16_t b) {
        return V::set32(static_cast<int>(static_cast<uint32_t>(static_cast<uint16_t>(b)) << 16 |
                                         static_cast<uint16_t>(a)));
    }

    // The low bytes of H outputs starting at block, in 16-bit lanes.
    static T Half(const RowJob& job, const uint8_t* block) {
        T lo = V::zero(), hi = V::zero();
        const bool s = job.imgSigned != 0;
        for (int ky = 0; ky < job.kh; ++ky) {
            const uint8_t* row = block + ky * job.srcPitch;
            const int16_t* k = job.k + int64_t{ky} * job.kw;
            int kx = 0;
            for (; kx + 1 < job.kw; kx += 2) {
                const T a = Widen(row + kx, s), b = Widen(row + kx + 1, s), w = Pair(k[kx], k[kx + 1]);
                lo = V::add32(lo, V::madd16(V::unpacklo16(a, b), w));
                hi = V::add32(hi, V::madd16(V::unpackhi16(a, b), w));
            }
            if (kx < job.kw) {
                const T a = Widen(row + kx, s), z = V::zero(), w = Pair(k[kx], 0);
                lo = V::add32(lo, V::madd16(V::unpacklo16(a, z), w));
                hi = V::add32(hi, V::madd16(V::unpackhi16(a, z), w));
            }
        }
        if (job.clip) {
            lo = V::max32(lo, V::zero());
            hi = V::max32(hi, V::zero());
        }
        const __m128i count = _mm_cvtsi32_si128(job.shift);
        const T mask = V::set32(0xFF);
        return V::packs32(V::and_(V::sra32(lo, count), mask), V::and_(V::sra32(hi, count), mask));
    }

    static int Row(int begin, int end, const RowJob& job) {
        if (job.step != 1) return begin;
        int i = begin;
        for (; i + V::N <= end; i += V::N) {
            const uint8_t* block = job.src + i;
            V::store(job.d + i, V::packus16seq(Half(job, block), Half(job, block + H)));
        }
        return i;
    }
};

}  // namespace ombrel::conv
