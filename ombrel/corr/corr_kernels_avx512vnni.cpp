// SPDX-License-Identifier: MIT
// The cross sums of 64 positions at a time with the byte dot product: vpdpbusd adds four unsigned image
// bytes times four signed template bytes into each 32-bit lane, with no intermediate saturation.
//
// Layout: accumulator ph (0..3), lane 4c + d (128-bit lane c, dword d) holds position x + 16c + 4d + ph. Its
// four image bytes for template columns 4g .. 4g + 3 start at x + 16c + 4d + ph + 4g: with X_q the 64 bytes
// from x + 16q, that is dword d of lane c of alignr(X_(q+1), X_q, n) for 4g + ph = 16q + n. So one in-lane
// byte shift and one dot product per 64 products, the template dword broadcast from memory.
//
// Exactness: a product is at most 255 * 128 = 32640 in size, so a lane holds at most 65536 products (below
// 2^31) before it is folded into 64 bits: template rows are taken in chunks of at most 65536 / tStride.
// Signed image bytes are flipped to unsigned (i + 128) and 128 * sum(t) is taken off at the end.
#include <cstdint>
#include <cstring>

#include "ombrel/corr/corr_kernels.h"
#include "ombrel/framework/simd/lanes_avx512.h"

namespace ombrel::corr::avx512vnni {
namespace {

constexpr int kBlock = 64;  // positions per block

__m512i LoadRow(const uint8_t* row, int64_t from, int64_t readable, __m512i flip) {
    const int64_t n = readable - from;
    const __mmask64 m = n >= 64 ? ~__mmask64{0} : (n <= 0 ? __mmask64{0} : (__mmask64{1} << n) - 1);
    return _mm512_xor_si512(_mm512_maskz_loadu_epi8(m, row + (n > 0 ? from : 0)), flip);
}

int32_t Dword(const int8_t* p) {
    int32_t v;
    std::memcpy(&v, p, 4);
    return v;
}

template <int GG>
void Groups(__m512i acc[4], __m512i lo, __m512i hi, const int8_t* t4) {
    const __m512i tv = _mm512_set1_epi32(Dword(t4 + 4 * GG));
    acc[0] = _mm512_dpbusd_epi32(acc[0], _mm512_alignr_epi8(hi, lo, 4 * GG + 0), tv);
    acc[1] = _mm512_dpbusd_epi32(acc[1], _mm512_alignr_epi8(hi, lo, 4 * GG + 1), tv);
    acc[2] = _mm512_dpbusd_epi32(acc[2], _mm512_alignr_epi8(hi, lo, 4 * GG + 2), tv);
    acc[3] = _mm512_dpbusd_epi32(acc[3], _mm512_alignr_epi8(hi, lo, 4 * GG + 3), tv);
}

// Template rows [r0, r1) for the block at x, added into total[64] (position order).
void Chunk(const CrossRowJob& job, int64_t x, int r0, int r1, __m512i flip, int64_t* total) {
    __m512i acc[4] = {_mm512_setzero_si512(), _mm512_setzero_si512(), _mm512_setzero_si512(),
                      _mm512_setzero_si512()};
    const int chunks = job.tStride / 16;
    const int groups = (job.tw + 3) / 4;  // template dwords holding a column below tw
    for (int r = r0; r < r1; ++r) {
        const uint8_t* row = job.img + r * job.imgPitch;
        const int8_t* tr = job.t + int64_t{r} * job.tStride;
        __m512i lo = LoadRow(row, x, job.readable, flip);
        for (int q = 0; q < chunks; ++q) {
            const __m512i hi = LoadRow(row, x + 16 * (q + 1), job.readable, flip);
            const int8_t* t4 = tr + 16 * q;
            const int left = groups - 4 * q;
            Groups<0>(acc, lo, hi, t4);
            if (left > 1) Groups<1>(acc, lo, hi, t4);
            if (left > 2) Groups<2>(acc, lo, hi, t4);
            if (left > 3) Groups<3>(acc, lo, hi, t4);
            lo = hi;
        }
    }
    alignas(64) int32_t lanes[4][16];
    for (int ph = 0; ph < 4; ++ph) _mm512_store_si512(lanes[ph], acc[ph]);
    for (int ph = 0; ph < 4; ++ph)
        for (int lane = 0; lane < 16; ++lane) total[4 * lane + ph] += lanes[ph][lane];
}

}  // namespace

int CrossRow(int begin, int end, const CrossRowJob& job) {
    if (end <= begin || job.tStride <= 0 || job.tStride % 16 != 0 || job.tStride > 65536) return begin;
    const int rowsPerChunk = 65536 / job.tStride;
    const __m512i flip = _mm512_set1_epi8(job.imgSigned ? static_cast<char>(0x80) : 0);
    const int64_t correction = job.imgSigned ? -128 * job.tSum : 0;
    for (int64_t x = begin; x < end; x += kBlock) {
        int64_t total[kBlock] = {};
        for (int r0 = 0; r0 < job.th; r0 += rowsPerChunk)
            Chunk(job, x, r0, r0 + rowsPerChunk < job.th ? r0 + rowsPerChunk : job.th, flip, total);
        const int64_t n = end - x < kBlock ? end - x : kBlock;
        for (int64_t p = 0; p < n; ++p) job.out[x + p] = total[p] + correction;
    }
    return end;
}

}  // namespace ombrel::corr::avx512vnni
