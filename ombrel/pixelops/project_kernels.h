// SPDX-License-Identifier: MIT
// Internal: the projection agent's kernels. Every level computes exactly what the scalar reference does; a
// vector level stops after its last whole vector and the scalar reference finishes.
#pragma once
#include <cstdint>

namespace ombrel {
template <class Signature>
class KernelFamily;  // framework/kernel_family.h; not included here, since ISA-compiled files include this
}  // namespace ombrel

namespace ombrel::project {

// Column sums over a block of rows: for i in [begin, end), sums[i] += the `rows` bytes
// top[i], top[i + pitch], ..., top[i + (rows - 1) * pitch] (modulo 2^32).
struct ColumnJob {
    const uint8_t* top = nullptr;
    int64_t pitch = 0;
    int rows = 0;
    uint32_t* sums = nullptr;
};

// One row sum: *sum += row[begin] + ... + row[end - 1].
struct RowJob {
    const uint8_t* row = nullptr;
    uint64_t* sum = nullptr;
};

using ColumnKernel = int(int begin, int end, const ColumnJob& job);
using RowKernel = int(int begin, int end, const RowJob& job);

namespace scalar {
int ColumnSums(int begin, int end, const ColumnJob& job);
int RowSum(int begin, int end, const RowJob& job);
}  // namespace scalar
namespace sse2 {
int ColumnSums(int begin, int end, const ColumnJob& job);
int RowSum(int begin, int end, const RowJob& job);
}  // namespace sse2
namespace avx2 {
int ColumnSums(int begin, int end, const ColumnJob& job);
int RowSum(int begin, int end, const RowJob& job);
}  // namespace avx2
namespace avx512 {
int ColumnSums(int begin, int end, const ColumnJob& job);
int RowSum(int begin, int end, const RowJob& job);
}  // namespace avx512

extern const KernelFamily<ColumnKernel> kColumnKernels;
extern const KernelFamily<RowKernel> kRowKernels;

}  // namespace ombrel::project
