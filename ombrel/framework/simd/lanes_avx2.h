// SPDX-License-Identifier: MIT
// Internal: the AVX2 lane operations that kernel bodies are written over (32 bytes per register). Include
// only from files compiled with the AVX2 flags. The struct sits in an anonymous namespace, so every kernel
// body instantiated with it is private to its file and its flags: the linker cannot hand an AVX2 copy to a
// caller built for a narrower level.
//
// Lane order: unpacklo/unpackhi widen and packs/packus narrow within each 128-bit lane and undo each other,
// so bodies need no cross-lane shuffles at any width. Comparisons give all-ones lanes where true.
#pragma once
#include <immintrin.h>

#include <cstdint>

namespace ombrel::simd {
namespace {

struct Avx2 {
    using T = __m256i;
    static constexpr int N = 32;
    static T load(const uint8_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
    static void store(uint8_t* p, T x) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), x); }
    static T zero() { return _mm256_setzero_si256(); }
    static T ones() { return _mm256_set1_epi32(-1); }
    static T set8(int v) { return _mm256_set1_epi8(static_cast<char>(v)); }
    static T set16(int v) { return _mm256_set1_epi16(static_cast<int16_t>(v)); }
    static T set32(int v) { return _mm256_set1_epi32(v); }
    static T and_(T x, T y) { return _mm256_and_si256(x, y); }
    static T or_(T x, T y) { return _mm256_or_si256(x, y); }
    static T xor_(T x, T y) { return _mm256_xor_si256(x, y); }
    static T andnot(T m, T x) { return _mm256_andnot_si256(m, x); }          // ~m & x
    static T select8(T m, T x, T y) { return _mm256_blendv_epi8(y, x, m); }  // m ? x : y, per byte
    static T add8(T x, T y) { return _mm256_add_epi8(x, y); }
    static T sub8(T x, T y) { return _mm256_sub_epi8(x, y); }
    static T adds8u(T x, T y) { return _mm256_adds_epu8(x, y); }
    static T subs8u(T x, T y) { return _mm256_subs_epu8(x, y); }
    static T min8u(T x, T y) { return _mm256_min_epu8(x, y); }
    static T max8u(T x, T y) { return _mm256_max_epu8(x, y); }
    static T cmpeq8(T x, T y) { return _mm256_cmpeq_epi8(x, y); }
    static T unpacklo8(T x, T y) { return _mm256_unpacklo_epi8(x, y); }
    static T unpackhi8(T x, T y) { return _mm256_unpackhi_epi8(x, y); }
    static T unpacklo16(T x, T y) { return _mm256_unpacklo_epi16(x, y); }
    static T unpackhi16(T x, T y) { return _mm256_unpackhi_epi16(x, y); }
    static T add16(T x, T y) { return _mm256_add_epi16(x, y); }
    static T sub16(T x, T y) { return _mm256_sub_epi16(x, y); }
    static T mullo16(T x, T y) { return _mm256_mullo_epi16(x, y); }
    static T mulhi16(T x, T y) { return _mm256_mulhi_epi16(x, y); }
    static T sra16(T x, __m128i c) { return _mm256_sra_epi16(x, c); }
    static T sll16(T x, __m128i c) { return _mm256_sll_epi16(x, c); }
    static T srl16(T x, __m128i c) { return _mm256_srl_epi16(x, c); }
    static T srli16_8(T x) { return _mm256_srli_epi16(x, 8); }
    static T cmpgt16(T x, T y) { return _mm256_cmpgt_epi16(x, y); }
    static T cmpeq16(T x, T y) { return _mm256_cmpeq_epi16(x, y); }
    static T min16(T x, T y) { return _mm256_min_epi16(x, y); }
    static T max16(T x, T y) { return _mm256_max_epi16(x, y); }
    static T add32(T x, T y) { return _mm256_add_epi32(x, y); }
    static T sra32(T x, __m128i c) { return _mm256_sra_epi32(x, c); }
    static T cmpgt32(T x, T y) { return _mm256_cmpgt_epi32(x, y); }
    static T min32(T x, T y) { return _mm256_min_epi32(x, y); }
    static T max32(T x, T y) { return _mm256_max_epi32(x, y); }
    static T packs32(T x, T y) { return _mm256_packs_epi32(x, y); }
    static T packus16(T x, T y) { return _mm256_packus_epi16(x, y); }
    static T sad(T x) { return _mm256_sad_epu8(x, _mm256_setzero_si256()); }
    static T add64(T x, T y) { return _mm256_add_epi64(x, y); }
    static uint64_t hsum64(T x) {
        const __m128i s = _mm_add_epi64(_mm256_castsi256_si128(x), _mm256_extracti128_si256(x, 1));
        return static_cast<uint64_t>(_mm_cvtsi128_si64(s)) +
               static_cast<uint64_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(s, s)));
    }
    // Bit i set when byte i of m is all ones (m a comparison result).
    static uint64_t bits8(T m) { return static_cast<uint32_t>(_mm256_movemask_epi8(m)); }
    // Natural-order widening and narrowing (element i of the result comes from element i of the input, at
    // every width), for bodies that keep per-pixel words in memory.
    // N/2 bytes at p, zero-extended to 16-bit lanes.
    static T load8to16(const uint8_t* p) {
        return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
    }
    // The lower / upper half of the 16-bit lanes, zero- or sign-extended to 32 bits.
    static T widen16lo32(T x) { return _mm256_cvtepu16_epi32(_mm256_castsi256_si128(x)); }
    static T widen16hi32(T x) { return _mm256_cvtepu16_epi32(_mm256_extracti128_si256(x, 1)); }
    static T widen16lo32s(T x) { return _mm256_cvtepi16_epi32(_mm256_castsi256_si128(x)); }
    static T widen16hi32s(T x) { return _mm256_cvtepi16_epi32(_mm256_extracti128_si256(x, 1)); }
    static T sub32(T x, T y) { return _mm256_sub_epi32(x, y); }
    static T srl32(T x, __m128i c) { return _mm256_srl_epi32(x, c); }
    // Four vectors of 32-bit lanes holding 0..255, in order, to one vector of bytes in the same order.
    static T narrow32to8(T a, T b, T c, T d) {
        const T packed = _mm256_packus_epi16(_mm256_packs_epi32(a, b), _mm256_packs_epi32(c, d));
        return _mm256_permutevar8x32_epi32(packed, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
    }
    // Truncated quotient of 32-bit lanes by d through single precision: exact while the lanes are below
    // 2^24 and d below 2^16 (the rounding error then stays under the distance to the next integer).
    static T divtrunc32f(T x, float d) {
        return _mm256_cvttps_epi32(_mm256_div_ps(_mm256_cvtepi32_ps(x), _mm256_set1_ps(d)));
    }
    // Nearest integer to the square root of each 32-bit lane, exact for 0 <= x <= 65536 (there a root is
    // never within float rounding of a half).
    static T sqrtround32(T x) { return _mm256_cvtps_epi32(_mm256_sqrt_ps(_mm256_cvtepi32_ps(x))); }
    // Each 32-bit lane i becomes table[i] (a byte, zero-extended). Reads four bytes at each index: the table
    // needs three readable bytes past its last entry.
    static T gather8x32(const uint8_t* table, T idx) {
        const T words = _mm256_i32gather_epi32(reinterpret_cast<const int*>(table), idx, 1);
        return _mm256_and_si256(words, _mm256_set1_epi32(0xFF));
    }
    // Byte shuffle within each 128-bit lane: byte i is t[idx[i] & 15] of its lane, 0 where idx[i] has bit 7.
    static T shuffle8(T t, T idx) { return _mm256_shuffle_epi8(t, idx); }
    // 16 bytes repeated in every 128-bit lane (a table for shuffle8).
    static T broadcast16(const uint8_t* p) {
        return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
    }
    // ---- Geometry: whole-register byte order (for mirrors, tiles and decimation) ----
    static constexpr int kLanes128 = 2;  // 128-bit lanes per register
    // The bytes in reverse order: reversed within each 128-bit lane, then the two lanes swapped.
    static T reverse8(T x) {
        const T inLane = _mm256_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13,
                                          12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
        return _mm256_permute4x64_epi64(_mm256_shuffle_epi8(x, inLane), 0x4E);
    }
    // 16-bit lanes 0..255 of x, then of y, narrowed to bytes in register order (across 128-bit lanes).
    static T packus16seq(T x, T y) { return _mm256_permute4x64_epi64(_mm256_packus_epi16(x, y), 0xD8); }
    // Stores the 16 bytes of 128-bit lane `lane` (0 .. kLanes128 - 1) of x.
    static void storeLane128(uint8_t* p, T x, int lane) {
        const __m128i part = lane == 0 ? _mm256_castsi256_si128(x) : _mm256_extracti128_si256(x, 1);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(p), part);
    }
    template <int k>
    static T srli16(T x) {
        return _mm256_srli_epi16(x, k);
    }
    // N/2 bytes at p, sign-extended to 16-bit lanes.
    static T load8to16s(const uint8_t* p) {
        return _mm256_cvtepi8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
    }
    // vpmaddwd: each 32-bit lane is x0*y0 + x1*y1 of its two signed 16-bit pairs.
    static T madd16(T x, T y) { return _mm256_madd_epi16(x, y); }
    // Sum of the signed 32-bit lanes, exact in 64 bits.
    static int64_t hsum32s(T x) {
        alignas(32) int32_t v[8];
        _mm256_store_si256(reinterpret_cast<__m256i*>(v), x);
        int64_t s = 0;
        for (int32_t e : v) s += e;
        return s;
    }
};

}  // namespace
}  // namespace ombrel::simd
