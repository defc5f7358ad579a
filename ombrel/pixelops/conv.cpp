// SPDX-License-Identifier: MIT
#include "ombrel/pixelops/conv.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <new>
#include <vector>

#include "ombrel/framework/factory.h"
#include "ombrel/framework/hal.h"
#include "ombrel/framework/isa.h"
#include "ombrel/framework/kernel_family.h"
#include "ombrel/pixelops/conv_kernels.h"

namespace ombrel {

namespace {

constexpr const char* kModule = "conv";

int WidthOf(const Buffer* b) {
    return b != nullptr ? b->Width() : 0;
}
int HeightOf(const Buffer* b) {
    return b != nullptr ? b->Height() : 0;
}
bool Usable(const Buffer* b) {
    return b != nullptr && b->BaseAddr() != nullptr && b->BitsPerPixel() == EIGHT;
}
Buffer* KernelBuffer(const CorrTemplate* t) {
    return t != nullptr ? t->GetBuffer() : nullptr;
}

// Number of significant bits of d: the smallest s with d >> s == 0.
int32_t SignificantBits(int64_t d) {
    int32_t s = 0;
    while (s < 63 && (d >> s) != 0) ++s;
    return s;
}

// One axis of the sample range, the way the correlation match ranges its positions.
void SampleRange(int64_t origin, int64_t hot, int64_t extent, int64_t kernel, int64_t source, int32_t& start,
                 int32_t& stop) {
    int64_t lo = origin - hot;
    int64_t hi = lo + extent;
    if (lo < 0) lo = 0;
    if (kernel + hi > source + 1) hi = source + 1 - kernel;
    auto clamp = [](int64_t v) { return static_cast<int32_t>(std::clamp<int64_t>(v, INT32_MIN, INT32_MAX)); };
    start = clamp(lo);
    stop = clamp(hi);
}

}  // namespace

ConvAgent::ConvAgent(Buffer* src, Buffer* dst, CorrTemplate* kernel, int imgSigned, int tplSigned, int xStep,
                     int yStep)
    : Agent(src),
      _convTemplate(kernel),
      _dstBuf(dst),
      _xStep(xStep),
      _yStep(yStep),
      _imgSigned(imgSigned),
      _tplSigned(tplSigned) {
    CheckPreconditions();
}

ConvAgent::ConvAgent(Buffer* src, Buffer* dst, Rect r, CorrTemplate* kernel, int imgSigned, int tplSigned,
                     int xStep, int yStep)
    : Agent(src, r),
      _convTemplate(kernel),
      _dstBuf(dst),
      _xStep(xStep),
      _yStep(yStep),
      _imgSigned(imgSigned),
      _tplSigned(tplSigned) {
    CheckPreconditions();
}

ConvAgent::ConvAgent(Buffer* src, Buffer* dst, Point p, ROI* roi, CorrTemplate* kernel, int imgSigned,
                     int tplSigned, int xStep, int yStep)
    : Agent(src, p, roi != nullptr ? *roi : ROI()),
      _convTemplate(kernel),
      _dstBuf(dst),
      _xStep(xStep),
      _yStep(yStep),
      _imgSigned(imgSigned),
      _tplSigned(tplSigned) {
    CheckPreconditions();
}

// The constructors and Setup report the same list, on the class's lines 127-139.
void ConvAgent::CheckPreconditions() const {
    const int roiW = _sRoi.Width(), roiH = _sRoi.Height();
    const int srcW = WidthOf(_srcBuf), srcH = HeightOf(_srcBuf);
    OMBREL_ASSERT(kModule, 127, _srcBuf, "_srcBuf");
    OMBREL_ASSERT(kModule, 128, _dstBuf, "_dstBuf");
    Check(WidthOf(_dstBuf) >= roiW, kModule, 129, "_dstBuf->Width() >= _sRoi.Width()");
    Check(HeightOf(_dstBuf) >= roiH, kModule, 130, "_dstBuf->Height() >= _sRoi.Height()");
    Check(_xStep > 0, kModule, 131, "_xStep > 0");
    Check(_yStep > 0, kModule, 132, "_yStep > 0");
    Check(KernelBuffer(_convTemplate) != nullptr, kModule, 133, "_convTemplate->GetBuffer()");
    Check(_sPt.x >= 0 && _sPt.x < srcW, kModule, 134, "_sPt.x >= 0 && _sPt.x < _srcBuf->Width()");
    Check(_sPt.y >= 0 && _sPt.y < srcH, kModule, 135, "_sPt.y >= 0 && _sPt.y < _srcBuf->Height()");
    Check(roiW != 0, kModule, 136, "_sRoi.Width()");
    Check(roiH != 0, kModule, 137, "_sRoi.Height()");
    Check(int64_t{_sPt.x} + roiW <= srcW, kModule, 138, "_sPt.x + _sRoi.Width() <= _srcBuf->Width()");
    Check(int64_t{_sPt.y} + roiH <= srcH, kModule, 139, "_sPt.y + _sRoi.Height() <= _srcBuf->Height()");
}

bool ConvAgent::Setup() {
    CheckPreconditions();
    Buffer* kb = KernelBuffer(_convTemplate);
    const bool usable = Usable(_srcBuf) && Usable(_dstBuf) && Usable(kb);
    _kw = kb != nullptr ? kb->Width() : 0;
    _kh = kb != nullptr ? kb->Height() : 0;
    const Point hot = _convTemplate != nullptr ? _convTemplate->GetHotSpot() : Point{0, 0};
    SampleRange(_sPt.x, hot.x, _sRoi.Width(), _kw, WidthOf(_srcBuf), _sxStart, _sxStop);
    SampleRange(_sPt.y, hot.y, _sRoi.Height(), _kh, HeightOf(_srcBuf), _syStart, _syStop);
    _dxFirst = _dyFirst = 0;
    OMBREL_ASSERT(kModule, 133, _syStop > _syStart, "sy_stop > sy_start");
    OMBREL_ASSERT(kModule, 134, _sxStop > _sxStart, "sx_stop > sx_start");
    OMBREL_ASSERT(kModule, 136, (int64_t{_syStop} - _syStart) * (int64_t{_sxStop} - _sxStart) >= 5,
                  "(sy_stop - sy_start) * (sx_stop - sx_start) >= 5");
    if (!usable || _kw <= 0 || _kh <= 0 || _xStep <= 0 || _yStep <= 0) return false;
    if (_sxStop <= _sxStart || _syStop <= _syStart) return false;

    if (_convTemplate->GetSigned() != (_tplSigned != 0 ? 1 : 0)) _convTemplate->Recompute(_tplSigned);
    int64_t d = 0;
    if (_rootOfEnergy) d = static_cast<int64_t>(std::sqrt(_convTemplate->GetSumSq()));
    if (_templateSum) d = static_cast<int64_t>(_convTemplate->GetSum());
    if (_absoluteSum) d = std::llabs(static_cast<int64_t>(_convTemplate->GetSum()));
    if (_fixedDivisor) d = _divisor;
    _shift = std::min(SignificantBits(d), 31);

    _kPitch = kb->Pitch();
    _kBase = kb->BaseAddr();
    _sPitch = _srcBuf->Pitch();
    _sBase = _srcBuf->BaseAddr();
    _dPitch = _dstBuf->Pitch();
    _dBase = _dstBuf->BaseAddr();
    try {
        _coeffs.assign(static_cast<size_t>(_kw) * static_cast<size_t>(_kh), 0);
    } catch (const std::bad_alloc&) {
        _coeffs.clear();
    }
    // Go has no status of its own: a kernel it could not copy is reported, and nothing is written.
    if (!OMBREL_ASSERT_HERE(kModule, !_coeffs.empty(), "!_coeffs.empty()")) return false;
    for (int ky = 0; ky < _kh; ++ky)
        for (int kx = 0; kx < _kw; ++kx) {
            const uint8_t v = _kBase[ky * _kPitch + kx];
            _coeffs[static_cast<size_t>(ky) * _kw + kx] = _tplSigned ? static_cast<int8_t>(v) : v;
        }
    return true;
}

int swConvAgent::Go() {
    if (!Setup()) return 0;
    const int64_t cols = (int64_t{_sxStop} - _sxStart + _xStep - 1) / _xStep;
    const int64_t rows = (int64_t{_syStop} - _syStart + _yStep - 1) / _yStep;
    const int outW = static_cast<int>(std::min<int64_t>(cols, _dstBuf->Width()));
    const int outH = static_cast<int>(std::min<int64_t>(rows, _dstBuf->Height()));
    if (outW <= 0 || outH <= 0) return 0;

    const Isa level = ActiveIsa();
    conv::RowJob job;
    job.srcPitch = _sPitch;
    job.k = _coeffs.data();
    job.kw = _kw;
    job.kh = _kh;
    job.imgSigned = _imgSigned != 0;
    job.clip = _clip != 0 && (_imgSigned != 0 || _tplSigned != 0);
    job.shift = _shift;
    // With a step above 1 and a vector level, a row is filtered at every column into scratch and then
    // sampled: the vector kernels only walk neighbouring outputs, and are still far ahead of the reference.
    std::vector<uint8_t> full;
    if (_xStep > 1 && level != Isa::Scalar) {
        try {
            full.resize(static_cast<size_t>(int64_t{outW - 1} * _xStep + 1));
        } catch (const std::bad_alloc&) {
            full.clear();
        }
    }
    for (int oy = 0; oy < outH; ++oy) {
        job.src = _sBase + (int64_t{_syStart} + int64_t{oy} * _yStep) * _sPitch + _sxStart;
        uint8_t* out = _dBase + (int64_t{_dyFirst} + oy) * _dPitch + _dxFirst;
        if (full.empty()) {
            job.step = _xStep;
            job.d = out;
            conv::kConvKernels.Run(level, 0, outW, job);
            continue;
        }
        job.step = 1;
        job.d = full.data();
        conv::kConvKernels.Run(level, 0, static_cast<int>(full.size()), job);
        for (int ox = 0; ox < outW; ++ox) out[ox] = full[static_cast<size_t>(ox) * _xStep];
    }
    return 0;
}

ConvAgent* ConvFact(Buffer* src, Buffer* dst, CorrTemplate* kernel, int imgSigned, int tplSigned, int xStep,
                    int yStep) {
    return MakeAgent<swConvAgent>({{src, HostTypes::Any}, {dst, HostTypes::Any}}, src, dst, kernel, imgSigned,
                                  tplSigned, xStep, yStep);
}

ConvAgent* ConvFact(Buffer* src, Buffer* dst, Rect r, CorrTemplate* kernel, int imgSigned, int tplSigned,
                    int xStep, int yStep) {
    return MakeAgent<swConvAgent>({{src, HostTypes::Any}, {dst, HostTypes::Any}}, src, dst, r, kernel,
                                  imgSigned, tplSigned, xStep, yStep);
}

ConvAgent* ConvFact(Buffer* src, Buffer* dst, Point p, ROI* roi, CorrTemplate* kernel, int imgSigned,
                    int tplSigned, int xStep, int yStep) {
    return MakeAgent<swConvAgent>({{src, HostTypes::Any}, {dst, HostTypes::Any}}, src, dst, p, roi, kernel,
                                  imgSigned, tplSigned, xStep, yStep);
}

ConvAgent* ConvFact(Buffer* src, Buffer* dst, int left, int top, int right, int bottom, CorrTemplate* kernel,
                    int imgSigned, int tplSigned, int xStep, int yStep) {
    return ConvFact(src, dst, RectFromInts(left, top, right, bottom), kernel, imgSigned, tplSigned, xStep,
                    yStep);
}

}  // namespace ombrel
