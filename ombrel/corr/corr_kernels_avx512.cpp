// SPDX-License-Identifier: MIT
// AVX512 cross-sum kernel: 32 pixels per multiply-add.
#include "ombrel/corr/corr_kernels_body.h"
#include "ombrel/framework/simd/lanes_avx512.h"

namespace ombrel::corr::avx512 {

int Dot(int begin, int end, DotJob& job) {
    return DotBody<simd::Avx512>::Dot(begin, end, job);
}

}  // namespace ombrel::corr::avx512
