// SPDX-License-Identifier: MIT
// Internal: the per-span kernels of the arithmetic agent. The contract every kernel
// meets is the one written in arith.h; the scalar kernels are its reference.
#pragma once
#include <cstdint>

namespace ombrel {
template <class Signature>
class KernelFamily;  // framework/kernel_family.h; not included here, since ISA-compiled files include this
}  // namespace ombrel

namespace ombrel::arith {

// Everything a span kernel needs, taken from the agent once per Go.
struct Params {
    int32_t op = 0;
    bool withGain = false;  // false: the noGain routine (gain exactly 1.0)
    int32_t pre = 0, mult = 1, shift = 0, post = 0;
    bool signA = false, signB = false, signDest = false;
    bool clip = false, flag = false;
    int32_t low = 0, high = 255;
    int32_t maskOp = 0, mask = 0xFF, maskShift = 0;
};

// How the destination byte is formed from r (see arith.h).
enum class Stage : int32_t { Unsigned, Signed, Window10 };
Stage StageOf(const Params& p);
// The range of v an operation can produce with these signs (MULT excluded).
void ValueRange(const Params& p, int64_t* vmin, int64_t* vmax);

// How a vector kernel handles a span, worked out once per Go (in baseline code) from the parameters.
enum class VectorMode : int32_t {
    None,  // the vector kernel declines; the scalar kernel does the span
    // Single byte instructions, used only where they give exactly the contract's bytes.
    Copy,
    Not,
    NegateWrap,
    AddSat,
    AddWrap,
    SubSat,
    SubWrap,
    AbsDiff,
    And,
    Or,
    Xor,
    Min,
    Max,
    Generic16,  // v, v + P, the product, the shift and r all in 16-bit lanes
    Generic32   // v and v + P in 16-bit lanes, the product and everything after it in 32-bit lanes
};

struct VectorPlan {
    VectorMode mode = VectorMode::None;
    Stage stage = Stage::Unsigned;
    int32_t op = 0;
    bool signA = false, signB = false;
    bool multiply = false;                           // false: m = 1 and s = 0, the product step is skipped
    int32_t pre = 0, mult = 1, shift = 0, post = 0;  // the multiplier and shift the lanes use
    bool clip = false, flag = false;
    int32_t low = 0, high = 255;  // clamped to -1..256: same comparisons against bytes, fits 16 bits
    int32_t maskOp = 0, mask = 0xFF, maskShift = 0;
};

// `packed` holds the gain as gain x 128 (shift 7) wherever that represents m / 2^s exactly, as the packed
// path does; the result is the same either way.
VectorPlan PlanVector(const Params& p, bool packed);

// MULT's parameter block.
struct MultiplyParams {
    int32_t pre = 0, mult = 1, shift = 0, post = 0;
    bool clip = false, flag = false;
    bool full = false;  // DoMultiplyBuffersFull
};

// One span of an operation, as every level reads it. The pointers are the span's first pixel; a kernel works
// on [begin, end) of the span, writes those destination bytes and adds their result words (sum of the bytes
// written, count of the non-zero ones) to *sum and *nonZero.
struct SpanJob {
    const uint8_t* a = nullptr;
    const uint8_t* b = nullptr;  // null for unary operations
    uint8_t* d = nullptr;
    const Params* params = nullptr;    // what the scalar reference reads
    const VectorPlan* plan = nullptr;  // what vector kernels read; mode None makes them decline
    uint64_t* sum = nullptr;
    uint64_t* nonZero = nullptr;
};

// One span of MULT (DoMultiplyBuffers, or DoMultiplyBuffersFull when params->full).
struct MultiplyJob {
    const uint8_t* a = nullptr;
    const uint8_t* b = nullptr;
    uint8_t* d = nullptr;
    const MultiplyParams* params = nullptr;
    uint64_t* sum = nullptr;
    uint64_t* nonZero = nullptr;
};

using SpanKernel = int(int begin, int end, const SpanJob& job);
using MultiplyKernel = int(int begin, int end, const MultiplyJob& job);

#define OMBREL_ARITH_KERNELS_OF(isa)                          \
    namespace isa {                                           \
    int Span(int begin, int end, const SpanJob& job);         \
    int Multiply(int begin, int end, const MultiplyJob& job); \
    }
OMBREL_ARITH_KERNELS_OF(scalar)
OMBREL_ARITH_KERNELS_OF(sse2)
OMBREL_ARITH_KERNELS_OF(avx2)
OMBREL_ARITH_KERNELS_OF(avx512)
#undef OMBREL_ARITH_KERNELS_OF

// The levels of each kernel (defined with the dispatch, in baseline code).
extern const KernelFamily<SpanKernel> kSpanKernels;
extern const KernelFamily<MultiplyKernel> kMultiplyKernels;

}  // namespace ombrel::arith
