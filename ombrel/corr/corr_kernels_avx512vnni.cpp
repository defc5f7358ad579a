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
//
// A row's last block may hold only a few positions (577 of them at 640 wide with a 64-wide template leave
// one); a block costs the same for one position as for 64, so a few are taken one at a time instead (Direct).
#include <cstdint>
#include <cstring>

#include "ombrel/corr/corr_kernels.h"
#include "ombrel/framework/simd/lanes_avx512.h"

namespace ombrel::corr::avx512vnni {
namespace {

constexpr int kBlock = 64;  // positions per block and output row

// The template row of an output row that this image row does not meet (several rows at once only when
// th * tStride <= 65536).
alignas(64) const int8_t kZeroRow[65536] = {};

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

// One group of four template columns (4 * GG within the 16-column chunk at col) against the shifted
// image bytes, for every output row whose template row meets this image row (all of them unless Partial).
template <int R, bool Partial>
void Dots(__m512i (&acc)[R][4], __m512i s0, __m512i s1, __m512i s2, __m512i s3, const int8_t* const* trow,
          const bool* meets, int col) {
#pragma GCC unroll 4
    for (int j = 0; j < R; ++j) {
        if (Partial && !meets[j]) continue;
        const __m512i tv = _mm512_set1_epi32(Dword(trow[j] + col));
        acc[j][0] = _mm512_dpbusd_epi32(acc[j][0], s0, tv);
        acc[j][1] = _mm512_dpbusd_epi32(acc[j][1], s1, tv);
        acc[j][2] = _mm512_dpbusd_epi32(acc[j][2], s2, tv);
        acc[j][3] = _mm512_dpbusd_epi32(acc[j][3], s3, tv);
    }
}

template <int GG, int R, bool Partial>
void Groups(__m512i (&acc)[R][4], __m512i lo, __m512i hi, const int8_t* const* trow, const bool* meets,
            int col) {
    Dots<R, Partial>(acc, _mm512_alignr_epi8(hi, lo, 4 * GG + 0), _mm512_alignr_epi8(hi, lo, 4 * GG + 1),
                     _mm512_alignr_epi8(hi, lo, 4 * GG + 2), _mm512_alignr_epi8(hi, lo, 4 * GG + 3), trow,
                     meets, col + 4 * GG);
}

// The same shifted bytes loaded straight from the image (p at the chunk's first byte): the byte shift
// competes with the dot product for execution ports, a load does not. Only for unsigned bytes (nothing to
// flip) and blocks whose every byte is readable.
template <int GG, int R>
void GroupsLoaded(__m512i (&acc)[R][4], const uint8_t* p, const int8_t* const* trow, int col) {
    Dots<R, false>(acc, _mm512_loadu_si512(p + 4 * GG + 0), _mm512_loadu_si512(p + 4 * GG + 1),
                   _mm512_loadu_si512(p + 4 * GG + 2), _mm512_loadu_si512(p + 4 * GG + 3), trow, nullptr,
                   col + 4 * GG);
}

// Template rows [r0, r1) for the block at x and R output rows, added into total[j][64] (position order).
// Each image row is shifted (or its shifted bytes loaded) once and serves every output row whose template
// row lies on it.
template <int R>
void Chunk(const CrossRowJob& job, const uint8_t* img, int64_t x, int r0, int r1, __m512i flip,
           int64_t (*total)[kBlock]) {
    __m512i acc[R][4];
#pragma GCC unroll 4
    for (int j = 0; j < R; ++j)
        for (auto& a : acc[j]) a = _mm512_setzero_si512();
    const int chunks = job.tStride / 16;
    const int64_t irEnd = int64_t{R - 1} * job.rowStep + r1;
    // The last byte a block reads is 63 past its last chunk's first byte.
    const bool loaded = !job.imgSigned && x + job.tStride + 63 <= job.readable;
    for (int64_t ir = r0; ir < irEnd; ++ir) {
        const int8_t* trow[R];
        bool meets[R];
        int meeting = 0;
        for (int j = 0; j < R; ++j) {
            const int64_t r = ir - int64_t{j} * job.rowStep;
            meets[j] = r >= r0 && r < r1;
            trow[j] = meets[j] ? job.t + r * job.tStride : kZeroRow;
            meeting += meets[j];
        }
        if (meeting == 0) continue;
        const uint8_t* row = img + ir * job.imgPitch;
        if (meeting == R && loaded) {
            for (int q = 0; q < chunks; ++q) {
                const uint8_t* p = row + x + 16 * q;
                GroupsLoaded<0, R>(acc, p, trow, 16 * q);
                GroupsLoaded<1, R>(acc, p, trow, 16 * q);
                GroupsLoaded<2, R>(acc, p, trow, 16 * q);
                GroupsLoaded<3, R>(acc, p, trow, 16 * q);
            }
            continue;
        }
        __m512i lo = LoadRow(row, x, job.readable, flip);
        // Image rows at the top and bottom of the band meet only some output rows: those rows skip the
        // others' products (the branch is the same for the whole image row).
        if (meeting == R) {
            for (int q = 0; q < chunks; ++q) {
                const __m512i hi = LoadRow(row, x + 16 * (q + 1), job.readable, flip);
                // All four groups, zero template columns included: branches here cost more than the products.
                Groups<0, R, false>(acc, lo, hi, trow, meets, 16 * q);
                Groups<1, R, false>(acc, lo, hi, trow, meets, 16 * q);
                Groups<2, R, false>(acc, lo, hi, trow, meets, 16 * q);
                Groups<3, R, false>(acc, lo, hi, trow, meets, 16 * q);
                lo = hi;
            }
        } else {
            for (int q = 0; q < chunks; ++q) {
                const __m512i hi = LoadRow(row, x + 16 * (q + 1), job.readable, flip);
                Groups<0, R, true>(acc, lo, hi, trow, meets, 16 * q);
                Groups<1, R, true>(acc, lo, hi, trow, meets, 16 * q);
                Groups<2, R, true>(acc, lo, hi, trow, meets, 16 * q);
                Groups<3, R, true>(acc, lo, hi, trow, meets, 16 * q);
                lo = hi;
            }
        }
    }
    // Every index into acc is a constant once unrolled, so the accumulators stay in registers; an index the
    // compiler cannot resolve would keep them in memory, stored on every pass of the loop above.
    alignas(64) int32_t lanes[4][16];
#pragma GCC unroll 4
    for (int j = 0; j < R; ++j) {
#pragma GCC unroll 4
        for (int ph = 0; ph < 4; ++ph) _mm512_store_si512(lanes[ph], acc[j][ph]);
        for (int ph = 0; ph < 4; ++ph)
            for (int lane = 0; lane < 16; ++lane) total[j][4 * lane + ph] += lanes[ph][lane];
    }
}

__mmask64 FirstBytes(int64_t n) {
    return n >= 64 ? ~__mmask64{0} : (n <= 0 ? __mmask64{0} : (__mmask64{1} << n) - 1);
}

// P positions from x, one at a time: each dot product takes 64 template bytes of one row against the 64
// image bytes under them, so nothing is computed for positions past the span. A lane gains four products
// per row and 64-byte column chunk; the lanes are folded into 64 bits before they hold 65536 products.
template <int P, bool Signed>
void Direct(const CrossRowJob& job, const uint8_t* img, int64_t x, __m512i flip, int64_t* total) {
    const int chunks = (job.tStride + 63) / 64;
    const int rowsPerFold = 16384 / chunks;
    for (int r0 = 0; r0 < job.th; r0 += rowsPerFold) {
        const int r1 = r0 + rowsPerFold < job.th ? r0 + rowsPerFold : job.th;
        __m512i acc[P];
#pragma GCC unroll 8
        for (auto& a : acc) a = _mm512_setzero_si512();
        for (int q = 0; q < chunks; ++q) {
            // Template bytes past its stride belong to the next row: the template load stops there. Image
            // bytes stop at the readable end; those under zero template bytes add nothing.
            const __mmask64 tm = FirstBytes(job.tStride - 64 * int64_t{q});
            __mmask64 im[P];
            int64_t from[P];
            for (int p = 0; p < P; ++p) {
                from[p] = x + p + 64 * int64_t{q};
                im[p] = FirstBytes(job.readable - from[p]) & tm;
                if (im[p] == 0) from[p] = 0;
            }
            const int8_t* tr = job.t + int64_t{r0} * job.tStride + 64 * q;
            const uint8_t* row = img + int64_t{r0} * job.imgPitch;
            for (int r = r0; r < r1; ++r, tr += job.tStride, row += job.imgPitch) {
                const __m512i tv = _mm512_maskz_loadu_epi8(tm, tr);
#pragma GCC unroll 8
                for (int p = 0; p < P; ++p) {
                    const __m512i raw = _mm512_maskz_loadu_epi8(im[p], row + from[p]);
                    const __m512i iv = Signed ? _mm512_xor_si512(raw, flip) : raw;
                    acc[p] = _mm512_dpbusd_epi32(acc[p], iv, tv);
                }
            }
        }
#pragma GCC unroll 8
        for (int p = 0; p < P; ++p) {
            const __m512i wide =
                _mm512_add_epi64(_mm512_cvtepi32_epi64(_mm512_castsi512_si256(acc[p])),
                                 _mm512_cvtepi32_epi64(_mm512_extracti64x4_epi64(acc[p], 1)));
            total[p] += _mm512_reduce_add_epi64(wide);
        }
    }
}

// Positions [x, end) of one output row by Direct, eight, four, two and one at a time.
void DirectSpan(const CrossRowJob& job, const uint8_t* img, int64_t x, int64_t end, __m512i flip,
                int64_t correction, int64_t* out) {
    while (x < end) {
        int64_t total[8] = {};
        const int64_t n = end - x;
        const int p = n >= 8 ? 8 : n >= 4 ? 4 : n >= 2 ? 2 : 1;
        switch (p) {
            case 8:
                (job.imgSigned ? Direct<8, true> : Direct<8, false>)(job, img, x, flip, total);
                break;
            case 4:
                (job.imgSigned ? Direct<4, true> : Direct<4, false>)(job, img, x, flip, total);
                break;
            case 2:
                (job.imgSigned ? Direct<2, true> : Direct<2, false>)(job, img, x, flip, total);
                break;
            default:
                (job.imgSigned ? Direct<1, true> : Direct<1, false>)(job, img, x, flip, total);
                break;
        }
        for (int i = 0; i < p; ++i) out[x + i] = total[i] + correction;
        x += p;
    }
}

// Whether the last n positions of a row are cheaper one at a time than as a block. A block takes tStride
// dot products per image row and output row, a position one per 64 template columns, but each of those
// needs its own unaligned load: timed, a position costs about six of the block's dot products per 64
// template columns (33 positions of a 64-wide template were slower than a block, one was much faster).
bool TailByPosition(const CrossRowJob& job, int64_t n) {
    const int64_t chunks = (job.tStride + 63) / 64;
    return 6 * n * chunks <= int64_t{job.tStride};
}

// Up to four output rows from img, all positions [begin, end); the last few by Direct when cheaper.
template <int R>
void Rows(int begin, int end, const CrossRowJob& job, const uint8_t* img, int64_t* out, __m512i flip) {
    const int64_t correction = job.imgSigned ? -128 * job.tSum : 0;
    // Rows shared between output rows need the whole template in one chunk; a template too large for that
    // goes one output row at a time (R = 1), in chunks of rows.
    const int rowsPerChunk = R == 1 ? 65536 / job.tStride : job.th;
    for (int64_t x = begin; x < end; x += kBlock) {
        if (end - x < kBlock && TailByPosition(job, end - x)) {
            for (int j = 0; j < R; ++j)
                DirectSpan(job, img + int64_t{j} * job.rowStep * job.imgPitch, x, end, flip, correction,
                           out + j * job.outStride);
            break;
        }
        int64_t total[R][kBlock] = {};
        for (int r0 = 0; r0 < job.th; r0 += rowsPerChunk)
            Chunk<R>(job, img, x, r0, r0 + rowsPerChunk < job.th ? r0 + rowsPerChunk : job.th, flip, total);
        const int64_t n = end - x < kBlock ? end - x : kBlock;
        for (int j = 0; j < R; ++j)
            for (int64_t p = 0; p < n; ++p) out[j * job.outStride + x + p] = total[j][p] + correction;
    }
}

}  // namespace

int CrossRow(int begin, int end, const CrossRowJob& job) {
    if (end <= begin || job.tStride <= 0 || job.tStride % 16 != 0 || job.tStride > 65536) return begin;
    const __m512i flip = _mm512_set1_epi8(job.imgSigned ? static_cast<char>(0x80) : 0);
    const bool shared = int64_t{job.th} * job.tStride <= 65536;
    for (int j = 0; j < job.outRows;) {
        const uint8_t* img = job.img + int64_t{j} * job.rowStep * job.imgPitch;
        int64_t* out = job.out + j * job.outStride;
        const int left = shared ? job.outRows - j : 1;
        if (left >= 4) {
            Rows<4>(begin, end, job, img, out, flip);
            j += 4;
        } else if (left == 3) {
            Rows<3>(begin, end, job, img, out, flip);
            j += 3;
        } else if (left == 2) {
            Rows<2>(begin, end, job, img, out, flip);
            j += 2;
        } else {
            Rows<1>(begin, end, job, img, out, flip);
            j += 1;
        }
    }
    return end;
}

}  // namespace ombrel::corr::avx512vnni
