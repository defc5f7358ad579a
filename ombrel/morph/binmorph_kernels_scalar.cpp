// SPDX-License-Identifier: MIT
// The reference: each pixel's nine neighbours gathered into its code and looked up in the table.
#include "ombrel/framework/kernel_family.h"
#include "ombrel/morph/binmorph_kernels.h"

namespace ombrel::binmorph {
namespace scalar {

int Row(int begin, int end, const RowJob& job) {
    uint64_t set = 0;
    for (int x = begin; x < end; ++x) {
        const uint8_t centre = job.mid[x];
        uint8_t out;
        if (centre & 2) {
            out = centre;
        } else {
            const int code = (job.up[x + 1] & 1) | (job.up[x] & 1) << 1 | (job.up[x - 1] & 1) << 2 |
                             (job.mid[x + 1] & 1) << 3 | (centre & 1) << 4 | (job.mid[x - 1] & 1) << 5 |
                             (job.down[x + 1] & 1) << 6 | (job.down[x] & 1) << 7 | (job.down[x - 1] & 1) << 8;
            out = static_cast<uint8_t>((job.lut[code >> 5] >> (code & 31)) & 1);
        }
        job.d[x] = out;
        set += out & 1;
    }
    *job.count += set;
    return end;
}

}  // namespace scalar

// No SSE2 kernel: the vector body reads the table with byte shuffles, which SSE2 lacks.
const KernelFamily<RowKernel> kRowKernels{&scalar::Row, nullptr, &avx2::Row, &avx512::Row};

}  // namespace ombrel::binmorph
