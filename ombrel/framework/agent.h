// SPDX-License-Identifier: MIT
/// \file
/// The base of every image operation. An agent is set up on a source buffer and a region placed at an origin,
/// re-aimed at will, and run with Go() as often as wanted. Agents keep their per-run state in their own
/// fields and take no locks: one agent is used by one thread at a time.
#pragma once
#include <cstdint>

#include "ombrel/framework/buffer.h"
#include "ombrel/framework/export.h"
#include "ombrel/framework/geometry.h"
#include "ombrel/framework/roi.h"

namespace ombrel {

/// The interface every operation shares: a source buffer, the origin `SrcPt()` where the region is placed on
/// it, the region `SrcROI()`, and `Go()`. Get an agent from its operation's factory (`ArithFact`, `BlobFact`,
/// ...), which picks the implementation from the buffers; delete it through this class.
class OMBREL_API Agent {
  public:
    /// A function the caller's own agents may call to keep a display alive during long runs.
    using RefreshCallback = void (*)();

    /// No source and an empty region; set them before Go().
    Agent();
    /// Source `src` over the rectangle `r`: the origin is its top-left corner and the region its extent.
    Agent(Buffer* src, Rect r);
    /// Source `src` with the region `roi` (copied) placed at `p`.
    Agent(Buffer* src, const Point& p, const ROI& roi);
    /// Also clears the process-wide refresh callback; only this constructor does.
    explicit Agent(Buffer* src);

    /// Aims the agent at another source buffer (same region and origin).
    virtual void SetSrcBuf(Buffer* src) { _srcBuf = src; }
    /// Moves the region's origin on the source.
    virtual void SetSrcPt(const Point& p) { _sPt = p; }
    /// Each value becomes a 16-fraction-bit fixed-point number rounded to the nearest integer, then goes to
    /// the integer form, so an agent overriding that form is reached from here too.
    virtual void SetExtent(const double& w, const double& h);
    /// Resizes the region to `w` x `h`.
    virtual void SetExtent(int w, int h) { _sRoi.SetExtent(w, h); }
    /// Replaces the region (copied).
    virtual void SetSrcROI(const ROI& roi) { _sRoi = roi; }
    /// Frees what the agent created (intermediate buffers, sub-agents); never the caller's buffers.
    virtual ~Agent();
    /// Runs the operation once on the current buffers and region. Returns 0 on success and the operation's
    /// negative status otherwise; it may be called any number of times.
    virtual int Go() = 0;

    /// The source buffer (not owned).
    Buffer* SrcBuf() const { return _srcBuf; }
    /// Where the region's (0, 0) lies on the source.
    const Point& SrcPt() const { return _sPt; }
    /// The region of interest.
    const ROI& SrcROI() const { return _sRoi; }

    /// Rectangle given either way up: the height is |bottom - top|, the width right - left as it stands.
    void Setup(Buffer* src, Rect r);
    /// Source `src` with the region `roi` (copied) placed at `p`.
    void Setup(Buffer* src, const Point& p, const ROI& roi);
    /// Source `src` with a region covering the whole buffer from (0, 0).
    void Setup(Buffer* src);

    /// Switch for the packed SIMD paths of agents that define one (off by default).
    void SetVectorInstructions(bool on) { _vectorInstructions = on ? 1 : 0; }
    /// Whether the packed SIMD paths are switched on.
    bool VectorInstructions() const { return _vectorInstructions != 0; }

    /// Time limit in milliseconds from `startSeconds` on the HalGetClock time base; 0 means none.
    void SetTimeout(double timeoutMs, double startSeconds);
    /// True once the time limit set by SetTimeout has passed (never when it is 0).
    bool HaveWeTimedOut() const;

    /// Kept for the caller's own agents; the library never calls it.
    static void RegisterRefreshCallback(RefreshCallback callback);
    /// The callback last registered (null when none).
    static RefreshCallback GetRefreshCallback();

  protected:
    Buffer* _srcBuf = nullptr;
    Point _sPt;
    ROI _sRoi;
    int32_t _agentWord0 = 0;  ///< meaning given by the agents that use it
    int32_t _agentWord1 = 0;
    int32_t _vectorInstructions = 0;
    int32_t _agentSetting = 9;
    double _timeout = 0.0;    ///< milliseconds
    double _startTime = 0.0;  ///< seconds

  private:
    void ResetCommonState();
};

}  // namespace ombrel
