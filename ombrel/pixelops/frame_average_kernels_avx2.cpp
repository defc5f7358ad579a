// SPDX-License-Identifier: MIT
// AVX2 kernels of the frame-averaging agent: 32 pixels per step.
#include "ombrel/framework/simd/lanes_avx2.h"
#include "ombrel/pixelops/frame_average_kernels_body.h"

namespace ombrel::frame_average::avx2 {

int Fill(int begin, int end, const FillJob& job) {
    return FrameAverageBody<simd::Avx2>::Fill(begin, end, job);
}

int Steady(int begin, int end, const SteadyJob& job) {
    return FrameAverageBody<simd::Avx2>::Steady(begin, end, job);
}

}  // namespace ombrel::frame_average::avx2
