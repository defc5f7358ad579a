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

using RowKernel = int(int begin, int end, const RowJob& job);

namespace scalar {
int Row(int begin, int end, const RowJob& job);
}
namespace sse2 {
int Row(int begin, int end, const RowJob& job);
}
namespace avx2 {
int Row(int begin, int end, const RowJob& job);
}
namespace avx512 {
int Row(int begin, int end, const RowJob& job);
}

extern const KernelFamily<RowKernel> kRowKernels;

}  // namespace ombrel::decimate
