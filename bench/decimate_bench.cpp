// SPDX-License-Identifier: MIT
// Decimation against its nearest OpenCV calls. Step 2 beside cv::pyrDown (a 5x5 Gaussian then every second
// pixel: the nearest equivalent, not the same bytes) and cv::resize INTER_NEAREST to half size (sampling
// without smoothing); step 1 beside a 3x3 GaussianBlur (the same smoothing, rounded instead of truncated).
// Our step 2 is checked once against OpenCV's exact 1-2-1 sums before timing.
#include <benchmark/benchmark.h>

#include <functional>
#include <memory>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "bench_images.h"
#include "ombrel/pixelops/decimate.h"

namespace ombrel::bench {
namespace {

bool SameAsOpenCvSums(const Buffer& src, const Buffer& dst, int step) {
    cv::Mat sums;
    const cv::Mat k = (cv::Mat_<float>(1, 3) << 1, 2, 1);
    cv::sepFilter2D(AsMat(src), sums, CV_32F, k, k, cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
    for (int y = step - 1, j = 0; y < src.Height(); y += step, ++j)
        for (int x = step - 1, i = 0; x < src.Width(); x += step, ++i)
            if (dst.Row(j)[i] != (static_cast<int>(sums.at<float>(y, x)) >> 4)) return false;
    return true;
}

void RunOmbrel(benchmark::State& state, PixelStep step) {
    const int size = static_cast<int>(state.range(0));
    Buffer& src = Scene(size);
    Buffer dst(src.Width() / step, src.Height() / step, EIGHT);
    std::unique_ptr<DecimateAgent> agent(DecimateFact(&src, &dst, step));
    agent->Go();
    if (!SameAsOpenCvSums(src, dst, step)) state.SkipWithError("results differ from the 1-2-1 sums");
    for (auto _ : state) {
        agent->Go();
        benchmark::DoNotOptimize(dst.BaseAddr());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * src.Width() * src.Height());
    state.SetLabel(SizeName(size));
}

void RunOpenCv(benchmark::State& state, const std::function<void(const cv::Mat&, cv::Mat&)>& call) {
    const int size = static_cast<int>(state.range(0));
    const Buffer& src = Scene(size);
    const cv::Mat image = AsMat(src);
    cv::Mat dst;
    call(image, dst);
    for (auto _ : state) {
        call(image, dst);
        benchmark::DoNotOptimize(dst.data);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * src.Width() * src.Height());
    state.SetLabel(SizeName(size));
}

void BM_DecimateStep2VsPyrDown_Ombrel(benchmark::State& state) {
    RunOmbrel(state, PIXEL_STEP_2);
}
void BM_DecimateStep2VsPyrDown_OpenCV(benchmark::State& state) {
    RunOpenCv(state, [](const cv::Mat& in, cv::Mat& out) { cv::pyrDown(in, out); });
}
void BM_DecimateStep2VsNearest_Ombrel(benchmark::State& state) {
    RunOmbrel(state, PIXEL_STEP_2);
}
void BM_DecimateStep2VsNearest_OpenCV(benchmark::State& state) {
    RunOpenCv(state, [](const cv::Mat& in, cv::Mat& out) {
        cv::resize(in, out, cv::Size(in.cols / 2, in.rows / 2), 0, 0, cv::INTER_NEAREST);
    });
}
void BM_DecimateStep1VsGaussian3_Ombrel(benchmark::State& state) {
    RunOmbrel(state, PIXEL_STEP_1);
}
void BM_DecimateStep1VsGaussian3_OpenCV(benchmark::State& state) {
    RunOpenCv(state, [](const cv::Mat& in, cv::Mat& out) {
        cv::GaussianBlur(in, out, cv::Size(3, 3), 0, 0, cv::BORDER_REPLICATE);
    });
}
OMBREL_BENCH_SIZES(BM_DecimateStep2VsPyrDown_Ombrel);
OMBREL_BENCH_SIZES(BM_DecimateStep2VsPyrDown_OpenCV);
OMBREL_BENCH_SIZES(BM_DecimateStep2VsNearest_Ombrel);
OMBREL_BENCH_SIZES(BM_DecimateStep2VsNearest_OpenCV);
OMBREL_BENCH_SIZES(BM_DecimateStep1VsGaussian3_Ombrel);
OMBREL_BENCH_SIZES(BM_DecimateStep1VsGaussian3_OpenCV);

}  // namespace
}  // namespace ombrel::bench
