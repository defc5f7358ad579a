// SPDX-License-Identifier: MIT
// Internal: the vector bodies of the projection kernels, written once over a lane-operations struct V (see
// framework/simd/lanes_<isa>.h); each project_kernels_<isa>.cpp instantiates them with its own lanes.
#pragma once
#include <cstdint>

#include "ombrel/pixelops/project_kernels.h"

namespace ombrel::project {

template <class V>
struct ProjectBody {
    using T = typename V::T;
    static constexpr int N = V::N;
    // 256 rows of bytes sum to at most 65280: 16-bit lanes hold a block that long without wrapping.
    static constexpr int kRowsPerBlock = 256;

    static void AddWords(uint32_t* p, T words) {
        auto* bytes = reinterpret_cast<uint8_t*>(p);
        V::store(bytes, V::add32(V::load(bytes), words));
    }

    // One strip of N columns walks down the rows in 16-bit lanes, then adds to the 32-bit sums.
    static int ColumnSums(int begin, int end, const ColumnJob& job) {
        int i = begin;
        for (; i + N <= end; i += N) {
            for (int r0 = 0; r0 < job.rows; r0 += kRowsPerBlock) {
                const int r1 = job.rows - r0 < kRowsPerBlock ? job.rows : r0 + kRowsPerBlock;
                T lo = V::zero(), hi = V::zero();
                const uint8_t* p = job.top + r0 * job.pitch + i;
                for (int r = r0; r < r1; ++r, p += job.pitch) {
                    lo = V::add16(lo, V::load8to16(p));
                    hi = V::add16(hi, V::load8to16(p + N / 2));
                }
                AddWords(job.sums + i, V::widen16lo32(lo));
                AddWords(job.sums + i + N / 4, V::widen16hi32(lo));
                AddWords(job.sums + i + N / 2, V::widen16lo32(hi));
                AddWords(job.sums + i + 3 * N / 4, V::widen16hi32(hi));
            }
        }
        return i;
    }

    // Horizontal adds: each vector's bytes summed in 64-bit groups, the groups added at the end.
    static int RowSum(int begin, int end, const RowJob& job) {
        T acc = V::zero();
        int i = begin;
        for (; i + N <= end; i += N) acc = V::add64(acc, V::sad(V::load(job.row + i)));
        *job.sum += V::hsum64(acc);
        return i;
    }
};

}  // namespace ombrel::project
