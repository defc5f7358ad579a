// SPDX-License-Identifier: MIT
// Internal: the convolution agent's row kernels. Every level computes, for the outputs i in [begin, end) of
// one output row, exactly what the scalar reference computes (see conv.h); a vector level handles whole
// vectors of outputs (step 1 only) and returns where it stopped.
#pragma once
#include <cstdint>

namespace ombrel {
template <class Signature>
class KernelFamily;  // framework/kernel_family.h; not included here, since ISA-compiled files include this
}  // namespace ombrel

namespace ombrel::conv {

// One output row. Output i reads the kw x kh source block whose top-left is src + i * step (src points at
// the first sample of the row); k holds the kernel widened to 16 bits, kw per row, already signed or not.
struct RowJob {
    const uint8_t* src = nullptr;
    int64_t srcPitch = 0;
    const int16_t* k = nullptr;
    int32_t kw = 1;
    int32_t kh = 1;
    int32_t step = 1;
    int32_t imgSigned = 0;
    int32_t clip = 0;  // clamp negative sums to 0
    int32_t shift = 0;
    uint8_t* d = nullptr;
};

using RowKernel = int(int begin, int end, const RowJob& job);

#define OMBREL_CONV_LEVEL(isa)                      \
    namespace isa {                                 \
    int Row(int begin, int end, const RowJob& job); \
    }
OMBREL_CONV_LEVEL(scalar)
OMBREL_CONV_LEVEL(sse2)
OMBREL_CONV_LEVEL(avx2)
OMBREL_CONV_LEVEL(avx512)
#undef OMBREL_CONV_LEVEL

extern const KernelFamily<RowKernel> kConvKernels;

}  // namespace ombrel::conv
