// SPDX-License-Identifier: MIT
#include "ombrel/framework/roi.h"

#include <new>

#include "ombrel/framework/hal.h"
#include "ombrel/framework/object_stream.h"

namespace ombrel {
namespace {

constexpr const char* kModule = "roi";

bool MaskBit(const uint8_t* row, int x) {
    return (row[x >> 3] >> (7 - (x & 7))) & 1;
}

// Calls `run(start, length)` for each run of 1-bits in the first `width` bits of a mask row.
template <class RunFn>
void ForEachRun(const uint8_t* row, int width, RunFn run) {
    int x = 0;
    while (x < width) {
        while (x < width && !MaskBit(row, x)) ++x;
        if (x >= width) break;
        const int start = x;
        while (x < width && MaskBit(row, x)) ++x;
        run(start, x - start);
    }
}

}  // namespace

ROI::ROI() = default;

ROI::ROI(int width, int height) : _height(height), _width(width) {}

ROI::ROI(const Buffer* mask) {
    SetMaskbits(mask, false);
}

ROI::ROI(const ROI* other, bool copy) {
    if (other == nullptr) return;
    _width = other->_width;
    _height = other->_height;
    TakeMaskOf(*other, copy);
    _monstMasks[0] = other->_monstMasks[0];
    _monstMasks[1] = other->_monstMasks[1];
}

ROI::ROI(const ROI& other) {
    *this = other;
}

ROI& ROI::operator=(const ROI& other) {
    if (this == &other) return *this;
    DeleteMaskbits();  // a caller's mask stays referred to (detached) until the next mask replaces it
    _width = other._width;
    _height = other._height;
    TakeMaskOf(other, other._ownsMask);
    _monstMasks[0] = other._monstMasks[0];
    _monstMasks[1] = other._monstMasks[1];
    return *this;
}

// A detached mask of `other` may have been freed by its owner since: its pointer is passed on as it is,
// detached here too, and its pixels are never read. Any other mask goes through SetMaskbits.
void ROI::TakeMaskOf(const ROI& other, bool copy) {
    if (!other._maskDetached) {
        SetMaskbits(other._maskbits, copy);
        return;
    }
    DeleteMaskbits();  // after it this region owns no mask, so nothing can leak
    _maskbits = other._maskbits;
    _maskDetached = true;
}

ROI::~ROI() {
    DeleteMaskbits();
    _maskbits = nullptr;
    _ownsMask = false;
    _maskDetached = false;
    _monstMasks[0] = _monstMasks[1] = nullptr;
}

void ROI::SetExtent(const Buffer* buf) {
    if (buf == nullptr) return;
    _width = buf->Width();
    _height = buf->Height();
}

void ROI::SetExtent(int width, int height) {
    _width = width;
    _height = height;
}

void ROI::SetMaskbits(const Buffer* newbits, bool copy) {
    if (newbits != _maskbits) DeleteMaskbits();
    if (newbits == nullptr) return;  // a caller's mask pointer is kept, detached, with the extent
    OMBREL_ASSERT(kModule, 108, (newbits->BitsPerPixel() == ONE) || (newbits->BitsPerPixel() == EIGHT),
                  "(newbits->BitsPerPixel() == ONE) || (newbits->BitsPerPixel() == EIGHT)");
    if (newbits == _maskbits && _ownsMask) {
        UpdateScans();  // already our own copy: keep owning it
        return;
    }
    _maskDetached = false;  // the caller hands this mask in now: it is alive
    if (!copy && newbits->BitsPerPixel() != EIGHT) {
        _maskbits = const_cast<Buffer*>(newbits);
        _ownsMask = false;
        UpdateScans();
        return;
    }
    Buffer* bits = new (std::nothrow) Buffer(newbits->Width(), newbits->Height(), HOST_BANK, ONE, 0, 1);
    _maskbits = bits;
    _ownsMask = bits != nullptr;
    Check(bits != nullptr && bits->BaseAddr() != 0, kModule, 111, "_maskbits->BaseAddr() != 0");
    if (bits == nullptr) return;
    bits->CopyFrom(newbits);
    UpdateScans();
}

void ROI::SetSwMask(Buffer* newbits, bool noScan) {
    DeleteMaskbits();
    _maskbits = newbits;
    _ownsMask = false;
    _maskDetached = false;
    if (newbits == nullptr || noScan) return;
    OMBREL_ASSERT(kModule, 137, newbits->BitsPerPixel() == ONE, "newbits->BitsPerPixel() == ONE");
    UpdateScans();
}

void ROI::DeleteMaskbits() {
    if (_maskbits != nullptr && _ownsMask) {
        delete _maskbits;
        _maskbits = nullptr;
        _ownsMask = false;
    }
    // A caller's mask is neither deleted nor forgotten; without its scans it no longer shapes the region.
    _maskDetached = _maskbits != nullptr;
    FreeScans();
}

void ROI::FreeScans() {
    if (_scans != nullptr) {
        for (int i = 0; i < _scanRows; ++i) delete[] _scans[i].scans;
        delete[] _scans;
    }
    _scans = nullptr;
    _scanRows = 0;
}

Buffer* ROI::GetMonstMask(BankType bank) const {
    return (bank == BANK_0 || bank == BANK_1) ? _monstMasks[bank] : nullptr;
}

void ROI::GetMonstMasks(Buffer** m0, Buffer** m1) const {
    if (m0 != nullptr) *m0 = _monstMasks[0];
    if (m1 != nullptr) *m1 = _monstMasks[1];
}

void ROI::SetMonstMasks(Buffer* buf0, Buffer* buf1) {
    if (buf0 == nullptr && buf1 == nullptr) {
        _monstMasks[0] = _monstMasks[1] = nullptr;
        return;
    }
    if (buf0 == nullptr || buf1 == nullptr) return;  // exactly one given: deliberately nothing changes
    OMBREL_ASSERT(kModule, 159, buf0->Bank() != buf1->Bank(), "buf0->Bank() != buf1->Bank()");
    // Each mask goes to the slot of its own bank; a host bank has no slot.
    for (Buffer* mask : {buf0, buf1}) {
        if (mask->Bank() == BANK_0 || mask->Bank() == BANK_1) _monstMasks[mask->Bank()] = mask;
    }
}

void ROI::UpdateScans() {
    FreeScans();
    const Buffer* mask = _maskbits;
    _width = mask->Width();
    _height = mask->Height();
    if (_height <= 0) return;
    // Without memory for its scan list the region selects fewer rows (or none); the caller is told.
    _scans = new (std::nothrow) ROIRowStore[_height]();
    if (!Check(_scans != nullptr, kModule, __LINE__, "_scans != NULL")) return;
    _scanRows = _height;
    // A board mask has no host pixels: its rows stay empty rather than being read.
    const uint8_t* row = mask->BaseAddr();
    if (row == nullptr) return;
    // Never read more bits than a row of the mask holds, whatever its depth.
    const int64_t bitsPerRow = static_cast<int64_t>(mask->Pitch()) * 8;
    const int width = static_cast<int>(bitsPerRow < _width ? bitsPerRow : _width);
    for (int y = 0; y < _height; ++y, row += mask->Pitch()) {
        ROIRowStore* rowsc = &_scans[y];
        int count = 0;
        ForEachRun(row, width, [&](int, int) { ++count; });
        if (count == 0) continue;
        ROIScan* scanlist = new (std::nothrow) ROIScan[count];
        if (!Check(scanlist != nullptr, kModule, __LINE__, "scanlist != NULL")) continue;
        rowsc->scans = scanlist;
        rowsc->segCount = count;
        rowsc->row = y;
        int inx = 0;
        ForEachRun(row, width, [&](int start, int len) {
            if (inx > 0)
                OMBREL_ASSERT(kModule, 284, scanlist[inx - 1].Start() + scanlist[inx - 1].Len() < start,
                              "scanlist[inx-1].Start() + scanlist[inx-1].Len() < start");
            scanlist[inx++] = ROIScan(start, len);
        });
        OMBREL_ASSERT(kModule, 289, inx == rowsc->SegCnt(), "inx == rowsc->SegCnt()");
    }
}

// ---- ROIRow
// -------------------------------------------------------------------------------------------------

ROIRow::ROIRow(Buffer* buf, Point origin, ROI* roi) {
    Setup(buf, origin, roi ? roi->GetScans() : nullptr, roi ? roi->Height() : 0, roi ? roi->Width() : 0);
    // A masked region walks no more rows than its scan list has.
    if (_store != nullptr && roi->ScanRows() < _rows) _rows = roi->ScanRows();
}

int ROIRow::Setup(Buffer* buf, Point origin, ROIRowStore* store, int rows, int width) {
    _pitch = buf ? buf->Pitch() : 0;
    _rows = rows;
    _width = width;
    _originX = origin.x;
    _y = origin.y;
    _rowIndex = 0;
    _store = store;
    uint8_t* base = buf ? buf->BaseAddr() : nullptr;
    // Addresses are formed only on real memory; the agent clips before it dereferences.
    _rowPtr = base ? base + origin.x + static_cast<int64_t>(_pitch) * origin.y : nullptr;
    if (_store != nullptr) {
        InitSeg();
    } else {
        _segIndex = 0;
        _segCount = 1;
        _nextScan = nullptr;
        _seg.ptr = _rowPtr;
        _seg.len = width;
        _seg.x = origin.x;
        _seg.y = origin.y;
    }
    return 1;
}

int ROIRow::Increment(int step) {
    if (step < 1) step = 1;  // a walk that never advances would never end
    if (static_cast<int64_t>(_rowIndex) + step >= _rows) {
        _rowIndex = _rows > _rowIndex ? _rows : _rowIndex;
        return 0;
    }
    _rowIndex += step;
    _y += step;
    if (_store != nullptr) _store += step;
    if (_rowPtr != nullptr) _rowPtr += static_cast<int64_t>(_pitch) * step;
    InitSeg();
    return 1;
}

ROISeg* ROIRow::InitSeg() {
    _seg.y = _y;
    _segIndex = 0;
    if (_store != nullptr) {
        _segCount = _store->SegCnt();
        _nextScan = _store->scans;
    } else {
        _segCount = 1;
        _nextScan = nullptr;
    }
    return &_seg;
}

ROISeg* ROIRow::FirstSeg() {
    InitSeg();
    return NextSeg();
}

ROISeg* ROIRow::NextSeg() {
    if (_segIndex++ >= _segCount) return nullptr;
    if (_nextScan == nullptr) {
        _seg.ptr = _rowPtr;
        return &_seg;
    }
    _seg.ptr = _rowPtr ? _rowPtr + _nextScan->Start() : nullptr;
    _seg.len = _nextScan->Len();
    _seg.x = _originX + _nextScan->Start();
    ++_nextScan;
    return &_seg;
}

ROISeg* ROIRow::WholeRow() {
    _seg.ptr = _rowPtr;
    return &_seg;
}

// ---- ROIRowIter
// ---------------------------------------------------------------------------------------------

ROIRowIter::ROIRowIter(Buffer* buf, Point origin, ROI* roi)
    : ROIRow(buf, origin, roi),
      _buf(buf),
      _origin(origin),
      _store(roi ? roi->GetScans() : nullptr),
      _height(Rows()),
      _widthKept(roi ? roi->Width() : 0) {}

ROIRow* ROIRowIter::FirstRow() {
    Setup(_buf, _origin, _store, _height, _widthKept);
    return this;
}

ROIRow* ROIRowIter::NextRow(int step) {
    return Increment(step) ? this : nullptr;
}

// ---- Persistence
// ---------------------------------------------------------------------------------------------

const os_class ROI::kStreamClass = os_class::Make<ROI, &ROI::WriteStream, &ROI::ReadStream>(
    "(ROI*)", static_cast<uint32_t>(RCSStringToNumber("$Revision: 1.1 $")));

const os_class& StreamClassOf(const ROI*) {
    return ROI::kStreamClass;
}

void ROI::WriteStream(os_bstream& s, const ROI& roi) {
    s.WriteInt(roi._height);
    s.WriteInt(roi._width);
    s.WritePointer<Buffer>(roi._maskDetached ? nullptr : roi._maskbits);
}

bool ROI::ReadStream(os_bstream& s, ROI& roi, uint32_t version) {
    if (version != kStreamClass.Version()) {
        OMBREL_ASSERT_HERE("lsroi", false, "0");
        return true;
    }
    int32_t height, width;
    Buffer* mask = nullptr;  // the stream's own: copied below, never kept
    if (!s.ReadInt(height) || !s.ReadInt(width) || !s.ReadPointer(mask)) return false;
    if (mask != nullptr && (mask->BitsPerPixel() != ONE || mask->BaseAddr() == nullptr)) return false;
    roi.DeleteMaskbits();
    roi._maskbits = nullptr;  // a detached caller's mask is forgotten: the region is the stream's now
    roi._maskDetached = false;
    if (mask != nullptr) {
        roi.SetMaskbits(mask, true);
        if (!roi._ownsMask ||
            roi._maskbits->GetError() != 0) {  // no memory for the copy: the stream cannot be honoured
            roi.DeleteMaskbits();
            roi._maskbits = nullptr;
            roi._maskDetached = false;
            s.Fail("out of memory");
            return false;
        }
    }
    roi.SetExtent(width, height);
    return true;
}

}  // namespace ombrel
