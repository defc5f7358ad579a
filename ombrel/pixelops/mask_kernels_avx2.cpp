// SPDX-License-Identifier: MIT
#include <immintrin.h>

#include "ombrel/pixelops/mask_kernels.h"
#include "ombrel/pixelops/mask_kernels_simd.h"

namespace ombrel::avx2 {
namespace {

struct V {
    static constexpr int kWidth = 32;
    using Reg = __m256i;
    static Reg Load(const uint8_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
    static void Store(uint8_t* p, Reg v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }
    static Reg Set1(uint8_t b) { return _mm256_set1_epi8(static_cast<char>(b)); }
    static Reg Add(Reg a, Reg b) { return _mm256_add_epi8(a, b); }
    static Reg Sub(Reg a, Reg b) { return _mm256_sub_epi8(a, b); }
    static Reg AbsDiff(Reg a, Reg b) {
        return _mm256_or_si256(_mm256_subs_epu8(a, b), _mm256_subs_epu8(b, a));
    }
    static Reg And(Reg a, Reg b) { return _mm256_and_si256(a, b); }
    static Reg Or(Reg a, Reg b) { return _mm256_or_si256(a, b); }
    static Reg Xor(Reg a, Reg b) { return _mm256_xor_si256(a, b); }
    static Reg Min(Reg a, Reg b) { return _mm256_min_epu8(a, b); }
    static Reg Max(Reg a, Reg b) { return _mm256_max_epu8(a, b); }
    static Reg Band(Reg d, Reg s, Reg lo, Reg hi, Reg one) {
        const Reg in = _mm256_and_si256(_mm256_cmpeq_epi8(_mm256_max_epu8(s, lo), s),
                                        _mm256_cmpeq_epi8(_mm256_min_epu8(s, hi), s));
        return _mm256_blendv_epi8(d, one, in);
    }
};

}  // namespace

int MaskSpan(uint32_t op, int low, int high, const uint8_t* s, uint8_t* d, int n) {
    return mask_simd::MaskSpan<V>(op, low, high, s, d, n);
}

}  // namespace ombrel::avx2
