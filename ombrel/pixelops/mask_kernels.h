// SPDX-License-Identifier: MIT
// Internal: the mask agent's span kernels. Every level computes, for i in [begin, end): d[i] = op(d[i], s[i])
// exactly as the scalar reference does (see mask.h); a vector level stops after its last whole vector and
// the scalar reference finishes the span.
#pragma once
#include <cstdint>

namespace ombrel {
template <class Signature>
class KernelFamily;  // framework/kernel_family.h; not included here, since ISA-compiled files include this
}  // namespace ombrel

namespace ombrel::mask {

// One span: the operation and band, the source and destination at the span's first pixel.
struct SpanJob {
    uint32_t op = 0;
    int low = 0, high = 0;
    const uint8_t* s = nullptr;
    uint8_t* d = nullptr;
};

using SpanKernel = int(int begin, int end, const SpanJob& job);

namespace scalar {
int Span(int begin, int end, const SpanJob& job);
}
namespace sse2 {
int Span(int begin, int end, const SpanJob& job);
}
namespace avx2 {
int Span(int begin, int end, const SpanJob& job);
}
namespace avx512 {
int Span(int begin, int end, const SpanJob& job);
}

extern const KernelFamily<SpanKernel> kSpanKernels;

}  // namespace ombrel::mask
