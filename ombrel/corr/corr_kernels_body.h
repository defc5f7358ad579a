// SPDX-License-Identifier: MIT
// Internal: the vector body of the cross-sum kernel, written once over a lane-operations struct V (see
// framework/simd/lanes_<isa>.h). Bytes are widened to 16 bits (zero- or sign-extended) and multiplied
// pairwise with madd16 into 32-bit lanes; no 16-bit product or sum can saturate that way (|t*i| <= 65025,
// a pair <= 130050). A 32-bit lane gains at most 130050 per vector, so the lanes are folded into the 64-bit
// sum every kBlock vectors, long before 2^31.
#pragma once
#include <cstdint>

#include "ombrel/corr/corr_kernels.h"

namespace ombrel::corr {

template <class V>
struct DotBody {
    using T = typename V::T;
    static constexpr int kStep = V::N / 2;  // pixels per 16-bit vector
    static constexpr int kBlock = 8192;     // vectors per 32-bit fold

    template <bool TS, bool IS>
    static int Run(int begin, int end, DotJob& job) {
        const int stop = begin + (end - begin) / kStep * kStep;
        if (stop == begin) return begin;
        T acc = V::zero();
        int vectors = 0;
        for (int r = 0; r < job.rows; ++r) {
            const uint8_t* tr = job.t + r * job.tPitch;
            const uint8_t* ir = job.img + r * job.imgPitch;
            for (int k = begin; k < stop; k += kStep) {
                const T t = TS ? V::load8to16s(tr + k) : V::load8to16(tr + k);
                const T i = IS ? V::load8to16s(ir + k) : V::load8to16(ir + k);
                acc = V::add32(acc, V::madd16(t, i));
                if (++vectors == kBlock) {
                    job.sum += V::hsum32s(acc);
                    acc = V::zero();
                    vectors = 0;
                }
            }
        }
        job.sum += V::hsum32s(acc);
        return stop;
    }

    static int Dot(int begin, int end, DotJob& job) {
        if (job.tSigned)
            return job.imgSigned ? Run<true, true>(begin, end, job) : Run<true, false>(begin, end, job);
        return job.imgSigned ? Run<false, true>(begin, end, job) : Run<false, false>(begin, end, job);
    }

    // A row of positions, one position at a time: the vector body takes the whole vectors of each template
    // row and the reference arithmetic the columns after them.
    static int CrossRow(int begin, int end, const CrossRowJob& job) {
        for (int j = 0; j < job.outRows; ++j)
            CrossRowOne(begin, end, job, job.img + int64_t{j} * job.rowStep * job.imgPitch,
                        job.out + j * job.outStride);
        return end < begin ? begin : end;
    }

    static void CrossRowOne(int begin, int end, const CrossRowJob& job, const uint8_t* img, int64_t* out) {
        for (int x = begin; x < end; ++x) {
            DotJob d;
            d.t = reinterpret_cast<const uint8_t*>(job.t);
            d.tPitch = job.tStride;
            d.img = img + x;
            d.imgPitch = job.imgPitch;
            d.rows = job.th;
            d.tSigned = 1;
            d.imgSigned = job.imgSigned;
            const int stop = Dot(0, job.tw, d);
            for (int r = 0; r < job.th; ++r) {
                const int8_t* tr = job.t + int64_t{r} * job.tStride;
                const uint8_t* ir = d.img + r * job.imgPitch;
                for (int k = stop; k < job.tw; ++k) {
                    const int32_t i = job.imgSigned ? int32_t{static_cast<int8_t>(ir[k])} : int32_t{ir[k]};
                    d.sum += int32_t{tr[k]} * i;
                }
            }
            out[x] = d.sum;
        }
    }
};

}  // namespace ombrel::corr
