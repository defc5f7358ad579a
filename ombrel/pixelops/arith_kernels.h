// SPDX-License-Identifier: MIT
// Internal: the per-span kernels of the arithmetic agent and their dispatch. The contract every kernel
// meets is the one written in arith.h; the scalar kernels are its reference.
#pragma once
#include <cstdint>

#include "ombrel/framework/isa.h"

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

using SpanFn = void (*)(const uint8_t* a, const uint8_t* b, uint8_t* d, int n, const Params& p);

namespace scalar {
// The routine tables, indexed by ArithOp; the MULT entries are null.
extern const SpanFn kNoGain[16];
extern const SpanFn kWithGain[16];
void MultiplySpan(const uint8_t* a, const uint8_t* b, uint8_t* d, int n, const MultiplyParams& m);
void SumSpan(const uint8_t* d, int n, uint64_t* sum, uint64_t* nonZero);
}  // namespace scalar

// A vector kernel handles a prefix of the span and returns its length; the scalar kernel does the rest. The
// span and multiply kernels also add the result words of the bytes they wrote to *sum and *nonZero.
struct VectorKernels {
    int (*span)(const uint8_t* a, const uint8_t* b, uint8_t* d, int n, const VectorPlan& plan, uint64_t* sum,
                uint64_t* nonZero);
    int (*multiply)(const uint8_t* a, const uint8_t* b, uint8_t* d, int n, const MultiplyParams& m,
                    uint64_t* sum, uint64_t* nonZero);
    int (*sum)(const uint8_t* d, int n, uint64_t* sum, uint64_t* nonZero);
};

#define OMBREL_ARITH_DECLARE_KERNELS(isa)                                                                  \
    namespace isa {                                                                                        \
    int Span(const uint8_t* a, const uint8_t* b, uint8_t* d, int n, const VectorPlan& plan, uint64_t* sum, \
             uint64_t* nonZero);                                                                           \
    int MultiplySpan(const uint8_t* a, const uint8_t* b, uint8_t* d, int n, const MultiplyParams& m,       \
                     uint64_t* sum, uint64_t* nonZero);                                                    \
    int SumSpan(const uint8_t* d, int n, uint64_t* sum, uint64_t* nonZero);                                \
    }
OMBREL_ARITH_DECLARE_KERNELS(sse2)
OMBREL_ARITH_DECLARE_KERNELS(avx2)
#undef OMBREL_ARITH_DECLARE_KERNELS

// The kernels for a level; null members at the scalar level. AVX-512 runs the AVX2 kernels.
VectorKernels KernelsFor(Isa isa);

}  // namespace ombrel::arith
