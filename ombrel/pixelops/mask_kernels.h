// SPDX-License-Identifier: MIT
// The mask agent's span kernel at each instruction-set level. Every level computes, for i in [0, handled):
// d[i] = op(d[i], s[i]) exactly as the scalar reference does; a vector level returns how many leading
// pixels it handled (a multiple of its width) and the scalar kernel finishes the span.
#pragma once
#include <cstdint>

#include "ombrel/framework/isa.h"

namespace ombrel {

using MaskSpanFn = int (*)(uint32_t op, int low, int high, const uint8_t* s, uint8_t* d, int n);

namespace scalar {
int MaskSpan(uint32_t op, int low, int high, const uint8_t* s, uint8_t* d, int n);
}
namespace sse2 {
int MaskSpan(uint32_t op, int low, int high, const uint8_t* s, uint8_t* d, int n);
}
namespace avx2 {
int MaskSpan(uint32_t op, int low, int high, const uint8_t* s, uint8_t* d, int n);
}
namespace avx512 {
int MaskSpan(uint32_t op, int low, int high, const uint8_t* s, uint8_t* d, int n);
}

// The widest kernel not above `isa`.
MaskSpanFn SelectMaskKernel(Isa isa);

}  // namespace ombrel
