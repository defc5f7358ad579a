// SPDX-License-Identifier: MIT
// SSE2 cross-sum kernel: 8 pixels per multiply-add.
#include "ombrel/corr/corr_kernels_body.h"
#include "ombrel/framework/simd/lanes_sse2.h"

namespace ombrel::corr::sse2 {

int Dot(int begin, int end, DotJob& job) {
    return DotBody<simd::Sse2>::Dot(begin, end, job);
}

int CrossRow(int begin, int end, const CrossRowJob& job) {
    return DotBody<simd::Sse2>::CrossRow(begin, end, job);
}

}  // namespace ombrel::corr::sse2
