// SPDX-License-Identifier: MIT
// Baseline code around the arithmetic kernels: their levels, the output stage an operation uses, the range of
// values it can produce, and the plan that tells a vector kernel which lanes are wide enough to be exact.
#include "ombrel/pixelops/arith_kernels.h"

#include <algorithm>

#include "ombrel/framework/kernel_family.h"
#include "ombrel/pixelops/arith_ops.h"

namespace ombrel::arith {
namespace {

constexpr bool ReadsSigns(int op) {
    return op == _ARITH_COPY || op == _ARITH_ABS || op == _ARITH_ADD || op == _ARITH_SUB || op == _ARITH_DIFF;
}

bool FitsInt16(int64_t v) {
    return v >= INT16_MIN && v <= INT16_MAX;
}
bool FitsInt32(int64_t v) {
    return v >= INT32_MIN && v <= INT32_MAX;
}

// Every v in [vmin, vmax] is written as v & 255.
bool WrapExact(Stage stage, const Params& p, int64_t vmin, int64_t vmax) {
    if (stage == Stage::Signed) return !p.flag || (vmin >= -128 && vmax <= 127);
    const bool overWraps = vmax <= 255 || (!p.clip && !p.flag);
    const bool underWraps = vmin >= 0 || (!p.clip && !p.flag);
    return overWraps && underWraps;  // the 10-bit window agrees with this for -512 <= v <= 511
}

// Every v in [vmin, vmax] is written as v saturated to 0..255.
bool SaturateExact(Stage stage, const Params& p, int64_t vmin, int64_t vmax) {
    if (stage == Stage::Signed) return false;
    return (vmax <= 255 || p.clip || p.flag) && (vmin >= 0 || p.flag);
}

VectorMode ByteMode(Stage stage, const Params& p, int64_t vmin, int64_t vmax) {
    const bool wrap = WrapExact(stage, p, vmin, vmax);
    const bool unsignedSources = !p.signA && !p.signB;
    switch (p.op) {
        case _ARITH_NOT:
            return wrap ? VectorMode::Not : VectorMode::None;
        case _ARITH_NEGATE:
            return wrap ? VectorMode::NegateWrap : VectorMode::None;
        case _ARITH_COPY:
            return wrap ? VectorMode::Copy : VectorMode::None;
        case _ARITH_ABS:
            return wrap && !p.signA ? VectorMode::Copy : VectorMode::None;
        case _ARITH_ADD:
            if (unsignedSources && SaturateExact(stage, p, vmin, vmax)) return VectorMode::AddSat;
            return wrap ? VectorMode::AddWrap : VectorMode::None;
        case _ARITH_SUB:
            if (unsignedSources && SaturateExact(stage, p, vmin, vmax)) return VectorMode::SubSat;
            return wrap ? VectorMode::SubWrap : VectorMode::None;
        case _ARITH_DIFF:
            return wrap && unsignedSources ? VectorMode::AbsDiff : VectorMode::None;
        case _ARITH_AND:
            return wrap ? VectorMode::And : VectorMode::None;
        case _ARITH_OR:
            return wrap ? VectorMode::Or : VectorMode::None;
        case _ARITH_XOR:
            return wrap ? VectorMode::Xor : VectorMode::None;
        case _ARITH_MIN:
            return wrap ? VectorMode::Min : VectorMode::None;
        case _ARITH_MAX:
            return wrap ? VectorMode::Max : VectorMode::None;
        default:
            return VectorMode::None;
    }
}

}  // namespace

Stage StageOf(const Params& p) {
    if (p.op == _ARITH_ADD && !p.withGain) return Stage::Window10;
    return p.signDest ? Stage::Signed : Stage::Unsigned;
}

void ValueRange(const Params& p, int64_t* vmin, int64_t* vmax) {
    const bool signA = ReadsSigns(p.op) && p.signA;
    const bool signB = ReadsSigns(p.op) && p.signB;
    const int64_t aMin = signA ? -128 : 0, aMax = signA ? 127 : 255;
    const int64_t bMin = signB ? -128 : 0, bMax = signB ? 127 : 255;
    int64_t lo = 0, hi = 255;
    switch (p.op) {
        case _ARITH_NEGATE:
            lo = -aMax, hi = -aMin;
            break;
        case _ARITH_COPY:
            lo = aMin, hi = aMax;
            break;
        case _ARITH_BINARIZE:
            hi = 1;
            break;
        case _ARITH_MASKSHIFT: {
            const int shift = std::clamp(p.maskShift, -7, 7);
            hi = shift >= 0 ? int64_t{255} << shift : 255 >> -shift;
            break;
        }
        case _ARITH_ABS:
            hi = std::max(-aMin, aMax);
            break;
        case _ARITH_ADD:
            lo = aMin + bMin, hi = aMax + bMax;
            break;
        case _ARITH_SUB:
            lo = aMin - bMax, hi = aMax - bMin;
            break;
        case _ARITH_DIFF:
            hi = std::max(aMax - bMin, bMax - aMin);
            break;
        default:
            break;
    }
    *vmin = lo;
    *vmax = hi;
}

VectorPlan PlanVector(const Params& p, bool packed) {
    VectorPlan plan;
    if (p.op < 0 || p.op >= _ARITH_MULT) return plan;
    plan.stage = StageOf(p);
    plan.op = p.op;
    plan.signA = ReadsSigns(p.op) && p.signA;
    plan.signB = ReadsSigns(p.op) && p.signB;
    plan.clip = p.clip;
    plan.flag = p.flag;
    plan.low = std::clamp(p.low, -1, 256);
    plan.high = std::clamp(p.high, -1, 256);
    plan.maskOp = p.maskOp;
    plan.mask = p.mask & 0xFF;
    plan.maskShift = std::clamp(p.maskShift, -7, 7);

    int64_t pre = p.pre, mult = p.mult, shift = p.shift, post = p.post;
    if (!p.withGain) {  // r = v + P + Q: fold both offsets into one
        pre = 0, mult = 1, shift = 0, post = int64_t{p.pre} + p.post;
        if (plan.stage == Stage::Window10) post &= 1023;  // only r mod 1024 matters
    } else if (packed && shift <= 7) {
        mult <<= (7 - shift);  // the gain as gain x 128: the same quotient, exactly
        shift = 7;
    }
    int64_t vmin = 0, vmax = 0;
    ValueRange(p, &vmin, &vmax);
    const bool identity = mult == 1 && shift == 0 && pre == 0 && post == 0;
    if (identity) plan.mode = ByteMode(plan.stage, p, vmin, vmax);
    if (plan.mode != VectorMode::None) return plan;

    const int64_t tmin = vmin + pre, tmax = vmax + pre;
    if (!FitsInt16(tmin) || !FitsInt16(tmax) || !FitsInt16(mult) || !FitsInt32(post)) return plan;
    const int64_t p0 = tmin * mult, p1 = tmax * mult;
    const int64_t r0 = (p0 >> shift) + post, r1 = (p1 >> shift) + post;
    if (!FitsInt32(r0) || !FitsInt32(r1)) return plan;
    const bool narrow = FitsInt16(p0) && FitsInt16(p1) && FitsInt16(r0) && FitsInt16(r1) && FitsInt16(post);
    if (plan.stage == Stage::Window10 && !narrow) return plan;
    plan.mode = narrow ? VectorMode::Generic16 : VectorMode::Generic32;
    plan.multiply = !(mult == 1 && shift == 0);
    plan.pre = static_cast<int32_t>(pre);
    plan.mult = static_cast<int32_t>(mult);
    plan.shift = static_cast<int32_t>(shift);
    plan.post = static_cast<int32_t>(post);
    return plan;
}

const KernelFamily<SpanKernel> kSpanKernels{&scalar::Span, &sse2::Span, &avx2::Span, &avx512::Span};
const KernelFamily<MultiplyKernel> kMultiplyKernels{&scalar::Multiply, &sse2::Multiply, &avx2::Multiply,
                                                    &avx512::Multiply};

}  // namespace ombrel::arith
