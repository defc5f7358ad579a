// SPDX-License-Identifier: MIT
// Internal: the Sobel agent's row kernels. Every level computes, for the output pixels i in [begin, end) of
// one row, exactly the byte and statistics the scalar reference computes (see sobel.h); a vector level stops
// after its last whole vector and the scalar reference finishes the row.
#pragma once
#include <cstdint>

namespace ombrel {
template <class Signature>
class KernelFamily;  // framework/kernel_family.h; not included here, since ISA-compiled files include this
}  // namespace ombrel

namespace ombrel::sobel {

// Indices of the six accumulators, in the agent's member order.
enum Accumulator { kStrongGraySum, kStrongCount, kOutputSum, kNonZeroCount, kExcessSum, kExcessCount };

// One output row. The neighbourhood of output pixel i is p[r][c][i]: r = 0, 1, 2 the rows above, at and
// below it, c = 0, 1, 2 the columns left of, at and right of it. For sparseness 1 these are the source rows
// themselves, offset by one pixel; for coarser sampling the agent gathers them into planes first.
struct RowJob {
    const uint8_t* p[3][3] = {};
    uint8_t* d = nullptr;           // destination row, pixel i at d[i]
    const uint8_t* keep = nullptr;  // null: every pixel is computed; else keep[i] == 0 writes the fill value
    int32_t out = 0;                // SobelOut
    int shift = 0;                  // 0..15
    int threshold = 0;
    int threshold2 = 0;
    bool useThreshold2 = false;
    const uint8_t* directions = nullptr;  // SobelDirectionBytes()
    uint64_t* acc = nullptr;              // six accumulators, added to (wrapped to 32 bits by the agent)
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

}  // namespace ombrel::sobel
