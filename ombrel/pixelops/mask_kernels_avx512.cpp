// SPDX-License-Identifier: MIT
#include <immintrin.h>

#include "ombrel/pixelops/mask_kernels.h"
#include "ombrel/pixelops/mask_kernels_simd.h"

namespace ombrel::avx512 {
namespace {

struct V {
    static constexpr int kWidth = 64;
    using Reg = __m512i;
    static Reg Load(const uint8_t* p) { return _mm512_loadu_si512(p); }
    static void Store(uint8_t* p, Reg v) { _mm512_storeu_si512(p, v); }
    static Reg Set1(uint8_t b) { return _mm512_set1_epi8(static_cast<char>(b)); }
    static Reg Add(Reg a, Reg b) { return _mm512_add_epi8(a, b); }
    static Reg Sub(Reg a, Reg b) { return _mm512_sub_epi8(a, b); }
    static Reg AbsDiff(Reg a, Reg b) {
        return _mm512_or_si512(_mm512_subs_epu8(a, b), _mm512_subs_epu8(b, a));
    }
    static Reg And(Reg a, Reg b) { return _mm512_and_si512(a, b); }
    static Reg Or(Reg a, Reg b) { return _mm512_or_si512(a, b); }
    static Reg Xor(Reg a, Reg b) { return _mm512_xor_si512(a, b); }
    static Reg Min(Reg a, Reg b) { return _mm512_min_epu8(a, b); }
    static Reg Max(Reg a, Reg b) { return _mm512_max_epu8(a, b); }
    static Reg Band(Reg d, Reg s, Reg lo, Reg hi, Reg one) {
        const __mmask64 in = _mm512_cmpge_epu8_mask(s, lo) & _mm512_cmple_epu8_mask(s, hi);
        return _mm512_mask_blend_epi8(in, d, one);
    }
};

}  // namespace

int MaskSpan(uint32_t op, int low, int high, const uint8_t* s, uint8_t* d, int n) {
    return mask_simd::MaskSpan<V>(op, low, high, s, d, n);
}

}  // namespace ombrel::avx512
