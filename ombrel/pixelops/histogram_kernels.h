// SPDX-License-Identifier: MIT
// The histogram agent's counting kernel at each instruction-set level. Counts are kept in several lanes of
// 256 counters so that an unrolled kernel can spread consecutive pixels over separate tables: equal
// neighbouring values (the common case in real images) then never wait on each other's increments. The
// histogram is the sum of the lanes, whichever lanes a kernel used.
#pragma once
#include <cstdint>

#include "ombrel/framework/isa.h"

namespace ombrel {

struct HistogramLanes {
    static constexpr int kLanes = 8;
    alignas(64) uint32_t lane[kLanes][256];
};

// Adds the n pixels at p to the lanes; returns how many leading pixels it counted.
using CountSpanFn = int (*)(const uint8_t* p, int n, HistogramLanes& lanes);

namespace scalar {
int CountSpan(const uint8_t* p, int n, HistogramLanes& lanes);  // all n, into lane 0
}
namespace sse2 {
int CountSpan(const uint8_t* p, int n, HistogramLanes& lanes);
}
namespace avx2 {
int CountSpan(const uint8_t* p, int n, HistogramLanes& lanes);
}

// The kernel for `isa`. Counting is bound by the table increments, not by loads, so levels above AVX2 use
// the AVX2 kernel.
CountSpanFn SelectCountKernel(Isa isa);

}  // namespace ombrel
