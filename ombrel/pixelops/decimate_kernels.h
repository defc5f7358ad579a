// SPDX-License-Identifier: MIT
// Internal: the decimation agent's row kernels. Every level computes, for the outputs i in [begin, end) of
// one output row, exactly what the scalar reference computes (see decimate.h); a vector level handles whole
// vectors of outputs whose neighbours need no clamping and returns where it stopped.
#pragma once
#include <cstdint>

namespace ombrel {
template <class Signature>
class KernelFamily;  // framework/kernel_family.h; not included here, since ISA-compiled files include this
}  // namespace ombrel

namespace ombrel::decimate {

// One output row. Output i samples source column x = first + i * step of the middle row; its left
// neighbour is x - 1 (0 when x < 1) and its right neighbour min(x + 1, last). The three rows point at
// source column 0; the destination row at output 0.
struct RowJob {
    const uint8_t* up = nullptr;
    const uint8_t* mid = nullptr;
    const uint8_t* down = nullptr;
    int64_t first = 0;
    int64_t last = 0;
    int step = 1;  // 1 or 2
    uint8_t* d = nullptr;
};

// Step 1 goes in two passes, since every source column is then a neighbour three times over. First the
// column sums of three rows: v[i] = up[i] + 2 mid[i] + down[i] for i in [begin, end), all four pointers at
// the span's first column.
struct ColumnJob {
    const uint8_t* up = nullptr;
    const uint8_t* mid = nullptr;
    const uint8_t* down = nullptr;
    uint16_t* v = nullptr;
};

// Then the outputs of step 1 from those sums: output i is at column x = first + i, its neighbours x - 1
// (0 when x < 1) and min(x + 1, last), and `v` holds the sum of column `base` (no neighbour lies before it).
struct SumRowJob {
    const uint16_t* v = nullptr;
    int64_t base = 0;
    int64_t first = 0;
    int64_t last = 0;
    uint8_t* d = nullptr;
};

using RowKernel = int(int begin, int end, const RowJob& job);
using ColumnKernel = int(int begin, int end, const ColumnJob& job);
using SumRowKernel = int(int begin, int end, const SumRowJob& job);

#define OMBREL_DECIMATE_LEVEL(isa)                                 \
    namespace isa {                                                \
    int Row(int begin, int end, const RowJob& job);                \
    int ColumnSums(int begin, int end, const ColumnJob& job);      \
    int StepOneFromSums(int begin, int end, const SumRowJob& job); \
    }
OMBREL_DECIMATE_LEVEL(scalar)
OMBREL_DECIMATE_LEVEL(sse2)
OMBREL_DECIMATE_LEVEL(avx2)
OMBREL_DECIMATE_LEVEL(avx512)
#undef OMBREL_DECIMATE_LEVEL

extern const KernelFamily<RowKernel> kRowKernels;
extern const KernelFamily<ColumnKernel> kColumnSumKernels;
extern const KernelFamily<SumRowKernel> kStepOneKernels;

}  // namespace ombrel::decimate
