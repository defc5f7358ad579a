// SPDX-License-Identifier: MIT
// Binary erosion and one thinning pass on 0/1 images, beside the nearest OpenCV calls: cv::erode with a 3x3
// square, and one hit-or-miss pass with a 3x3 pattern for the thinning pass (OpenCV has no table-driven 3x3
// operation). OpenCV runs single-threaded (cv::setNumThreads(1)), as our agent does.
#include <benchmark/benchmark.h>

#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "bench_images.h"
#include "ombrel/morph/binmorph.h"

namespace ombrel::bench {
namespace {

// The parts scene thresholded to 0/1, made once per size.
Buffer& BinaryScene(int size) {
    static std::unique_ptr<Buffer> scenes[2];
    if (!scenes[size]) {
        const Buffer& grey = Scene(size, SceneKind::Parts, 0);
        scenes[size] = std::make_unique<Buffer>(&grey);
        for (int y = 0; y < grey.Height(); ++y)
            for (int x = 0; x < grey.Width(); ++x) scenes[size]->Row(y)[x] = grey.Row(y)[x] >= 128 ? 1 : 0;
    }
    return *scenes[size];
}

void RunOmbrel(benchmark::State& state, BinMorphOpCode code) {
    const int size = static_cast<int>(state.range(0));
    Buffer& src = BinaryScene(size);
    Buffer dst(&src);
    BinMorphOperator op(code);
    std::unique_ptr<BinMorphAgent> agent(BinMorphFact(&src, &dst, BMBORDER_CLEAR, &op, 1));
    for (auto _ : state) {
        benchmark::DoNotOptimize(agent->Go());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * src.Width() * src.Height());
    state.SetLabel(SizeName(size));
}

void RunOpenCv(benchmark::State& state, bool hitOrMiss) {
    cv::setNumThreads(1);
    const int size = static_cast<int>(state.range(0));
    const cv::Mat src = AsMat(BinaryScene(size));
    Buffer dstBuffer(&BinaryScene(size));
    cv::Mat dst = AsMat(dstBuffer);
    const cv::Mat square = cv::Mat::ones(3, 3, CV_8U);
    const cv::Mat pattern = (cv::Mat_<int>(3, 3) << -1, -1, 0, -1, 1, 1, 0, 1, 0);
    for (auto _ : state) {
        if (hitOrMiss)
            cv::morphologyEx(src, dst, cv::MORPH_HITMISS, pattern);
        else
            cv::erode(src, dst, square, {-1, -1}, 1, cv::BORDER_CONSTANT, cv::Scalar(0));
        benchmark::DoNotOptimize(dst.data);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * src.cols * src.rows);
    state.SetLabel(SizeName(size));
}

void BM_BinErodeFull_Ombrel(benchmark::State& state) {
    RunOmbrel(state, ErodeFull);
}
void BM_BinErodeFull_OpenCV(benchmark::State& state) {
    RunOpenCv(state, false);
}
void BM_BinThinPass_Ombrel(benchmark::State& state) {
    RunOmbrel(state, Left);
}
void BM_BinThinPass_OpenCV(benchmark::State& state) {
    RunOpenCv(state, true);
}
OMBREL_BENCH_SIZES(BM_BinErodeFull_Ombrel);
OMBREL_BENCH_SIZES(BM_BinErodeFull_OpenCV);
OMBREL_BENCH_SIZES(BM_BinThinPass_Ombrel);
OMBREL_BENCH_SIZES(BM_BinThinPass_OpenCV);

}  // namespace
}  // namespace ombrel::bench
