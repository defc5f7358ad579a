// SPDX-License-Identifier: MIT
// AVX-512 kernel of binary morphology: 64 pixels per step.
#include "ombrel/framework/simd/lanes_avx512.h"
#include "ombrel/morph/binmorph_kernels_body.h"

namespace ombrel::binmorph::avx512 {

int Triples(int begin, int end, const TripleJob& job) {
    return BinMorphBody<simd::Avx512>::Triples(begin, end, job);
}

int Row(int begin, int end, const RowJob& job) {
    return BinMorphBody<simd::Avx512>::Row(begin, end, job);
}

}  // namespace ombrel::binmorph::avx512
