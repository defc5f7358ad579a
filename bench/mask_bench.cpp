// SPDX-License-Identifier: MIT
// A masked copy (mask operation 8) against its OpenCV equivalent: clear the destination, then
// Mat::copyTo with an 8-bit mask. Both produce the same bytes (checked once before timing).
#include <benchmark/benchmark.h>

#include <memory>

#include <opencv2/core.hpp>

#include "bench_images.h"
#include "ombrel/pixelops/mask.h"

namespace ombrel::bench {
namespace {

// An inspection window: a large disc with a rectangular cut-out, as an 8-bit 0/1 mask.
const Buffer& RegionMask(int sizeIndex) {
    static std::unique_ptr<Buffer> masks[2];
    auto& mask = masks[sizeIndex];
    if (!mask) {
        const Buffer& src = Scene(sizeIndex);
        const int w = src.Width(), h = src.Height();
        mask = std::make_unique<Buffer>(w, h, EIGHT);
        const int64_t r = 45 * std::min(w, h) / 100;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const int64_t dx = x - w / 2, dy = y - h / 2;
                const bool cut = dx > -r / 4 && dx < r / 4 && dy > -r / 6 && dy < r / 6;
                mask->Row(y)[x] = (dx * dx + dy * dy <= r * r && !cut) ? 1 : 0;
            }
    }
    return *mask;
}

void BM_MaskOp8_Ombrel(benchmark::State& state) {
    const int size = static_cast<int>(state.range(0));
    Buffer& src = Scene(size);
    Buffer dst(src.Width(), src.Height(), EIGHT);
    const ROI roi(&RegionMask(size));
    std::unique_ptr<MaskAgent> agent(MaskFact(&src, &dst, Point{0, 0}, roi, MASK_COPY));
    agent->Go();
    cv::Mat expected = cv::Mat::zeros(src.Height(), src.Width(), CV_8UC1);
    AsMat(src).copyTo(expected, AsMat(RegionMask(size)));
    if (cv::norm(expected, AsMat(dst), cv::NORM_INF) != 0) state.SkipWithError("results differ from OpenCV");
    for (auto _ : state) {
        agent->Go();
        benchmark::DoNotOptimize(dst.BaseAddr());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * src.Width() * src.Height());
    state.SetLabel(SizeName(size));
}
OMBREL_BENCH_SIZES(BM_MaskOp8_Ombrel);

void BM_MaskOp8_OpenCV(benchmark::State& state) {
    const int size = static_cast<int>(state.range(0));
    const Buffer& src = Scene(size);
    const cv::Mat image = AsMat(src);
    const cv::Mat mask = AsMat(RegionMask(size));
    cv::Mat dst(src.Height(), src.Width(), CV_8UC1);
    for (auto _ : state) {
        dst.setTo(0);
        image.copyTo(dst, mask);
        benchmark::DoNotOptimize(dst.data);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * src.Width() * src.Height());
    state.SetLabel(SizeName(size));
}
OMBREL_BENCH_SIZES(BM_MaskOp8_OpenCV);

}  // namespace
}  // namespace ombrel::bench
