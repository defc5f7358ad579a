// SPDX-License-Identifier: MIT
// SSE2 kernels of the arithmetic agent: 16 pixels per step.
#include "ombrel/framework/simd/lanes_sse2.h"
#include "ombrel/pixelops/arith_kernels_body.h"

namespace ombrel::arith::sse2 {

using Body = ArithBody<simd::Sse2>;

int Span(int begin, int end, const SpanJob& job) {
    const uint8_t* b = job.b != nullptr ? job.b + begin : nullptr;
    return begin +
           Body::SpanImpl(job.a + begin, b, job.d + begin, end - begin, *job.plan, job.sum, job.nonZero);
}

int Multiply(int begin, int end, const MultiplyJob& job) {
    return begin + Body::MultiplyImpl(job.a + begin, job.b + begin, job.d + begin, end - begin, *job.params,
                                      job.sum, job.nonZero);
}

}  // namespace ombrel::arith::sse2
