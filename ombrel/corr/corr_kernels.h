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

}  // namespace ombrel::corr
