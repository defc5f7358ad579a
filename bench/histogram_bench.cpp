// SPDX-License-Identifier: MIT
// The 256-bin histogram of a whole image against cv::calcHist.
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "bench_images.h"
#include "ombrel/pixelops/histogram.h"

namespace ombrel::bench {
namespace {

void BM_Histogram_Ombrel(benchmark::State& state) {
    Buffer& src = Scene(static_cast<int>(state.range(0)));
    std::vector<int> bins;
    std::unique_ptr<HistogramAgent> agent(HistogramFact(&src, HISTRES_256, &bins));
    for (auto _ : state) {
        agent->Go();
        benchmark::DoNotOptimize(bins.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * src.Width() * src.Height());
    state.SetLabel(SizeName(static_cast<int>(state.range(0))));
}
OMBREL_BENCH_SIZES(BM_Histogram_Ombrel);

void BM_Histogram_OpenCV(benchmark::State& state) {
    const Buffer& src = Scene(static_cast<int>(state.range(0)));
    const cv::Mat image = AsMat(src);
    const int channels[] = {0};
    const int sizes[] = {256};
    const float range[] = {0.f, 256.f};
    const float* ranges[] = {range};
    cv::Mat hist;
    for (auto _ : state) {
        cv::calcHist(&image, 1, channels, cv::Mat(), hist, 1, sizes, ranges);
        benchmark::DoNotOptimize(hist.data);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * src.Width() * src.Height());
    state.SetLabel(SizeName(static_cast<int>(state.range(0))));
}
OMBREL_BENCH_SIZES(BM_Histogram_OpenCV);

}  // namespace
}  // namespace ombrel::bench
