// SPDX-License-Identifier: MIT
// Internal: the SSE2 lane operations that kernel bodies are written over (16 bytes per register). Include
// only from files compiled with the SSE2 flags. The struct sits in an anonymous namespace, so every kernel
// body instantiated with it is private to its file and its flags: the linker cannot hand an SSE2 copy to a
// caller built for a narrower level.
//
// Lane order: unpacklo/unpackhi widen and packs/packus narrow within each 128-bit lane and undo each other,
// so bodies need no cross-lane shuffles at any width. Comparisons give all-ones lanes where true.
#pragma once
#include <emmintrin.h>

#include <cstdint>

namespace ombrel::simd {
namespace {

struct Sse2 {
    using T = __m128i;
    static constexpr int N = 16;
    static T load(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
    static void store(uint8_t* p, T x) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), x); }
    static T zero() { return _mm_setzero_si128(); }
    static T ones() { return _mm_set1_epi32(-1); }
    static T set8(int v) { return _mm_set1_epi8(static_cast<char>(v)); }
    static T set16(int v) { return _mm_set1_epi16(static_cast<int16_t>(v)); }
    static T set32(int v) { return _mm_set1_epi32(v); }
    static T and_(T x, T y) { return _mm_and_si128(x, y); }
    static T or_(T x, T y) { return _mm_or_si128(x, y); }
    static T xor_(T x, T y) { return _mm_xor_si128(x, y); }
    static T andnot(T m, T x) { return _mm_andnot_si128(m, x); }  // ~m & x
    static T select8(T m, T x, T y) { return _mm_or_si128(_mm_and_si128(m, x), _mm_andnot_si128(m, y)); }
    static T add8(T x, T y) { return _mm_add_epi8(x, y); }
    static T sub8(T x, T y) { return _mm_sub_epi8(x, y); }
    static T adds8u(T x, T y) { return _mm_adds_epu8(x, y); }
    static T subs8u(T x, T y) { return _mm_subs_epu8(x, y); }
    static T min8u(T x, T y) { return _mm_min_epu8(x, y); }
    static T max8u(T x, T y) { return _mm_max_epu8(x, y); }
    static T cmpeq8(T x, T y) { return _mm_cmpeq_epi8(x, y); }
    static T unpacklo8(T x, T y) { return _mm_unpacklo_epi8(x, y); }
    static T unpackhi8(T x, T y) { return _mm_unpackhi_epi8(x, y); }
    static T unpacklo16(T x, T y) { return _mm_unpacklo_epi16(x, y); }
    static T unpackhi16(T x, T y) { return _mm_unpackhi_epi16(x, y); }
    static T add16(T x, T y) { return _mm_add_epi16(x, y); }
    static T sub16(T x, T y) { return _mm_sub_epi16(x, y); }
    static T mullo16(T x, T y) { return _mm_mullo_epi16(x, y); }
    static T mulhi16(T x, T y) { return _mm_mulhi_epi16(x, y); }
    static T sra16(T x, __m128i c) { return _mm_sra_epi16(x, c); }
    static T sll16(T x, __m128i c) { return _mm_sll_epi16(x, c); }
    static T srl16(T x, __m128i c) { return _mm_srl_epi16(x, c); }
    static T srli16_8(T x) { return _mm_srli_epi16(x, 8); }
    static T cmpgt16(T x, T y) { return _mm_cmpgt_epi16(x, y); }
    static T cmpeq16(T x, T y) { return _mm_cmpeq_epi16(x, y); }
    static T min16(T x, T y) { return _mm_min_epi16(x, y); }
    static T max16(T x, T y) { return _mm_max_epi16(x, y); }
    static T add32(T x, T y) { return _mm_add_epi32(x, y); }
    static T sra32(T x, __m128i c) { return _mm_sra_epi32(x, c); }
    static T cmpgt32(T x, T y) { return _mm_cmpgt_epi32(x, y); }
    static T min32(T x, T y) {  // SSE2 has no 32-bit min: select by compare
        const T gt = _mm_cmpgt_epi32(x, y);
        return _mm_or_si128(_mm_and_si128(gt, y), _mm_andnot_si128(gt, x));
    }
    static T max32(T x, T y) {
        const T gt = _mm_cmpgt_epi32(x, y);
        return _mm_or_si128(_mm_and_si128(gt, x), _mm_andnot_si128(gt, y));
    }
    static T packs32(T x, T y) { return _mm_packs_epi32(x, y); }
    static T packus16(T x, T y) { return _mm_packus_epi16(x, y); }
    static T sad(T x) { return _mm_sad_epu8(x, _mm_setzero_si128()); }
    static T add64(T x, T y) { return _mm_add_epi64(x, y); }
    static uint64_t hsum64(T x) {
        return static_cast<uint64_t>(_mm_cvtsi128_si64(x)) +
               static_cast<uint64_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(x, x)));
    }
    // Bit i set when byte i of m is all ones (m a comparison result).
    static uint64_t bits8(T m) { return static_cast<uint32_t>(_mm_movemask_epi8(m)); }
    // Natural-order widening and narrowing (element i of the result comes from element i of the input, at
    // every width), for bodies that keep per-pixel words in memory.
    // N/2 bytes at p, zero-extended to 16-bit lanes.
    static T load8to16(const uint8_t* p) {
        return _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)), _mm_setzero_si128());
    }
    // The lower / upper half of the 16-bit lanes, zero- or sign-extended to 32 bits.
    static T widen16lo32(T x) { return _mm_unpacklo_epi16(x, _mm_setzero_si128()); }
    static T widen16hi32(T x) { return _mm_unpackhi_epi16(x, _mm_setzero_si128()); }
    static T widen16lo32s(T x) { return _mm_srai_epi32(_mm_unpacklo_epi16(x, x), 16); }
    static T widen16hi32s(T x) { return _mm_srai_epi32(_mm_unpackhi_epi16(x, x), 16); }
    static T sub32(T x, T y) { return _mm_sub_epi32(x, y); }
    static T srl32(T x, __m128i c) { return _mm_srl_epi32(x, c); }
    // Four vectors of 32-bit lanes holding 0..255, in order, to one vector of bytes in the same order.
    static T narrow32to8(T a, T b, T c, T d) {
        return _mm_packus_epi16(_mm_packs_epi32(a, b), _mm_packs_epi32(c, d));
    }
    // Truncated quotient of 32-bit lanes by d through single precision: exact while the lanes are below
    // 2^24 and d below 2^16 (the rounding error then stays under the distance to the next integer).
    static T divtrunc32f(T x, float d) {
        return _mm_cvttps_epi32(_mm_div_ps(_mm_cvtepi32_ps(x), _mm_set1_ps(d)));
    }
    // Nearest integer to the square root of each 32-bit lane, exact for 0 <= x <= 65536 (there a root is
    // never within float rounding of a half).
    static T sqrtround32(T x) { return _mm_cvtps_epi32(_mm_sqrt_ps(_mm_cvtepi32_ps(x))); }
    // Each 32-bit lane i becomes table[i] (a byte, zero-extended); SSE2 has no gather, so one lane at a time.
    static T gather8x32(const uint8_t* table, T idx) {
        alignas(16) int32_t lane[4];
        _mm_store_si128(reinterpret_cast<__m128i*>(lane), idx);
        for (int32_t& v : lane) v = table[v];
        return _mm_load_si128(reinterpret_cast<const __m128i*>(lane));
    }
    // ---- Geometry: whole-register byte order (for mirrors, tiles and decimation) ----
    static constexpr int kLanes128 = 1;  // 128-bit lanes per register
    // The bytes in reverse order: dwords reversed, then words within dwords, then bytes within words (SSE2
    // has no byte shuffle).
    static T reverse8(T x) {
        x = _mm_shuffle_epi32(x, 0x1B);
        x = _mm_shufflehi_epi16(_mm_shufflelo_epi16(x, 0xB1), 0xB1);
        return _mm_or_si128(_mm_slli_epi16(x, 8), _mm_srli_epi16(x, 8));
    }
    // 16-bit lanes 0..255 of x, then of y, narrowed to bytes in register order (across 128-bit lanes).
    static T packus16seq(T x, T y) { return _mm_packus_epi16(x, y); }
    // Stores the 16 bytes of 128-bit lane `lane` (0 .. kLanes128 - 1) of x.
    static void storeLane128(uint8_t* p, T x, int) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), x); }
    template <int k>
    static T srli16(T x) {
        return _mm_srli_epi16(x, k);
    }
    // N/2 bytes at p, sign-extended to 16-bit lanes.
    static T load8to16s(const uint8_t* p) {
        const __m128i b = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
        return _mm_srai_epi16(_mm_unpacklo_epi8(b, b), 8);
    }
    // pmaddwd: each 32-bit lane is x0*y0 + x1*y1 of its two signed 16-bit pairs.
    static T madd16(T x, T y) { return _mm_madd_epi16(x, y); }
    // Sum of the signed 32-bit lanes, exact in 64 bits.
    static int64_t hsum32s(T x) {
        alignas(16) int32_t v[4];
        _mm_store_si128(reinterpret_cast<__m128i*>(v), x);
        return int64_t{v[0]} + v[1] + v[2] + v[3];
    }
};

}  // namespace
}  // namespace ombrel::simd
