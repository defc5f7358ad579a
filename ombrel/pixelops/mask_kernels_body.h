// SPDX-License-Identifier: MIT
// Internal: the vector body of the mask kernel, written once over a lane-operations struct V (see
// framework/simd/lanes_<isa>.h); each mask_kernels_<isa>.cpp instantiates it with its own lanes, so every
// copy stays private to its file and its instruction set.
#pragma once
#include <cstdint>

#include "ombrel/pixelops/mask_kernels.h"
#include "ombrel/pixelops/mask_ops.h"

namespace ombrel::mask {

template <class V>
struct MaskBody {
    using T = typename V::T;

    template <class Op>
    static int Apply(int begin, int end, const SpanJob& job, Op op) {
        int i = begin;
        for (; i + V::N <= end; i += V::N) V::store(job.d + i, op(V::load(job.d + i), V::load(job.s + i)));
        return i;
    }

    static int Band(int begin, int end, const SpanJob& job) {
        // Bytes are 0..255: a band that misses that range selects nothing, and the rest clamps exactly.
        if (job.low > job.high || job.low > 255 || job.high < 0) return end;
        const T lo = V::set8(job.low < 0 ? 0 : job.low);
        const T hi = V::set8(job.high > 255 ? 255 : job.high);
        const T one = V::set8(1);
        return Apply(begin, end, job, [&](T d, T s) {
            const T in = V::and_(V::cmpeq8(V::max8u(s, lo), s), V::cmpeq8(V::min8u(s, hi), s));
            return V::select8(in, one, d);
        });
    }

    static int Span(int begin, int end, const SpanJob& job) {
        switch (job.op) {
            case MASK_ADD:
                return Apply(begin, end, job, [](T d, T s) { return V::add8(d, s); });
            case MASK_SUB:
                return Apply(begin, end, job, [](T d, T s) { return V::sub8(d, s); });
            case MASK_ABSDIFF:
                return Apply(begin, end, job,
                             [](T d, T s) { return V::or_(V::subs8u(d, s), V::subs8u(s, d)); });
            case MASK_AND:
                return Apply(begin, end, job, [](T d, T s) { return V::and_(d, s); });
            case MASK_OR:
                return Apply(begin, end, job, [](T d, T s) { return V::or_(d, s); });
            case MASK_XOR:
                return Apply(begin, end, job, [](T d, T s) { return V::xor_(d, s); });
            case MASK_COPY:
            case MASK_COPY_ALT:
                return Apply(begin, end, job, [](T, T s) { return s; });
            case MASK_MIN:
                return Apply(begin, end, job, [](T d, T s) { return V::min8u(d, s); });
            case MASK_MAX:
                return Apply(begin, end, job, [](T d, T s) { return V::max8u(d, s); });
            case MASK_BAND:
                return Band(begin, end, job);
            default:
                return end;  // unknown codes change nothing
        }
    }
};

}  // namespace ombrel::mask
