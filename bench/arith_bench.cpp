// SPDX-License-Identifier: MIT
// The arithmetic agent beside the OpenCV call that computes the same bytes, and beside its own packed path.
#include <benchmark/benchmark.h>

#include <memory>
#include <opencv2/core.hpp>

#include "bench_images.h"
#include "ombrel/pixelops/arith.h"

namespace ombrel::bench {
namespace {

struct ArithCase {
    ArithOp op;
    float gain;
    int offset;
    bool flag;  // SUB: clamp to 0..255 (saturating subtraction)
};

void RunOmbrel(benchmark::State& state, const ArithCase& c, bool packed) {
    const int size = static_cast<int>(state.range(0));
    Buffer& a = Scene(size, SceneKind::Textured, 0);
    Buffer& b = Scene(size, SceneKind::Textured, 1);
    Buffer dst(&a);
    std::unique_ptr<ArithAgent> agent(
        ArithFact(&a, c.op >= _ARITH_ADD ? &b : nullptr, c.op, c.gain, c.offset, &dst));
    if (c.flag) agent->SetSignClip(_ARITH_UNSIGNED, _ARITH_UNSIGNED, _ARITH_UNSIGNED, false, true);
    agent->SetVectorInstructions(packed);
    for (auto _ : state) {
        benchmark::DoNotOptimize(agent->Go());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * a.Width() * a.Height());
    state.SetLabel(SizeName(size));
}

template <class CvOp>
void RunOpenCv(benchmark::State& state, CvOp op) {
    const int size = static_cast<int>(state.range(0));
    const cv::Mat a = AsMat(Scene(size, SceneKind::Textured, 0));
    const cv::Mat b = AsMat(Scene(size, SceneKind::Textured, 1));
    Buffer dstBuffer(&Scene(size));
    cv::Mat dst = AsMat(dstBuffer);
    for (auto _ : state) {
        op(a, b, dst);
        benchmark::DoNotOptimize(dst.data);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * a.cols * a.rows);
    state.SetLabel(SizeName(size));
}

#define OMBREL_ARITH_BENCH(Name, arithCase, cvCall)                                                        \
    void BM_##Name##_Ombrel(benchmark::State& state) {                                                     \
        RunOmbrel(state, arithCase, false);                                                                \
    }                                                                                                      \
    void BM_##Name##_Packed(benchmark::State& state) {                                                     \
        RunOmbrel(state, arithCase, true);                                                                 \
    }                                                                                                      \
    void BM_##Name##_OpenCV(benchmark::State& state) {                                                     \
        RunOpenCv(state, [](const cv::Mat& a, [[maybe_unused]] const cv::Mat& b, cv::Mat& d) { cvCall; }); \
    }                                                                                                      \
    OMBREL_BENCH_SIZES(BM_##Name##_Ombrel);                                                                \
    OMBREL_BENCH_SIZES(BM_##Name##_Packed);                                                                \
    OMBREL_BENCH_SIZES(BM_##Name##_OpenCV);

OMBREL_ARITH_BENCH(Add, (ArithCase{_ARITH_ADD, 1.0f, 0, false}), cv::add(a, b, d))
OMBREL_ARITH_BENCH(Sub, (ArithCase{_ARITH_SUB, 1.0f, 0, true}), cv::subtract(a, b, d))
OMBREL_ARITH_BENCH(Diff, (ArithCase{_ARITH_DIFF, 1.0f, 0, false}), cv::absdiff(a, b, d))
OMBREL_ARITH_BENCH(And, (ArithCase{_ARITH_AND, 1.0f, 0, false}), cv::bitwise_and(a, b, d))
OMBREL_ARITH_BENCH(Or, (ArithCase{_ARITH_OR, 1.0f, 0, false}), cv::bitwise_or(a, b, d))
OMBREL_ARITH_BENCH(Xor, (ArithCase{_ARITH_XOR, 1.0f, 0, false}), cv::bitwise_xor(a, b, d))
OMBREL_ARITH_BENCH(Min, (ArithCase{_ARITH_MIN, 1.0f, 0, false}), cv::min(a, b, d))
OMBREL_ARITH_BENCH(Max, (ArithCase{_ARITH_MAX, 1.0f, 0, false}), cv::max(a, b, d))
OMBREL_ARITH_BENCH(Mult, (ArithCase{_ARITH_MULT, 1.0f, 0, false}), cv::multiply(a, b, d))
OMBREL_ARITH_BENCH(CopyScale, (ArithCase{_ARITH_COPY, 0.5f, 10, false}), a.convertTo(d, CV_8U, 0.5, 10))

}  // namespace
}  // namespace ombrel::bench
