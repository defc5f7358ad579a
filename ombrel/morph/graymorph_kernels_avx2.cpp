// SPDX-License-Identifier: MIT
// AVX2 kernel of grey morphology's row operation: 32 pixels per step.
#include "ombrel/framework/simd/lanes_avx2.h"
#include "ombrel/morph/graymorph_kernels_body.h"

namespace ombrel::graymorph::avx2 {

int Rows(int begin, int end, const RowJob& job) {
    return GrayMorphBody<simd::Avx2>::Rows(begin, end, job);
}

int Fold(int begin, int end, const FoldJob& job) {
    return GrayMorphBody<simd::Avx2>::Fold(begin, end, job);
}

}  // namespace ombrel::graymorph::avx2
