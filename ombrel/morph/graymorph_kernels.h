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

// Many rows at once: d[i] = op over k < count of src[k][i] (op minimum or maximum), count >= 1. Shifted
// pointers into one line give a horizontal run; rows of a ring give a column fold.
struct FoldJob {
    uint32_t op = 0;  // kRowMin or kRowMax
    const uint8_t* const* src = nullptr;
    int count = 0;
    uint8_t* d = nullptr;
};

using FoldKernel = int(int begin, int end, const FoldJob& job);

namespace scalar {
int Rows(int begin, int end, const RowJob& job);
int Fold(int begin, int end, const FoldJob& job);
}  // namespace scalar
namespace sse2 {
int Rows(int begin, int end, const RowJob& job);
int Fold(int begin, int end, const FoldJob& job);
}  // namespace sse2
namespace avx2 {
int Rows(int begin, int end, const RowJob& job);
int Fold(int begin, int end, const FoldJob& job);
}  // namespace avx2
namespace avx512 {
int Rows(int begin, int end, const RowJob& job);
int Fold(int begin, int end, const FoldJob& job);
}  // namespace avx512

extern const KernelFamily<RowKernel> kRowKernels;
extern const KernelFamily<FoldKernel> kFoldKernels;

// The plain filter pass every faster path must match: in place over the w x h pixels at `image` (rows
// `pitch` bytes apart), `iterations` times, the minimum (mode 0) or maximum (mode 1) over the member cells
// (weight not 0) of a width x height element whose hot spot lies inside it, cells outside the rectangle
// reading 255 for a minimum and 0 for a maximum. Rows are copied into a ring of padded line buffers, and
// each output pixel takes the first member's value, then every further member that is strictly smaller
// (larger). Returns false when the element has no member (nothing changes then).
bool PlainPass(const uint8_t* weights, int width, int height, int hotX, int hotY, uint8_t* image, int pitch,
               int w, int h, int mode, int iterations);

}  // namespace ombrel::graymorph
