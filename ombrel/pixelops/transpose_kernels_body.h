// SPDX-License-Identifier: MIT
// Internal: the vector bodies of the transposition kernels, written once over a lane-operations struct V
// (see framework/simd/lanes_<isa>.h) and instantiated by each transpose_kernels_<isa>.cpp.
//
// Tiles: sixteen rows of N bytes are turned in registers. Four rounds of byte interleaves, each pairing
// register i with register i + 8, move bit 3 of the register index into bit 0 of the byte index and rotate
// the rest; after four rounds register and byte index have traded places, so each 128-bit lane holds the
// transpose of its own 16 x 16 tile. Interleaves stay inside 128-bit lanes, so a wider register simply turns
// N / 16 tiles side by side, and lane L of register m is the destination row of column 16 L + m.
#pragma once
#include <cstddef>
#include <cstdint>

#include "ombrel/pixelops/transpose_kernels.h"

namespace ombrel::transpose {

template <class V>
struct TransposeBody {
    using T = typename V::T;

    static void Interleave(T (&r)[16]) {
        T t[16];
        for (int i = 0; i < 8; ++i) {
            t[2 * i] = V::unpacklo8(r[i], r[i + 8]);
            t[2 * i + 1] = V::unpackhi8(r[i], r[i + 8]);
        }
        for (int i = 0; i < 16; ++i) r[i] = t[i];
    }

    static int Tile(int begin, int end, const TileJob& job) {
        if (job.rows != kBandRows) return begin;
        int c = begin;
        for (; c + V::N <= end; c += V::N) {
            T r[16];
            for (int k = 0; k < 16; ++k) r[k] = V::load(job.s + k * job.sStep + c);
            Interleave(r);
            Interleave(r);
            Interleave(r);
            Interleave(r);
            for (int lane = 0; lane < V::kLanes128; ++lane)
                for (int m = 0; m < 16; ++m)
                    V::storeLane128(job.d + (c + 16 * lane + m) * job.dStep, r[m], lane);
        }
        return c;
    }

    static int Reverse(int begin, int end, const LineJob& job) {
        int i = begin;
        for (; i + V::N <= end; i += V::N) V::store(job.d - i - (V::N - 1), V::reverse8(V::load(job.s + i)));
        return i;
    }

    static int Copy(int begin, int end, const LineJob& job) {
        int i = begin;
        for (; i + 2 * V::N <= end; i += 2 * V::N) {
            const T a = V::load(job.s + i), b = V::load(job.s + i + V::N);
            V::store(job.d + i, a);
            V::store(job.d + i + V::N, b);
        }
        for (; i + V::N <= end; i += V::N) V::store(job.d + i, V::load(job.s + i));
        return i;
    }
};

}  // namespace ombrel::transpose
