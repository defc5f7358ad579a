// SPDX-License-Identifier: MIT
// Convolution against cv::filter2D with the same kernel (anchor at the top-left, 8-bit output: OpenCV
// rounds and saturates where we shift and wrap, so the work is the same but not the bytes), 3x3 and 7x7.
// Step 2 (filter and decimate in one pass) sits beside filter2D followed by resize INTER_NEAREST to half
// size. Before timing, our output is checked once against OpenCV's exact sums shifted and wrapped.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "bench_images.h"
#include "ombrel/corr/corr_template.h"
#include "ombrel/pixelops/conv.h"

namespace ombrel::bench {
namespace {

// A small smoothing kernel with varied weights: 1 + (x + y) % 3.
std::unique_ptr<Buffer> KernelImage(int k) {
    auto b = std::make_unique<Buffer>(k, k, EIGHT);
    for (int y = 0; y < k; ++y)
        for (int x = 0; x < k; ++x) b->Row(y)[x] = static_cast<uint8_t>(1 + (x + y) % 3);
    return b;
}

cv::Mat KernelMat(const Buffer& k, int depth) {
    cv::Mat m(k.Height(), k.Width(), depth);
    for (int y = 0; y < k.Height(); ++y)
        for (int x = 0; x < k.Width(); ++x)
            if (depth == CV_64F)
                m.at<double>(y, x) = k.Row(y)[x];
            else
                m.at<float>(y, x) = k.Row(y)[x];
    return m;
}

bool SameAsOpenCvSums(const Buffer& src, const Buffer& dst, const Buffer& k, int step, int shift) {
    cv::Mat sums;
    cv::filter2D(AsMat(src), sums, CV_64F, KernelMat(k, CV_64F), cv::Point(0, 0), 0, cv::BORDER_CONSTANT);
    for (int y = 0, j = 0; y + k.Height() <= src.Height(); y += step, ++j)
        for (int x = 0, i = 0; x + k.Width() <= src.Width(); x += step, ++i)
            if (dst.Row(j)[i] != static_cast<uint8_t>(static_cast<int32_t>(sums.at<double>(y, x)) >> shift))
                return false;
    return true;
}

void RunOmbrel(benchmark::State& state, int k, int step) {
    const int size = static_cast<int>(state.range(0));
    Buffer& src = Scene(size);
    auto kernelImage = KernelImage(k);
    CorrTemplate tpl(kernelImage.get(), 0);
    Buffer dst(src.Width(), src.Height(), EIGHT);
    std::unique_ptr<ConvAgent> agent(ConvFact(&src, &dst, &tpl, 0, 0, step, step));
    agent->Go();
    if (!SameAsOpenCvSums(src, dst, *kernelImage, step, agent->Shift()))
        state.SkipWithError("results differ from OpenCV's sums");
    for (auto _ : state) {
        agent->Go();
        benchmark::DoNotOptimize(dst.BaseAddr());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * src.Width() * src.Height());
    state.SetLabel(SizeName(size));
}

void RunOpenCv(benchmark::State& state, int k, int step) {
    const int size = static_cast<int>(state.range(0));
    const Buffer& src = Scene(size);
    const cv::Mat image = AsMat(src);
    const cv::Mat kernel = KernelMat(*KernelImage(k), CV_32F);
    cv::Mat filtered, half;
    auto call = [&] {
        cv::filter2D(image, filtered, CV_8U, kernel, cv::Point(0, 0), 0, cv::BORDER_CONSTANT);
        if (step == 2)
            cv::resize(filtered, half, cv::Size(image.cols / 2, image.rows / 2), 0, 0, cv::INTER_NEAREST);
    };
    call();
    for (auto _ : state) {
        call();
        benchmark::DoNotOptimize(filtered.data);
        benchmark::DoNotOptimize(half.data);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * src.Width() * src.Height());
    state.SetLabel(SizeName(size));
}

void BM_Conv3x3Step1_Ombrel(benchmark::State& s) {
    RunOmbrel(s, 3, 1);
}
void BM_Conv3x3Step1_OpenCV(benchmark::State& s) {
    RunOpenCv(s, 3, 1);
}
void BM_Conv3x3Step2_Ombrel(benchmark::State& s) {
    RunOmbrel(s, 3, 2);
}
void BM_Conv3x3Step2_OpenCV(benchmark::State& s) {
    RunOpenCv(s, 3, 2);
}
void BM_Conv7x7Step1_Ombrel(benchmark::State& s) {
    RunOmbrel(s, 7, 1);
}
void BM_Conv7x7Step1_OpenCV(benchmark::State& s) {
    RunOpenCv(s, 7, 1);
}
void BM_Conv7x7Step2_Ombrel(benchmark::State& s) {
    RunOmbrel(s, 7, 2);
}
void BM_Conv7x7Step2_OpenCV(benchmark::State& s) {
    RunOpenCv(s, 7, 2);
}

}  // namespace

OMBREL_BENCH_SIZES(BM_Conv3x3Step1_Ombrel);
OMBREL_BENCH_SIZES(BM_Conv3x3Step1_OpenCV);
OMBREL_BENCH_SIZES(BM_Conv3x3Step2_Ombrel);
OMBREL_BENCH_SIZES(BM_Conv3x3Step2_OpenCV);
OMBREL_BENCH_SIZES(BM_Conv7x7Step1_Ombrel);
OMBREL_BENCH_SIZES(BM_Conv7x7Step1_OpenCV);
OMBREL_BENCH_SIZES(BM_Conv7x7Step2_Ombrel);
OMBREL_BENCH_SIZES(BM_Conv7x7Step2_OpenCV);

}  // namespace ombrel::bench
