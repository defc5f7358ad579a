// SPDX-License-Identifier: MIT
// Sobel encodings against the nearest OpenCV pipeline: two cv::Sobel calls, then cv::magnitude and/or
// cv::phase (or absolute values for SUMABS), then the conversion to 8 bits. OpenCV computes in floats and
// keeps no statistics; ours computes the exact integer encodings and the six accumulators in the same pass.
#include <benchmark/benchmark.h>

#include <memory>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "bench_images.h"
#include "ombrel/gradients/sobel.h"

namespace ombrel::bench {
namespace {

void RunOmbrel(benchmark::State& state, SobelOut out) {
    const int size = static_cast<int>(state.range(0));
    Buffer& src = Scene(size);
    Buffer dst(src.Width(), src.Height(), EIGHT);
    std::unique_ptr<SobelAgent> agent(SobelFact(&src, &dst, out, SOBEL_SHIFT_2, 20, 1));
    for (auto _ : state) {
        agent->Go();
        benchmark::DoNotOptimize(dst.BaseAddr());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * src.Width() * src.Height());
    state.SetLabel(SizeName(size));
}

enum class Cv { Magnitude, Phase, Both, SumAbs };

void RunOpenCv(benchmark::State& state, Cv what) {
    const int size = static_cast<int>(state.range(0));
    const Buffer& src = Scene(size);
    const cv::Mat image = AsMat(src);
    cv::Mat gx, gy, mag, angle, out, ax, ay;
    for (auto _ : state) {
        if (what == Cv::SumAbs) {
            cv::Sobel(image, gx, CV_16S, 1, 0, 3);
            cv::Sobel(image, gy, CV_16S, 0, 1, 3);
            cv::convertScaleAbs(gx, ax, 0.25);
            cv::convertScaleAbs(gy, ay, 0.25);
            cv::add(ax, ay, out);
        } else {
            cv::Sobel(image, gx, CV_32F, 1, 0, 3);
            cv::Sobel(image, gy, CV_32F, 0, 1, 3);
            if (what != Cv::Phase) {
                cv::magnitude(gx, gy, mag);
                mag.convertTo(out, CV_8U, 0.25);
            }
            if (what != Cv::Magnitude) {
                cv::phase(gx, gy, angle, true);
                angle.convertTo(out, CV_8U, 256.0 / 360.0);
            }
        }
        benchmark::DoNotOptimize(out.data);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * src.Width() * src.Height());
    state.SetLabel(SizeName(size));
}

void BM_SobelMag_Ombrel(benchmark::State& state) {
    RunOmbrel(state, MAG);
}
void BM_SobelMag_OpenCV(benchmark::State& state) {
    RunOpenCv(state, Cv::Magnitude);
}
void BM_SobelAngle_Ombrel(benchmark::State& state) {
    RunOmbrel(state, ANGLE);
}
void BM_SobelAngle_OpenCV(benchmark::State& state) {
    RunOpenCv(state, Cv::Phase);
}
void BM_SobelQAngle_Ombrel(benchmark::State& state) {
    RunOmbrel(state, QANGLE);
}
void BM_SobelQAngle_OpenCV(benchmark::State& state) {
    RunOpenCv(state, Cv::Both);
}
void BM_SobelSumAbs_Ombrel(benchmark::State& state) {
    RunOmbrel(state, SUMABS);
}
void BM_SobelSumAbs_OpenCV(benchmark::State& state) {
    RunOpenCv(state, Cv::SumAbs);
}
OMBREL_BENCH_SIZES(BM_SobelMag_Ombrel);
OMBREL_BENCH_SIZES(BM_SobelMag_OpenCV);
OMBREL_BENCH_SIZES(BM_SobelAngle_Ombrel);
OMBREL_BENCH_SIZES(BM_SobelAngle_OpenCV);
OMBREL_BENCH_SIZES(BM_SobelQAngle_Ombrel);
OMBREL_BENCH_SIZES(BM_SobelQAngle_OpenCV);
OMBREL_BENCH_SIZES(BM_SobelSumAbs_Ombrel);
OMBREL_BENCH_SIZES(BM_SobelSumAbs_OpenCV);

}  // namespace
}  // namespace ombrel::bench
