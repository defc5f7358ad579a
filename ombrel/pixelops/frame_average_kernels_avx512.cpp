// SPDX-License-Identifier: MIT
// AVX-512 kernels of the frame-averaging agent: 64 pixels per step.
#include "ombrel/framework/simd/lanes_avx512.h"
#include "ombrel/pixelops/frame_average_kernels_body.h"

namespace ombrel::frame_average::avx512 {

int Fill(int begin, int end, const FillJob& job) {
    return FrameAverageBody<simd::Avx512>::Fill(begin, end, job);
}

int Steady(int begin, int end, const SteadyJob& job) {
    return FrameAverageBody<simd::Avx512>::Steady(begin, end, job);
}

}  // namespace ombrel::frame_average::avx512
