// SPDX-License-Identifier: MIT
/// \file
/// Regions of interest and the cursors agents walk them with.
///
/// A ROI holds an extent and, optionally, a one-bit mask kept as run-length spans per row. It is placed on an
/// image by a separate origin (the agent's source point). Agents walk it row by row (ROIRow / ROIRowIter) and
/// span by span (ROISeg); a rectangular region has one span per row, the whole width.
///
/// Cursors compute addresses but never read pixels; an agent clips its walk to the part of the region that
/// lies inside its buffers before it touches memory. A cursor over a masked region whose
/// extent was later made taller than its mask walks only the rows the scan list has.
#pragma once
#include <cstdint>

#include "ombrel/framework/buffer.h"
#include "ombrel/framework/export.h"
#include "ombrel/framework/geometry.h"

namespace ombrel {

class os_bstream;
class os_class;

/// One run of 1-bits in a mask row: first column and length.
class OMBREL_API ROIScan {
  public:
    /// An empty run at column 0.
    ROIScan() = default;
    /// The run of `len` pixels from column `start`.
    ROIScan(int32_t start, int32_t len) : _start(start), _len(len) {}
    /// First column of the run.
    int32_t Start() const { return _start; }
    /// Pixels in the run.
    int32_t Len() const { return _len; }

  private:
    int32_t _start = 0;
    int32_t _len = 0;
};

/// The runs of one mask row, in increasing order of start, never touching.
struct ROIRowStore {
    /// runs in the row
    int32_t segCount = 0;
    ROIScan* scans = nullptr;  ///< owned; null when segCount is 0
    int32_t row = 0;           ///< mask row index; set only for rows with a run
    /// Runs in the row.
    int32_t SegCnt() const { return segCount; }
};

/// A span as handed to an agent.
struct ROISeg {
    uint8_t* ptr = nullptr;  ///< first pixel of the span in the image
    int32_t len = 0;         ///< pixels
    int32_t x = 0;           ///< image column of the first pixel
    int32_t y = 0;           ///< image row
};

/// A region of interest: an extent, optionally with a one-bit mask whose 1-bits select pixels. Agents place
/// it on an image at their origin and walk it row by row (ROIRowIter) and span by span (ROISeg).
class OMBREL_API ROI {
  public:
    /// An empty rectangular region (0 x 0).
    ROI();
    /// A rectangular region of `width` x `height`.
    ROI(int width, int height);
    /// A region shaped by `mask` (8-bit: non-zero selects; one-bit: 1 selects), copied into a one-bit mask
    /// the region owns; its extent is the mask's.
    explicit ROI(const Buffer* mask);
    /// A region like `other`; with `copy` its mask is copied, else a caller's mask is shared.
    ROI(const ROI* other, bool copy);
    ///@{
    /// Copies: an owned mask is copied, a caller's mask is shared.
    ROI(const ROI& other);
    ROI& operator=(const ROI& other);
    ///@}
    /// Frees the scans and an owned mask.
    virtual ~ROI();

    /// Persistence hooks of the object stream: the registered type name and the object's address.
    virtual const char* get_class() const { return "(ROI*)"; }
    /// The object's address, which identifies it in a stream.
    virtual const void* get_address() const { return this; }

    /// The extent of `buf` (0 x 0 for null).
    void SetExtent(const Buffer* buf);
    /// A new extent; a masked region keeps its mask and scans.
    void SetExtent(int width, int height);
    ///@{
    /// The extent in pixels (the Get forms give write access to it).
    int Width() const { return _width; }
    int Height() const { return _height; }
    int32_t& GetWidth() { return _width; }
    int32_t& GetHeight() { return _height; }
    ///@}

    ///@{
    /// The mask buffer (null for a rectangular region).
    const Buffer* GetMaskbits() const { return _maskbits; }
    Buffer* GetMaskbits() { return _maskbits; }
    Buffer* GetSwMask() const { return _maskbits; }
    ///@}
    /// Whether the region copied its mask and frees it.
    bool OwnsMask() const { return _ownsMask; }
    /// Takes `newbits` as the mask: a one-bit mask the caller keeps is referred to; an 8-bit mask (any
    /// non-zero byte selects the pixel) or a requested copy is copied into a one-bit mask the region owns.
    /// A null `newbits` frees the scans and an owned mask, and stops: a caller's mask pointer is kept.
    void SetMaskbits(const Buffer* newbits, bool copy);
    /// A null `newbits` clears the mask pointer, whoever owns the mask.
    void SetSwMask(Buffer* newbits, bool noScan);
    /// Deletes an owned mask and clears its pointer; a caller's mask is neither deleted nor cleared. Either
    /// way the scans are freed and the region is rectangular again.
    ///
    /// A caller's mask pointer kept that way (after DeleteMaskbits, SetMaskbits(nullptr, ...) or assigning
    /// a region over this one) is detached: GetMaskbits() still returns it, but the caller may free that
    /// buffer at any time, so the library never reads it again. Copying or assigning such a region passes
    /// the pointer on, detached, instead of building scans from it; handing the same buffer in again through
    /// SetMaskbits or SetSwMask attaches it anew.
    void DeleteMaskbits();

    ///@{
    /// Board copies of the mask, one per bank (kept for the board back end; null on the host).
    Buffer* GetMonstMask(BankType bank) const;
    void GetMonstMasks(Buffer** m0, Buffer** m1) const;
    void SetMonstMasks(Buffer* buf0, Buffer* buf1);
    ///@}

    /// The scan list: one record per mask row (ScanRows() of them), or null for a rectangular region.
    ROIRowStore* GetScans() const { return _scans; }
    /// Rows in the scan list.
    int ScanRows() const { return _scanRows; }
    /// True when a mask shapes the region.
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
    bool _maskDetached = false;  ///< _maskbits is a caller's mask the region no longer reads (see above)
};

/// Regions persist as "(ROI*)", version 100100000 ("$Revision: 1.1 $"): height and width (two ints), then
/// the mask as a pointer to a buffer ("(Buffer*)"; null for a rectangular region and for a detached mask).
/// Scans are not stored: a region read back copies the mask into one it owns and builds its scans from it,
/// exactly as SetMaskbits does (also for a mask set with SetSwMask(mask, true)), then takes the stored
/// extent. Board masks are not stored (board memory does not outlive the process). A mask that is not one-bit
/// makes the stream corrupt; any other version reports "0" (module lsroi) and leaves the region unread.
OMBREL_API const os_class& StreamClassOf(const ROI*);

/// A cursor over the rows of a region placed on an 8-bit image, one byte per pixel.
class OMBREL_API ROIRow {
  public:
    /// Starts at the first row of `roi` placed at `origin` on the 8-bit `buf`.
    ROIRow(Buffer* buf, Point origin, ROI* roi);

    /// The first span of the current row (restarts the span walk).
    ROISeg* InitSeg();
    /// The first span of the current row, or null when the row has none.
    ROISeg* FirstSeg();
    /// The next span of the current row, or null after the last.
    ROISeg* NextSeg();
    /// The current row as one span across the region's width, mask or not.
    ROISeg* WholeRow();

    /// Image address of the row's first region pixel.
    uint8_t* RowPtr() const { return _rowPtr; }
    /// Image row.
    int32_t Y() const { return _y; }
    /// Row within the region.
    int32_t RowIndex() const { return _rowIndex; }
    /// Rows in the region.
    int32_t Rows() const { return _rows; }
    /// Width of the region.
    int32_t Width() const { return _width; }
    /// Spans in the current row.
    int32_t SegCount() const { return _segCount; }
    /// Image column of the region's left edge.
    int32_t OriginX() const { return _originX; }

  protected:
    /// For subclasses that set themselves up later.
    ROIRow() = default;
    /// Places the cursor on row 0; returns the number of rows.
    int Setup(Buffer* buf, Point origin, ROIRowStore* store, int rows, int width);
    /// Moves `step` rows on; returns 0 once the region is left.
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

/// An ROIRow that remembers what it was built from, so that it can start again at the first row.
class OMBREL_API ROIRowIter : public ROIRow {
  public:
    /// A row walk over `roi` placed at `origin` on the 8-bit `buf`.
    ROIRowIter(Buffer* buf, Point origin, ROI* roi);
    /// Back to the first row; null for an empty region.
    ROIRow* FirstRow();
    /// Advances `step` rows; null once the region is left.
    ROIRow* NextRow(int step = 1);

  private:
    Buffer* _buf;
    Point _origin;
    ROIRowStore* _store;
    int32_t _height;
    int32_t _widthKept;
};

}  // namespace ombrel
