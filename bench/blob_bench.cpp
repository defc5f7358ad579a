// SPDX-License-Identifier: MIT
// Blob analysis with default options (objects, holes, first and second moments) against OpenCV's
// threshold + connectedComponentsWithStats (8-connectivity, labels, boxes, areas, centroids; no holes) on
// the same image. OpenCV runs on one thread, as the blob agent does. The object count is checked once
// against OpenCV before timing.
#include <benchmark/benchmark.h>

#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "bench_images.h"
#include "ombrel/blob/blob.h"

namespace ombrel::bench {
namespace {

// Parts: dark parts (0..127) on a lit background. Noise: uniform bytes, objects at mid-grey and above
// (the worst case, ~3.5e5 regions at 2592x1944). Texture: the textured scene at mid-grey (its sensor noise
// along the smooth grey ramps makes tens of thousands of regions).
struct BlobCase {
    SceneKind kind;
    int low, high;
};
constexpr BlobCase kParts{SceneKind::Parts, 0, 127};
constexpr BlobCase kNoise{SceneKind::Noise, 128, 255};
constexpr BlobCase kTexture{SceneKind::Textured, 128, 255};

int CountObjects(const BlobResult& result) {
    int objects = 0;
    for (Blob* b : result.Blobs()) objects += b->Color() == 0 ? 1 : 0;
    return objects;
}

int OpenCvComponents(const cv::Mat& image, const BlobCase& c, cv::Mat& bin, cv::Mat& labels, cv::Mat& stats,
                     cv::Mat& centroids) {
    cv::inRange(image, cv::Scalar(c.low), cv::Scalar(c.high), bin);
    return cv::connectedComponentsWithStats(bin, labels, stats, centroids, 8, CV_32S);
}

void RunOmbrel(benchmark::State& state, const BlobCase& c) {
    const int size = static_cast<int>(state.range(0));
    Buffer& src = Scene(size, c.kind);
    SetBlobMaxPoolSize(src.Width() * src.Height());  // room for the worst case: noise has ~10^5 regions
    BlobResult result;
    std::unique_ptr<BlobAgent> agent(BlobFact(&src, &result, c.low, c.high));
    if (agent->Go() != 0) state.SkipWithError("blob analysis failed");
    cv::Mat bin, labels, stats, centroids;
    const int components = OpenCvComponents(AsMat(src), c, bin, labels, stats, centroids);
    if (CountObjects(result) != components - 1) state.SkipWithError("object count differs from OpenCV");
    for (auto _ : state) {
        agent->Go();
        benchmark::DoNotOptimize(result.NParts());
    }
    state.counters["regions"] = result.NParts();
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * src.Width() * src.Height());
    state.SetLabel(SizeName(size));
}

void RunOpenCv(benchmark::State& state, const BlobCase& c) {
    const int size = static_cast<int>(state.range(0));
    const Buffer& src = Scene(size, c.kind);
    const cv::Mat image = AsMat(src);
    const int threads = cv::getNumThreads();
    cv::setNumThreads(1);
    cv::Mat bin, labels, stats, centroids;
    int components = 0;
    for (auto _ : state) {
        // cv::threshold has no two-sided band; inRange is its band form (one pass, same cost).
        components = OpenCvComponents(image, c, bin, labels, stats, centroids);
        benchmark::DoNotOptimize(components);
    }
    cv::setNumThreads(threads);
    state.counters["regions"] = components - 1;
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * src.Width() * src.Height());
    state.SetLabel(SizeName(size));
}

void BM_BlobParts_Ombrel(benchmark::State& state) {
    RunOmbrel(state, kParts);
}
void BM_BlobParts_OpenCV(benchmark::State& state) {
    RunOpenCv(state, kParts);
}
void BM_BlobNoise_Ombrel(benchmark::State& state) {
    RunOmbrel(state, kNoise);
}
void BM_BlobNoise_OpenCV(benchmark::State& state) {
    RunOpenCv(state, kNoise);
}
void BM_BlobTexture_Ombrel(benchmark::State& state) {
    RunOmbrel(state, kTexture);
}
void BM_BlobTexture_OpenCV(benchmark::State& state) {
    RunOpenCv(state, kTexture);
}
OMBREL_BENCH_SIZES(BM_BlobParts_Ombrel);
OMBREL_BENCH_SIZES(BM_BlobParts_OpenCV);
OMBREL_BENCH_SIZES(BM_BlobNoise_Ombrel);
OMBREL_BENCH_SIZES(BM_BlobNoise_OpenCV);
OMBREL_BENCH_SIZES(BM_BlobTexture_Ombrel);
OMBREL_BENCH_SIZES(BM_BlobTexture_OpenCV);

}  // namespace
}  // namespace ombrel::bench
