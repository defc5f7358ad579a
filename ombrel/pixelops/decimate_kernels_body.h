// SPDX-License-Identifier: MIT
// Internal: the vector body of the decimation kernel, written once over a lane-operations struct V (see
// framework/simd/lanes_<isa>.h) and instantiated by each decimate_kernels_<isa>.cpp with its own lanes.
//
// The 1-2-1 kernel is separable and its sums are exact integers (at most 16 x 255), so the body first adds
// the three rows column by column (up + 2 mid + down, 16-bit lanes), then the three columns of those sums,
// and shifts by 4: the same bytes as the reference's nine-term sum. It takes only outputs whose left
// neighbour is x - 1 >= 0 and right neighbour x + 1 <= last, so no clamping happens inside a vector.
#pragma once
#include <cstdint>

#include "ombrel/pixelops/decimate_kernels.h"

namespace ombrel::decimate {

template <class V>
struct DecimateBody {
    using T = typename V::T;

    // up + 2 mid + down of 16-bit lanes.
    static T Vertical(T u, T m, T d) { return V::add16(V::add16(u, d), V::add16(m, m)); }
    static T Horizontal(T l, T c, T r) {
        return V::template srli16<4>(V::add16(V::add16(l, r), V::add16(c, c)));
    }

    // Step 1: N outputs from the columns x - 1, x, x + 1 of three rows, widened in place.
    static void StepOne(const RowJob& job, int64_t x, uint8_t* out) {
        const T zero = V::zero();
        T lo[3], hi[3];
        for (int o = 0; o < 3; ++o) {
            const T u = V::load(job.up + x - 1 + o), m = V::load(job.mid + x - 1 + o),
                    d = V::load(job.down + x - 1 + o);
            lo[o] = Vertical(V::unpacklo8(u, zero), V::unpacklo8(m, zero), V::unpacklo8(d, zero));
            hi[o] = Vertical(V::unpackhi8(u, zero), V::unpackhi8(m, zero), V::unpackhi8(d, zero));
        }
        V::store(out, V::packus16(Horizontal(lo[0], lo[1], lo[2]), Horizontal(hi[0], hi[1], hi[2])));
    }

    // Step 2: N / 2 outputs from 2 x (N / 2) source columns starting at x. Read as 16-bit lanes, the bytes
    // at x + 2k sit in the low halves (centres) and those at x + 2k + 1 in the high halves (right
    // neighbours); the same read one byte earlier has the left neighbours in its low halves.
    static T StepTwoHalf(const RowJob& job, int64_t x) {
        const T low = V::set16(0xFF);
        const T u = V::load(job.up + x), m = V::load(job.mid + x), d = V::load(job.down + x);
        const T ul = V::load(job.up + x - 1), ml = V::load(job.mid + x - 1), dl = V::load(job.down + x - 1);
        const T centre = Vertical(V::and_(u, low), V::and_(m, low), V::and_(d, low));
        const T right = Vertical(V::srli16_8(u), V::srli16_8(m), V::srli16_8(d));
        const T left = Vertical(V::and_(ul, low), V::and_(ml, low), V::and_(dl, low));
        return Horizontal(left, centre, right);
    }

    // v = up + 2 mid + down, N / 2 columns per vector.
    static int ColumnSums(int begin, int end, const ColumnJob& job) {
        constexpr int H = V::N / 2;
        int i = begin;
        for (; i + H <= end; i += H) {
            const T sums =
                Vertical(V::load8to16(job.up + i), V::load8to16(job.mid + i), V::load8to16(job.down + i));
            V::store(reinterpret_cast<uint8_t*>(job.v + i), sums);
        }
        return i;
    }

    static T SumsAt(const SumRowJob& job, int64_t x) {
        return V::load(reinterpret_cast<const uint8_t*>(job.v + (x - job.base)));
    }

    // Step 1 from column sums: N outputs from the sums at x - 1, x and x + 1, two vectors of each.
    static int StepOneFromSums(int begin, int end, const SumRowJob& job) {
        constexpr int H = V::N / 2;
        int i = begin;
        if (job.first + i < 1) return i;  // the left neighbour would be clamped
        for (; i + V::N <= end && job.first + i + V::N <= job.last; i += V::N) {
            const int64_t x = job.first + i;
            const T lo = Horizontal(SumsAt(job, x - 1), SumsAt(job, x), SumsAt(job, x + 1));
            const T hi = Horizontal(SumsAt(job, x - 1 + H), SumsAt(job, x + H), SumsAt(job, x + 1 + H));
            V::store(job.d + i, V::packus16seq(lo, hi));
        }
        return i;
    }

    static int Row(int begin, int end, const RowJob& job) {
        const int64_t step = job.step;
        if (step != 1 && step != 2) return begin;
        int i = begin;
        if (job.first + int64_t{i} * step < 1) return i;  // the left neighbour would be clamped
        // Whole vectors whose last output's right neighbour is still inside: x + 1 <= last.
        for (; i + V::N <= end && job.first + int64_t{i + V::N - 1} * step + 1 <= job.last; i += V::N) {
            const int64_t x = job.first + int64_t{i} * step;
            if (step == 1) {
                StepOne(job, x, job.d + i);
            } else {
                V::store(job.d + i, V::packus16seq(StepTwoHalf(job, x), StepTwoHalf(job, x + V::N)));
            }
        }
        return i;
    }
};

}  // namespace ombrel::decimate
