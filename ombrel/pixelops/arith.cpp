// SPDX-License-Identifier: MIT
#include "ombrel/pixelops/arith.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <initializer_list>

#include "ombrel/framework/factory.h"
#include "ombrel/framework/hal.h"
#include "ombrel/framework/isa.h"
#include "ombrel/framework/kernel_family.h"
#include "ombrel/framework/region_clip.h"
#include "ombrel/pixelops/arith_kernels.h"

namespace ombrel {
namespace {

constexpr double DBLT_N_256 = -256.0;
constexpr double DBLT_255 = 255.0;

bool ClipsByDefault(ArithOp op) {
    return op == _ARITH_COPY || op == _ARITH_ADD || op == _ARITH_SUB || op == _ARITH_DIFF ||
           op == _ARITH_MULT;
}

bool SignClipFixed(ArithOp mOpCode) {
    return mOpCode == _ARITH_NOT || mOpCode == _ARITH_NEGATE || mOpCode == _ARITH_BINARIZE ||
           mOpCode == _ARITH_MASKSHIFT || mOpCode == _ARITH_PASSRANGE || mOpCode == _ARITH_AND ||
           mOpCode == _ARITH_OR || mOpCode == _ARITH_XOR || mOpCode == _ARITH_MIN || mOpCode == _ARITH_MAX;
}

int32_t SaturateToInt32(double v) {
    if (std::isnan(v)) return 0;
    return static_cast<int32_t>(std::clamp(v, double{INT32_MIN}, double{INT32_MAX}));
}

// The multiplier and shift whose quotient m / 2^s is nearest the gain; on equal errors the smaller shift.
// A gain whose first multiplier already leaves -256 < m < 255 keeps shift 0 and becomes that multiplier, so
// out-of-range gains stay exact integers (saturated to 32 bits; NaN gives 0).
void GainToMultiplier(double gain, int32_t* mult, int32_t* shift) {
    *shift = 0;
    if (gain == 1.0 || gain == 0.0 || gain == -256.0) {
        *mult = static_cast<int32_t>(gain);
        return;
    }
    double bestError = -1.0;
    for (int s = 0; s <= 9; ++s) {
        const double m = std::round(gain * (1 << s));  // halves away from zero
        if (m <= -256.0 || m >= 255.0) break;
        const double error = std::fabs(gain - m / (1 << s));
        if (bestError < 0.0 || error < bestError) {
            bestError = error;
            *shift = s;
        }
    }
    *mult = SaturateToInt32(std::round(gain * (1 << *shift)));
}

bool Usable(const Buffer* buffer) {
    return buffer != nullptr && buffer->BaseAddr() != nullptr && buffer->BitsPerPixel() == EIGHT;
}

uint8_t* PixelAt(const Buffer* buffer, int64_t x, int64_t y) {
    return buffer->BaseAddr() + y * buffer->Pitch() + x;
}

int32_t Wrap32(uint64_t v) {
    return static_cast<int32_t>(static_cast<uint32_t>(v));
}

// When every buffer's rows follow each other with no gap at the clipped width, the rectangle is one long
// span: the kernels then run once instead of once per row. The pixel count of that span, or 0.
int ContiguousPixels(const Rect& clip, std::initializer_list<const Buffer*> buffers) {
    if (clip.IsEmpty()) return 0;
    for (const Buffer* buffer : buffers)
        if (buffer != nullptr && buffer->Pitch() != clip.Width()) return 0;
    const int64_t pixels = int64_t{clip.Width()} * clip.Height();
    return pixels <= INT32_MAX ? static_cast<int>(pixels) : 0;
}

}  // namespace

// ---- ArithAgent
// ---------------------------------------------------------------------------------------------

ArithAgent::ArithAgent(Buffer* srcA, Rect r, Buffer* srcB, ArithOp op, double gain, int offset, Buffer* dest)
    : Agent(srcA, r) {
    Setup(srcA, dest, op, gain, offset, srcB);
}

ArithAgent::ArithAgent(Buffer* srcA, Point p, const ROI* roi, Buffer* srcB, ArithOp op, double gain,
                       int offset, Buffer* dest)
    : Agent(srcA, p, roi != nullptr ? *roi : ROI()) {
    Setup(srcA, dest, op, gain, offset, srcB);
}

ArithAgent::ArithAgent(Buffer* srcA, Buffer* srcB, ArithOp op, double gain, int offset, Buffer* dest)
    : Agent(srcA) {
    Setup(srcA, dest, op, gain, offset, srcB);
}

ArithAgent::~ArithAgent() = default;

void ArithAgent::Setup(Buffer* srcA, Buffer* dest, ArithOp op, double gain, int offset, Buffer* srcB) {
    OMBREL_ASSERT("arith", 224, srcA != nullptr, "srcA != NULL");
    OMBREL_ASSERT("arith", 226, dest != nullptr, "dest != NULL");
    Check(srcA == nullptr || dest == nullptr || srcA->BitsPerPixel() == dest->BitsPerPixel(), "arith", 227,
          "srcA->BitsPerPixel() == dest->BitsPerPixel()");
    if (op >= kFirstBinaryArithOp) {
        OMBREL_ASSERT("arith", 229, srcB != nullptr, "srcB != NULL");
        Check(srcA == nullptr || srcB == nullptr || srcA->BitsPerPixel() == srcB->BitsPerPixel(), "arith",
              230, "srcA->BitsPerPixel() == srcB->BitsPerPixel()");
    }
    mSrcB = srcB;
    mDest = dest;
    mOpCode = op;
    mCornerB = Point{0, 0};
    mSignA = mSignB = mSignDest = _ARITH_UNSIGNED;
    mClip = ClipsByDefault(op) ? 1 : 0;
    mSecondFlag = 0;
    mBandLow = 0;
    mBandHigh = 255;
    SetNorm(gain, offset);
    mMaskOp = _ARITH_MASK_AND;
    mMask = 0xFF;
    mMaskShift = 0;
}

void ArithAgent::SetNorm(double gain, int offset) {
    mGain = gain;
    mOffset = offset;
    OMBREL_ASSERT("arith", 313, DBLT_N_256 <= mGain && mGain <= DBLT_255,
                  "DBLT_N_256 <= mGain && mGain <= DBLT_255");
    Check(-(256 * 255 + 256) <= mOffset && mOffset <= (256 * 256 + 255), "arith", 314,
          "-(256*255+256) <= mOffset && mOffset <= (256*256+255)");
    // The search and the split run on the gain as given, in range or not: the assertion has reported it.
    GainToMultiplier(gain, &mGainMult, &mGainShift);
    if ((offset >= -256 && offset <= 255) || gain == 0.0 || std::isnan(gain)) {
        mPreOffset = 0;
        mPostOffset = offset;  // a zero gain has no "before": the whole offset comes after it
        return;
    }
    mPreOffset = SaturateToInt32(std::trunc(offset / gain));
    const double applied = mPreOffset == 0 ? 0.0 : mPreOffset * gain;  // 0 x infinity would be NaN
    mPostOffset = SaturateToInt32(std::trunc(offset - applied));
}

void ArithAgent::SetSignClip(ArithSign signA, ArithSign signB, ArithSign signDest, bool clip, bool flag) {
    if (!Check(!SignClipFixed(mOpCode), "arith", 387,
               "!(mOpCode == _ARITH_NOT || mOpCode == _ARITH_NEGATE || mOpCode == _ARITH_BINARIZE || "
               "mOpCode == _ARITH_MASKSHIFT || mOpCode == _ARITH_PASSRANGE || mOpCode == _ARITH_AND || "
               "mOpCode == _ARITH_OR || mOpCode == _ARITH_XOR || mOpCode == _ARITH_MIN || mOpCode == "
               "_ARITH_MAX)")) {
        aprintf("\nNOTE:  Sing and clipping can't be changed for this operation!\n");
        return;
    }
    mSignA = signA;
    mSignB = signB;
    mSignDest = signDest;
    if (signDest != _ARITH_UNSIGNED) {
        mClip = 0;
        mSecondFlag = flag ? 1 : 0;
        if (clip) {
            aprintf("\nNOTE: Cliping overflow has to be DISABLED for signed dest buffer!");
            aprintf("\n      I have set it for you.");
        }
        return;
    }
    mClip = clip ? 1 : 0;
    mSecondFlag = flag ? 1 : 0;
    if (mOpCode == _ARITH_ADD || mOpCode == _ARITH_DIFF) mSecondFlag = 0;
    if (mOpCode == _ARITH_SUB) mClip = 0;
}

void ArithAgent::SetMaskShift(ArithMaskOp op, int mask, int shift) {
    Check(std::llabs(int64_t{shift}) <= 7, "arith", 268, "abs(shift) <= 7");
    mMaskOp = op;
    mMask = mask;
    mMaskShift = shift;
}

void ArithAgent::SetBand(int low, int high) {
    mBandLow = low;
    mBandHigh = high;
}

void ArithAgent::SetCornerB(int x, int y) {
    OMBREL_ASSERT("arith", 280, (x & 3) == 0, "(x & 3) == 0");
    const bool fits = mSrcB != nullptr && int64_t{x} + _sRoi.Width() <= mSrcB->Width() &&
                      int64_t{y} + _sRoi.Height() <= mSrcB->Height();
    Check(fits, "arith", 282, "x + _sRoi.Width() <= mSrcB->Width() && y + _sRoi.Height() <= mSrcB->Height()");
    mCornerB = Point{x, y};
}

void ArithAgent::SetCornerB(Point cornerB) {
    OMBREL_ASSERT_HERE("arith", (cornerB.x & 3) == 0, "(cornerB.x & 3) == 0");
    const bool fits = mSrcB != nullptr && int64_t{cornerB.x} + _sRoi.Width() <= mSrcB->Width() &&
                      int64_t{cornerB.y} + _sRoi.Height() <= mSrcB->Height();
    Check(fits, "arith", __LINE__,
          "cornerB.x + _sRoi.Width() <= mSrcB->Width() && cornerB.y + _sRoi.Height() <= mSrcB->Height()");
    mCornerB = cornerB;
}

void ArithAgent::SetSrcB(Buffer* srcB) {
    Check(srcB != nullptr && _srcBuf != nullptr && srcB->Type() == _srcBuf->Type(), "arith", __LINE__,
          "srcB->Type() == _srcBuf->Type()");
    mSrcB = srcB;
}

int ArithAgent::Go() {
    mResults[0] = mResults[1] = 0;
    return ProcessOp();
}

void ArithAgent::GetResults(ArithResults* results) const {
    if (results == nullptr) return;
    results->word[0] = mResults[0];
    results->word[1] = mResults[1];
}

// ---- swArithAgent
// -------------------------------------------------------------------------------------------

bool swArithAgent::PackedPath() const {
    return VectorInstructions() && CpuHasPackedSimd();
}

// The packed path runs at SSE2 at least, even under a lower cap: it is what the switch asks for.
Isa swArithAgent::KernelLevel() const {
    return PackedPath() ? std::max(ActiveIsa(), Isa::Sse2) : ActiveIsa();
}

bool swArithAgent::BuffersUsable(bool needB) const {
    return Usable(_srcBuf) && Usable(mDest) && (!needB || Usable(mSrcB));
}

int swArithAgent::ProcessOp() {
    if (mOpCode == _ARITH_MULT) return MultiplyBuffers();
    if (mOpCode < 0 || mOpCode >= _ARITH_MULT) return kArithBadOp;
    const bool needB = mOpCode >= kFirstBinaryArithOp;
    if (needB) Check(mSrcB != nullptr, "arith", __LINE__, "mSrcB != NULL");
    if (!BuffersUsable(needB)) return kArithNoImage;

    const Rect clip = needB
                          ? ClipRegionToBuffers(_sRoi, {{_srcBuf, _sPt}, {mSrcB, mCornerB}, {mDest, {0, 0}}})
                          : ClipRegionToBuffers(_sRoi, {{_srcBuf, _sPt}, {mDest, {0, 0}}});
    arith::Params p;
    p.op = mOpCode;
    p.withGain = mGain != 1.0;
    p.pre = mPreOffset, p.mult = mGainMult, p.shift = mGainShift, p.post = mPostOffset;
    p.signA = mSignA != _ARITH_UNSIGNED, p.signB = mSignB != _ARITH_UNSIGNED;
    p.signDest = mSignDest != _ARITH_UNSIGNED;
    p.clip = mClip != 0, p.flag = mSecondFlag != 0;
    p.low = mBandLow, p.high = mBandHigh;
    p.maskOp = mMaskOp, p.mask = mMask, p.maskShift = mMaskShift;
    const arith::VectorPlan plan = arith::PlanVector(p, PackedPath());
    const Isa level = KernelLevel();

    uint64_t sum = 0, nonZero = 0;
    auto span = [&](int row, int col, int len) {
        arith::SpanJob job;
        job.a = PixelAt(_srcBuf, int64_t{_sPt.x} + col, int64_t{_sPt.y} + row);
        job.b = needB ? PixelAt(mSrcB, int64_t{mCornerB.x} + col, int64_t{mCornerB.y} + row) : nullptr;
        job.d = PixelAt(mDest, col, row);
        job.params = &p, job.plan = &plan;
        job.sum = &sum, job.nonZero = &nonZero;
        arith::kSpanKernels.Run(level, 0, len, job);
    };
    const int contiguous =
        _sRoi.IsMasked() ? 0 : ContiguousPixels(clip, {_srcBuf, needB ? mSrcB : nullptr, mDest});
    if (contiguous > 0) {
        span(clip.top, clip.left, contiguous);
    } else {
        ForEachSpan(_sRoi, clip, span);
    }
    mResults[0] = Wrap32(sum);
    mResults[1] = Wrap32(nonZero);
    return 0;
}

int swArithAgent::MultiplyBuffers() {
    Check(mSrcB != nullptr, "arith", __LINE__, "mSrcB != NULL");
    if (!BuffersUsable(true)) return kArithNoImage;
    // Source B and the destination start at their own (0, 0); the region counts as its rectangle.
    const Rect clip = ClipRegionToBuffers(_sRoi.Width(), _sRoi.Height(),
                                          {{_srcBuf, _sPt}, {mSrcB, {0, 0}}, {mDest, {0, 0}}});
    const bool plain = mPreOffset == 0 && mGainMult == 1 && mPostOffset == 0 && mSecondFlag == 0;
    return plain ? DoMultiplyBuffers(clip) : DoMultiplyBuffersFull(clip);
}

namespace {

void MultiplyRows(Isa isa, const Buffer* srcA, Point origin, const Buffer* srcB, Buffer* dest,
                  const Rect& clip, const arith::MultiplyParams& m, int32_t* results) {
    uint64_t sum = 0, nonZero = 0;
    const int contiguous = ContiguousPixels(clip, {srcA, srcB, dest});
    const int len = contiguous > 0 ? contiguous : clip.Width();
    const int bottom = contiguous > 0 ? clip.top + 1 : clip.bottom;
    for (int row = clip.top; row < bottom; ++row) {
        arith::MultiplyJob job;
        job.a = PixelAt(srcA, int64_t{origin.x} + clip.left, int64_t{origin.y} + row);
        job.b = PixelAt(srcB, clip.left, row);
        job.d = PixelAt(dest, clip.left, row);
        job.params = &m;
        job.sum = &sum, job.nonZero = &nonZero;
        arith::kMultiplyKernels.Run(isa, 0, len, job);
    }
    results[0] = Wrap32(sum);
    results[1] = Wrap32(nonZero);
}

}  // namespace

int swArithAgent::DoMultiplyBuffers(const Rect& clip) {
    arith::MultiplyParams m;
    m.shift = mGainShift;
    m.clip = mClip != 0;
    MultiplyRows(KernelLevel(), _srcBuf, _sPt, mSrcB, mDest, clip, m, mResults);
    return 0;
}

int swArithAgent::DoMultiplyBuffersFull(const Rect& clip) {
    arith::MultiplyParams m;
    m.pre = mPreOffset, m.mult = mGainMult, m.shift = mGainShift, m.post = mPostOffset;
    m.clip = mClip != 0, m.flag = mSecondFlag != 0;
    m.full = true;
    MultiplyRows(KernelLevel(), _srcBuf, _sPt, mSrcB, mDest, clip, m, mResults);
    return 0;
}

// ---- ArithFact
// ----------------------------------------------------------------------------------------------

namespace {

template <class... Region>
ArithAgent* MakeArith(Buffer* srcA, Buffer* srcB, Buffer* dest, Region&&... regionAndArgs) {
    OMBREL_ASSERT("lfarith", 34, srcA && dest, "srcA && dest");
    return MakeAgent<swArithAgent>(
        {{srcA, HostTypes::Any}, {srcB, HostTypes::Any, Presence::Optional}, {dest, HostTypes::Any}},
        std::forward<Region>(regionAndArgs)...);
}

}  // namespace

ArithAgent* ArithFact(Buffer* srcA, Buffer* srcB, ArithOp op, float gain, int offset, Buffer* dest) {
    return MakeArith(srcA, srcB, dest, srcA, srcB, op, double{gain}, offset, dest);
}

ArithAgent* ArithFact(Buffer* srcA, Rect r, Buffer* srcB, ArithOp op, float gain, int offset, Buffer* dest) {
    return MakeArith(srcA, srcB, dest, srcA, r, srcB, op, double{gain}, offset, dest);
}

ArithAgent* ArithFact(Buffer* srcA, const Point& p, const ROI& roi, Buffer* srcB, ArithOp op, float gain,
                      int offset, Buffer* dest) {
    return MakeArith(srcA, srcB, dest, srcA, p, &roi, srcB, op, double{gain}, offset, dest);
}

ArithAgent* ArithFact(Buffer* srcA, int left, int top, int right, int bottom, Buffer* srcB, ArithOp op,
                      float gain, int offset, Buffer* dest) {
    return ArithFact(srcA, RectFromInts(left, top, right, bottom), srcB, op, gain, offset, dest);
}

}  // namespace ombrel
