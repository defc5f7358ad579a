// SPDX-License-Identifier: MIT
// The images every benchmark runs on, made once per process: 1024x1024 and 2592x1944 8-bit scenes of
// realistic content, as Ombrel buffers and as cv::Mat views of the same bytes.
#pragma once
#include <opencv2/core.hpp>

#include "ombrel/framework/buffer.h"

namespace ombrel::bench {

enum class SceneKind { Textured, Parts, Noise };

// Size index 0: 1024 x 1024; 1: 2592 x 1944. `variant` picks a second, different image of the same kind
// (source B of binary operations).
Buffer& Scene(int sizeIndex, SceneKind kind = SceneKind::Textured, int variant = 0);
// A cv::Mat header over a buffer's pixels (no copy).
cv::Mat AsMat(const Buffer& buffer);
const char* SizeName(int sizeIndex);

// Registers a benchmark over both sizes with the size as its argument; the label names the size.
#define OMBREL_BENCH_SIZES(fn) BENCHMARK(fn)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond)

}  // namespace ombrel::bench
