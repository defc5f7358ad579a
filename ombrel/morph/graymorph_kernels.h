// SPDX-License-Identifier: MIT
// Internal: grey morphology's row kernels. Every level computes, for i in [begin, end), d[i] = op(a[i], b[i])
// with op minimum, maximum or absolute difference of unsigned bytes; d may be a or b. A vector level stops
// after its last whole vector and the scalar reference finishes the row.
#pragma once
#include <cstdint>

namespace ombrel {
template <class Signature>
class KernelFamily;  // framework/kernel_family.h; not included here, since ISA-compiled files include this
}  // namespace ombrel

namespace ombrel::graymorph {

struct RowJob {
    uint32_t op = 0;  // RowOp
    const uint8_t* a = nullptr;
    const uint8_t* b = nullptr;
    uint8_t* d = nullptr;
};

using RowKernel = int(int begin, int end, const RowJob& job);

namespace scalar {
int Rows(int begin, int end, const RowJob& job);
}
namespace sse2 {
int Rows(int begin, int end, const RowJob& job);
}
namespace avx2 {
int Rows(int begin, int end, const RowJob& job);
}
namespace avx512 {
int Rows(int begin, int end, const RowJob& job);
}

extern const KernelFamily<RowKernel> kRowKernels;

// The plain filter pass every faster path must match: in place over the w x h pixels at `image` (rows
// `pitch` bytes apart), `iterations` times, the minimum (mode 0) or maximum (mode 1) over the member cells
// (weight not 0) of a width x height element whose hot spot lies inside it, cells outside the rectangle
// reading 255 for a minimum and 0 for a maximum. Rows are copied into a ring of padded line buffers, and
// each output pixel takes the first member's value, then every further member that is strictly smaller
// (larger). Returns false when the element has no member (nothing changes then).
bool PlainPass(const uint8_t* weights, int width, int height, int hotX, int hotY, uint8_t* image, int pitch,
               int w, int h, int mode, int iterations);

}  // namespace ombrel::graymorph
