// SPDX-License-Identifier: MIT
// Internal: the vector body of the Sobel row kernel, written once over a lane-operations struct V (see
// framework/simd/lanes_<isa>.h); each sobel_kernels_<isa>.cpp instantiates it with its own lanes.
//
// Sums and clamps run in 16-bit lanes (raw sums lie within -1020..1020). The magnitude is the rounded float
// square root of gx^2 + gy^2 <= 32258, which equals the length table's entry for every pair of clamped
// components; the direction is gathered from the byte copy of the direction table.
#pragma once
#include <algorithm>
#include <cstdint>

#include "ombrel/gradients/sobel_kernels.h"
#include "ombrel/gradients/sobel_ops.h"

namespace ombrel::sobel {

template <class V>
struct SobelBody {
    using T = typename V::T;

    struct Consts {
        T zero, ones, one8, low8, lim, negLim, bias, side, nibble, high3, high4, bit7, qthr, t1, t2;
        __m128i shift, one, three, four;
        bool strong, excess;
        explicit Consts(const RowJob& j) {
            zero = V::zero(), ones = V::ones(), one8 = V::set8(1), low8 = V::set16(0xFF);
            lim = V::set16(127), negLim = V::set16(-127), bias = V::set16(127), side = V::set16(255);
            nibble = V::set16(0x0F), high3 = V::set16(0xE0), high4 = V::set16(0xF0), bit7 = V::set16(0x80);
            qthr = V::set16(std::clamp(j.threshold, -1, 255));
            // v > t  <=>  max(v, t + 1) == v, for unsigned bytes and t + 1 in 0..255.
            strong = SobelKeepsStrongPixels(j.out) && j.threshold < 255;
            t1 = V::set8(std::clamp(j.threshold + 1, 0, 255));
            excess = j.useThreshold2 && j.threshold2 < 255;
            t2 = V::set8(std::clamp(j.threshold2 + 1, 0, 255));
            shift = _mm_cvtsi32_si128(j.shift), one = _mm_cvtsi32_si128(1);
            three = _mm_cvtsi32_si128(3), four = _mm_cvtsi32_si128(4);
        }
    };

    // Running sums of one row, in 64-bit lanes.
    struct Sums {
        T strongGray, strongCount, output, nonZero, excess, excessCount;
    };

    static T Clamp(T x, const Consts& c) { return V::min16(V::max16(x, c.negLim), c.lim); }
    static T Abs(T x, const Consts& c) { return V::max16(x, V::sub16(c.zero, x)); }

    // Rounded length of (gx, gy) in 16-bit lanes.
    static T Magnitude(T gx, T gy, const Consts& c) {
        const T n = V::add16(V::mullo16(gx, gx), V::mullo16(gy, gy));
        return V::packs32(V::sqrtround32(V::unpacklo16(n, c.zero)), V::sqrtround32(V::unpackhi16(n, c.zero)));
    }

    // Direction code of (gx, gy) in 16-bit lanes; the index (gx + 127) * 255 + gy + 127 <= 65024 is
    // unsigned 16-bit and widened with zeros.
    static T Direction(T gx, T gy, const uint8_t* table, const Consts& c) {
        const T idx = V::add16(V::mullo16(V::add16(gx, c.bias), c.side), V::add16(gy, c.bias));
        return V::packs32(V::gather8x32(table, V::unpacklo16(idx, c.zero)),
                          V::gather8x32(table, V::unpackhi16(idx, c.zero)));
    }

    // The stored value (and, in *strong, the figure tested against the threshold) of half a vector.
    static T Encode(int32_t out, T gx, T gy, const uint8_t* table, const Consts& c, T* strong) {
        switch (out) {
            case DX:
                return V::and_(gx, c.low8);
            case DY:
                return V::and_(gy, c.low8);
            case MAG:
                return *strong = Magnitude(gx, gy, c);
            case ANGLE:
                return Direction(gx, gy, table, c);
            case QANGLE: {
                *strong = Magnitude(gx, gy, c);
                const T bit = V::and_(V::cmpgt16(*strong, c.qthr), c.bit7);
                return V::or_(bit, V::srl16(Direction(gx, gy, table, c), c.one));
            }
            case ABSDX:
                return *strong = Abs(gx, c);
            case ABSDY:
                return *strong = Abs(gy, c);
            case _3M5A:
                return V::or_(V::and_(Magnitude(gx, gy, c), c.high3),
                              V::srl16(Direction(gx, gy, table, c), c.three));
            case _4GX4GY:
                return V::or_(V::and_(gx, c.high4), V::and_(V::sra16(gy, c.four), c.nibble));
            default:  // SUMABS
                return *strong = V::add16(Abs(gx, c), Abs(gy, c));
        }
    }

    // gx and gy of one half (lo or hi) of the nine neighbour vectors widened to 16 bits.
    static void Gradient(const T (&n)[3][3], T* gx, T* gy, const Consts& c) {
        const T dx = V::add16(V::add16(V::sub16(n[0][2], n[0][0]), V::sub16(n[2][2], n[2][0])),
                              V::add16(V::sub16(n[1][2], n[1][0]), V::sub16(n[1][2], n[1][0])));
        const T dy = V::add16(V::add16(V::sub16(n[0][0], n[2][0]), V::sub16(n[0][2], n[2][2])),
                              V::add16(V::sub16(n[0][1], n[2][1]), V::sub16(n[0][1], n[2][1])));
        *gx = Clamp(V::sra16(dx, c.shift), c);
        *gy = Clamp(V::sra16(dy, c.shift), c);
    }

    static T Count(T mask, const Consts& c) { return V::sad(V::and_(mask, c.one8)); }

    static void Step(const RowJob& j, int i, const Consts& c, Sums* s) {
        T lo[3][3], hi[3][3], centre = c.zero;
        for (int r = 0; r < 3; ++r)
            for (int k = 0; k < 3; ++k) {
                const T x = V::load(j.p[r][k] + i);
                if (r == 1 && k == 1) centre = x;
                lo[r][k] = V::unpacklo8(x, c.zero);
                hi[r][k] = V::unpackhi8(x, c.zero);
            }
        T gxLo, gyLo, gxHi, gyHi, strongLo = c.zero, strongHi = c.zero;
        Gradient(lo, &gxLo, &gyLo, c);
        Gradient(hi, &gxHi, &gyHi, c);
        const T outLo = Encode(j.out, gxLo, gyLo, j.directions, c, &strongLo);
        const T outHi = Encode(j.out, gxHi, gyHi, j.directions, c, &strongHi);
        T v = V::packus16(outLo, outHi);
        T keep = c.ones;
        if (j.keep != nullptr) {
            keep = V::xor_(V::cmpeq8(V::load(j.keep + i), c.zero), c.ones);
            v = V::select8(keep, v, V::set8(SobelFillValue(j.out)));
        }
        V::store(j.d + i, v);

        s->output = V::add64(s->output, V::sad(V::and_(v, keep)));
        s->nonZero = V::add64(s->nonZero, Count(V::andnot(V::cmpeq8(v, c.zero), keep), c));
        if (c.strong) {
            const T figure = V::packus16(strongLo, strongHi);
            const T m = V::and_(V::cmpeq8(V::max8u(figure, c.t1), figure), keep);
            s->strongCount = V::add64(s->strongCount, Count(m, c));
            s->strongGray = V::add64(s->strongGray, V::sad(V::and_(m, centre)));
        }
        if (c.excess) {
            const T m = V::and_(V::cmpeq8(V::max8u(v, c.t2), v), keep);
            s->excessCount = V::add64(s->excessCount, Count(m, c));
            s->excess = V::add64(s->excess, V::sad(V::and_(m, v)));
        }
    }

    static int Row(int begin, int end, const RowJob& j) {
        if (!IsSobelOut(j.out)) return begin;
        const Consts c(j);
        Sums s{c.zero, c.zero, c.zero, c.zero, c.zero, c.zero};
        int i = begin;
        for (; i + V::N <= end; i += V::N) Step(j, i, c, &s);
        j.acc[kStrongGraySum] += V::hsum64(s.strongGray);
        j.acc[kStrongCount] += V::hsum64(s.strongCount);
        j.acc[kOutputSum] += V::hsum64(s.output);
        j.acc[kNonZeroCount] += V::hsum64(s.nonZero);
        const uint64_t excessCount = V::hsum64(s.excessCount);
        // Each excess pixel adds v - threshold2: the sum of its values less threshold2 per pixel (mod 2^64).
        j.acc[kExcessSum] += V::hsum64(s.excess) - excessCount * static_cast<uint64_t>(int64_t{j.threshold2});
        j.acc[kExcessCount] += excessCount;
        return i;
    }
};

}  // namespace ombrel::sobel
