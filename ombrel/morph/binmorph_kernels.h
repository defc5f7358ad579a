// SPDX-License-Identifier: MIT
// Internal: binary morphology's row kernels. Every level computes, for x in [begin, end), the pass output of
// pixel x of one row exactly as the scalar reference does (see binmorph.h), and adds the number of written
// bytes with bit value 1 set to *job.count. A vector level stops after its last whole vector and the scalar
// reference finishes the row.
#pragma once
#include <cstdint>

namespace ombrel {
template <class Signature>
class KernelFamily;  // framework/kernel_family.h; not included here, since ISA-compiled files include this
}  // namespace ombrel

namespace ombrel::binmorph {

// One row. The three line pointers address pixel 0 of the rows above, at and below the output row, each a
// copy padded with the border byte so that indices -1 and the row's width are readable.
struct RowJob {
    const uint8_t* up = nullptr;
    const uint8_t* mid = nullptr;
    const uint8_t* down = nullptr;
    uint8_t* d = nullptr;
    const uint32_t* lut = nullptr;      // the 16 table words (the scalar reference reads these)
    const uint8_t* lutBytes = nullptr;  // the same 512 bits as 64 bytes: byte c/8, bit c%8
    uint64_t* count = nullptr;
};

using RowKernel = int(int begin, int end, const RowJob& job);

namespace scalar {
int Row(int begin, int end, const RowJob& job);
}
namespace avx2 {
int Row(int begin, int end, const RowJob& job);
}
namespace avx512 {
int Row(int begin, int end, const RowJob& job);
}

extern const KernelFamily<RowKernel> kRowKernels;

}  // namespace ombrel::binmorph
