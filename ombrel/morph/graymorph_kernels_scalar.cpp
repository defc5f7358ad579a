// SPDX-License-Identifier: MIT
// The references: the per-byte row operation, and the plain filter pass read as the operation describes it.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "ombrel/framework/kernel_family.h"
#include "ombrel/morph/graymorph_kernels.h"
#include "ombrel/morph/graymorph_ops.h"

namespace ombrel::graymorph {
namespace scalar {

int Rows(int begin, int end, const RowJob& job) {
    for (int i = begin; i < end; ++i) {
        const int a = job.a[i], b = job.b[i];
        job.d[i] = static_cast<uint8_t>(job.op == kRowMin   ? std::min(a, b)
                                        : job.op == kRowMax ? std::max(a, b)
                                                            : std::abs(a - b));
    }
    return end;
}

int Fold(int begin, int end, const FoldJob& job) {
    for (int i = begin; i < end; ++i) {
        int v = job.src[0][i];
        for (int k = 1; k < job.count; ++k)
            v = job.op == kRowMin ? std::min<int>(v, job.src[k][i]) : std::max<int>(v, job.src[k][i]);
        job.d[i] = static_cast<uint8_t>(v);
    }
    return end;
}

}  // namespace scalar

const KernelFamily<RowKernel> kRowKernels{&scalar::Rows, &sse2::Rows, &avx2::Rows, &avx512::Rows};
const KernelFamily<FoldKernel> kFoldKernels{&scalar::Fold, &sse2::Fold, &avx2::Fold, &avx512::Fold};

bool PlainPass(const uint8_t* weights, int width, int height, int hotX, int hotY, uint8_t* image, int pitch,
               int w, int h, int mode, int iterations) {
    struct Member {
        int dx, dy;
    };
    std::vector<Member> members;
    for (int j = 0; j < height; ++j)
        for (int i = 0; i < width; ++i)
            if (weights[j * width + i] != 0) members.push_back({i, j});
    if (members.empty()) return false;
    const uint8_t pad = mode == 0 ? 255 : 0;
    const int lineLength = hotX + w + (width - hotX);
    for (int pass = 0; pass < iterations; ++pass) {
        // Line buffer k of output row y holds source row y - hotY + k; rows outside are all padding.
        std::vector<std::vector<uint8_t>> ring(height, std::vector<uint8_t>(lineLength, pad));
        auto load = [&](int row) {
            std::vector<uint8_t>& line = ring[((row % height) + height) % height];
            std::fill(line.begin(), line.end(), pad);
            if (row >= 0 && row < h)
                std::memcpy(line.data() + hotX, image + static_cast<int64_t>(row) * pitch, w);
        };
        for (int k = 0; k < height; ++k) load(-hotY + k);
        std::vector<uint8_t> out(w);
        for (int y = 0; y < h; ++y) {
            if (y > 0) load(y - hotY + height - 1);
            for (int x = 0; x < w; ++x) {
                int value = -1;
                for (const Member& m : members) {
                    const int row = y - hotY + m.dy;
                    const int v = ring[((row % height) + height) % height][x + m.dx];
                    if (value < 0 || (mode == 0 ? v < value : v > value)) value = v;
                }
                out[x] = static_cast<uint8_t>(value);
            }
            std::memcpy(image + static_cast<int64_t>(y) * pitch, out.data(), w);
        }
    }
    return true;
}

}  // namespace ombrel::graymorph
