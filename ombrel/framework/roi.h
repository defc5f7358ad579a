// SPDX-License-Identifier: MIT
// Regions of interest and the cursors agents walk them with.
//
// A ROI holds an extent and, optionally, a one-bit mask kept as run-length spans per row. It is placed on an
// image by a separate origin (the agent's source point). Agents walk it row by row (ROIRow / ROIRowIter) and
// span by span (ROISeg); a rectangular region has one span per row, the whole width.
//
// Cursors compute addresses but never read pixels; an agent clips its walk to the part of the region that
// lies inside its buffers before it touches memory. A cursor over a masked region whose
// extent was later made taller than its mask walks only the rows the scan list has.
#pragma once
#include <cstdint>

#include "ombrel/framework/buffer.h"
#include "ombrel/framework/export.h"
#include "ombrel/framework/geometry.h"

namespace ombrel {

class os_bstream;
class os_class;

// One run of 1-bits in a mask row: first column and length.
class OMBREL_API ROIScan {
  public:
    ROIScan() = default;
    ROIScan(int32_t start, int32_t len) : _start(start), _len(len) {}
    int32_t Start() const { return _start; }
    int32_t Len() const { return _len; }

  private:
    int32_t _start = 0;
    int32_t _len = 0;
};

// The runs of one mask row, in increasing order of start, never touching.
struct ROIRowStore {
    int32_t segCount = 0;
    ROIScan* scans = nullptr;  // owned; null when segCount is 0
    int32_t row = 0;           // mask row index; set only for rows with a run
    int32_t SegCnt() const { return segCount; }
};

// A span as handed to an agent.
struct ROISeg {
    uint8_t* ptr = nullptr;  // first pixel of the span in the image
    int32_t len = 0;         // pixels
    int32_t x = 0;           // image column of the first pixel
    int32_t y = 0;           // image row
};

class OMBREL_API ROI {
  public:
    ROI();
    ROI(int width, int height);
    explicit ROI(const Buffer* mask);
    ROI(const ROI* other, bool copy);
    ROI(const ROI& other);
    ROI& operator=(const ROI& other);
    virtual ~ROI();

    // Persistence hooks of the object stream: the registered type name and the object's address.
    virtual const char* get_class() const { return "(ROI*)"; }
    virtual const void* get_address() const { return this; }

    void SetExtent(const Buffer* buf);
    void SetExtent(int width, int height);
    int Width() const { return _width; }
    int Height() const { return _height; }
    int32_t& GetWidth() { return _width; }
    int32_t& GetHeight() { return _height; }

    const Buffer* GetMaskbits() const { return _maskbits; }
    Buffer* GetMaskbits() { return _maskbits; }
    Buffer* GetSwMask() const { return _maskbits; }
    bool OwnsMask() const { return _ownsMask; }
    // Takes `newbits` as the mask: a one-bit mask the caller keeps is referred to; an 8-bit mask (any
    // non-zero byte selects the pixel) or a requested copy is copied into a one-bit mask the region owns.
    // A null `newbits` frees the scans and an owned mask, and stops: a caller's mask pointer is kept.
    void SetMaskbits(const Buffer* newbits, bool copy);
    // A null `newbits` clears the mask pointer, whoever owns the mask.
    void SetSwMask(Buffer* newbits, bool noScan);
    // Deletes an owned mask and clears its pointer; a caller's mask is neither deleted nor cleared. Either
    // way the scans are freed and the region is rectangular again.
    //
    // A caller's mask pointer kept that way (after DeleteMaskbits, SetMaskbits(nullptr, ...) or assigning
    // a region over this one) is detached: GetMaskbits() still returns it, but the caller may free that
    // buffer at any time, so the library never reads it again. Copying or assigning such a region passes
    // the pointer on, detached, instead of building scans from it; handing the same buffer in again through
    // SetMaskbits or SetSwMask attaches it anew.
    void DeleteMaskbits();

    Buffer* GetMonstMask(BankType bank) const;
    void GetMonstMasks(Buffer** m0, Buffer** m1) const;
    void SetMonstMasks(Buffer* buf0, Buffer* buf1);

    // The scan list: one record per mask row (ScanRows() of them), or null for a rectangular region.
    ROIRowStore* GetScans() const { return _scans; }
    int ScanRows() const { return _scanRows; }
    bool IsMasked() const { return _scans != nullptr; }

  private:
    void UpdateScans();
    void FreeScans();
    void TakeMaskOf(const ROI& other, bool copy);

    static void WriteStream(os_bstream& s, const ROI& roi);
    static bool ReadStream(os_bstream& s, ROI& roi, uint32_t version);
    static const os_class kStreamClass;
    friend OMBREL_API const os_class& StreamClassOf(const ROI*);

    int32_t _height = 0;
    int32_t _scanRows = 0;
    ROIRowStore* _scans = nullptr;
    int32_t _width = 0;
    Buffer* _maskbits = nullptr;
    bool _ownsMask = false;
    Buffer* _monstMasks[2] = {nullptr, nullptr};
    bool _maskDetached = false;  // _maskbits is a caller's mask the region no longer reads (see above)
};

// Regions persist as "(ROI*)", version 100100000 ("$Revision: 1.1 $"): height and width (two ints), then
// the mask as a pointer to a buffer ("(Buffer*)"; null for a rectangular region and for a detached mask).
// Scans are not stored: a region read back copies the mask into one it owns and builds its scans from it,
// exactly as SetMaskbits does (also for a mask set with SetSwMask(mask, true)), then takes the stored extent.
// Board masks are not stored (board memory does not outlive the process). A mask that is not one-bit makes
// the stream corrupt; any other version reports "0" (module lsroi) and leaves the region unread.
OMBREL_API const os_class& StreamClassOf(const ROI*);

// A cursor over the rows of a region placed on an 8-bit image, one byte per pixel.
class OMBREL_API ROIRow {
  public:
    ROIRow(Buffer* buf, Point origin, ROI* roi);

    ROISeg* InitSeg();
    ROISeg* FirstSeg();
    ROISeg* NextSeg();
    ROISeg* WholeRow();

    uint8_t* RowPtr() const { return _rowPtr; }
    int32_t Y() const { return _y; }
    int32_t RowIndex() const { return _rowIndex; }
    int32_t Rows() const { return _rows; }
    int32_t Width() const { return _width; }
    int32_t SegCount() const { return _segCount; }
    int32_t OriginX() const { return _originX; }

  protected:
    ROIRow() = default;
    int Setup(Buffer* buf, Point origin, ROIRowStore* store, int rows, int width);
    int Increment(int step);

  private:
    uint8_t* _rowPtr = nullptr;
    int32_t _originX = 0;
    int32_t _y = 0;
    int32_t _pitch = 0;
    int32_t _rowIndex = 0;
    int32_t _rows = 0;
    int32_t _segIndex = 0;
    int32_t _segCount = 0;
    ROISeg _seg;
    ROIRowStore* _store = nullptr;
    const ROIScan* _nextScan = nullptr;
    int32_t _width = 0;
};

// An ROIRow that remembers what it was built from, so that it can start again at the first row.
class OMBREL_API ROIRowIter : public ROIRow {
  public:
    ROIRowIter(Buffer* buf, Point origin, ROI* roi);
    ROIRow* FirstRow();
    // Advances `step` rows; null once the region is left.
    ROIRow* NextRow(int step = 1);

  private:
    Buffer* _buf;
    Point _origin;
    ROIRowStore* _store;
    int32_t _height;
    int32_t _widthKept;
};

}  // namespace ombrel
