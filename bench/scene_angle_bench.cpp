// SPDX-License-Identifier: MIT
// Scene angle per frame. OpenCV has no scene angle; beside it stands the nearest pipeline: two cv::Sobel
// calls, cv::magnitude and cv::phase in floats, and cv::calcHist of the directions of the strong pixels into
// 128 bins (no folding, weights or peak search: those cost nothing next to the gradients). Sizes: argument
// 640 is a 640x480 frame, 2592 a 2592x1944 one. The allocation counter lives in auto_focus_bench.cpp.
#include <benchmark/benchmark.h>

#include <memory>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "bench_images.h"
#include "ombrel/gradients/scene_angle.h"

namespace ombrel::bench {

long AllocationsSoFar();
Buffer& Frame(int64_t arg);

namespace {

void Finish(benchmark::State& state, const Buffer& frame, long allocations) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * frame.Width() * frame.Height());
    state.counters["allocs_per_frame"] = benchmark::Counter(
        static_cast<double>(allocations) / static_cast<double>(std::max<int64_t>(state.iterations(), 1)));
    state.SetLabel(std::to_string(frame.Width()) + "x" + std::to_string(frame.Height()));
}

void BM_SceneAngle_Ombrel(benchmark::State& state) {
    Buffer& frame = Frame(state.range(0));
    std::unique_ptr<SceneAngleAgent> agent(SceneAngleFact(&frame));
    agent->PreGo(true);
    const long before = AllocationsSoFar();
    for (auto _ : state) {
        agent->Go();
        benchmark::DoNotOptimize(agent->Angle());
    }
    Finish(state, frame, AllocationsSoFar() - before);
}

void BM_SceneAngle_OpenCV(benchmark::State& state) {
    const Buffer& frame = Frame(state.range(0));
    const cv::Mat image = AsMat(frame);
    cv::Mat gx, gy, magnitude, angle, strong, hist;
    const int bins[] = {128};
    const float range[] = {0, 360};
    const float* ranges[] = {range};
    const int channels[] = {0};
    const long before = AllocationsSoFar();
    for (auto _ : state) {
        cv::Sobel(image, gx, CV_32F, 1, 0, 3, 0.25);
        cv::Sobel(image, gy, CV_32F, 0, 1, 3, -0.25);  // y up, as ours
        cv::magnitude(gx, gy, magnitude);
        cv::phase(gx, gy, angle, true);
        cv::compare(magnitude, 15, strong, cv::CMP_GT);
        cv::calcHist(&angle, 1, channels, strong, hist, 1, bins, ranges);
        benchmark::DoNotOptimize(hist.data);
    }
    Finish(state, frame, AllocationsSoFar() - before);
}

}  // namespace

BENCHMARK(BM_SceneAngle_Ombrel)->Arg(640)->Arg(2592)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SceneAngle_OpenCV)->Arg(640)->Arg(2592)->Unit(benchmark::kMicrosecond);

}  // namespace ombrel::bench
