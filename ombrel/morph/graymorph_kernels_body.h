// SPDX-License-Identifier: MIT
// Internal: the vector body of grey morphology's row operation, written once over a lane-operations struct V.
#pragma once
#include <cstdint>

#include "ombrel/morph/graymorph_kernels.h"
#include "ombrel/morph/graymorph_ops.h"

namespace ombrel::graymorph {

template <class V>
struct GrayMorphBody {
    using T = typename V::T;

    template <class Op>
    static int Apply(int begin, int end, const RowJob& job, Op op) {
        int i = begin;
        for (; i + V::N <= end; i += V::N) V::store(job.d + i, op(V::load(job.a + i), V::load(job.b + i)));
        return i;
    }

    template <class Op>
    static int FoldWith(int begin, int end, const FoldJob& job, Op op) {
        int i = begin;
        for (; i + V::N <= end; i += V::N) {
            T v = V::load(job.src[0] + i);
            for (int k = 1; k < job.count; ++k) v = op(v, V::load(job.src[k] + i));
            V::store(job.d + i, v);
        }
        return i;
    }

    static int Fold(int begin, int end, const FoldJob& job) {
        if (job.op == kRowMin) return FoldWith(begin, end, job, [](T a, T b) { return V::min8u(a, b); });
        return FoldWith(begin, end, job, [](T a, T b) { return V::max8u(a, b); });
    }

    static int Rows(int begin, int end, const RowJob& job) {
        switch (job.op) {
            case kRowMin:
                return Apply(begin, end, job, [](T a, T b) { return V::min8u(a, b); });
            case kRowMax:
                return Apply(begin, end, job, [](T a, T b) { return V::max8u(a, b); });
            default:
                return Apply(begin, end, job,
                             [](T a, T b) { return V::or_(V::subs8u(a, b), V::subs8u(b, a)); });
        }
    }
};

}  // namespace ombrel::graymorph
