// SPDX-License-Identifier: MIT
#include <emmintrin.h>

#include "ombrel/pixelops/mask_kernels.h"
#include "ombrel/pixelops/mask_kernels_simd.h"

namespace ombrel::sse2 {
namespace {

struct V {
    static constexpr int kWidth = 16;
    using Reg = __m128i;
    static Reg Load(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
    static void Store(uint8_t* p, Reg v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }
    static Reg Set1(uint8_t b) { return _mm_set1_epi8(static_cast<char>(b)); }
    static Reg Add(Reg a, Reg b) { return _mm_add_epi8(a, b); }
    static Reg Sub(Reg a, Reg b) { return _mm_sub_epi8(a, b); }
    static Reg AbsDiff(Reg a, Reg b) { return _mm_or_si128(_mm_subs_epu8(a, b), _mm_subs_epu8(b, a)); }
    static Reg And(Reg a, Reg b) { return _mm_and_si128(a, b); }
    static Reg Or(Reg a, Reg b) { return _mm_or_si128(a, b); }
    static Reg Xor(Reg a, Reg b) { return _mm_xor_si128(a, b); }
    static Reg Min(Reg a, Reg b) { return _mm_min_epu8(a, b); }
    static Reg Max(Reg a, Reg b) { return _mm_max_epu8(a, b); }
    static Reg Band(Reg d, Reg s, Reg lo, Reg hi, Reg one) {
        const Reg in =
            _mm_and_si128(_mm_cmpeq_epi8(_mm_max_epu8(s, lo), s), _mm_cmpeq_epi8(_mm_min_epu8(s, hi), s));
        return _mm_or_si128(_mm_and_si128(in, one), _mm_andnot_si128(in, d));
    }
};

}  // namespace

int MaskSpan(uint32_t op, int low, int high, const uint8_t* s, uint8_t* d, int n) {
    return mask_simd::MaskSpan<V>(op, low, high, s, d, n);
}

}  // namespace ombrel::sse2
