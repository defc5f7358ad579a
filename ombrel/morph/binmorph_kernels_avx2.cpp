// SPDX-License-Identifier: MIT
// AVX2 kernel of binary morphology: 32 pixels per step.
#include "ombrel/framework/simd/lanes_avx2.h"
#include "ombrel/morph/binmorph_kernels_body.h"

namespace ombrel::binmorph::avx2 {

int Triples(int begin, int end, const TripleJob& job) {
    return BinMorphBody<simd::Avx2>::Triples(begin, end, job);
}

int Row(int begin, int end, const RowJob& job) {
    return BinMorphBody<simd::Avx2>::Row(begin, end, job);
}

}  // namespace ombrel::binmorph::avx2
