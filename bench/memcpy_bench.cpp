// SPDX-License-Identifier: MIT
// The memory limit every image-to-image operation is measured against: copying the same bytes.
#include <benchmark/benchmark.h>

#include <cstring>

#include "bench_images.h"

namespace ombrel::bench {
namespace {

void BM_Memcpy(benchmark::State& state) {
    const Buffer& src = Scene(static_cast<int>(state.range(0)));
    Buffer dst(&src);
    const size_t bytes = static_cast<size_t>(src.Pitch()) * src.Height();
    for (auto _ : state) {
        std::memcpy(dst.BaseAddr(), src.BaseAddr(), bytes);
        benchmark::DoNotOptimize(dst.BaseAddr());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * src.Width() * src.Height());
    state.SetLabel(SizeName(static_cast<int>(state.range(0))));
}
OMBREL_BENCH_SIZES(BM_Memcpy);

}  // namespace
}  // namespace ombrel::bench
