// SPDX-License-Identifier: MIT
// The base of every image operation. An agent is set up on a source buffer and a region placed at an origin,
// re-aimed at will, and run with Go() as often as wanted. Agents keep their per-run state in their own
// fields and take no locks: one agent is used by one thread at a time.
#pragma once
#include <cstdint>

#include "ombrel/framework/buffer.h"
#include "ombrel/framework/export.h"
#include "ombrel/framework/geometry.h"
#include "ombrel/framework/roi.h"

namespace ombrel {

class OMBREL_API Agent {
  public:
    using RefreshCallback = void (*)();

    Agent();
    Agent(Buffer* src, Rect r);
    Agent(Buffer* src, const Point& p, const ROI& roi);
    // Also clears the process-wide refresh callback; only this constructor does.
    explicit Agent(Buffer* src);

    virtual void SetSrcBuf(Buffer* src) { _srcBuf = src; }
    virtual void SetSrcPt(const Point& p) { _sPt = p; }
    // Each value becomes a 16-fraction-bit fixed-point number rounded to the nearest integer, then goes to
    // the integer form, so an agent overriding that form is reached from here too.
    virtual void SetExtent(const double& w, const double& h);
    virtual void SetExtent(int w, int h) { _sRoi.SetExtent(w, h); }
    virtual void SetSrcROI(const ROI& roi) { _sRoi = roi; }
    virtual ~Agent();
    virtual int Go() = 0;

    Buffer* SrcBuf() const { return _srcBuf; }
    const Point& SrcPt() const { return _sPt; }
    const ROI& SrcROI() const { return _sRoi; }

    // Rectangle given either way up: the height is |bottom - top|, the width right - left as it stands.
    void Setup(Buffer* src, Rect r);
    void Setup(Buffer* src, const Point& p, const ROI& roi);
    void Setup(Buffer* src);

    // Switch for the packed SIMD paths of agents that define one (off by default).
    void SetVectorInstructions(bool on) { _vectorInstructions = on ? 1 : 0; }
    bool VectorInstructions() const { return _vectorInstructions != 0; }

    // Time limit in milliseconds from `startSeconds` on the HalGetClock time base; 0 means none.
    void SetTimeout(double timeoutMs, double startSeconds);
    bool HaveWeTimedOut() const;

    // Kept for the caller's own agents; the library never calls it.
    static void RegisterRefreshCallback(RefreshCallback callback);
    static RefreshCallback GetRefreshCallback();

  protected:
    Buffer* _srcBuf = nullptr;
    Point _sPt;
    ROI _sRoi;
    int32_t _agentWord0 = 0;  // meaning given by the agents that use it
    int32_t _agentWord1 = 0;
    int32_t _vectorInstructions = 0;
    int32_t _agentSetting = 9;
    double _timeout = 0.0;    // milliseconds
    double _startTime = 0.0;  // seconds

  private:
    void ResetCommonState();
};

}  // namespace ombrel
