// SPDX-License-Identifier: MIT
// Normalised correlation beside cv::matchTemplate(TM_CCOEFF_NORMED) + cv::minMaxLoc: 16, 32 and 64 pixel
// square templates over 640x480 (argument 640, a crop of the 1024 scene) and the 2592x1944 scene (argument
// 2592); list mode (every score kept and sorted) and single-point mode (best only).
#include <benchmark/benchmark.h>

#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "bench_images.h"
#include "ombrel/corr/corr.h"

namespace ombrel::bench {
namespace {

// The search image of a size argument: a 640x480 view of the first scene, or the whole large scene.
Buffer SearchImage(int arg) {
    Buffer& scene = Scene(arg == 640 ? 0 : 1, SceneKind::Textured, 0);
    return arg == 640 ? Buffer(scene.BaseAddr(), 640, 480, scene.Pitch(), EIGHT)
                      : Buffer(scene.BaseAddr(), scene.Width(), scene.Height(), scene.Pitch(), EIGHT);
}

void RunOmbrel(benchmark::State& state, int side, bool list) {
    const int arg = static_cast<int>(state.range(0));
    Buffer img = SearchImage(arg);
    ROI roi(side, side);
    CorrTemplate tpl(&img, Point{200, 150}, &roi, 0);
    CorrResult result;
    CorrPoint best;
    std::unique_ptr<CorrMatchAgent> agent(list ? CorrMatchFact(&img, &tpl, &result, 0, 0, 1, 1)
                                               : CorrMatchFact(&img, &tpl, &best, 0, 0, 1, 1));
    for (auto _ : state) {
        // List mode rebuilds its lists for every run, as a caller matching a new image would.
        if (list) agent->PreGo();
        benchmark::DoNotOptimize(agent->Go());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * img.Width() * img.Height());
    state.SetLabel(arg == 640 ? "640x480" : "2592x1944");
}

void RunOpenCv(benchmark::State& state, int side) {
    const int arg = static_cast<int>(state.range(0));
    Buffer img = SearchImage(arg);
    const cv::Mat I = AsMat(img);
    const cv::Mat T = I(cv::Rect(200, 150, side, side)).clone();
    cv::Mat out;
    for (auto _ : state) {
        cv::matchTemplate(I, T, out, cv::TM_CCOEFF_NORMED);
        double maxVal = 0;
        cv::Point maxLoc;
        cv::minMaxLoc(out, nullptr, &maxVal, nullptr, &maxLoc);
        benchmark::DoNotOptimize(maxVal);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * img.Width() * img.Height());
    state.SetLabel(arg == 640 ? "640x480" : "2592x1944");
}

#define OMBREL_CORR_BENCH(Name, side, list)            \
    void BM_##Name##_Ombrel(benchmark::State& state) { \
        RunOmbrel(state, side, list);                  \
    }                                                  \
    void BM_##Name##_OpenCV(benchmark::State& state) { \
        RunOpenCv(state, side);                        \
    }

OMBREL_CORR_BENCH(CorrList16, 16, true)
OMBREL_CORR_BENCH(CorrList32, 32, true)
OMBREL_CORR_BENCH(CorrList64, 64, true)
OMBREL_CORR_BENCH(CorrBest16, 16, false)
OMBREL_CORR_BENCH(CorrBest32, 32, false)
OMBREL_CORR_BENCH(CorrBest64, 64, false)

#define OMBREL_CORR_SIZES(fn) BENCHMARK(fn)->Arg(640)->Arg(2592)->Unit(benchmark::kMillisecond)
OMBREL_CORR_SIZES(BM_CorrList16_Ombrel);
OMBREL_CORR_SIZES(BM_CorrList16_OpenCV);
OMBREL_CORR_SIZES(BM_CorrBest16_Ombrel);
OMBREL_CORR_SIZES(BM_CorrBest16_OpenCV);
OMBREL_CORR_SIZES(BM_CorrList32_Ombrel);
OMBREL_CORR_SIZES(BM_CorrList32_OpenCV);
OMBREL_CORR_SIZES(BM_CorrList64_Ombrel);
OMBREL_CORR_SIZES(BM_CorrList64_OpenCV);
OMBREL_CORR_SIZES(BM_CorrBest32_Ombrel);
OMBREL_CORR_SIZES(BM_CorrBest32_OpenCV);
OMBREL_CORR_SIZES(BM_CorrBest64_Ombrel);
OMBREL_CORR_SIZES(BM_CorrBest64_OpenCV);

}  // namespace
}  // namespace ombrel::bench
