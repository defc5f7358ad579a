// SPDX-License-Identifier: MIT
// The one place where an agent works out which part of its region it may touch.
//
// Before its loops, every Go computes the rectangle of its region (in region coordinates) that lies inside
// every buffer it reads or writes, each placed at its own origin; it then walks only the spans of the region
// inside that rectangle. A region that hangs over a buffer's edge is clipped; one with nothing inside, or a
// buffer without pixels, leaves an empty rectangle and no pixel is touched.
#pragma once
#include <algorithm>
#include <cstdint>
#include <initializer_list>

#include "ombrel/framework/buffer.h"
#include "ombrel/framework/geometry.h"
#include "ombrel/framework/roi.h"

namespace ombrel {

// A buffer and the image position where region pixel (0, 0) falls on it.
struct Placement {
    const Buffer* buffer;
    Point origin;
};

// The part of a width x height region that lies inside every placed buffer, in region coordinates. Empty
// (all zero) when any buffer is null or has no pixels, or when nothing overlaps.
inline Rect ClipRegionToBuffers(int width, int height, std::initializer_list<Placement> placements) {
    int64_t left = 0, top = 0, right = std::max(width, 0), bottom = std::max(height, 0);
    for (const Placement& p : placements) {
        if (p.buffer == nullptr || p.buffer->BaseAddr() == nullptr) return Rect{};
        left = std::max<int64_t>(left, -int64_t{p.origin.x});
        top = std::max<int64_t>(top, -int64_t{p.origin.y});
        right = std::min<int64_t>(right, int64_t{p.buffer->Width()} - p.origin.x);
        bottom = std::min<int64_t>(bottom, int64_t{p.buffer->Height()} - p.origin.y);
    }
    if (right <= left || bottom <= top) return Rect{};
    return Rect{static_cast<int32_t>(left), static_cast<int32_t>(top), static_cast<int32_t>(right),
                static_cast<int32_t>(bottom)};
}

// The same for a region: a masked region is also limited to the rows of its scan list.
inline Rect ClipRegionToBuffers(const ROI& roi, std::initializer_list<Placement> placements) {
    Rect clip = ClipRegionToBuffers(roi.Width(), roi.Height(), placements);
    if (roi.IsMasked()) clip.bottom = std::min(clip.bottom, roi.ScanRows());
    if (clip.IsEmpty()) clip = Rect{};
    return clip;
}

// Calls fn(row, column, length) for every span of `roi` inside `clip` (region coordinates), rows top to
// bottom in steps of `rowStep` from clip.top, spans left to right. A rectangular region has one span per row.
template <class SpanFn>
void ForEachSpan(const ROI& roi, const Rect& clip, SpanFn&& fn, int rowStep = 1) {
    if (clip.IsEmpty()) return;
    if (rowStep < 1) rowStep = 1;
    const ROIRowStore* scans = roi.GetScans();
    for (int64_t y = clip.top; y < clip.bottom; y += rowStep) {
        const int row = static_cast<int>(y);
        if (scans == nullptr) {
            fn(row, clip.left, clip.Width());
            continue;
        }
        const ROIRowStore& store = scans[row];
        for (int i = 0; i < store.SegCnt(); ++i) {
            const int64_t start = std::max<int64_t>(store.scans[i].Start(), clip.left);
            const int64_t end =
                std::min<int64_t>(int64_t{store.scans[i].Start()} + store.scans[i].Len(), clip.right);
            if (start < end) fn(row, static_cast<int>(start), static_cast<int>(end - start));
        }
    }
}

}  // namespace ombrel
