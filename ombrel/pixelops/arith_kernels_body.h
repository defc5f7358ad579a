// SPDX-License-Identifier: MIT
// Internal: the vector kernels of the arithmetic agent, written once over a lane-operations struct V (see
// framework/simd/lanes_<isa>.h). Each arith_kernels_<isa>.cpp instantiates ArithBody with its own lanes;
// since the lanes have internal linkage, so has every instantiation, and no copy built for one instruction
// set can be shared with another.
//
// Lane order: bytes are widened with unpacklo/unpackhi and narrowed with the matching packs, which undo each
// other within every 128-bit lane, so wider registers need no cross-lane shuffles.
#pragma once
#include <emmintrin.h>

#include <cstdint>

#include "ombrel/pixelops/arith_kernels.h"
#include "ombrel/pixelops/arith_ops.h"

namespace ombrel::arith {

template <class V>
struct ArithBody {
    using T = typename V::T;
    // The constants of one span, made once.
    struct Ctx {
        T zero, ff, pre, mult, post16, post32, low, high, mask, one;
        T overSet, underSet, underClear;  // unsigned stage: which lanes become 255 or 0
        T clampLo16, clampHi16, clampLo32, clampHi32;
        __m128i shift, maskShift;
        bool signA, signB, multiply, shiftLeft;
        int maskOp;

        explicit Ctx(const VectorPlan& p) {
            zero = V::zero();
            ff = V::set16(255);
            one = V::set16(1);
            pre = V::set16(p.pre);
            mult = V::set16(p.mult);
            post16 = V::set16(p.post);
            post32 = V::set32(p.post);
            low = V::set16(p.low - 1);
            high = V::set16(p.high + 1);
            mask = V::set16(p.mask);
            const bool overSaturates = p.clip || p.flag;
            overSet = V::set16(overSaturates ? -1 : 0);
            underClear = V::set16(p.flag ? -1 : 0);
            underSet = V::set16(!p.flag && p.clip ? -1 : 0);
            clampLo16 = V::set16(p.flag ? -128 : INT16_MIN);
            clampHi16 = V::set16(p.flag ? 127 : INT16_MAX);
            clampLo32 = V::set32(p.flag ? -128 : INT32_MIN);
            clampHi32 = V::set32(p.flag ? 127 : INT32_MAX);
            shift = _mm_cvtsi32_si128(p.shift);
            maskShift = _mm_cvtsi32_si128(p.maskShift >= 0 ? p.maskShift : -p.maskShift);
            shiftLeft = p.maskShift >= 0;
            signA = p.signA;
            signB = p.signB;
            multiply = p.multiply;
            maskOp = p.maskOp;
        }
    };

    // The two result words, gathered while the bytes are still in registers: psadbw sums the bytes, and
    // min(byte, 1) counts the non-zero ones in 8-bit lanes that are folded into 64-bit ones before they can
    // overflow. (Plain vector arithmetic: no comparison, which AVX-512 would route through a mask register.)
    class Sums {
      public:
        void Add(T x) {
            _sad = V::add64(_sad, V::sad(x));
            _nonZero8 = V::add8(_nonZero8, V::min8u(x, _one));
        }
        // At least every 255 Adds.
        void Fold() {
            _nonZero64 = V::add64(_nonZero64, V::sad(_nonZero8));
            _nonZero8 = V::zero();
        }
        void Finish(uint64_t* sum, uint64_t* nonZero) {
            Fold();
            *sum += V::hsum64(_sad);
            *nonZero += V::hsum64(_nonZero64);
        }

      private:
        T _one = V::set8(1);
        T _sad = V::zero(), _nonZero8 = V::zero(), _nonZero64 = V::zero();
    };

    // Calls step(i) for every whole vector of a span of n pixels; step writes the vector at i and returns it,
    // and its bytes go to the result words. Returns the pixels handled.
    template <class Step>
    static int ForEachVector(int n, uint64_t* sum, uint64_t* nonZero, Step step) {
        Sums sums;
        int i = 0;
        while (i + V::N <= n) {
            const int blockEnd = i + 254 * V::N;
            const int lastInBlock = n - V::N < blockEnd ? n - V::N : blockEnd;
            for (; i + V::N <= lastInBlock; i += 2 * V::N) {  // two independent vectors per turn
                const T x0 = step(i), x1 = step(i + V::N);
                sums.Add(x0);
                sums.Add(x1);
            }
            if (i <= lastInBlock) sums.Add(step(i)), i += V::N;
            sums.Fold();
        }
        sums.Finish(sum, nonZero);
        return i;
    }

    static void Widen(T x, bool isSigned, const Ctx& c, T* lo, T* hi) {
        if (isSigned) {
            const __m128i eight = _mm_cvtsi32_si128(8);
            *lo = V::sra16(V::unpacklo8(c.zero, x), eight);
            *hi = V::sra16(V::unpackhi8(c.zero, x), eight);
        } else {
            *lo = V::unpacklo8(x, c.zero);
            *hi = V::unpackhi8(x, c.zero);
        }
    }

    static T Abs16(T x, const Ctx& c) { return V::max16(x, V::sub16(c.zero, x)); }

    static T InBand16(T a, const Ctx& c) { return V::and_(V::cmpgt16(a, c.low), V::cmpgt16(c.high, a)); }

    // v of the contract in 16-bit lanes.
    template <int OP>
    static T Value16(T a, T b, const Ctx& c) {
        if constexpr (OP == _ARITH_NOT) return V::sub16(c.ff, a);
        if constexpr (OP == _ARITH_NEGATE) return V::sub16(c.zero, a);
        if constexpr (OP == _ARITH_COPY) return a;
        if constexpr (OP == _ARITH_BINARIZE) return V::and_(InBand16(a, c), c.one);
        if constexpr (OP == _ARITH_MASKSHIFT) {
            const T x = c.maskOp == _ARITH_MASK_OR    ? V::or_(a, c.mask)
                        : c.maskOp == _ARITH_MASK_XOR ? V::xor_(a, c.mask)
                                                      : V::and_(a, c.mask);
            return c.shiftLeft ? V::sll16(x, c.maskShift) : V::srl16(x, c.maskShift);
        }
        if constexpr (OP == _ARITH_ABS) return Abs16(a, c);
        if constexpr (OP == _ARITH_PASSRANGE) return V::and_(InBand16(a, c), a);
        if constexpr (OP == _ARITH_ADD) return V::add16(a, b);
        if constexpr (OP == _ARITH_SUB) return V::sub16(a, b);
        if constexpr (OP == _ARITH_DIFF) return Abs16(V::sub16(a, b), c);
        if constexpr (OP == _ARITH_AND) return V::and_(a, b);
        if constexpr (OP == _ARITH_OR) return V::or_(a, b);
        if constexpr (OP == _ARITH_XOR) return V::xor_(a, b);
        if constexpr (OP == _ARITH_MIN) return V::min16(a, b);
        if constexpr (OP == _ARITH_MAX) return V::max16(a, b);
        return c.zero;
    }

    // The unsigned rule: `low` holds r & 255; `over` and `under` mark lanes above 255 and below 0.
    static T ApplyUnsigned(T low, T over, T under, T ff, const Ctx& c) {
        low = V::or_(low, V::and_(over, V::and_(c.overSet, ff)));
        low = V::andnot(V::and_(under, c.underClear), low);
        return V::or_(low, V::and_(under, V::and_(c.underSet, ff)));
    }

    template <Stage S>
    static T Stage16(T r, const Ctx& c) {
        if constexpr (S == Stage::Unsigned) {
            return ApplyUnsigned(V::and_(r, c.ff), V::cmpgt16(r, c.ff), V::cmpgt16(c.zero, r), c.ff, c);
        } else if constexpr (S == Stage::Signed) {
            return V::and_(V::min16(V::max16(r, c.clampLo16), c.clampHi16), c.ff);
        } else {  // the 10-bit window: bits 8 and 9 of w say "overflow" (01) or "negative" (1x)
            const T w = V::and_(r, V::set16(1023));
            const T top = V::srli16_8(w);
            return ApplyUnsigned(V::and_(w, c.ff), V::cmpeq16(top, c.one), V::cmpgt16(top, c.one), c.ff, c);
        }
    }

    template <Stage S>
    static T Stage32(T r, const Ctx& c) {
        const T ff = V::set32(255);
        if constexpr (S == Stage::Signed) {
            return V::and_(V::min32(V::max32(r, c.clampLo32), c.clampHi32), ff);
        } else {
            return ApplyUnsigned(V::and_(r, ff), V::cmpgt32(r, ff), V::cmpgt32(c.zero, r), ff, c);
        }
    }

    // From v to the output bytes (one per 16-bit lane).
    template <Stage S, bool WIDE>
    static T Finish(T v, const Ctx& c) {
        const T t = V::add16(v, c.pre);
        if constexpr (!WIDE) {
            T q = t;
            if (c.multiply) q = V::sra16(V::mullo16(t, c.mult), c.shift);
            return Stage16<S>(V::add16(q, c.post16), c);
        } else {
            const T lo = V::mullo16(t, c.mult), hi = V::mulhi16(t, c.mult);
            const T r0 = V::add32(V::sra32(V::unpacklo16(lo, hi), c.shift), c.post32);
            const T r1 = V::add32(V::sra32(V::unpackhi16(lo, hi), c.shift), c.post32);
            return V::packs32(Stage32<S>(r0, c), Stage32<S>(r1, c));
        }
    }

    template <int OP, Stage S, bool WIDE>
    static int SpanGeneric(const uint8_t* a, const uint8_t* b, uint8_t* d, int n, const VectorPlan& plan,
                           uint64_t* sum, uint64_t* nonZero) {
        constexpr bool kBinary = OP >= _ARITH_ADD;
        const Ctx c(plan);
        return ForEachVector(n, sum, nonZero, [&](int i) {
            T alo, ahi, blo = c.zero, bhi = c.zero;
            Widen(V::load(a + i), c.signA, c, &alo, &ahi);
            if constexpr (kBinary) Widen(V::load(b + i), c.signB, c, &blo, &bhi);
            const T olo = Finish<S, WIDE>(Value16<OP>(alo, blo, c), c);
            const T ohi = Finish<S, WIDE>(Value16<OP>(ahi, bhi, c), c);
            const T out = V::packus16(olo, ohi);
            V::store(d + i, out);
            return out;
        });
    }

    template <int OP>
    static int GenericFor(const uint8_t* a, const uint8_t* b, uint8_t* d, int n, const VectorPlan& plan,
                          uint64_t* sum, uint64_t* nonZero) {
        const bool wide = plan.mode == VectorMode::Generic32;
        switch (plan.stage) {
            case Stage::Unsigned:
                return wide ? SpanGeneric<OP, Stage::Unsigned, true>(a, b, d, n, plan, sum, nonZero)
                            : SpanGeneric<OP, Stage::Unsigned, false>(a, b, d, n, plan, sum, nonZero);
            case Stage::Signed:
                return wide ? SpanGeneric<OP, Stage::Signed, true>(a, b, d, n, plan, sum, nonZero)
                            : SpanGeneric<OP, Stage::Signed, false>(a, b, d, n, plan, sum, nonZero);
            case Stage::Window10:
                if constexpr (OP == _ARITH_ADD)
                    return wide ? 0 : SpanGeneric<OP, Stage::Window10, false>(a, b, d, n, plan, sum, nonZero);
                return 0;
        }
        return 0;
    }

    static int Generic(const uint8_t* a, const uint8_t* b, uint8_t* d, int n, const VectorPlan& plan,
                       uint64_t* sum, uint64_t* nonZero) {
        switch (plan.op) {
            case _ARITH_NOT:
                return GenericFor<_ARITH_NOT>(a, b, d, n, plan, sum, nonZero);
            case _ARITH_NEGATE:
                return GenericFor<_ARITH_NEGATE>(a, b, d, n, plan, sum, nonZero);
            case _ARITH_COPY:
                return GenericFor<_ARITH_COPY>(a, b, d, n, plan, sum, nonZero);
            case _ARITH_BINARIZE:
                return GenericFor<_ARITH_BINARIZE>(a, b, d, n, plan, sum, nonZero);
            case _ARITH_MASKSHIFT:
                return GenericFor<_ARITH_MASKSHIFT>(a, b, d, n, plan, sum, nonZero);
            case _ARITH_ABS:
                return GenericFor<_ARITH_ABS>(a, b, d, n, plan, sum, nonZero);
            case _ARITH_PASSRANGE:
                return GenericFor<_ARITH_PASSRANGE>(a, b, d, n, plan, sum, nonZero);
            case _ARITH_ADD:
                return GenericFor<_ARITH_ADD>(a, b, d, n, plan, sum, nonZero);
            case _ARITH_SUB:
                return GenericFor<_ARITH_SUB>(a, b, d, n, plan, sum, nonZero);
            case _ARITH_DIFF:
                return GenericFor<_ARITH_DIFF>(a, b, d, n, plan, sum, nonZero);
            case _ARITH_AND:
                return GenericFor<_ARITH_AND>(a, b, d, n, plan, sum, nonZero);
            case _ARITH_OR:
                return GenericFor<_ARITH_OR>(a, b, d, n, plan, sum, nonZero);
            case _ARITH_XOR:
                return GenericFor<_ARITH_XOR>(a, b, d, n, plan, sum, nonZero);
            case _ARITH_MIN:
                return GenericFor<_ARITH_MIN>(a, b, d, n, plan, sum, nonZero);
            case _ARITH_MAX:
                return GenericFor<_ARITH_MAX>(a, b, d, n, plan, sum, nonZero);
            default:
                return 0;
        }
    }

    // Byte-for-byte operations.
    template <class F>
    static int Bytes1(const uint8_t* a, uint8_t* d, int n, uint64_t* sum, uint64_t* nonZero, F f) {
        return ForEachVector(n, sum, nonZero, [&](int i) {
            const T x = f(V::load(a + i));
            V::store(d + i, x);
            return x;
        });
    }

    template <class F>
    static int Bytes2(const uint8_t* a, const uint8_t* b, uint8_t* d, int n, uint64_t* sum, uint64_t* nonZero,
                      F f) {
        return ForEachVector(n, sum, nonZero, [&](int i) {
            const T x = f(V::load(a + i), V::load(b + i));
            V::store(d + i, x);
            return x;
        });
    }

    static int SpanImpl(const uint8_t* a, const uint8_t* b, uint8_t* d, int n, const VectorPlan& plan,
                        uint64_t* sum, uint64_t* nonZero) {
        switch (plan.mode) {
            case VectorMode::None:
                return 0;
            case VectorMode::Copy:
                return Bytes1(a, d, n, sum, nonZero, [](T x) { return x; });
            case VectorMode::Not:
                return Bytes1(a, d, n, sum, nonZero, [](T x) { return V::xor_(x, V::ones()); });
            case VectorMode::NegateWrap:
                return Bytes1(a, d, n, sum, nonZero, [](T x) { return V::sub8(V::zero(), x); });
            case VectorMode::AddSat:
                return Bytes2(a, b, d, n, sum, nonZero, [](T x, T y) { return V::adds8u(x, y); });
            case VectorMode::AddWrap:
                return Bytes2(a, b, d, n, sum, nonZero, [](T x, T y) { return V::add8(x, y); });
            case VectorMode::SubSat:
                return Bytes2(a, b, d, n, sum, nonZero, [](T x, T y) { return V::subs8u(x, y); });
            case VectorMode::SubWrap:
                return Bytes2(a, b, d, n, sum, nonZero, [](T x, T y) { return V::sub8(x, y); });
            case VectorMode::AbsDiff:
                return Bytes2(a, b, d, n, sum, nonZero,
                              [](T x, T y) { return V::or_(V::subs8u(x, y), V::subs8u(y, x)); });
            case VectorMode::And:
                return Bytes2(a, b, d, n, sum, nonZero, [](T x, T y) { return V::and_(x, y); });
            case VectorMode::Or:
                return Bytes2(a, b, d, n, sum, nonZero, [](T x, T y) { return V::or_(x, y); });
            case VectorMode::Xor:
                return Bytes2(a, b, d, n, sum, nonZero, [](T x, T y) { return V::xor_(x, y); });
            case VectorMode::Min:
                return Bytes2(a, b, d, n, sum, nonZero, [](T x, T y) { return V::min8u(x, y); });
            case VectorMode::Max:
                return Bytes2(a, b, d, n, sum, nonZero, [](T x, T y) { return V::max8u(x, y); });
            case VectorMode::Generic16:
            case VectorMode::Generic32:
                return Generic(a, b, d, n, plan, sum, nonZero);
        }
        return 0;
    }

    // DoMultiplyBuffers: (a * b) >> s, limited to 255 or cut to 8 bits. The product of two bytes fits an
    // unsigned 16-bit lane, so the low half of the lane multiply is exact.
    static int MultiplyImpl(const uint8_t* a, const uint8_t* b, uint8_t* d, int n, const MultiplyParams& m,
                            uint64_t* sum, uint64_t* nonZero) {
        if (m.full) return 0;
        const T zero = V::zero(), ff = V::set16(255);
        const T clipMask = V::set16(m.clip ? -1 : 0);
        const __m128i shift = _mm_cvtsi32_si128(m.shift);
        auto one = [&](T x, T y) {
            const T t = V::srl16(V::mullo16(x, y), shift);
            const T over = V::andnot(V::cmpeq16(V::srli16_8(t), zero), clipMask);
            return V::or_(V::and_(t, ff), V::and_(over, ff));
        };
        return ForEachVector(n, sum, nonZero, [&](int i) {
            const T x = V::load(a + i), y = V::load(b + i);
            const T lo = one(V::unpacklo8(x, zero), V::unpacklo8(y, zero));
            const T hi = one(V::unpackhi8(x, zero), V::unpackhi8(y, zero));
            const T out = V::packus16(lo, hi);
            V::store(d + i, out);
            return out;
        });
    }
};

}  // namespace ombrel::arith
