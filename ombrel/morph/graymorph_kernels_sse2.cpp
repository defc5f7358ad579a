// SPDX-License-Identifier: MIT
// SSE2 kernel of grey morphology's row operation: 16 pixels per step.
#include "ombrel/framework/simd/lanes_sse2.h"
#include "ombrel/morph/graymorph_kernels_body.h"

namespace ombrel::graymorph::sse2 {

int Rows(int begin, int end, const RowJob& job) {
    return GrayMorphBody<simd::Sse2>::Rows(begin, end, job);
}

int Fold(int begin, int end, const FoldJob& job) {
    return GrayMorphBody<simd::Sse2>::Fold(begin, end, job);
}

}  // namespace ombrel::graymorph::sse2
