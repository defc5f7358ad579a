// SPDX-License-Identifier: MIT
// AVX512 cross-sum kernels (32 pixels per multiply-add) and the score of eight positions at a time.
#include "ombrel/corr/corr_kernels_body.h"
#include "ombrel/framework/simd/lanes_avx512.h"

namespace ombrel::corr::avx512 {

int Dot(int begin, int end, DotJob& job) {
    return DotBody<simd::Avx512>::Dot(begin, end, job);
}

int CrossRow(int begin, int end, const CrossRowJob& job) {
    return DotBody<simd::Avx512>::CrossRow(begin, end, job);
}

// Eight columns at a time in 64-bit lanes; the squares of bytes are exact in 32x32-bit products.
int Column(int begin, int end, const ColumnJob& job) {
    const int stop = begin + (end - begin) / 8 * 8;
    const auto widen = [&job](const uint8_t* p) {
        const __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
        return job.imgSigned ? _mm512_cvtepi8_epi64(bytes) : _mm512_cvtepu8_epi64(bytes);
    };
    for (int x = begin; x < stop; x += 8) {
        const __m512i a = widen(job.add + x);
        __m512i d = a, d2 = _mm512_mul_epi32(a, a);
        if (job.sub != nullptr) {
            const __m512i s = widen(job.sub + x);
            d = _mm512_sub_epi64(d, s);
            d2 = _mm512_sub_epi64(d2, _mm512_mul_epi32(s, s));
        }
        _mm512_storeu_si512(job.col + x, _mm512_add_epi64(_mm512_loadu_si512(job.col + x), d));
        _mm512_storeu_si512(job.col2 + x, _mm512_add_epi64(_mm512_loadu_si512(job.col2 + x), d2));
    }
    return stop < begin ? begin : stop;
}

// CorrScore's operations in its order, on eight lanes: IEEE division, square root, products and differences
// round the same in every lane as in the scalar code, so the doubles are identical. One exact shortcut: a
// division by a power of two is the multiplication by its reciprocal (both only move the exponent; the sums
// are integers, far from the subnormal range).
int Score(int begin, int end, const ScoreJob& job) {
    const int stop = begin + (end - begin) / 8 * 8;
    if (stop <= begin || job.count == 0) return begin;
    const double n = job.count;
    const double mT = job.sum / n;
    const double vT = job.sumSq / n - mT * mT;
    const bool pow2 = (job.count & (job.count - 1)) == 0;
    const __m512d vn = _mm512_set1_pd(n), inv = _mm512_set1_pd(1.0 / n), vmT = _mm512_set1_pd(mT),
                  vvT = _mm512_set1_pd(vT), zero = _mm512_setzero_pd();
    const auto perN = [&](__m512d x) { return pow2 ? _mm512_mul_pd(x, inv) : _mm512_div_pd(x, vn); };
    for (int x = begin; x < stop; x += 8) {
        const __m512d sI = _mm512_cvtepi64_pd(_mm512_loadu_si512(job.sumI + x));
        const __m512d sI2 = _mm512_cvtepi64_pd(_mm512_loadu_si512(job.sumI2 + x));
        const __m512d sTI = _mm512_cvtepi64_pd(_mm512_loadu_si512(job.sumTI + x));
        const __m512d mI = perN(sI), mTI = perN(sTI);
        const __m512d v = _mm512_mul_pd(_mm512_sub_pd(perN(sI2), _mm512_mul_pd(mI, mI)), vvT);
        const __m512d c = _mm512_sub_pd(mTI, _mm512_mul_pd(vmT, mI));
        const __mmask8 positive = _mm512_cmp_pd_mask(v, zero, _CMP_GT_OQ);
        __m512d score;
        if (job.positionOnly == 0) {
            const __m512d root = _mm512_sqrt_pd(v);
            const __mmask8 usable = positive & _mm512_cmp_pd_mask(root, zero, _CMP_NEQ_OQ);
            score = _mm512_maskz_div_pd(usable, _mm512_abs_pd(c), root);
        } else {
            score = _mm512_maskz_div_pd(positive, _mm512_mul_pd(c, c), v);
        }
        _mm512_storeu_pd(job.score + x, score);
    }
    return stop;
}

}  // namespace ombrel::corr::avx512
