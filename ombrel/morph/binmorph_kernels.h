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

// Each image row is first reduced to 3-bit codes, one per pixel: bit 0 the right neighbour's bit value 1,
// bit 1 the pixel's own, bit 2 the left neighbour's (the upper row of the 9-bit code, and shifted by 3 and by
// 6 its middle and lower rows). t[x] for x in [begin, end) from row[x - 1], row[x] and row[x + 1].
struct TripleJob {
    const uint8_t* row = nullptr;
    uint8_t* t = nullptr;
};

using TripleKernel = int(int begin, int end, const TripleJob& job);

// One output row from the 3-bit codes of the rows above, at and below it: code = up | mid << 3 | down << 6.
// `centre` is the row's own bytes (frozen pixels are copied from it); d may be centre.
struct RowJob {
    const uint8_t* up = nullptr;
    const uint8_t* mid = nullptr;
    const uint8_t* down = nullptr;
    const uint8_t* centre = nullptr;
    uint8_t* d = nullptr;
    const uint32_t* lut = nullptr;      // the 16 table words (the scalar reference reads these)
    const uint8_t* lutBytes = nullptr;  // the same 512 bits as 64 bytes: byte c/8, bit c%8
    uint64_t* count = nullptr;
};

using RowKernel = int(int begin, int end, const RowJob& job);

namespace scalar {
int Triples(int begin, int end, const TripleJob& job);
int Row(int begin, int end, const RowJob& job);
}  // namespace scalar
namespace avx2 {
int Triples(int begin, int end, const TripleJob& job);
int Row(int begin, int end, const RowJob& job);
}  // namespace avx2
namespace avx512 {
int Triples(int begin, int end, const TripleJob& job);
int Row(int begin, int end, const RowJob& job);
}  // namespace avx512

extern const KernelFamily<TripleKernel> kTripleKernels;
extern const KernelFamily<RowKernel> kRowKernels;

}  // namespace ombrel::binmorph
