// SPDX-License-Identifier: MIT
#include <cstring>

#include "ombrel/framework/kernel_family.h"
#include "ombrel/pixelops/histogram_kernels.h"

namespace ombrel::histogram {
namespace scalar {

// 16 pixels per step, read as two 64-bit words, byte k of each word going to lane k; the tail one by one.
int Count(int begin, int end, const uint8_t* p, Lanes* lanes) {
    int i = begin;
    for (; i + 16 <= end; i += 16) {
        uint64_t a, b;
        std::memcpy(&a, p + i, 8);
        std::memcpy(&b, p + i + 8, 8);
        for (int k = 0; k < 8; ++k) ++lanes->lane[k][(a >> (8 * k)) & 0xFF];
        for (int k = 0; k < 8; ++k) ++lanes->lane[k][(b >> (8 * k)) & 0xFF];
    }
    for (; i < end; ++i) ++lanes->lane[0][p[i]];
    return end > begin ? end : begin;
}

}  // namespace scalar

const KernelFamily<CountKernel> kCountKernels{&scalar::Count, nullptr, nullptr, nullptr};

}  // namespace ombrel::histogram
