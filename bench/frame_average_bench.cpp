// SPDX-License-Identifier: MIT
// One steady-phase step of an 8-frame running average. OpenCV has no running-window call, so its side is
// the same step built from its primitives: keep a copy of the frame, cv::accumulate it, subtract the frame
// that leaves, and convertTo bytes with a scale of 1/8.
#include <benchmark/benchmark.h>

#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "bench_images.h"
#include "ombrel/pixelops/frame_average.h"

namespace ombrel::bench {
namespace {

constexpr int kWindow = 8;

void BM_FrameAverage_Ombrel(benchmark::State& state) {
    const int size = static_cast<int>(state.range(0));
    Buffer* frames[2] = {&Scene(size, SceneKind::Textured, 0), &Scene(size, SceneKind::Textured, 1)};
    Buffer dst(frames[0]);
    std::unique_ptr<FrameAverageAgent> agent(FrameAverageFact(frames[0], &dst, kWindow));
    int k = 0;
    for (; k < kWindow; ++k) agent->Go();  // fill the window: every timed step is a steady one
    for (auto _ : state) {
        agent->SetSrcBuf(frames[++k & 1]);
        benchmark::DoNotOptimize(agent->Go());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * dst.Width() * dst.Height());
    state.SetLabel(SizeName(size));
}
OMBREL_BENCH_SIZES(BM_FrameAverage_Ombrel);

void BM_FrameAverage_OpenCV(benchmark::State& state) {
    const int size = static_cast<int>(state.range(0));
    const cv::Mat frames[2] = {AsMat(Scene(size, SceneKind::Textured, 0)),
                               AsMat(Scene(size, SceneKind::Textured, 1))};
    std::vector<cv::Mat> window(kWindow);
    cv::Mat acc = cv::Mat::zeros(frames[0].size(), CV_32F), dst;
    for (int k = 0; k < kWindow; ++k) {
        frames[k & 1].copyTo(window[static_cast<size_t>(k)]);
        cv::accumulate(window[static_cast<size_t>(k)], acc);
    }
    size_t oldest = 0;
    int k = 0;
    for (auto _ : state) {
        const cv::Mat& frame = frames[++k & 1];
        cv::subtract(acc, window[oldest], acc, cv::noArray(), CV_32F);
        frame.copyTo(window[oldest]);
        cv::accumulate(window[oldest], acc);
        oldest = (oldest + 1) % kWindow;
        acc.convertTo(dst, CV_8U, 1.0 / kWindow);
        benchmark::DoNotOptimize(dst.data);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * frames[0].cols * frames[0].rows);
    state.SetLabel(SizeName(size));
}
OMBREL_BENCH_SIZES(BM_FrameAverage_OpenCV);

}  // namespace
}  // namespace ombrel::bench
