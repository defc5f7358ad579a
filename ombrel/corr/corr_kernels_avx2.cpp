// SPDX-License-Identifier: MIT
// AVX2 cross-sum kernel: 16 pixels per multiply-add.
#include "ombrel/corr/corr_kernels_body.h"
#include "ombrel/framework/simd/lanes_avx2.h"

namespace ombrel::corr::avx2 {

int Dot(int begin, int end, DotJob& job) {
    return DotBody<simd::Avx2>::Dot(begin, end, job);
}

int CrossRow(int begin, int end, const CrossRowJob& job) {
    return DotBody<simd::Avx2>::CrossRow(begin, end, job);
}

}  // namespace ombrel::corr::avx2
