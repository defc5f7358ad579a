// SPDX-License-Identifier: MIT
// Auto focus per frame beside the nearest OpenCV focus figure, the variance of cv::Laplacian (a different
// sharpness measure: second derivatives squared, where ours sums absolute first differences over the
// brightness). Sizes: argument 640 is a 640x480 frame, 2592 a 2592x1944 one.
//
// The benchmark binary counts every allocation (testing/allocation_counter, a replaced global operator new),
// so that the per-frame allocation count of the agents stands beside their time.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>
#include <new>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "bench_images.h"
#include "ombrel/gradients/auto_focus.h"
#include "scenes/synthetic_scene.h"
#include "testing/allocation_counter.h"

namespace ombrel::bench {

long AllocationsSoFar() {
    return ombrel::testing::AllocationCount();
}

// A frame of the size the argument names: 640 (640x480, made once) or 2592 (the shared 2592x1944 scene).
Buffer& Frame(int64_t arg) {
    if (arg != 640) return Scene(1);
    static std::unique_ptr<Buffer> vga = scenes::MakeTexturedScene(640, 480, 7);
    return *vga;
}

namespace {

void Finish(benchmark::State& state, const Buffer& frame, long allocations) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * frame.Width() * frame.Height());
    state.counters["allocs_per_frame"] = benchmark::Counter(
        static_cast<double>(allocations) / static_cast<double>(std::max<int64_t>(state.iterations(), 1)));
    state.SetLabel(std::to_string(frame.Width()) + "x" + std::to_string(frame.Height()));
}

void RunOmbrel(benchmark::State& state, bool prepared) {
    Buffer& frame = Frame(state.range(0));
    std::unique_ptr<AutoFocusAgent> agent(AutoFocusFact(&frame));
    if (prepared) agent->PreGo(true);
    const long before = AllocationsSoFar();
    for (auto _ : state) {
        agent->Go();
        benchmark::DoNotOptimize(agent->Focus());
    }
    Finish(state, frame, AllocationsSoFar() - before);
}

void BM_AutoFocus_Ombrel(benchmark::State& state) {
    RunOmbrel(state, true);
}
// Unprepared: every Go builds and frees its sub-agents and images.
void BM_AutoFocusUnprepared_Ombrel(benchmark::State& state) {
    RunOmbrel(state, false);
}

void BM_AutoFocus_OpenCV(benchmark::State& state) {
    const Buffer& frame = Frame(state.range(0));
    const cv::Mat image = AsMat(frame);
    cv::Mat laplacian;
    cv::Scalar mean, deviation;
    const long before = AllocationsSoFar();
    for (auto _ : state) {
        cv::Laplacian(image, laplacian, CV_16S);
        cv::meanStdDev(laplacian, mean, deviation);
        benchmark::DoNotOptimize(deviation[0] * deviation[0]);
    }
    Finish(state, frame, AllocationsSoFar() - before);
}

}  // namespace

BENCHMARK(BM_AutoFocus_Ombrel)->Arg(640)->Arg(2592)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_AutoFocus_OpenCV)->Arg(640)->Arg(2592)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_AutoFocusUnprepared_Ombrel)->Arg(640)->Arg(2592)->Unit(benchmark::kMicrosecond);

}  // namespace ombrel::bench
