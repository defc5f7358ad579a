// SPDX-License-Identifier: MIT
// Internal: the histogram agent's counting kernel. Counts are kept in several lanes of 256 counters so that
// consecutive pixels go to separate tables: equal neighbouring values (the common case in real images) then
// never wait on each other's increments. The histogram is the sum of the lanes, whichever lanes a kernel
// used.
//
// Counting is bound by the table increments, not by loads or arithmetic, so the family has one level: a
// baseline kernel that reads 16 pixels as two 64-bit words. Vector instructions have nothing to add here;
// a wider level would only recompile the same body.
#pragma once
#include <cstdint>

namespace ombrel {
template <class Signature>
class KernelFamily;  // framework/kernel_family.h
}  // namespace ombrel

namespace ombrel::histogram {

struct Lanes {
    static constexpr int kLanes = 8;
    alignas(64) uint32_t lane[kLanes][256];
};

// Adds pixels [begin, end) of the span at p to the lanes.
using CountKernel = int(int begin, int end, const uint8_t* p, Lanes* lanes);

namespace scalar {
int Count(int begin, int end, const uint8_t* p, Lanes* lanes);
}

extern const KernelFamily<CountKernel> kCountKernels;

}  // namespace ombrel::histogram
