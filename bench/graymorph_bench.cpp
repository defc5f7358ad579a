// SPDX-License-Identifier: MIT
// Grey erosion, dilation and opening beside OpenCV's, with the same flat element and a border that never
// wins. OpenCV runs single-threaded (cv::setNumThreads(1)), as our agent does.
#include <benchmark/benchmark.h>

#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "bench_images.h"
#include "ombrel/morph/graymorph.h"

namespace ombrel::bench {
namespace {

enum class Shape { Square3, Square7, Square21, Disc7 };

GrayMorphElem Element(Shape shape) {
    const int side = shape == Shape::Square3 ? 3 : shape == Shape::Square21 ? 21 : 7;
    std::vector<unsigned char> weights(static_cast<size_t>(side) * side, 255);
    if (shape == Shape::Disc7) {
        const cv::Mat disc = cv::getStructuringElement(cv::MORPH_ELLIPSE, {7, 7});
        for (int j = 0; j < 7; ++j)
            for (int i = 0; i < 7; ++i)
                weights[static_cast<size_t>(j) * 7 + i] = disc.at<uint8_t>(j, i) ? 255 : 0;
    }
    return GrayMorphElem(side / 2, side / 2, side, side, weights.data());
}

cv::Mat Kernel(const GrayMorphElem& e) {
    cv::Mat k(e.GetElementHeight(), e.GetElementWidth(), CV_8U);
    for (int j = 0; j < k.rows; ++j)
        for (int i = 0; i < k.cols; ++i) k.at<uint8_t>(j, i) = e.GetElementWeight(i, j) != 0;
    return k;
}

void RunOmbrel(benchmark::State& state, GRAYMORPHOP op, Shape shape) {
    const int size = static_cast<int>(state.range(0));
    Buffer& src = Scene(size, SceneKind::Textured, 0);
    Buffer dst(&src);
    GrayMorphElem element = Element(shape);
    std::unique_ptr<GrayMorphAgent> agent(GrayMorphFact(&src, &dst, op, GM_POLARITY_NORMAL, 1, &element));
    for (auto _ : state) {
        benchmark::DoNotOptimize(agent->Go());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * src.Width() * src.Height());
    state.SetLabel(SizeName(size));
}

void RunOpenCv(benchmark::State& state, GRAYMORPHOP op, Shape shape) {
    cv::setNumThreads(1);
    const int size = static_cast<int>(state.range(0));
    const cv::Mat src = AsMat(Scene(size, SceneKind::Textured, 0));
    Buffer dstBuffer(&Scene(size));
    cv::Mat dst = AsMat(dstBuffer);
    const cv::Mat kernel = Kernel(Element(shape));
    for (auto _ : state) {
        if (op == GRAYMORPH_ERODE)
            cv::erode(src, dst, kernel, {-1, -1}, 1, cv::BORDER_CONSTANT, cv::Scalar(255));
        else if (op == GRAYMORPH_DILATE)
            cv::dilate(src, dst, kernel, {-1, -1}, 1, cv::BORDER_CONSTANT, cv::Scalar(0));
        else
            cv::morphologyEx(src, dst, cv::MORPH_OPEN, kernel);
        benchmark::DoNotOptimize(dst.data);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * src.cols * src.rows);
    state.SetLabel(SizeName(size));
}

#define OMBREL_GRAYMORPH_BENCH(Name, op, shape)        \
    void BM_##Name##_Ombrel(benchmark::State& state) { \
        RunOmbrel(state, op, shape);                   \
    }                                                  \
    void BM_##Name##_OpenCV(benchmark::State& state) { \
        RunOpenCv(state, op, shape);                   \
    }                                                  \
    OMBREL_BENCH_SIZES(BM_##Name##_Ombrel);            \
    OMBREL_BENCH_SIZES(BM_##Name##_OpenCV);

OMBREL_GRAYMORPH_BENCH(GrayErode3x3, GRAYMORPH_ERODE, Shape::Square3)
OMBREL_GRAYMORPH_BENCH(GrayDilate3x3, GRAYMORPH_DILATE, Shape::Square3)
OMBREL_GRAYMORPH_BENCH(GrayOpen3x3, GRAYMORPH_OPEN, Shape::Square3)
OMBREL_GRAYMORPH_BENCH(GrayErode7x7, GRAYMORPH_ERODE, Shape::Square7)
OMBREL_GRAYMORPH_BENCH(GrayDilate7x7, GRAYMORPH_DILATE, Shape::Square7)
OMBREL_GRAYMORPH_BENCH(GrayOpen7x7, GRAYMORPH_OPEN, Shape::Square7)
OMBREL_GRAYMORPH_BENCH(GrayErode21x21, GRAYMORPH_ERODE, Shape::Square21)
OMBREL_GRAYMORPH_BENCH(GrayDilate21x21, GRAYMORPH_DILATE, Shape::Square21)
OMBREL_GRAYMORPH_BENCH(GrayOpen21x21, GRAYMORPH_OPEN, Shape::Square21)
OMBREL_GRAYMORPH_BENCH(GrayErodeDisc7, GRAYMORPH_ERODE, Shape::Disc7)
OMBREL_GRAYMORPH_BENCH(GrayDilateDisc7, GRAYMORPH_DILATE, Shape::Disc7)
OMBREL_GRAYMORPH_BENCH(GrayOpenDisc7, GRAYMORPH_OPEN, Shape::Disc7)

}  // namespace
}  // namespace ombrel::bench
