// SPDX-License-Identifier: MIT
// The reference: one pixel at a time, with the shared length and direction tables.
#include <algorithm>
#include <cstdlib>

#include "ombrel/framework/kernel_family.h"
#include "ombrel/gradients/sobel_kernels.h"
#include "ombrel/gradients/sobel_ops.h"
#include "ombrel/gradients/sobel_tables.h"

namespace ombrel::sobel {
namespace scalar {
namespace {

struct Encoded {
    int value;   // the stored byte, 0..255
    int strong;  // the figure compared with the threshold (meaningful where the encoding keeps strong pixels)
};

Encoded Encode(int32_t out, int gx, int gy, int threshold) {
    const SQRT_struct& lengths = SobelSqrtTable();
    switch (out) {
        case DX:
            return {gx & 0xFF, -1};
        case DY:
            return {gy & 0xFF, -1};
        case MAG: {
            const int m = lengths.Length(gx, gy);
            return {m, m};
        }
        case ANGLE:
            return {SobelDirection(gx, gy), -1};
        case QANGLE: {
            const int m = lengths.Length(gx, gy);
            return {(m > threshold ? 0x80 : 0) | (SobelDirection(gx, gy) >> 1), m};
        }
        case ABSDX:
            return {std::abs(gx), std::abs(gx)};
        case ABSDY:
            return {std::abs(gy), std::abs(gy)};
        case _3M5A:
            return {(lengths.Length(gx, gy) & 0xE0) | (SobelDirection(gx, gy) >> 3), -1};
        case _4GX4GY:
            return {((gx & 0xFF) & 0xF0) | ((gy >> 4) & 0x0F), -1};
        case SUMABS: {
            const int v = std::abs(gx) + std::abs(gy);
            return {v, v};
        }
        default:
            return {0, -1};
    }
}

}  // namespace

int Row(int begin, int end, const RowJob& job) {
    const uint8_t fill = SobelFillValue(job.out);
    const bool keepsStrong = SobelKeepsStrongPixels(job.out);
    const auto& p = job.p;
    for (int i = begin; i < end; ++i) {
        if (job.keep != nullptr && job.keep[i] == 0) {
            job.d[i] = fill;
            continue;
        }
        const int a = p[0][0][i], b = p[0][1][i], c = p[0][2][i];
        const int d = p[1][0][i], e = p[1][1][i], f = p[1][2][i];
        const int g = p[2][0][i], h = p[2][1][i], k = p[2][2][i];
        const int gx = std::clamp(((c + 2 * f + k) - (a + 2 * d + g)) >> job.shift, -127, 127);
        const int gy = std::clamp(((a + 2 * b + c) - (g + 2 * h + k)) >> job.shift, -127, 127);
        const Encoded v = Encode(job.out, gx, gy, job.threshold);
        job.d[i] = static_cast<uint8_t>(v.value);
        job.acc[kOutputSum] += static_cast<uint64_t>(v.value);
        job.acc[kNonZeroCount] += v.value != 0 ? 1 : 0;
        if (keepsStrong && v.strong > job.threshold) {
            job.acc[kStrongCount] += 1;
            job.acc[kStrongGraySum] += static_cast<uint64_t>(e);
        }
        if (job.useThreshold2 && v.value > job.threshold2) {
            job.acc[kExcessSum] += static_cast<uint64_t>(int64_t{v.value} - job.threshold2);
            job.acc[kExcessCount] += 1;
        }
    }
    return end;
}

}  // namespace scalar

const KernelFamily<RowKernel> kRowKernels{&scalar::Row, &sse2::Row, &avx2::Row, &avx512::Row};

}  // namespace ombrel::sobel
