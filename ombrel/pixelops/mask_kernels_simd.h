// SPDX-License-Identifier: MIT
// The vector body of the mask kernel, written once over a register type V that each ISA file defines in its
// own anonymous namespace (so every instantiation stays private to its file and its compiler flags).
// V provides: kWidth, Reg, Load, Store, Set1, Add, Sub, AbsDiff, And, Or, Xor, Min, Max and
// Band(d, s, lo, hi, one) = (lo <= s <= hi, unsigned) ? one : d.
#pragma once
#include <cstdint>

#include "ombrel/pixelops/mask.h"

namespace ombrel::mask_simd {

template <class V, class Op>
int Apply(const uint8_t* s, uint8_t* d, int n, Op op) {
    int i = 0;
    for (; i + V::kWidth <= n; i += V::kWidth) V::Store(d + i, op(V::Load(d + i), V::Load(s + i)));
    return i;
}

template <class V>
int BandSpan(int low, int high, const uint8_t* s, uint8_t* d, int n) {
    // Bytes are 0..255: a band that misses that range selects nothing, and the rest clamps exactly.
    if (low > high || low > 255 || high < 0) return n;
    // (Plain conditionals: no out-of-line standard helper compiled with this file's ISA flags.)
    const auto lo = V::Set1(static_cast<uint8_t>(low < 0 ? 0 : low));
    const auto hi = V::Set1(static_cast<uint8_t>(high > 255 ? 255 : high));
    const auto one = V::Set1(1);
    return Apply<V>(s, d, n, [&](auto dv, auto sv) { return V::Band(dv, sv, lo, hi, one); });
}

template <class V>
int MaskSpan(uint32_t op, int low, int high, const uint8_t* s, uint8_t* d, int n) {
    switch (op) {
        case MASK_ADD:
            return Apply<V>(s, d, n, [](auto dv, auto sv) { return V::Add(dv, sv); });
        case MASK_SUB:
            return Apply<V>(s, d, n, [](auto dv, auto sv) { return V::Sub(dv, sv); });
        case MASK_ABSDIFF:
            return Apply<V>(s, d, n, [](auto dv, auto sv) { return V::AbsDiff(dv, sv); });
        case MASK_AND:
            return Apply<V>(s, d, n, [](auto dv, auto sv) { return V::And(dv, sv); });
        case MASK_OR:
            return Apply<V>(s, d, n, [](auto dv, auto sv) { return V::Or(dv, sv); });
        case MASK_XOR:
            return Apply<V>(s, d, n, [](auto dv, auto sv) { return V::Xor(dv, sv); });
        case MASK_COPY:
        case MASK_COPY_ALT:
            return Apply<V>(s, d, n, [](auto, auto sv) { return sv; });
        case MASK_MIN:
            return Apply<V>(s, d, n, [](auto dv, auto sv) { return V::Min(dv, sv); });
        case MASK_MAX:
            return Apply<V>(s, d, n, [](auto dv, auto sv) { return V::Max(dv, sv); });
        case MASK_BAND:
            return BandSpan<V>(low, high, s, d, n);
        default:
            return n;  // unknown codes change nothing
    }
}

}  // namespace ombrel::mask_simd
