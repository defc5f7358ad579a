// SPDX-License-Identifier: MIT
// Internal: the vector body of the binary morphology row, written once over a lane-operations struct V.
//
// The nine neighbour bits of V::N pixels are gathered at once into two byte codes: lo3 = the upper row
// (bits 0-2 of the 9-bit code) and hi6 = the other six bits (bits 3-8 moved down). The table, seen as 64
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

    static int Row(int begin, int end, const RowJob& job) {
        static constexpr uint8_t kBitOf[16] = {1, 2, 4, 8, 16, 32, 64, 128, 0, 0, 0, 0, 0, 0, 0, 0};
        const T one = V::set8(1), two = V::set8(2), zero = V::zero(), bias = V::set8(0x70);
        const T bitOf = V::broadcast16(kBitOf);
        const T quarter[4] = {V::broadcast16(job.lutBytes), V::broadcast16(job.lutBytes + 16),
                              V::broadcast16(job.lutBytes + 32), V::broadcast16(job.lutBytes + 48)};
        T set = V::zero();
        int x = begin;
        for (; x + V::N <= end; x += V::N) {
            const uint8_t *up = job.up + x, *mid = job.mid + x, *down = job.down + x;
            const T lo3 = V::add8(Bit(up + 1, one), Twice(V::add8(Bit(up, one), Twice(Bit(up - 1, one)))));
            const T centre = V::load(mid);
            T hi6 = Bit(down - 1, one);
            hi6 = V::add8(Twice(hi6), Bit(down, one));
            hi6 = V::add8(Twice(hi6), Bit(down + 1, one));
            hi6 = V::add8(Twice(hi6), Bit(mid - 1, one));
            hi6 = V::add8(Twice(hi6), V::and_(centre, one));
            hi6 = V::add8(Twice(hi6), Bit(mid + 1, one));
            T byte = zero;
            for (int q = 0; q < 4; ++q)
                byte = V::or_(byte, V::shuffle8(quarter[q], V::adds8u(V::xor_(hi6, V::set8(q << 4)), bias)));
            const T hit = V::and_(byte, V::shuffle8(bitOf, lo3));
            const T looked = V::andnot(V::cmpeq8(hit, zero), one);
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
