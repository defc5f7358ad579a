// SPDX-License-Identifier: MIT
// Break detection on a board of one-pixel traces with cuts, beside the nearest OpenCV pipeline: the pixels
// of the template the image misses (cv::subtract, saturating) cleaned by a 3x3 opening. OpenCV has no break
// detection of its own, so the two do not compute the same pixels; the ratio says what one inspection of
// this kind costs in each. OpenCV runs single-threaded, as our agent does.
#include <benchmark/benchmark.h>

#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "bench_images.h"
#include "ombrel/morph/binmorph.h"
#include "ombrel/tools/break.h"

namespace ombrel::bench {
namespace {

struct Board {
    std::unique_ptr<Buffer> golden, inspected, dilated;
};

// Horizontal traces every 8 rows and vertical ones every 64 columns (0/1), and a copy with a 5-pixel cut
// every 200 pixels along every fourth horizontal trace; the dilated copy is made once, as a line would.
Board& Boards(int size) {
    static Board boards[2];
    Board& b = boards[size];
    if (!b.golden) {
        const Buffer& shape = Scene(size);
        b.golden = std::make_unique<Buffer>(&shape);
        for (int y = 4; y < shape.Height() - 4; y += 8)
            for (int x = 4; x < shape.Width() - 4; ++x) b.golden->Row(y)[x] = 1;
        for (int x = 32; x < shape.Width() - 4; x += 64)
            for (int y = 4; y < shape.Height() - 4; ++y) b.golden->Row(y)[x] = 1;
        b.inspected = std::make_unique<Buffer>(*b.golden);
        for (int y = 4; y < shape.Height() - 4; y += 32)
            for (int x = 100; x + 5 < shape.Width() - 4; x += 200)
                for (int k = 0; k < 5; ++k) b.inspected->Row(y)[x + k] = 0;
        b.dilated = std::make_unique<Buffer>(*b.inspected);
        BinMorphOperator dilate(DilateFull);
        swBinMorphAgent grow(b.inspected.get(), b.dilated.get(), BMBORDER_CLEAR, &dilate, 1);
        grow.Go();
    }
    return b;
}

void BM_Break_Ombrel(benchmark::State& state) {
    const int size = static_cast<int>(state.range(0));
    Board& b = Boards(size);
    BreakAgent agent(b.inspected.get(), b.golden.get(), b.dilated.get(), BMBORDER_CLEAR, 4, 1);
    agent.PreGo();
    for (auto _ : state) benchmark::DoNotOptimize(agent.Go());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * b.golden->Width() *
                            b.golden->Height());
    state.SetLabel(SizeName(size));
}

void BM_Break_OpenCV(benchmark::State& state) {
    cv::setNumThreads(1);
    const int size = static_cast<int>(state.range(0));
    Board& b = Boards(size);
    const cv::Mat golden = AsMat(*b.golden), inspected = AsMat(*b.inspected);
    const cv::Mat square = cv::getStructuringElement(cv::MORPH_RECT, {3, 3});
    cv::Mat missing, cleaned;
    for (auto _ : state) {
        cv::subtract(golden, inspected, missing);
        cv::morphologyEx(missing, cleaned, cv::MORPH_OPEN, square);
        benchmark::DoNotOptimize(cleaned.data);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * golden.cols * golden.rows);
    state.SetLabel(SizeName(size));
}

OMBREL_BENCH_SIZES(BM_Break_Ombrel);
OMBREL_BENCH_SIZES(BM_Break_OpenCV);

}  // namespace
}  // namespace ombrel::bench
