// SPDX-License-Identifier: MIT
// AVX-512BW kernels of the arithmetic agent: 64 pixels per step.
#include "ombrel/framework/simd/lanes_avx512.h"
#include "ombrel/pixelops/arith_kernels_body.h"

namespace ombrel::arith::avx512 {

using Body = ArithBody<simd::Avx512>;

int Span(int begin, int end, const SpanJob& job) {
    const uint8_t* b = job.b != nullptr ? job.b + begin : nullptr;
    return begin +
           Body::SpanImpl(job.a + begin, b, job.d + begin, end - begin, *job.plan, job.sum, job.nonZero);
}

int Multiply(int begin, int end, const MultiplyJob& job) {
    return begin + Body::MultiplyImpl(job.a + begin, job.b + begin, job.d + begin, end - begin, *job.params,
                                      job.sum, job.nonZero);
}

}  // namespace ombrel::arith::avx512
