// SPDX-License-Identifier: MIT
// Column and row projections of a whole image beside cv::reduce's sums (ours also shifts them into bytes).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <opencv2/core.hpp>

#include "bench_images.h"
#include "ombrel/pixelops/project.h"

namespace ombrel::bench {
namespace {

void RunOmbrel(benchmark::State& state, ProjectType type) {
    Buffer& src = Scene(static_cast<int>(state.range(0)));
    Buffer dst(std::max(src.Width(), src.Height()), 1, EIGHT);
    std::unique_ptr<ProjectAgent> agent(ProjectFact(&src, &dst, type));
    for (auto _ : state) {
        benchmark::DoNotOptimize(agent->Go());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * src.Width() * src.Height());
    state.SetLabel(SizeName(static_cast<int>(state.range(0))));
}

void RunOpenCv(benchmark::State& state, int dim) {
    const Buffer& src = Scene(static_cast<int>(state.range(0)));
    const cv::Mat image = AsMat(src);
    cv::Mat sums;
    for (auto _ : state) {
        cv::reduce(image, sums, dim, cv::REDUCE_SUM, CV_32S);
        benchmark::DoNotOptimize(sums.data);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * src.Width() * src.Height());
    state.SetLabel(SizeName(static_cast<int>(state.range(0))));
}

void BM_ProjectColumns_Ombrel(benchmark::State& state) {
    RunOmbrel(state, HORIZONTAL);
}
void BM_ProjectColumns_OpenCV(benchmark::State& state) {
    RunOpenCv(state, 0);
}
void BM_ProjectRows_Ombrel(benchmark::State& state) {
    RunOmbrel(state, VERTICAL);
}
void BM_ProjectRows_OpenCV(benchmark::State& state) {
    RunOpenCv(state, 1);
}
OMBREL_BENCH_SIZES(BM_ProjectColumns_Ombrel);
OMBREL_BENCH_SIZES(BM_ProjectColumns_OpenCV);
OMBREL_BENCH_SIZES(BM_ProjectRows_Ombrel);
OMBREL_BENCH_SIZES(BM_ProjectRows_OpenCV);

}  // namespace
}  // namespace ombrel::bench
