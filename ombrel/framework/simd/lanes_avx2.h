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
    // N / 2 bytes at p, zero-extended to 16-bit lanes in order.
    static T load8to16(const uint8_t* p) {
        return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
    }
    template <int k>
    static T srli16(T x) {
        return _mm256_srli_epi16(x, k);
    }
};

}  // namespace
}  // namespace ombrel::simd
