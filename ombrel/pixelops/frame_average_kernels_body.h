// SPDX-License-Identifier: MIT
// Internal: the vector bodies of the frame-averaging kernels, written once over a lane-operations struct V
// (see framework/simd/lanes_<isa>.h); each frame_average_kernels_<isa>.cpp instantiates them with its own
// lanes. One step handles N pixels: N/4 accumulator words in each of four registers.
#pragma once
#include <cstdint>

#include "ombrel/pixelops/frame_average_kernels.h"

namespace ombrel::frame_average {

template <class V>
struct FrameAverageBody {
    using T = typename V::T;
    static constexpr int N = V::N;

    static T LoadWords(const uint32_t* p) { return V::load(reinterpret_cast<const uint8_t*>(p)); }
    static void StoreWords(uint32_t* p, T x) { V::store(reinterpret_cast<uint8_t*>(p), x); }

    // Adds the four registers of 32-bit words w to acc[i..i+N) and leaves the new sums in w.
    static void Accumulate(uint32_t* acc, T w[4]) {
        for (int q = 0; q < 4; ++q) {
            w[q] = V::add32(LoadWords(acc + q * (N / 4)), w[q]);
            StoreWords(acc + q * (N / 4), w[q]);
        }
    }

    static int Fill(int begin, int end, const FillJob& job) {
        if (job.count == 0 || job.count >= 65536) return begin;  // beyond exact single-precision division
        const float count = static_cast<float>(job.count);
        int i = begin;
        for (; i + N <= end; i += N) {
            const T lo = V::load8to16(job.frame + i), hi = V::load8to16(job.frame + i + N / 2);
            T w[4] = {V::widen16lo32(lo), V::widen16hi32(lo), V::widen16lo32(hi), V::widen16hi32(hi)};
            Accumulate(job.acc + i, w);
            V::store(job.dst + i, V::narrow32to8(V::divtrunc32f(w[0], count), V::divtrunc32f(w[1], count),
                                                 V::divtrunc32f(w[2], count), V::divtrunc32f(w[3], count)));
        }
        return i;
    }

    static int Steady(int begin, int end, const SteadyJob& job) {
        const __m128i shift = _mm_cvtsi32_si128(job.shift);
        const T lowByte = V::set32(0xFF);
        int i = begin;
        for (; i + N <= end; i += N) {
            // new - oldest fits in signed 16 bits (-255..255); widened with its sign, the 32-bit add wraps
            // exactly as the reference's unsigned arithmetic does.
            const T lo = V::sub16(V::load8to16(job.frame + i), V::load8to16(job.oldest + i));
            const T hi = V::sub16(V::load8to16(job.frame + i + N / 2), V::load8to16(job.oldest + i + N / 2));
            T w[4] = {V::widen16lo32s(lo), V::widen16hi32s(lo), V::widen16lo32s(hi), V::widen16hi32s(hi)};
            Accumulate(job.acc + i, w);
            for (T& x : w) x = V::and_(V::srl32(x, shift), lowByte);
            V::store(job.dst + i, V::narrow32to8(w[0], w[1], w[2], w[3]));
        }
        return i;
    }
};

}  // namespace ombrel::frame_average
