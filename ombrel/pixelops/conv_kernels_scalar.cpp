// SPDX-License-Identifier: MIT
// The reference: one output at a time, the products summed in wrapping 32-bit arithmetic.
#include <cstdint>

#include "ombrel/framework/kernel_family.h"
#include "ombrel/pixelops/conv_kernels.h"

namespace ombrel::conv {
namespace scalar {

int Row(int begin, int end, const RowJob& job) {
    for (int i = begin; i < end; ++i) {
        const uint8_t* block = job.src + int64_t{i} * job.step;
        uint32_t acc = 0;  // unsigned so that the wrap the contract asks for is defined
        for (int ky = 0; ky < job.kh; ++ky) {
            const uint8_t* row = block + ky * job.srcPitch;
            const int16_t* k = job.k + int64_t{ky} * job.kw;
            for (int kx = 0; kx < job.kw; ++kx) {
                const int pixel = job.imgSigned ? static_cast<int8_t>(row[kx]) : row[kx];
                acc += static_cast<uint32_t>(k[kx] * pixel);
            }
        }
        int32_t sum = static_cast<int32_t>(acc);
        if (job.clip && sum < 0) sum = 0;
        job.d[i] = static_cast<uint8_t>(sum >> job.shift);
    }
    return end;
}

}  // namespace scalar

const KernelFamily<RowKernel> kConvKernels{&scalar::Row, &sse2::Row, &avx2::Row, &avx512::Row};

}  // namespace ombrel::conv
