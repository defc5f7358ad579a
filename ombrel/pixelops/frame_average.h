// SPDX-License-Identifier: MIT
/// \file
/// The frame-averaging agent: a running average of the last N images that pass through it, to suppress the
/// noise of a stream of grabbed images.
///
/// Per-pixel contract (software agent, every SIMD path and any future board agent give the same bytes).
/// Each Go takes the source region (the agent's extent at its origin) as a new frame: an owned 8-bit copy of
/// the region's size is queued (pixels of the region outside the source are copied as 0). The accumulator
/// (32-bit, region-sized), the destination (8-bit) and every queued copy are addressed from their (0, 0).
/// With L the number of frames queued before this one:
///   filling phase (L < N):  acc += new;            dst = acc / (L + 1), truncated
///   steady phase  (L == N): acc += new - oldest;   dst = low byte of (acc >> s), then the oldest leaves
///                           the queue; s = 1, 2, 3, 4, 5 for N = 2, 4, 8, 16, 32 and s = 0 for every
///                           other N, so that such windows write the low 8 bits of the plain sum (intended:
///                           windows of other sizes are meant for the filling phase's division).
/// The call that brings the queue to N frames still divides (it is the exact mean of N frames); the steady
/// phase starts with the next call, so the window always holds the last N frames. Accumulator arithmetic is
/// unsigned 32-bit.
/// Go() does nothing and returns 0 when the source is null or N <= 0; it returns kFrameAverageNoMemory when
/// the accumulator or a copy cannot be allocated (the window is then left as it was). A region whose size
/// differs from the window's (after SetExtent or SetSrcROI) starts a new window. Only the extent of the
/// region is used; a mask is ignored.
/// Sharing board frames (queuing the source itself instead of a copy) needs the board back end: every
/// source is copied.
/// Safety: the source is read only where the region lies inside it; destination pixels outside the
/// destination are not written (the accumulator still covers the whole region); a destination that is not
/// 8-bit is not written at all.
#pragma once
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include "ombrel/framework/agent.h"
#include "ombrel/framework/buffer.h"
#include "ombrel/framework/export.h"
#include "ombrel/framework/geometry.h"
#include "ombrel/framework/roi.h"

namespace ombrel {

/// Go() status when the accumulator or a frame copy cannot be allocated.
constexpr int kFrameAverageNoMemory = -1;

/// Running average of the last N frames of the source region into the destination (rule in
/// frame_average.h): each Go adds one frame. Made by FrameAverageFact.
class OMBREL_API FrameAverageAgent : public Agent {
  public:
    ///@{
    /// A window of `N` frames into `dst`, over the whole source image, the rectangle `r`, or `roi` placed at
    /// `p`.
    FrameAverageAgent(Buffer* src, Buffer* dst, int N);
    FrameAverageAgent(Buffer* src, Buffer* dst, int N, Rect r);
    FrameAverageAgent(Buffer* src, Buffer* dst, int N, Point p, const ROI& roi);
    ///@}
    FrameAverageAgent(const FrameAverageAgent&) = delete;
    FrameAverageAgent& operator=(const FrameAverageAgent&) = delete;
    /// Deletes the queued frames and the accumulator.
    ~FrameAverageAgent() override;

    using Agent::Setup;
    /// Stores the destination and the window size and starts a new window.
    void Setup(Buffer* dst, int N);
    /// Starts a new window: the accumulator is dropped and the queued frames are deleted.
    void Cleanup();
    /// Replaces the destination.
    void SetDestinationBuffer(Buffer* dst) { _dstBuf = dst; }
    /// The destination (not owned).
    Buffer* DstBuf() const { return _dstBuf; }

    /// Frames in the window now.
    int GetQLength() const { return static_cast<int>(_queue.size()); }
    /// The window size N.
    int GetMaxQLength() const { return _windowSize; }
    /// How long the last Go took, in milliseconds (copy, accumulation and output together); 0 before the
    /// first. A frame rate the agent can keep up with is 1000 / GetPerformance().
    double GetPerformance() const { return _lastGoMs; }

    int Go() override;

  private:
    bool PrepareWindow(int width, int height);
    Buffer* NewFrame(int width, int height);
    void CopyRegionRow(const Buffer& frame, int row) const;

    Buffer* _dstBuf = nullptr;             ///< not owned
    std::unique_ptr<Buffer> _accumulator;  ///< 32-bit, region-sized
    std::deque<Buffer*> _queue;            ///< owned copies, oldest first
    std::unique_ptr<Buffer> _spare;        ///< the last frame to leave, reused for the next copy
    std::vector<uint8_t> _scratchRow;      ///< output of rows or columns the destination does not hold
    int32_t _windowSize = 0;
    double _lastGoMs = 0.0;
};

/// The software implementation runs the base class's Go.
class OMBREL_API swFrameAverageAgent : public FrameAverageAgent {
  public:
    /// The constructors of FrameAverageAgent.
    using FrameAverageAgent::FrameAverageAgent;
};

///@{
/// The software agent when the source is a host buffer and the destination one the library owns
/// (HOST_BUFFER); null for board buffers (no back end yet), a mix, a wrapped destination or no memory.
/// Reports "src && dst" and, with both, the region check of module "lfframeaverage".
OMBREL_API FrameAverageAgent* FrameAverageFact(Buffer* src, Buffer* dst, int N);
OMBREL_API FrameAverageAgent* FrameAverageFact(Buffer* src, Buffer* dst, int N, Rect r);
OMBREL_API FrameAverageAgent* FrameAverageFact(Buffer* src, Buffer* dst, int N, Point p, const ROI& roi);
OMBREL_API FrameAverageAgent* FrameAverageFact(Buffer* src, Buffer* dst, int N, int left, int top, int right,
                                               int bottom);
///@}

}  // namespace ombrel
