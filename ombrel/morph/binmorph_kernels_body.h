// SPDX-License-Identifier: MIT
// Internal: the vector body of the binary morphology row, written once over a lane-operations struct V.
//
// Each row's 3-bit codes are made once (Triples) and serve the three output rows that read it. For V::N
// pixels the 9-bit code is split into two byte codes: lo3 = the upper row's 3-bit code (bits 0-2) and
// hi6 = the middle and lower rows' (bits 3-8 moved down). The table, seen as 64
// bytes, holds in byte hi6 the eight results for lo3 = 0..7; that byte is read with four 16-entry byte
// shuffles (an index with bit 7 set reads 0, so each shuffle answers only for its quarter of hi6), and the
// bit lo3 of it is tested against a shuffled one-bit mask. One table lookup per pixel, all in registers.
#pragma once
#include <cstdint>

#include "ombrel/morph/binmorph_kernels.h"

namespace ombrel::binmorph {

template <class V>
struct BinMorphBody {
    using T = typename V::T;

    static T Bit(const uint8_t* p, T one) { return V::and_(V::load(p), one); }
    static T Twice(T x) { return V::add8(x, x); }

    static int Triples(int begin, int end, const TripleJob& job) {
        const T one = V::set8(1);
        int x = begin;
        for (; x + V::N <= end; x += V::N) {
            const uint8_t* row = job.row + x;
            V::store(job.t + x,
                     V::add8(Bit(row + 1, one), Twice(V::add8(Bit(row, one), Twice(Bit(row - 1, one))))));
        }
        return x;
    }

    static int Row(int begin, int end, const RowJob& job) {
        static constexpr uint8_t kBitOf[16] = {1, 2, 4, 8, 16, 32, 64, 128, 0, 0, 0, 0, 0, 0, 0, 0};
        const T one = V::set8(1), two = V::set8(2), zero = V::zero(), bias = V::set8(0x70);
        const T bitOf = V::broadcast16(kBitOf);
        const T quarter[4] = {V::broadcast16(job.lutBytes), V::broadcast16(job.lutBytes + 16),
                              V::broadcast16(job.lutBytes + 32), V::broadcast16(job.lutBytes + 48)};
        T set = V::zero();
        int x = begin;
        for (; x + V::N <= end; x += V::N) {
            const T lo3 = V::load(job.up + x);
            const T hi6 = V::add8(V::load(job.mid + x), Twice(Twice(Twice(V::load(job.down + x)))));
            T byte = zero;
            for (int q = 0; q < 4; ++q)
                byte = V::or_(byte, V::shuffle8(quarter[q], V::adds8u(V::xor_(hi6, V::set8(q << 4)), bias)));
            const T hit = V::and_(byte, V::shuffle8(bitOf, lo3));
            const T looked = V::andnot(V::cmpeq8(hit, zero), one);
            const T centre = V::load(job.centre + x);
            const T frozen = V::cmpeq8(V::and_(centre, two), two);
            const T out = V::select8(frozen, centre, looked);
            V::store(job.d + x, out);
            set = V::add64(set, V::sad(V::and_(out, one)));
        }
        *job.count += V::hsum64(set);
        return x;
    }
};

}  // namespace ombrel::binmorph
