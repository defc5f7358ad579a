// SPDX-License-Identifier: MIT
// The references: one byte at a time, read as the mappings read.
#include "ombrel/framework/kernel_family.h"
#include "ombrel/pixelops/transpose_kernels.h"

namespace ombrel::transpose {
namespace scalar {

int Tile(int begin, int end, const TileJob& job) {
    for (int c = begin; c < end; ++c)
        for (int k = 0; k < job.rows; ++k) job.d[c * job.dStep + k] = job.s[k * job.sStep + c];
    return end;
}

int Reverse(int begin, int end, const LineJob& job) {
    for (int i = begin; i < end; ++i) job.d[-i] = job.s[i];
    return end;
}

int Copy(int begin, int end, const LineJob& job) {
    for (int i = begin; i < end; ++i) job.d[i] = job.s[i];
    return end;
}

}  // namespace scalar

// Quarter turns have no AVX-512 level: the agent turns blocks of 32 columns (see transpose.cpp), so a
// 64-column tile would never run.

const KernelFamily<TileKernel> kTileKernels{&scalar::Tile, &sse2::Tile, &avx2::Tile, nullptr};
const KernelFamily<LineKernel> kReverseKernels{&scalar::Reverse, &sse2::Reverse, &avx2::Reverse,
                                               &avx512::Reverse};
const KernelFamily<LineKernel> kCopyKernels{&scalar::Copy, &sse2::Copy, &avx2::Copy, &avx512::Copy};

}  // namespace ombrel::transpose
