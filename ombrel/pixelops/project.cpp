// SPDX-License-Identifier: MIT
#include "ombrel/pixelops/project.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "ombrel/framework/factory.h"
#include "ombrel/framework/hal.h"
#include "ombrel/framework/isa.h"
#include "ombrel/framework/kernel_family.h"
#include "ombrel/pixelops/project_kernels.h"

namespace ombrel {
namespace {

constexpr const char* kModule = "project";
constexpr const char* kFactModule = "lfproject";
// Column sums go down the image in blocks of this many rows, so that one block of every strip of columns is
// still in the cache when the next strip reads the same lines.
constexpr int kRowsPerBlock = 256;

// The zones of one line [first, last) of the region: calls fn(zoneStart, k) for the k-th zone of `size`
// pixels, the last moved back to end at `last`; stops after `maxZones` zones or, when the spacing cannot
// advance (0), after the first.
template <class ZoneFn>
void ForEachZone(int64_t first, int64_t last, int size, int space, int64_t maxZones, ZoneFn&& fn) {
    int64_t start = first;
    for (int64_t k = 0; k < maxZones && start < last; ++k) {
        const bool movedBack = start + size > last;
        if (movedBack) start = last - size;
        fn(start, k);
        if (movedBack || space <= 0) return;
        start += space;
    }
}

uint8_t Normalised(uint64_t sum, int shift) {
    return static_cast<uint8_t>(static_cast<uint32_t>(sum) >> shift);
}

}  // namespace

// ---- ProjectAgent
// ------------------------------------------------------------------------------------------

ProjectAgent::ProjectAgent(Buffer* src, Buffer* dst, ProjectType type)
    : Agent(src), _dstBuf(dst), _type(type) {}

ProjectAgent::ProjectAgent(Buffer* src, Buffer* dst, Rect r, ProjectType type)
    : Agent(src, r), _dstBuf(dst), _type(type) {}

ProjectAgent::ProjectAgent(Buffer* src, Buffer* dst, Point p, const ROI& roi, ProjectType type)
    : Agent(src, p, roi), _dstBuf(dst), _type(type) {}

void ProjectAgent::SetZoneSizeSpace(int size, int space) {
    _zoneSize = size;
    _zoneSpace = space;
    if (size < 5) {
        aprintf("\nProjection zone size too small . . . ignored.");
        _zoneSize = 0;
    }
    if (space < 0) {
        aprintf("\nProjection zone spacing has illegal value . . . ignored.");
        _zoneSize = 0;
    }
}

int ProjectAgent::BitLength(int64_t n) {
    int bits = 0;
    for (uint64_t v = n > 0 ? static_cast<uint64_t>(n) : 0; v != 0; v >>= 1) ++bits;
    return bits;
}

int ProjectAgent::PixelsPerSum() const {
    if (_zoneSize > 0) return _zoneSize;
    return _type == VERTICAL ? _sRoi.Width() : _sRoi.Height();
}

void ProjectAgent::DoAssertions() const {
    const bool haveSrc = Check(_srcBuf != nullptr, kModule, 63, "_srcBuf");
    const bool haveDst = Check(_dstBuf != nullptr, kModule, 64, "_dstBuf");
    Check(_type == HORIZONTAL || _type == VERTICAL, kModule, 65, "_type == HORIZONTAL || _type == VERTICAL");
    if (haveSrc) {
        Check(_sPt.x >= 0 && _sPt.x < _srcBuf->Width(), kModule, 66,
              "_sPt.x >= 0 && _sPt.x < _srcBuf->Width()");
        Check(_sPt.y >= 0 && _sPt.y < _srcBuf->Height(), kModule, 67,
              "_sPt.y >= 0 && _sPt.y < _srcBuf->Height()");
    }
    Check(_sRoi.Width() != 0, kModule, 68, "_sRoi.Width()");
    Check(_sRoi.Height() != 0, kModule, 69, "_sRoi.Height()");
    if (haveSrc) {
        Check(int64_t{_sPt.x} + _sRoi.Width() <= _srcBuf->Width(), kModule, 70,
              "_sPt.x + _sRoi.Width() <= _srcBuf->Width()");
        Check(int64_t{_sPt.y} + _sRoi.Height() <= _srcBuf->Height(), kModule, 71,
              "_sPt.y + _sRoi.Height() <= _srcBuf->Height()");
    }
    if (haveDst && _zoneSize == 0) {
        if (_type == HORIZONTAL)
            Check(_dstBuf->Width() >= _sRoi.Width(), kModule, 73, "_dstBuf->Width() >= _sRoi.Width()");
        else if (_type == VERTICAL)
            Check(_dstBuf->Width() >= _sRoi.Height(), kModule, 74, "_dstBuf->Width() >= _sRoi.Height()");
    } else if (haveDst) {
        // A spacing of 0 cannot be divided by: such zones are not allowed, so the check fails.
        if (_type == HORIZONTAL)
            Check(_zoneSpace != 0 && _dstBuf->Height() >= _sRoi.Height() / _zoneSpace, kModule, 76,
                  "_dstBuf->Height() >= _sRoi.Height() / _zoneSpace");
        else if (_type == VERTICAL)
            Check(_zoneSpace != 0 && _dstBuf->Height() >= _sRoi.Width() / _zoneSpace, kModule, 77,
                  "_dstBuf->Height() >= _sRoi.Width() / _zoneSpace");
    }
    Check(_dstRow >= 0 && _dstRow < _sRoi.Height(), kModule, 79, "_dstRow >= 0 && _dstRow < _sRoi.Height()");
}

// ---- swProjectAgent
// ----------------------------------------------------------------------------------------

swProjectAgent::swProjectAgent(Buffer* src, Buffer* dst, Rect r, ProjectType type)
    : ProjectAgent(src, dst, r, type) {}

swProjectAgent::swProjectAgent(Buffer* src, Buffer* dst, Point p, const ROI& roi, ProjectType type)
    : ProjectAgent(src, dst, p, roi, type) {}

int swProjectAgent::Go() {
    DoAssertions();
    if (_dstBuf == nullptr || _dstBuf->BaseAddr() == nullptr || _dstBuf->BitsPerPixel() != EIGHT) return 0;
    if (_dstRow < 0 || _dstRow >= _dstBuf->Height()) return 0;
    std::memset(_dstBuf->Row(_dstRow), 0, static_cast<size_t>(_dstBuf->Width()));
    if (_srcBuf == nullptr || _srcBuf->BaseAddr() == nullptr || _srcBuf->BitsPerPixel() != EIGHT) return 0;
    if (_sRoi.Width() <= 0 || _sRoi.Height() <= 0) return 0;
    if (_autoShift) _shift = BitLength(PixelsPerSum());
    if (_type == HORIZONTAL) ProjectColumns();
    if (_type == VERTICAL) ProjectRows();
    return 0;
}

// HORIZONTAL: one sum per column over all rows, or over each zone of rows. Columns and zones that fall
// outside the destination are not computed; pixels outside the source add nothing.
void swProjectAgent::ProjectColumns() {
    const Buffer& src = *_srcBuf;
    const Buffer& dst = *_dstBuf;
    const int64_t x0 = _sPt.x, y0 = _sPt.y, y1 = y0 + _sRoi.Height();
    const int columns = static_cast<int>(std::min<int64_t>(_sRoi.Width(), dst.Width()));
    // The columns inside the source, as region columns [c0, c1).
    const int c0 = static_cast<int>(std::clamp<int64_t>(-x0, 0, columns));
    const int c1 = static_cast<int>(std::clamp<int64_t>(src.Width() - x0, c0, columns));
    // Column sums live on the stack, a strip of columns at a time: Go allocates nothing, so it cannot fail.
    constexpr int kStrip = 1024;
    uint32_t sums[kStrip];
    const Isa level = ActiveIsa();

    // Sums rows [top, bottom) of the image (clipped to the source) into fresh column sums and writes them.
    auto project = [&](int64_t top, int64_t bottom, int dstRow) {
        top = std::max<int64_t>(top, 0);
        bottom = std::min<int64_t>(bottom, src.Height());
        uint8_t* out = dst.Row(dstRow);
        for (int s0 = 0; s0 < columns; s0 += kStrip) {
            const int n = std::min(kStrip, columns - s0);
            const int b0 = std::max(c0, s0), b1 = std::min(c1, s0 + n);  // inside the source
            std::fill(sums, sums + n, 0u);
            for (int64_t r = top; r < bottom && b0 < b1; r += kRowsPerBlock) {
                project::ColumnJob job;
                job.top = src.Row(static_cast<int>(r)) + x0 + b0;
                job.pitch = src.Pitch();
                job.rows = static_cast<int>(std::min<int64_t>(kRowsPerBlock, bottom - r));
                job.sums = sums + (b0 - s0);
                project::kColumnKernels.Run(level, 0, b1 - b0, job);
            }
            for (int c = 0; c < n; ++c) out[s0 + c] = Normalised(sums[c], _shift);
        }
    };

    if (_zoneSize == 0) {
        project(y0, y1, _dstRow);
        return;
    }
    ForEachZone(
        y0, y1, _zoneSize, _zoneSpace, int64_t{dst.Height()} - _dstRow,
        [&](int64_t start, int64_t k) { project(start, start + _zoneSize, static_cast<int>(_dstRow + k)); });
}

// VERTICAL: one sum per row over all columns, or over each zone of columns, through horizontal adds.
void swProjectAgent::ProjectRows() {
    const Buffer& src = *_srcBuf;
    const Buffer& dst = *_dstBuf;
    const int64_t x0 = _sPt.x, x1 = x0 + _sRoi.Width(), y0 = _sPt.y;
    const Isa level = ActiveIsa();

    // The sum of image row y over columns [left, right), clipped to the source.
    auto rowSum = [&](int64_t y, int64_t left, int64_t right) -> uint64_t {
        left = std::max<int64_t>(left, 0);
        right = std::min<int64_t>(right, src.Width());
        if (y < 0 || y >= src.Height() || left >= right) return 0;
        uint64_t sum = 0;
        project::RowJob job{src.Row(static_cast<int>(y)) + left, &sum};
        project::kRowKernels.Run(level, 0, static_cast<int>(right - left), job);
        return sum;
    };

    if (_zoneSize == 0) {
        const int rows = static_cast<int>(std::min<int64_t>(_sRoi.Height(), dst.Width()));
        uint8_t* out = dst.Row(_dstRow);
        for (int r = 0; r < rows; ++r) out[r] = Normalised(rowSum(y0 + r, x0, x1), _shift);
        return;
    }
    const int rows =
        static_cast<int>(std::clamp<int64_t>(int64_t{dst.Height()} - _dstRow, 0, _sRoi.Height()));
    for (int r = 0; r < rows; ++r) {
        uint8_t* out = dst.Row(_dstRow + r);
        ForEachZone(x0, x1, _zoneSize, _zoneSpace, dst.Width(), [&](int64_t start, int64_t k) {
            out[k] = Normalised(rowSum(y0 + r, start, start + _zoneSize), _shift);
        });
    }
}

// ---- ProjectFact
// -------------------------------------------------------------------------------------------

ProjectAgent* ProjectFact(Buffer* src, Buffer* dst, Rect r, ProjectType type) {
    OMBREL_ASSERT_HERE(kFactModule, src && dst, "src && dst");
    return MakeAgent<swProjectAgent>({{src, HostTypes::OwnedOnly}, {dst, HostTypes::Any}}, src, dst, r, type);
}

ProjectAgent* ProjectFact(Buffer* src, Buffer* dst, ProjectType type) {
    const Rect whole{0, 0, src != nullptr ? src->Width() : 0, src != nullptr ? src->Height() : 0};
    return ProjectFact(src, dst, whole, type);
}

ProjectAgent* ProjectFact(Buffer* src, Buffer* dst, Point p, const ROI& roi, ProjectType type) {
    OMBREL_ASSERT_HERE(kFactModule, src && dst, "src && dst");
    return MakeAgent<swProjectAgent>({{src, HostTypes::OwnedOnly}, {dst, HostTypes::Any}}, src, dst, p, roi,
                                     type);
}

ProjectAgent* ProjectFact(Buffer* src, Buffer* dst, int left, int top, int right, int bottom,
                          ProjectType type) {
    return ProjectFact(src, dst, RectFromInts(left, top, right, bottom), type);
}

}  // namespace ombrel
