// SPDX-License-Identifier: MIT
// AVX-512 kernel of grey morphology's row operation: 64 pixels per step.
#include "ombrel/framework/simd/lanes_avx512.h"
#include "ombrel/morph/graymorph_kernels_body.h"

namespace ombrel::graymorph::avx512 {

int Rows(int begin, int end, const RowJob& job) {
    return GrayMorphBody<simd::Avx512>::Rows(begin, end, job);
}

int Fold(int begin, int end, const FoldJob& job) {
    return GrayMorphBody<simd::Avx512>::Fold(begin, end, job);
}

}  // namespace ombrel::graymorph::avx512
