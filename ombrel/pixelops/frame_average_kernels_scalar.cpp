// SPDX-License-Identifier: MIT
// The reference: the running sum one pixel at a time.
#include "ombrel/framework/kernel_family.h"
#include "ombrel/pixelops/frame_average_kernels.h"

namespace ombrel::frame_average {
namespace scalar {

int Fill(int begin, int end, const FillJob& job) {
    for (int i = begin; i < end; ++i) {
        job.acc[i] += job.frame[i];
        job.dst[i] = static_cast<uint8_t>(job.acc[i] / job.count);
    }
    return end;
}

int Steady(int begin, int end, const SteadyJob& job) {
    for (int i = begin; i < end; ++i) {
        job.acc[i] += static_cast<uint32_t>(job.frame[i]) - job.oldest[i];
        job.dst[i] = static_cast<uint8_t>(job.acc[i] >> job.shift);
    }
    return end;
}

}  // namespace scalar

const KernelFamily<FillKernel> kFillKernels{&scalar::Fill, &sse2::Fill, &avx2::Fill, &avx512::Fill};
const KernelFamily<SteadyKernel> kSteadyKernels{&scalar::Steady, &sse2::Steady, &avx2::Steady,
                                                &avx512::Steady};

}  // namespace ombrel::frame_average
