// SPDX-License-Identifier: MIT
/// \file
/// Convolution: an 8-bit image filtered with an arbitrary kernel held in a CorrTemplate, sampled every
/// _xStep columns and _yStep rows, so that one pass can filter and decimate.
///
/// Per-pixel contract (the software agent, every SIMD level and any future board agent give these bytes).
/// With K the template's buffer (kw x kh bytes, read signed when the template-signed setting is nonzero),
/// I the source (read signed when the image-signed setting is nonzero) and (hx, hy) the template's hot spot:
///   - sample range: sx_start = _sPt.x - hx, sx_stop = sx_start + region width (from the unclipped start);
///     a start below 0 becomes 0; if kw + sx_stop > source width + 1 then sx_stop = source width + 1 - kw;
///     rows likewise with the height and kh;
///   - samples ix = sx_start, sx_start + _xStep, ... < sx_stop and iy = sy_start, sy_start + _yStep, ...
///     < sy_stop; the n-th sampled column of the m-th sampled row goes to destination (n, m): the
///     destination is written from its top-left corner whatever _sPt is;
///   - acc = sum over ky < kh, kx < kw of K[ky][kx] * I[iy + ky][ix + kx] in 32-bit signed arithmetic
///     (wrapping). The kernel is NOT mirrored: this is a correlation-form filter, deliberately;
///   - with the clip flag set and either setting signed, acc = max(acc, 0) (no public operation sets it);
///   - out = low 8 bits of (acc arithmetically shifted right by `shift`). No saturation: results above 255
///     wrap, on purpose;
///   - shift = number of significant bits of d, d = trunc(sqrt(kernel sum of squares)) (the template's
///     stored statistics), so the output is divided by the power of two just above d, never by d.
///     A kernel of energy 0 gives shift 0; a 1x1 kernel of 1 halves; a 3x3 box of ones divides by 4.
///   - when the template's signed flag differs from the template-signed setting, Go recomputes the template
///     with that setting first.
/// Preconditions are assertions (module "conv"); the agent then goes on with what it has. Safety: the
/// sample range above never lets the kernel leave the source; work is also clipped to the destination
/// (outputs beyond its width or height are not written), and nothing is touched when the range is empty,
/// a buffer or the template's buffer is missing or not 8-bit. Go() returns 0 in every case.
#pragma once
#include <cstdint>
#include <vector>

#include "ombrel/corr/corr_template.h"
#include "ombrel/framework/agent.h"
#include "ombrel/framework/buffer.h"
#include "ombrel/framework/export.h"
#include "ombrel/framework/geometry.h"
#include "ombrel/framework/roi.h"

namespace ombrel {

/// Convolution of an 8-bit image with an 8-bit kernel held in a correlation template; the sum, shift and
/// output rules are in conv.h. Made by ConvFact.
class OMBREL_API ConvAgent : public Agent {
  public:
    ///@{
    /// Output into `dst` from the region: the whole source image, the rectangle `r`, or `roi` placed at `p`.
    /// The four integers are the image-signed setting, the template-signed setting and the steps in x and y.
    ConvAgent(Buffer* src, Buffer* dst, CorrTemplate* kernel, int imgSigned, int tplSigned, int xStep,
              int yStep);
    ConvAgent(Buffer* src, Buffer* dst, Rect r, CorrTemplate* kernel, int imgSigned, int tplSigned, int xStep,
              int yStep);
    ConvAgent(Buffer* src, Buffer* dst, Point p, ROI* roi, CorrTemplate* kernel, int imgSigned, int tplSigned,
              int xStep, int yStep);
    ///@}
    ~ConvAgent() override = default;

    /// The destination (not owned).
    Buffer* DstBuf() const { return _dstBuf; }
    /// The kernel's template (not owned).
    CorrTemplate* Template() const { return _convTemplate; }
    ///@{
    /// Output steps in x and y.
    int XStep() const { return _xStep; }
    int YStep() const { return _yStep; }
    ///@}

    ///@{
    /// The run geometry of the last Setup (tests and callers that want the output size read it).
    int SxStart() const { return _sxStart; }
    int SxStop() const { return _sxStop; }
    int SyStart() const { return _syStart; }
    int SyStop() const { return _syStop; }
    int Shift() const { return _shift; }
    ///@}

  protected:
    /// Validates and computes the run geometry; true when there is something safe to run.
    bool Setup();
    /// Reports every failed precondition of the current set-up.
    void CheckPreconditions() const;

    CorrTemplate* _convTemplate = nullptr;  ///< not owned
    Buffer* _dstBuf = nullptr;              ///< not owned
    int32_t _xStep = 1;
    int32_t _yStep = 1;
    int32_t _imgSigned = 0;
    int32_t _tplSigned = 0;
    int32_t _clip = 0;
    int32_t _rootOfEnergy = 1;
    int32_t _templateSum = 0;
    int32_t _absoluteSum = 0;
    int32_t _fixedDivisor = 0;
    int32_t _divisor = 0;

    /// Run geometry.
    int32_t _kw = 0, _kh = 0;
    int64_t _kPitch = 0, _sPitch = 0, _dPitch = 0;
    const uint8_t* _kBase = nullptr;
    const uint8_t* _sBase = nullptr;
    uint8_t* _dBase = nullptr;
    int32_t _sxStart = 0, _sxStop = 0, _syStart = 0, _syStop = 0;
    int32_t _dxFirst = 0, _dyFirst = 0;
    int32_t _shift = 0;
    std::vector<int16_t> _coeffs;  ///< the kernel widened once, row after row
};

/// The software convolution agent (host buffers).
class OMBREL_API swConvAgent : public ConvAgent {
  public:
    /// The constructors of ConvAgent.
    using ConvAgent::ConvAgent;
    int Go() override;
};

///@{
/// The software agent when both buffers are host buffers (either host type); null for board buffers (no back
/// end yet), a mix, or no memory.
OMBREL_API ConvAgent* ConvFact(Buffer* src, Buffer* dst, CorrTemplate* kernel, int imgSigned, int tplSigned,
                               int xStep, int yStep);
OMBREL_API ConvAgent* ConvFact(Buffer* src, Buffer* dst, Rect r, CorrTemplate* kernel, int imgSigned,
                               int tplSigned, int xStep, int yStep);
OMBREL_API ConvAgent* ConvFact(Buffer* src, Buffer* dst, Point p, ROI* roi, CorrTemplate* kernel,
                               int imgSigned, int tplSigned, int xStep, int yStep);
OMBREL_API ConvAgent* ConvFact(Buffer* src, Buffer* dst, int left, int top, int right, int bottom,
                               CorrTemplate* kernel, int imgSigned, int tplSigned, int xStep, int yStep);
///@}

}  // namespace ombrel
