// SPDX-License-Identifier: MIT
// The reference: one output at a time, its nine neighbours clamped exactly as the agent's contract says.
#include <algorithm>

#include "ombrel/framework/kernel_family.h"
#include "ombrel/pixelops/decimate_kernels.h"

namespace ombrel::decimate {
namespace scalar {

int Row(int begin, int end, const RowJob& job) {
    for (int i = begin; i < end; ++i) {
        const int64_t x = job.first + int64_t{i} * job.step;
        const int64_t l = x >= 1 ? x - 1 : 0;
        const int64_t r = std::min(x + 1, job.last);
        const int centre = job.mid[x];
        const int edges = job.mid[l] + job.mid[r] + job.up[x] + job.down[x];
        const int corners = job.up[l] + job.up[r] + job.down[l] + job.down[r];
        job.d[i] = static_cast<uint8_t>((4 * centre + 2 * edges + corners) >> 4);
    }
    return end;
}

}  // namespace scalar

const KernelFamily<RowKernel> kRowKernels{&scalar::Row, &sse2::Row, &avx2::Row, &avx512::Row};

}  // namespace ombrel::decimate
