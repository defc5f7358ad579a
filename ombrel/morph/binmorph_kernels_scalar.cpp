// SPDX-License-Identifier: MIT
// The reference: each pixel's nine neighbours gathered into its code (three rows of three) and looked up.
#include "ombrel/framework/kernel_family.h"
#include "ombrel/morph/binmorph_kernels.h"

namespace ombrel::binmorph {
namespace scalar {

int Triples(int begin, int end, const TripleJob& job) {
    for (int x = begin; x < end; ++x)
        job.t[x] =
            static_cast<uint8_t>((job.row[x + 1] & 1) | (job.row[x] & 1) << 1 | (job.row[x - 1] & 1) << 2);
    return end;
}

int Row(int begin, int end, const RowJob& job) {
    uint64_t set = 0;
    for (int x = begin; x < end; ++x) {
        const uint8_t centre = job.centre[x];
        uint8_t out;
        if (centre & 2) {
            out = centre;
        } else {
            const int code = job.up[x] | job.mid[x] << 3 | job.down[x] << 6;
            out = static_cast<uint8_t>((job.lut[code >> 5] >> (code & 31)) & 1);
        }
        job.d[x] = out;
        set += out & 1;
    }
    *job.count += set;
    return end;
}

}  // namespace scalar

// No SSE2 kernels: the vector body reads the table with byte shuffles, which SSE2 lacks.
const KernelFamily<TripleKernel> kTripleKernels{&scalar::Triples, nullptr, &avx2::Triples, &avx512::Triples};
const KernelFamily<RowKernel> kRowKernels{&scalar::Row, nullptr, &avx2::Row, &avx512::Row};

}  // namespace ombrel::binmorph
