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

int ColumnSums(int begin, int end, const ColumnJob& job) {
    for (int i = begin; i < end; ++i)
        job.v[i] = static_cast<uint16_t>(job.up[i] + 2 * job.mid[i] + job.down[i]);
    return end;
}

int StepOneFromSums(int begin, int end, const SumRowJob& job) {
    for (int i = begin; i < end; ++i) {
        const int64_t x = job.first + i;
        const int64_t l = x >= 1 ? x - 1 : 0;
        const int64_t r = std::min(x + 1, job.last);
        const int sum = job.v[l - job.base] + 2 * job.v[x - job.base] + job.v[r - job.base];
        job.d[i] = static_cast<uint8_t>(sum >> 4);
    }
    return end;
}

}  // namespace scalar

const KernelFamily<RowKernel> kRowKernels{&scalar::Row, &sse2::Row, &avx2::Row, &avx512::Row};
const KernelFamily<ColumnKernel> kColumnSumKernels{&scalar::ColumnSums, &sse2::ColumnSums, &avx2::ColumnSums,
                                                   &avx512::ColumnSums};
const KernelFamily<SumRowKernel> kStepOneKernels{&scalar::StepOneFromSums, &sse2::StepOneFromSums,
                                                 &avx2::StepOneFromSums, &avx512::StepOneFromSums};

}  // namespace ombrel::decimate
