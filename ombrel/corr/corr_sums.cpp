// SPDX-License-Identifier: MIT
// The integer correlation sums and the host score routine of candidate lists.
#include <algorithm>
#include <cmath>
#include <cstdint>

#include "ombrel/corr/corr_match.h"

namespace ombrel {
namespace {

// One loop for every form: Acc the accumulator type of sumI2 and sumTI, Tpl the template byte type.
// Unrolled by eight columns, with a remainder loop.
template <class Acc, class Tpl, bool MASK>
void Sums(uint32_t& sumI, Acc& sumI2, Acc& sumTI, const unsigned char* img, const Tpl* tpl, int imgSkip,
          int tplSkip, int rows, int cols) {
    uint32_t sI = 0;
    Acc sI2 = 0, sTI = 0;
    const auto one = [&](int k) {
        const Acc t = static_cast<Acc>(tpl[k]);
        if (MASK && t == 0) return;
        const Acc i = img[k];
        sI += static_cast<uint32_t>(i);
        sI2 += i * i;
        sTI += t * i;
    };
    for (int y = 0; y < rows; ++y) {
        int x = 0;
        for (; x + 8 <= cols; x += 8) {
            one(x), one(x + 1), one(x + 2), one(x + 3), one(x + 4), one(x + 5), one(x + 6), one(x + 7);
        }
        for (; x < cols; ++x) one(x);
        img += cols + imgSkip;
        tpl += cols + tplSkip;
    }
    sumI = sI;
    sumI2 = sI2;
    sumTI = sTI;
}

template <class Tpl, bool MASK>
void Sums64(uint32_t& sumI, uint32_t& i2Lo, uint32_t& tiLo, uint32_t& tiHi, uint32_t& i2Hi,
            const unsigned char* img, const Tpl* tpl, int imgSkip, int tplSkip, int rows, int cols) {
    int64_t sI2 = 0, sTI = 0;
    Sums<int64_t, Tpl, MASK>(sumI, sI2, sTI, img, tpl, imgSkip, tplSkip, rows, cols);
    i2Lo = static_cast<uint32_t>(static_cast<uint64_t>(sI2));
    i2Hi = static_cast<uint32_t>(static_cast<uint64_t>(sI2) >> 32);
    tiLo = static_cast<uint32_t>(static_cast<uint64_t>(sTI));
    tiHi = static_cast<uint32_t>(static_cast<uint64_t>(sTI) >> 32);
}

int64_t Join(uint32_t lo, uint32_t hi) {
    return static_cast<int64_t>((static_cast<uint64_t>(hi) << 32) | lo);
}

}  // namespace

void CORR_SUM_NO_MASK(uint32_t& sumI, uint32_t& sumI2, uint32_t& sumTI, const unsigned char* img,
                      const unsigned char* tpl, int imgSkip, int tplSkip, int rows, int cols) {
    Sums<uint32_t, unsigned char, false>(sumI, sumI2, sumTI, img, tpl, imgSkip, tplSkip, rows, cols);
}
void CORR_SUM_MASK(uint32_t& sumI, uint32_t& sumI2, uint32_t& sumTI, const unsigned char* img,
                   const unsigned char* tpl, int imgSkip, int tplSkip, int rows, int cols) {
    Sums<uint32_t, unsigned char, true>(sumI, sumI2, sumTI, img, tpl, imgSkip, tplSkip, rows, cols);
}
void OA_CORR_SUM_NO_MASK(uint32_t& sumI, uint32_t& i2Lo, uint32_t& tiLo, uint32_t& tiHi, uint32_t& i2Hi,
                         const unsigned char* img, const unsigned char* tpl, int imgSkip, int tplSkip,
                         int rows, int cols) {
    Sums64<unsigned char, false>(sumI, i2Lo, tiLo, tiHi, i2Hi, img, tpl, imgSkip, tplSkip, rows, cols);
}
void OA_CORR_SUM_NO_MASK(uint32_t& sumI, uint32_t& i2Lo, uint32_t& tiLo, uint32_t& tiHi, uint32_t& i2Hi,
                         const unsigned char* img, const char* tpl, int imgSkip, int tplSkip, int rows,
                         int cols) {
    Sums64<signed char, false>(sumI, i2Lo, tiLo, tiHi, i2Hi, img, reinterpret_cast<const signed char*>(tpl),
                               imgSkip, tplSkip, rows, cols);
}
void OA_CORR_SUM_MASK(uint32_t& sumI, uint32_t& i2Lo, uint32_t& tiLo, uint32_t& tiHi, uint32_t& i2Hi,
                      const unsigned char* img, const unsigned char* tpl, int imgSkip, int tplSkip, int rows,
                      int cols) {
    Sums64<unsigned char, true>(sumI, i2Lo, tiLo, tiHi, i2Hi, img, tpl, imgSkip, tplSkip, rows, cols);
}
void OA_CORR_SUM_MASK(uint32_t& sumI, uint32_t& i2Lo, uint32_t& tiLo, uint32_t& tiHi, uint32_t& i2Hi,
                      const unsigned char* img, const char* tpl, int imgSkip, int tplSkip, int rows,
                      int cols) {
    Sums64<signed char, true>(sumI, i2Lo, tiLo, tiHi, i2Hi, img, reinterpret_cast<const signed char*>(tpl),
                              imgSkip, tplSkip, rows, cols);
}

CorrTempl CorrTempl::From(const CorrTemplate& t) {
    CorrTempl s;
    s.buffer = t.GetBuffer();
    s.isSigned = t.GetSigned();
    s.mask = t.GetMask();
    if (s.buffer == nullptr || s.buffer->BaseAddr() == nullptr) return s;
    const int w = s.buffer->Width(), h = s.buffer->Height();
    int64_t sum = 0, sq = 0;
    for (int y = 0; y < h; ++y) {
        const uint8_t* r = s.buffer->Row(y);
        for (int x = 0; x < w; ++x) {
            const int64_t v = s.isSigned ? int64_t{static_cast<int8_t>(r[x])} : int64_t{r[x]};
            if (s.mask && v == 0) continue;
            sum += v;
            sq += v * v;
        }
    }
    const double n = double(w) * h, m = sum / n;
    s.sum = static_cast<int32_t>(sum);
    s.variance = sq / n - m * m;
    return s;
}

namespace {

// The three exact sums of one position, by the routine whose accumulators cannot overflow for N pixels.
void PositionSums(const CorrTempl& t, const uint8_t* img, int imgPitch, int64_t n, double* sI, double* sI2,
                  double* sTI) {
    const Buffer* b = t.buffer;
    const int tw = b->Width(), th = b->Height(), imgSkip = imgPitch - tw, tplSkip = b->Pitch() - tw;
    const uint8_t* tpl = b->BaseAddr();
    uint32_t i = 0, lo2 = 0, hi2 = 0, loT = 0, hiT = 0;
    if (!t.isSigned && n < 66052) {
        uint32_t i2 = 0, ti = 0;
        (t.mask ? CORR_SUM_MASK : CORR_SUM_NO_MASK)(i, i2, ti, img, tpl, imgSkip, tplSkip, th, tw);
        *sI = i, *sI2 = i2, *sTI = ti;
        return;
    }
    if (t.isSigned && n < 33026) {
        int32_t i2 = 0, ti = 0;
        const auto* st = reinterpret_cast<const signed char*>(tpl);
        if (t.mask)
            Sums<int32_t, signed char, true>(i, i2, ti, img, st, imgSkip, tplSkip, th, tw);
        else
            Sums<int32_t, signed char, false>(i, i2, ti, img, st, imgSkip, tplSkip, th, tw);
        *sI = i, *sI2 = i2, *sTI = ti;
        return;
    }
    if (t.isSigned) {
        const char* st = reinterpret_cast<const char*>(tpl);
        if (t.mask)
            OA_CORR_SUM_MASK(i, lo2, loT, hiT, hi2, img, st, imgSkip, tplSkip, th, tw);
        else
            OA_CORR_SUM_NO_MASK(i, lo2, loT, hiT, hi2, img, st, imgSkip, tplSkip, th, tw);
    } else {
        if (t.mask)
            OA_CORR_SUM_MASK(i, lo2, loT, hiT, hi2, img, tpl, imgSkip, tplSkip, th, tw);
        else
            OA_CORR_SUM_NO_MASK(i, lo2, loT, hiT, hi2, img, tpl, imgSkip, tplSkip, th, tw);
    }
    *sI = i, *sI2 = static_cast<double>(Join(lo2, hi2)), *sTI = static_cast<double>(Join(loT, hiT));
}

}  // namespace

CorrPoint swComputeScores(CorrTempl* tpl, Buffer* img, const std::vector<Point>& positions,
                          std::vector<float>& scores, int n, bool, bool root) {
    CorrPoint last;
    last._score = 0.0;
    const int count = static_cast<int>(std::min<size_t>(positions.size(), 0x7fffffff));
    if (n == -1 || n > count) n = count;
    if (n < 0) n = 0;
    if (static_cast<int>(scores.size()) < n) scores.resize(n);
    const bool usable = tpl != nullptr && tpl->buffer != nullptr && tpl->buffer->BaseAddr() != nullptr &&
                        tpl->buffer->BitsPerPixel() == EIGHT && img != nullptr &&
                        img->BaseAddr() != nullptr && img->BitsPerPixel() == EIGHT;
    if (!usable) {
        for (int k = 0; k < n; ++k) scores[k] = 0.0f;
        return last;
    }
    const int tw = tpl->buffer->Width(), th = tpl->buffer->Height();
    const int64_t N = int64_t{tw} * th;
    const double mT = tpl->sum / double(N), vT = tpl->variance;
    for (int k = 0; k < n; ++k) {
        const Point p = positions[k];
        if (int64_t{p.x} + tw >= img->Width() || int64_t{p.y} + th >= img->Height() || p.x < 0 || p.y < 0) {
            scores[k] = 0.0f;
            continue;
        }
        double sI, sI2, sTI;
        PositionSums(*tpl, img->Row(p.y) + p.x, img->Pitch(), N, &sI, &sI2, &sTI);
        const double mI = sI / N, c = sTI / N - mI * mT, vI = sI2 / N - mI * mI;
        double score = 0.0;
        if (vT != 0.0 && vI != 0.0) score = root ? c / std::sqrt(vT * vI) : c * std::fabs(c) / (vI * vT);
        if (!std::isfinite(score)) score = 0.0;  // a variance made negative by rounding
        scores[k] = static_cast<float>(score);
        last._score = score;
        last._sumI = sI;
        last._sumI2 = sI2;
        last._sumTI = sTI;
    }
    return last;
}

}  // namespace ombrel
