// SPDX-License-Identifier: MIT
// SSE2 kernels of the frame-averaging agent: 16 pixels per step.
#include "ombrel/framework/simd/lanes_sse2.h"
#include "ombrel/pixelops/frame_average_kernels_body.h"

namespace ombrel::frame_average::sse2 {

int Fill(int begin, int end, const FillJob& job) {
    return FrameAverageBody<simd::Sse2>::Fill(begin, end, job);
}

int Steady(int begin, int end, const SteadyJob& job) {
    return FrameAverageBody<simd::Sse2>::Steady(begin, end, job);
}

}  // namespace ombrel::frame_average::sse2
