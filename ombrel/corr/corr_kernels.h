// SPDX-License-Identifier: MIT
// Internal: the cross-sum kernels of normalised correlation. Every level adds, for i in [begin, end),
// t[i] * img[i] to job.sum, each byte read as signed or unsigned per its flag, exactly as the scalar
// reference does; a vector level stops after its last whole vector and the scalar reference finishes the
// span.
#pragma once
#include <cstdint>

namespace ombrel {
template <class Signature>
class KernelFamily;  // framework/kernel_family.h; not included here, since ISA-compiled files include this
}  // namespace ombrel

namespace ombrel::corr {

// A template against the image under it, all rows in one call.
struct DotJob {
    const uint8_t* t = nullptr;    // template, first row
    const uint8_t* img = nullptr;  // image, at the pixel under the template's top-left
    int64_t tPitch = 0;
    int64_t imgPitch = 0;
    int32_t rows = 1;
    int32_t tSigned = 0;
    int32_t imgSigned = 0;
    int64_t sum = 0;  // running cross sum; every level adds to it
};

using DotKernel = int(int begin, int end, DotJob& job);

namespace scalar {
int Dot(int begin, int end, DotJob& job);
}
namespace sse2 {
int Dot(int begin, int end, DotJob& job);
}
namespace avx2 {
int Dot(int begin, int end, DotJob& job);
}
namespace avx512 {
int Dot(int begin, int end, DotJob& job);
}

extern const KernelFamily<DotKernel> kDotKernels;

// Rows of positions in one call: for every output row j < outRows and position x in [begin, end),
//     out[j * outStride + x] = sum over r < th, k < tw of t[r * tStride + k] * image(x + k, j * rowStep + r)
// with the prepared template t in signed bytes and image bytes read as signed or unsigned per the flag. The
// caller prepares t once per run (unsigned template bytes minus 128, signed ones as they are; zeros from tw
// to tStride, a multiple of 16) and guarantees `readable` >= end - 1 + tw bytes in every image row from img.
struct CrossRowJob {
    const int8_t* t = nullptr;
    int32_t tw = 0;
    int32_t th = 0;
    int32_t tStride = 0;
    int64_t tSum = 0;              // sum of t over the template
    const uint8_t* img = nullptr;  // the image pixel under the template's top-left at position 0
    int64_t imgPitch = 0;
    int64_t readable = 0;
    int32_t imgSigned = 0;
    int32_t outRows = 1;
    int32_t rowStep = 1;
    int64_t outStride = 0;
    int64_t* out = nullptr;
};

using CrossRowKernel = int(int begin, int end, const CrossRowJob& job);

namespace scalar {
int CrossRow(int begin, int end, const CrossRowJob& job);
}
namespace sse2 {
int CrossRow(int begin, int end, const CrossRowJob& job);
}
namespace avx2 {
int CrossRow(int begin, int end, const CrossRowJob& job);
}
namespace avx512 {
int CrossRow(int begin, int end, const CrossRowJob& job);
}
namespace avx512vnni {
int CrossRow(int begin, int end, const CrossRowJob& job);
}

extern const KernelFamily<CrossRowKernel> kCrossRowKernels;

// Column sums of the window rows, moved down: for x in [begin, end),
//     col[x] += i(add[x]) - i(sub[x]),  col2[x] += i(add[x])^2 - i(sub[x])^2
// with i() the byte read as signed or unsigned per the flag; a null sub row subtracts nothing.
struct ColumnJob {
    const uint8_t* add = nullptr;
    const uint8_t* sub = nullptr;
    int64_t* col = nullptr;
    int64_t* col2 = nullptr;
    int32_t imgSigned = 0;
};

using ColumnKernel = int(int begin, int end, const ColumnJob& job);

namespace scalar {
int Column(int begin, int end, const ColumnJob& job);
}
namespace avx512 {
int Column(int begin, int end, const ColumnJob& job);
}

extern const KernelFamily<ColumnKernel> kColumnKernels;

// Scores of a row of positions from their exact sums: score[x] is exactly what CorrScore gives for
// (sumI[x], sumI2[x], sumTI[x]) and the template statistics, bit for bit (same operations, same order).
struct ScoreJob {
    const int64_t* sumI = nullptr;
    const int64_t* sumI2 = nullptr;
    const int64_t* sumTI = nullptr;
    double* score = nullptr;
    int32_t count = 0;
    double sum = 0.0;
    double sumSq = 0.0;
    int32_t positionOnly = 0;
};

using ScoreKernel = int(int begin, int end, const ScoreJob& job);

namespace scalar {
int Score(int begin, int end, const ScoreJob& job);
}
namespace avx512 {
int Score(int begin, int end, const ScoreJob& job);
}

extern const KernelFamily<ScoreKernel> kScoreKernels;

}  // namespace ombrel::corr
