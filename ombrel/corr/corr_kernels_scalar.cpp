// SPDX-License-Identifier: MIT
// The reference: one product at a time, each in 32-bit integers, summed exactly.
#include "ombrel/corr/corr_kernels.h"
#include "ombrel/framework/kernel_family.h"

namespace ombrel::corr {
namespace scalar {

int Dot(int begin, int end, DotJob& job) {
    int64_t sum = 0;
    for (int r = 0; r < job.rows; ++r) {
        const uint8_t* tr = job.t + r * job.tPitch;
        const uint8_t* ir = job.img + r * job.imgPitch;
        for (int k = begin; k < end; ++k) {
            const int32_t t = job.tSigned ? int32_t{static_cast<int8_t>(tr[k])} : int32_t{tr[k]};
            const int32_t i = job.imgSigned ? int32_t{static_cast<int8_t>(ir[k])} : int32_t{ir[k]};
            sum += t * i;
        }
    }
    job.sum += sum;
    return end < begin ? begin : end;
}

}  // namespace scalar

const KernelFamily<DotKernel> kDotKernels{&scalar::Dot, &sse2::Dot, &avx2::Dot, &avx512::Dot};

}  // namespace ombrel::corr
