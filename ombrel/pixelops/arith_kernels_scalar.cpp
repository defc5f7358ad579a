// SPDX-License-Identifier: MIT
// The reference kernels of the arithmetic agent: one routine per operation and gain mode, written as the
// contract in arith.h reads. Every vector kernel is tested against these byte for byte.
#include <algorithm>
#include <cstdint>

#include "ombrel/pixelops/arith_kernels.h"
#include "ombrel/pixelops/arith_ops.h"

namespace ombrel::arith::scalar {
namespace {

constexpr bool ReadsSigns(int op) {
    return op == _ARITH_COPY || op == _ARITH_ABS || op == _ARITH_ADD || op == _ARITH_SUB || op == _ARITH_DIFF;
}

inline int32_t Read(uint8_t byte, bool isSigned) {
    return isSigned ? int32_t{static_cast<int8_t>(byte)} : int32_t{byte};
}

inline bool InBand(int32_t a, const Params& p) {
    return p.low <= a && a <= p.high;
}

inline int32_t MaskShift(int32_t a, const Params& p) {
    const int32_t mask = p.mask & 0xFF;
    const int32_t x = p.maskOp == _ARITH_MASK_OR    ? (a | mask)
                      : p.maskOp == _ARITH_MASK_XOR ? (a ^ mask)
                                                    : (a & mask);
    const int32_t shift = std::clamp(p.maskShift, -7, 7);
    return shift >= 0 ? x << shift : x >> -shift;
}

template <int OP>
inline int32_t Value(int32_t a, int32_t b, const Params& p) {
    if constexpr (OP == _ARITH_NOT) return 255 - a;
    if constexpr (OP == _ARITH_NEGATE) return -a;
    if constexpr (OP == _ARITH_COPY) return a;
    if constexpr (OP == _ARITH_BINARIZE) return InBand(a, p) ? 1 : 0;
    if constexpr (OP == _ARITH_MASKSHIFT) return MaskShift(a, p);
    if constexpr (OP == _ARITH_ABS) return a < 0 ? -a : a;
    if constexpr (OP == _ARITH_PASSRANGE) return InBand(a, p) ? a : 0;
    if constexpr (OP == _ARITH_ADD) return a + b;
    if constexpr (OP == _ARITH_SUB) return a - b;
    if constexpr (OP == _ARITH_DIFF) return a > b ? a - b : b - a;
    if constexpr (OP == _ARITH_AND) return a & b;
    if constexpr (OP == _ARITH_OR) return a | b;
    if constexpr (OP == _ARITH_XOR) return a ^ b;
    if constexpr (OP == _ARITH_MIN) return std::min(a, b);
    if constexpr (OP == _ARITH_MAX) return std::max(a, b);
    return 0;
}

// r = floor((v + P) * m / 2^s) + Q; C++20 defines >> of a negative value as the floor.
inline int64_t Scale(int64_t v, const Params& p) {
    return (((v + p.pre) * p.mult) >> p.shift) + p.post;
}

inline uint8_t StoreUnsigned(int64_t r, bool clip, bool flag) {
    if (r > 255) return (clip || flag) ? 255 : static_cast<uint8_t>(r & 255);
    if (r < 0) return flag ? 0 : clip ? 255 : static_cast<uint8_t>(r & 255);
    return static_cast<uint8_t>(r);
}

inline uint8_t Store(int64_t r, const Params& p) {
    if (!p.signDest) return StoreUnsigned(r, p.clip, p.flag);
    if (p.flag) r = std::clamp<int64_t>(r, -128, 127);
    return static_cast<uint8_t>(r & 255);
}

// ADD at gain 1.0: the 10-bit window of the original routine; a negative sum wraps to w >= 512.
inline uint8_t StoreWindow(int64_t r, const Params& p) {
    const int64_t w = r & 1023;
    uint8_t out = static_cast<uint8_t>(w & 255);
    if (w >= 256 && w < 512 && (p.clip || p.flag)) out = 255;
    if (w >= 512) {
        if (p.clip) out = 255;
        if (p.flag) out = 0;
    }
    return out;
}

template <int OP, bool GAIN>
void Span(const uint8_t* a, const uint8_t* b, uint8_t* d, int n, const Params& p) {
    constexpr bool kBinary = OP >= _ARITH_ADD;
    const bool signA = ReadsSigns(OP) && p.signA;
    const bool signB = ReadsSigns(OP) && p.signB;
    for (int i = 0; i < n; ++i) {
        const int32_t av = Read(a[i], signA);
        const int32_t bv = kBinary ? Read(b[i], signB) : 0;
        const int64_t v = Value<OP>(av, bv, p);
        const int64_t r = GAIN ? Scale(v, p) : v + p.pre + p.post;
        d[i] = (OP == _ARITH_ADD && !GAIN) ? StoreWindow(r, p) : Store(r, p);
    }
}

using Routine = void (*)(const uint8_t* a, const uint8_t* b, uint8_t* d, int n, const Params& p);

// The routines, indexed by ArithOp; MULT has its own kernel.
#define OMBREL_ARITH_TABLE(GAIN)                                                                        \
    {                                                                                                   \
        &Span<0, GAIN>, &Span<1, GAIN>, &Span<2, GAIN>, &Span<3, GAIN>, &Span<4, GAIN>, &Span<5, GAIN>, \
            &Span<6, GAIN>, &Span<7, GAIN>, &Span<8, GAIN>, &Span<9, GAIN>, &Span<10, GAIN>,            \
            &Span<11, GAIN>, &Span<12, GAIN>, &Span<13, GAIN>, &Span<14, GAIN>                          \
    }
const Routine kNoGain[kArithOpCount - 1] = OMBREL_ARITH_TABLE(false);
const Routine kWithGain[kArithOpCount - 1] = OMBREL_ARITH_TABLE(true);
#undef OMBREL_ARITH_TABLE

void MultiplyBytes(const uint8_t* a, const uint8_t* b, uint8_t* d, int n, const MultiplyParams& m) {
    for (int i = 0; i < n; ++i) {
        const uint32_t product = uint32_t{a[i]} * b[i];
        if (!m.full) {
            const uint32_t t = product >> m.shift;
            d[i] = m.clip ? static_cast<uint8_t>(std::min<uint32_t>(t, 255)) : static_cast<uint8_t>(t & 255);
            continue;
        }
        const int64_t r = (((int64_t{product} + m.pre) * m.mult) >> m.shift) + m.post;
        d[i] = StoreUnsigned(r, m.clip, m.flag);
    }
}

// The result words of bytes just written.
void AddResultWords(const uint8_t* d, int n, uint64_t* sum, uint64_t* nonZero) {
    uint64_t s = 0, count = 0;
    for (int i = 0; i < n; ++i) {
        s += d[i];
        count += d[i] != 0;
    }
    *sum += s;
    *nonZero += count;
}

}  // namespace

int Span(int begin, int end, const SpanJob& job) {
    const Params& p = *job.params;
    if (begin >= end || p.op < 0 || p.op >= _ARITH_MULT) return end;
    const Routine routine = (p.withGain ? kWithGain : kNoGain)[p.op];
    uint8_t* d = job.d + begin;
    routine(job.a + begin, job.b != nullptr ? job.b + begin : nullptr, d, end - begin, p);
    AddResultWords(d, end - begin, job.sum, job.nonZero);
    return end;
}

int Multiply(int begin, int end, const MultiplyJob& job) {
    if (begin >= end) return end;
    uint8_t* d = job.d + begin;
    MultiplyBytes(job.a + begin, job.b + begin, d, end - begin, *job.params);
    AddResultWords(d, end - begin, job.sum, job.nonZero);
    return end;
}

}  // namespace ombrel::arith::scalar
