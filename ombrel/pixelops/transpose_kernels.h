// SPDX-License-Identifier: MIT
// Internal: the transposition agent's kernels. Three families, each with the scalar reference and whole-
// vector levels that return where they stopped:
//   Tile    (quarter turns)  for c in [begin, end), k in [0, rows): d[c * dStep + k] = s[k * sStep + c]
//   Reverse (mirror, half turn)  for i in [begin, end): d[-i] = s[i]
//   Copy    (mirror top to bottom)  for i in [begin, end): d[i] = s[i]
#pragma once
#include <cstddef>
#include <cstdint>

namespace ombrel {
template <class Signature>
class KernelFamily;  // framework/kernel_family.h; not included here, since ISA-compiled files include this
}  // namespace ombrel

namespace ombrel::transpose {

// Rows of source bytes a tile kernel turns at once; vector levels take only bands of exactly this many.
constexpr int kBandRows = 16;

// A band of `rows` source rows, `sStep` bytes apart (negative to feed them bottom up), each starting at the
// band's first column; source column c goes to the destination bytes d + c * dStep, one per band row.
struct TileJob {
    const uint8_t* s = nullptr;
    ptrdiff_t sStep = 0;
    int rows = 0;
    uint8_t* d = nullptr;
    ptrdiff_t dStep = 0;
};

// One row: `s` at its first pixel; `d` at the destination byte of that pixel (Reverse writes leftwards).
struct LineJob {
    const uint8_t* s = nullptr;
    uint8_t* d = nullptr;
};

using TileKernel = int(int begin, int end, const TileJob& job);
using LineKernel = int(int begin, int end, const LineJob& job);

#define OMBREL_TRANSPOSE_LEVEL(isa)                      \
    namespace isa {                                      \
    int Tile(int begin, int end, const TileJob& job);    \
    int Reverse(int begin, int end, const LineJob& job); \
    int Copy(int begin, int end, const LineJob& job);    \
    }
OMBREL_TRANSPOSE_LEVEL(scalar)
OMBREL_TRANSPOSE_LEVEL(sse2)
OMBREL_TRANSPOSE_LEVEL(avx2)
#undef OMBREL_TRANSPOSE_LEVEL
namespace avx512 {  // no quarter-turn tile at this level
int Reverse(int begin, int end, const LineJob& job);
int Copy(int begin, int end, const LineJob& job);
}  // namespace avx512

extern const KernelFamily<TileKernel> kTileKernels;
extern const KernelFamily<LineKernel> kReverseKernels;
extern const KernelFamily<LineKernel> kCopyKernels;

}  // namespace ombrel::transpose
