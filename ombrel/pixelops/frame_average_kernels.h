// SPDX-License-Identifier: MIT
// Internal: the frame-averaging agent's row kernels. Every level computes exactly what the scalar reference
// does; a vector level stops after its last whole vector and the scalar reference finishes the row.
#pragma once
#include <cstdint>

namespace ombrel {
template <class Signature>
class KernelFamily;  // framework/kernel_family.h; not included here, since ISA-compiled files include this
}  // namespace ombrel

namespace ombrel::frame_average {

// Filling phase, for i in [begin, end): acc[i] += frame[i]; dst[i] = acc[i] / count (truncated).
// The accumulator holds the sum of the `count` frames of the window, so acc[i] <= 255 * count: vector
// levels rely on it (they divide in single precision, exact for count < 65536, and leave larger windows to
// the reference).
struct FillJob {
    const uint8_t* frame = nullptr;
    uint32_t* acc = nullptr;
    uint8_t* dst = nullptr;
    uint32_t count = 1;
};

// Steady phase, for i in [begin, end): acc[i] += frame[i] - oldest[i] (modulo 2^32);
// dst[i] = low byte of (acc[i] >> shift).
struct SteadyJob {
    const uint8_t* frame = nullptr;
    const uint8_t* oldest = nullptr;
    uint32_t* acc = nullptr;
    uint8_t* dst = nullptr;
    int shift = 0;
};

using FillKernel = int(int begin, int end, const FillJob& job);
using SteadyKernel = int(int begin, int end, const SteadyJob& job);

namespace scalar {
int Fill(int begin, int end, const FillJob& job);
int Steady(int begin, int end, const SteadyJob& job);
}  // namespace scalar
namespace sse2 {
int Fill(int begin, int end, const FillJob& job);
int Steady(int begin, int end, const SteadyJob& job);
}  // namespace sse2
namespace avx2 {
int Fill(int begin, int end, const FillJob& job);
int Steady(int begin, int end, const SteadyJob& job);
}  // namespace avx2
namespace avx512 {
int Fill(int begin, int end, const FillJob& job);
int Steady(int begin, int end, const SteadyJob& job);
}  // namespace avx512

extern const KernelFamily<FillKernel> kFillKernels;
extern const KernelFamily<SteadyKernel> kSteadyKernels;

}  // namespace ombrel::frame_average
