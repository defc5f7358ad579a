// SPDX-License-Identifier: MIT
// The reference: plain sums, one pixel at a time.
#include "ombrel/framework/kernel_family.h"
#include "ombrel/pixelops/project_kernels.h"

namespace ombrel::project {
namespace scalar {

int ColumnSums(int begin, int end, const ColumnJob& job) {
    for (int i = begin; i < end; ++i) {
        uint32_t sum = job.sums[i];
        for (int r = 0; r < job.rows; ++r) sum += job.top[r * job.pitch + i];
        job.sums[i] = sum;
    }
    return end;
}

int RowSum(int begin, int end, const RowJob& job) {
    uint64_t sum = 0;
    for (int i = begin; i < end; ++i) sum += job.row[i];
    *job.sum += sum;
    return end;
}

}  // namespace scalar

const KernelFamily<ColumnKernel> kColumnKernels{&scalar::ColumnSums, &sse2::ColumnSums, &avx2::ColumnSums,
                                                &avx512::ColumnSums};
const KernelFamily<RowKernel> kRowKernels{&scalar::RowSum, &sse2::RowSum, &avx2::RowSum, &avx512::RowSum};

}  // namespace ombrel::project
