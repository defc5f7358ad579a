// SPDX-License-Identifier: MIT
// The reference: one pixel at a time, read as the operation table reads.
#include <algorithm>
#include <cstdlib>

#include "ombrel/framework/kernel_family.h"
#include "ombrel/pixelops/mask_kernels.h"
#include "ombrel/pixelops/mask_ops.h"

namespace ombrel::mask {
namespace scalar {
namespace {

template <class Op>
int Apply(int begin, int end, const SpanJob& job, Op op) {
    for (int i = begin; i < end; ++i) job.d[i] = static_cast<uint8_t>(op(int{job.d[i]}, int{job.s[i]}));
    return end;
}

}  // namespace

int Span(int begin, int end, const SpanJob& job) {
    if (begin >= end) return end;
    const int low = job.low, high = job.high;
    switch (job.op) {
        case MASK_ADD:
            return Apply(begin, end, job, [](int dv, int sv) { return dv + sv; });
        case MASK_SUB:
            return Apply(begin, end, job, [](int dv, int sv) { return dv - sv; });
        case MASK_ABSDIFF:
            return Apply(begin, end, job, [](int dv, int sv) { return std::abs(sv - dv); });
        case MASK_AND:
            return Apply(begin, end, job, [](int dv, int sv) { return dv & sv; });
        case MASK_OR:
            return Apply(begin, end, job, [](int dv, int sv) { return dv | sv; });
        case MASK_XOR:
            return Apply(begin, end, job, [](int dv, int sv) { return dv ^ sv; });
        case MASK_COPY:
        case MASK_COPY_ALT:
            return Apply(begin, end, job, [](int, int sv) { return sv; });
        case MASK_MIN:
            return Apply(begin, end, job, [](int dv, int sv) { return std::min(dv, sv); });
        case MASK_MAX:
            return Apply(begin, end, job, [](int dv, int sv) { return std::max(dv, sv); });
        case MASK_BAND:
            return Apply(begin, end, job,
                         [low, high](int dv, int sv) { return (low <= sv && sv <= high) ? 1 : dv; });
        default:
            return end;  // unknown codes change nothing
    }
}

}  // namespace scalar

const KernelFamily<SpanKernel> kSpanKernels{&scalar::Span, &sse2::Span, &avx2::Span, &avx512::Span};

}  // namespace ombrel::mask
