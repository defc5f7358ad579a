// SPDX-License-Identifier: MIT
// Internal: how every operation reaches its kernels.
//
// A kernel works on the pixels [begin, end) of one span and returns where it stopped. The scalar kernel is
// the reference: it always finishes (returns end). A vector kernel handles whole vectors only and returns the
// index after the last one; narrower levels and finally the scalar kernel do the rest, so the last pixels
// of a span use the reference arithmetic by construction. Every level of a family has the same signature:
//
//     int Kernel(int begin, int end, Args... args);
//
// and lives in ombrel::<operation>::<isa> (scalar, sse2, avx2, avx512, avx512vnni). A family lists one entry
// per level (the last may be left out: most families have nothing that needs the byte dot product); a level
// without a kernel of its own is left null and runs the widest kernel below it. A level is listed only when
// its kernel really uses that instruction set.
#pragma once

#include "ombrel/framework/isa.h"

namespace ombrel {

template <class Signature>
class KernelFamily;

template <class... Args>
class KernelFamily<int(int, int, Args...)> {
  public:
    using Fn = int (*)(int begin, int end, Args... args);

    constexpr KernelFamily(Fn scalar, Fn sse2, Fn avx2, Fn avx512, Fn avx512vnni = nullptr)
        : _level{scalar, sse2, avx2, avx512, avx512vnni} {}

    // The widest kernel at or below `isa`: the one rule for choosing a level.
    Fn At(Isa isa) const {
        for (int level = static_cast<int>(isa); level > 0; --level)
            if (_level[level] != nullptr) return _level[level];
        return _level[0];
    }
    Fn Scalar() const { return _level[0]; }
    bool HasOwnKernel(Isa isa) const { return _level[static_cast<int>(isa)] != nullptr; }

    // Runs the span [begin, end) at `isa`: the widest kernel at or below it takes the whole vectors it can,
    // each narrower level with a kernel of its own takes what is left in its own vectors, and the scalar
    // reference finishes. (A row of 2592 pixels is then 40 AVX-512 vectors, one AVX2 vector and no scalar
    // pixel, instead of 40 vectors and 32 pixels one at a time.) Returns end.
    int Run(Isa isa, int begin, int end, Args... args) const {
        for (int level = static_cast<int>(isa); level > 0 && begin < end; --level)
            if (_level[level] != nullptr) begin = _level[level](begin, end, args...);
        return begin < end ? _level[0](begin, end, args...) : end;
    }

  private:
    Fn _level[5];
};

}  // namespace ombrel
