// SPDX-License-Identifier: MIT
#include "ombrel/pixelops/frame_average.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <new>

#include "ombrel/framework/factory.h"
#include "ombrel/framework/hal.h"
#include "ombrel/framework/isa.h"
#include "ombrel/framework/kernel_family.h"
#include "ombrel/pixelops/frame_average_kernels.h"

namespace ombrel {
namespace {

constexpr const char* kFactModule = "lfframeaverage";

// The steady phase's shift: the window's log2 for the powers of two up to 32, else none.
int SteadyShift(int windowSize) {
    switch (windowSize) {
        case 2:
            return 1;
        case 4:
            return 2;
        case 8:
            return 3;
        case 16:
            return 4;
        case 32:
            return 5;
        default:
            return 0;
    }
}

}  // namespace

FrameAverageAgent::FrameAverageAgent(Buffer* src, Buffer* dst, int N)
    : Agent(src), _dstBuf(dst), _windowSize(N) {}

FrameAverageAgent::FrameAverageAgent(Buffer* src, Buffer* dst, int N, Rect r)
    : Agent(src, r), _dstBuf(dst), _windowSize(N) {}

FrameAverageAgent::FrameAverageAgent(Buffer* src, Buffer* dst, int N, Point p, const ROI& roi)
    : Agent(src, p, roi), _dstBuf(dst), _windowSize(N) {}

FrameAverageAgent::~FrameAverageAgent() {
    Cleanup();
}

void FrameAverageAgent::Setup(Buffer* dst, int N) {
    _dstBuf = dst;
    _windowSize = N;
    Cleanup();
}

void FrameAverageAgent::Cleanup() {
    _accumulator.reset();
    _spare.reset();
    for (Buffer* frame : _queue) delete frame;
    _queue.clear();
}

// A fresh window whenever there is no accumulator or the region changed size; false without memory.
bool FrameAverageAgent::PrepareWindow(int width, int height) {
    if (_accumulator && _accumulator->Width() == width && _accumulator->Height() == height) return true;
    Cleanup();
    auto accumulator = std::make_unique<Buffer>(width, height, THIRTYTWO);
    if (accumulator->GetError() != BUFFER_OK) return false;
    _accumulator = std::move(accumulator);
    return true;
}

// The buffer the new frame is copied into: the frame that left the queue last, or a new one.
Buffer* FrameAverageAgent::NewFrame(int width, int height) {
    if (_spare && _spare->Width() == width && _spare->Height() == height) return _spare.release();
    auto frame = std::make_unique<Buffer>(width, height, EIGHT);
    if (frame->GetError() != BUFFER_OK) return nullptr;
    return frame.release();
}

// Copies region row `row` of the source into the frame; what lies outside the source becomes 0.
void FrameAverageAgent::CopyRegionRow(const Buffer& frame, int row) const {
    uint8_t* out = frame.Row(row);
    const int width = frame.Width();
    const int64_t sy = int64_t{_sPt.y} + row;
    const int64_t c0 = std::clamp<int64_t>(-int64_t{_sPt.x}, 0, width);
    const int64_t c1 = std::clamp<int64_t>(int64_t{_srcBuf->Width()} - _sPt.x, c0, width);
    if (sy < 0 || sy >= _srcBuf->Height() || _srcBuf->BaseAddr() == nullptr || c0 >= c1) {
        std::memset(out, 0, static_cast<size_t>(width));
        return;
    }
    std::memset(out, 0, static_cast<size_t>(c0));
    std::memcpy(out + c0, _srcBuf->Row(static_cast<int>(sy)) + _sPt.x + c0, static_cast<size_t>(c1 - c0));
    std::memset(out + c1, 0, static_cast<size_t>(width - c1));
}

int FrameAverageAgent::Go() {
    if (_srcBuf == nullptr || _windowSize <= 0) return 0;
    const auto started = std::chrono::steady_clock::now();
    const int width = _sRoi.Width(), height = _sRoi.Height();
    if (width <= 0 || height <= 0 || _srcBuf->BitsPerPixel() != EIGHT) return 0;

    Buffer* frame = nullptr;
    try {
        if (!PrepareWindow(width, height) || (frame = NewFrame(width, height)) == nullptr)
            return kFrameAverageNoMemory;
        _scratchRow.resize(static_cast<size_t>(width));
        _queue.push_back(frame);
    } catch (const std::bad_alloc&) {
        delete frame;
        return kFrameAverageNoMemory;
    }

    const bool steady = _queue.size() > static_cast<size_t>(_windowSize);
    const Buffer* oldest = steady ? _queue.front() : nullptr;
    const Buffer* dst = _dstBuf;
    if (dst != nullptr && (dst->BaseAddr() == nullptr || dst->BitsPerPixel() != EIGHT)) dst = nullptr;
    const int dstWidth = dst != nullptr ? std::min(width, dst->Width()) : 0;
    const int dstHeight = dst != nullptr ? std::min(height, dst->Height()) : 0;
    const Isa level = ActiveIsa();

    for (int y = 0; y < height; ++y) {
        CopyRegionRow(*frame, y);
        // Rows and columns the destination lacks still go through the accumulator.
        const bool direct = y < dstHeight && dstWidth == width;
        uint8_t* out = direct ? dst->Row(y) : _scratchRow.data();
        auto* acc = reinterpret_cast<uint32_t*>(_accumulator->Row(y));
        if (steady) {
            frame_average::SteadyJob job{frame->Row(y), oldest->Row(y), acc, out, SteadyShift(_windowSize)};
            frame_average::kSteadyKernels.Run(level, 0, width, job);
        } else {
            frame_average::FillJob job{frame->Row(y), acc, out, static_cast<uint32_t>(_queue.size())};
            frame_average::kFillKernels.Run(level, 0, width, job);
        }
        if (!direct && y < dstHeight) std::memcpy(dst->Row(y), out, static_cast<size_t>(dstWidth));
    }

    if (steady) {
        _spare.reset(_queue.front());
        _queue.pop_front();
    }
    _lastGoMs = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - started).count();
    return 0;
}

// ---- FrameAverageFact ------------------------------------------------------------------------------------

FrameAverageAgent* FrameAverageFact(Buffer* src, Buffer* dst, int N, Point p, const ROI& roi) {
    OMBREL_ASSERT_HERE(kFactModule, src && dst, "src && dst");
    if (src != nullptr && dst != nullptr) {
        const ROI* sRoi = &roi;
        const Point sPt = p;
        Buffer* srcBuf = src;
        Buffer* dstBuf = dst;
        Check(!((sPt.x < 0) || (sPt.y < 0) || (int64_t{sPt.x} + sRoi->Width() > srcBuf->Width()) ||
                (int64_t{sPt.y} + sRoi->Height() > srcBuf->Height()) || (sRoi->Width() > dstBuf->Width()) ||
                (sRoi->Height() > dstBuf->Height())),
              kFactModule, __LINE__,
              "!((sPt.x<0) || (sPt.y<0) || (sPt.x+sRoi->Width() > srcBuf->Width()) || "
              "(sPt.y+sRoi->Height() > srcBuf->Height()) || (sRoi->Width() > dstBuf->Width()) || "
              "(sRoi->Height() > dstBuf->Height()))");
    }
    return MakeAgent<swFrameAverageAgent>({{src, HostTypes::Any}, {dst, HostTypes::OwnedOnly}}, src, dst, N,
                                          p, roi);
}

FrameAverageAgent* FrameAverageFact(Buffer* src, Buffer* dst, int N, Rect r) {
    // The rectangle is read as every agent reads one: origin at its left/top, height taken either way up.
    ROI roi;
    const int64_t height = r.bottom >= r.top ? int64_t{r.bottom} - r.top : int64_t{r.top} - r.bottom;
    roi.SetExtent(static_cast<int>(int64_t{r.right} - r.left), static_cast<int>(height));
    return FrameAverageFact(src, dst, N, Point{r.left, r.top}, roi);
}

FrameAverageAgent* FrameAverageFact(Buffer* src, Buffer* dst, int N) {
    ROI roi(src != nullptr ? src->Width() : 0, src != nullptr ? src->Height() : 0);
    return FrameAverageFact(src, dst, N, Point{0, 0}, roi);
}

FrameAverageAgent* FrameAverageFact(Buffer* src, Buffer* dst, int N, int left, int top, int right,
                                    int bottom) {
    return FrameAverageFact(src, dst, N, RectFromInts(left, top, right, bottom));
}

}  // namespace ombrel
