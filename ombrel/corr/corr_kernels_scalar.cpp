// SPDX-License-Identifier: MIT
// The references: one product at a time, each in 32-bit integers, summed exactly; scores by CorrScore.
#include "ombrel/corr/corr_kernels.h"
#include "ombrel/corr/corr_template.h"
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

int CrossRow(int begin, int end, const CrossRowJob& job) {
    for (int j = 0; j < job.outRows; ++j) {
        for (int x = begin; x < end; ++x) {
            int64_t sum = 0;
            for (int r = 0; r < job.th; ++r) {
                const int8_t* tr = job.t + int64_t{r} * job.tStride;
                const uint8_t* ir = job.img + (int64_t{j} * job.rowStep + r) * job.imgPitch + x;
                for (int k = 0; k < job.tw; ++k) {
                    const int32_t i = job.imgSigned ? int32_t{static_cast<int8_t>(ir[k])} : int32_t{ir[k]};
                    sum += int32_t{tr[k]} * i;
                }
            }
            job.out[j * job.outStride + x] = sum;
        }
    }
    return end < begin ? begin : end;
}

int Column(int begin, int end, const ColumnJob& job) {
    const auto value = [&job](uint8_t b) {
        return job.imgSigned ? int64_t{static_cast<int8_t>(b)} : int64_t{b};
    };
    for (int x = begin; x < end; ++x) {
        const int64_t a = value(job.add[x]), s = job.sub != nullptr ? value(job.sub[x]) : 0;
        job.col[x] += a - s;
        job.col2[x] += a * a - s * s;
    }
    return end < begin ? begin : end;
}

int Score(int begin, int end, const ScoreJob& job) {
    for (int x = begin; x < end; ++x)
        job.score[x] =
            CorrScore(static_cast<double>(job.sumI[x]), static_cast<double>(job.sumI2[x]),
                      static_cast<double>(job.sumTI[x]), job.count, job.sum, job.sumSq, job.positionOnly);
    return end < begin ? begin : end;
}

}  // namespace scalar

const KernelFamily<DotKernel> kDotKernels{&scalar::Dot, &sse2::Dot, &avx2::Dot, &avx512::Dot};
const KernelFamily<CrossRowKernel> kCrossRowKernels{&scalar::CrossRow, &sse2::CrossRow, &avx2::CrossRow,
                                                    &avx512::CrossRow, &avx512vnni::CrossRow};
const KernelFamily<ColumnKernel> kColumnKernels{&scalar::Column, nullptr, nullptr, &avx512::Column};
const KernelFamily<ScoreKernel> kScoreKernels{&scalar::Score, nullptr, nullptr, &avx512::Score};

}  // namespace ombrel::corr
