// SPDX-License-Identifier: MIT
/// \file
/// Blob analysis: one top-to-bottom pass that turns a grey region into a tree of connected regions.
///
/// Per pixel: a pixel of value v (8-bit, unsigned) is an object pixel exactly when low <= v <= high.
/// Objects are 8-connected, background regions 4-connected. Everything outside the region (and, for a region
/// hanging over the image's edge, every pixel outside the image) counts as background; the background that
/// touches the region's border is the root. Each object is a child of the background region around it
/// (the root for a top-level object), each hole a child of its object, and so on down.
///
/// Sampling: rows are scanned every _StepY rows (row 0, _StepY, ...), each scanned run standing for _StepY
/// rows in the moments; along a row every _StepX-th pixel is classified and a class change is refined back
/// to the exact pixel within the step. A span shorter than _StepX is skipped. With both steps 1 the result
/// is exact: every object region is one 8-connected component of the thresholded region.
///
/// Regions close as soon as no run of the current row continues them; a closed region is completed
/// (features, filters: see blob_result.h and the setters below). When Go ends, the surviving regions are
/// labelled and listed in raster order of their first pixel (BlobResult::Blobs).
///
/// Masked regions (the region has mask bits): the pixels under the mask that are in the band are first marked
/// 1 in a private buffer by a mask agent (operation 11, given the agent's band); segmentation then runs on
/// that buffer for the value 1, span by span of the mask: each span of a row at least _StepX long is sampled
/// from its own start, shorter spans are skipped. The agent's own thresholds are never changed. The buffer
/// and the mask agent are made on the first masked run and kept until the agent is deleted.
///
/// Status: Go() returns 0, or BLOB_ERR_TOO_COMPLEX (-1003) when a pool reached its chunk limit ("Image Too
/// Complex -- Change Threshold" in the debug window), or BLOB_ERR_NO_MEMORY (-1505) when memory ran out;
/// the regions closed before the failure stay in the result. The status is also BlobResult::Error().
///
/// Clipping: work is clipped to the part of the region inside the source buffer (and to 32766 columns and
/// rows, the reach of the 16-bit run coordinates); nothing outside it is read.
#pragma once
#include <cstdint>
#include <memory>
#include <vector>

#include "ombrel/blob/blob_result.h"
#include "ombrel/framework/agent.h"
#include "ombrel/framework/export.h"
#include "ombrel/framework/isa.h"
#include "ombrel/framework/roi.h"

namespace ombrel {

class MaskAgent;
namespace blobrle {
struct Band;  ///< the row coder's band (blob_rle.h, internal)
}

/// Blob analysis of an 8-bit region into a BlobResult (segmentation rules in blob_agent.h, features in
/// blob_record.h). Made by BlobFact. Some features need an option or filter bit before Go: SetOptions adds
/// the boundary (BLOB_OPT_BOUNDARY) that the perimeter needs, and the grey mean needs BLOB_FILTER_GREY.
class OMBREL_API BlobAgent : public Agent {
  public:
    /// Sets the defaults: thresholds as given, steps 1, area limits 1 and 2147483647, filter flags 16,
    /// options 3, keep-flag 1; attaches `res`.
    void Init(BlobResult* res, int lowThr, int highThr);
    /// Attaches a result and records in it the region's origin, its pixel count and the option word.
    void SetResult(BlobResult* res);
    /// The attached result (not owned).
    BlobResult* Result() const { return _pres; }

    /// The band of object pixels, low <= v <= high.
    void SetThresholds(int low, int high) {
        _lowThr = low;
        _highThr = high;
    }
    ///@{
    /// The band.
    int LowThreshold() const { return _lowThr; }
    int HighThreshold() const { return _highThr; }
    ///@}
    /// Sampling steps along and across rows (see above); 1 and 1 give an exact result.
    void SetStep(int stepX, int stepY) {
        _StepX = stepX;
        _StepY = stepY;
    }
    ///@{
    /// The sampling steps.
    int StepX() const { return _StepX; }
    int StepY() const { return _StepY; }
    ///@}
    /// Regions whose filled area (area with BLOB_FILTER_PLAIN_AREA) is below `minArea` or above `maxArea` are
    /// deleted.
    void SetAreaLimits(int minArea, int maxArea) {
        _minArea = minArea;
        _maxArea = maxArea;
    }
    ///@{
    /// The area limits.
    int MinArea() const { return _minArea; }
    int MaxArea() const { return _maxArea; }
    ///@}
    /// Replaces the whole filter word with `flags` (BLOB_FILTER_*): it does not add to the default
    /// BLOB_FILTER_BORDER_CHILDREN, so OR that in to keep it.
    void SetFilterFlags(int flags) { _filterFlags = flags; }
    /// The filter word.
    int FilterFlags() const { return _filterFlags; }
    /// The option word goes into the result at SetResult and at every Go.
    void SetOptions(int options) { _options = options; }
    /// The option word.
    int Options() const { return _options; }
    /// 0: only the largest top-level region survives (ties go to the later one).
    void SetKeepFlag(bool keep) { _keepFlag = keep ? 1 : 0; }
    /// The keep flag.
    bool KeepFlag() const { return _keepFlag != 0; }

    ///@{
    /// Board limits; stored only.
    virtual void SetMaxStride(int stride) { _maxStride = stride; }
    virtual void SetMaxSegments(int segments) { _maxSegments = segments; }
    ///@}
    ///@{
    /// The stored board limits.
    int MaxStride() const { return _maxStride; }
    int MaxSegments() const { return _maxSegments; }
    ///@}

    int Go() override = 0;

  protected:
    ///@{
    /// For subclasses: see Init for the defaults.
    BlobAgent(Buffer* src, BlobResult* res, int lowThr, int highThr);
    BlobAgent(Buffer* src, Rect r, BlobResult* res, int lowThr, int highThr);
    BlobAgent(Buffer* src, Point p, const ROI& roi, BlobResult* res, int lowThr, int highThr);
    ///@}

    /// Prepares a run (result attached, option word recorded); a negative status stops Go.
    virtual int PreGo();
    /// Labels the survivors and builds the result list.
    virtual int PostGo();

    ///@{
    /// Record operations of the segmentation.
    void delblob(Blob*& blob, bool withChildren);
    void mergeBlobs(Blob* survivor, Blob* other);
    void recpreprocess(Blob* blob);
    void delbdry(Blob* blob);
    static void HCells(Blob* blob);
    static void MoveChildren(Blob* from, Blob* to);
    static void UnlinkChild(Blob* blob, Blob*& parentChild, Blob*& parentLast);
    void TraceReferrers(const Blob* blob);
    ///@}

    int _lowThr = 0;  ///< a bad band (reported by the factory) selects no pixel
    int _highThr = 255;
    int _StepX = 1;  ///< sampling step along rows (SetStep)
    int _StepY = 1;  ///< sampling step across rows (SetStep)
    int _minArea = 1;
    int _maxArea = 2147483647;
    int _filterFlags = BLOB_FILTER_BORDER_CHILDREN;
    int _options = BLOB_OPT_FIRST_MOMENTS | BLOB_OPT_SECOND_MOMENTS;
    uint8_t _keepFlag = 1;
    int _maxStride = 0;
    int _maxSegments = 0;
    BlobResult* _pres = nullptr;
    /// Working extent of the last run (region size clipped to 16-bit coordinates).
    int _roiWidth = 0;
    int _roiHeight = 0;
    std::vector<BdryCell*> _chainScratch;
    bool _stopped = false;  ///< a pool or allocation failed: the run stops where it is

    /// Stores the failure in the result and stops the run (the first failure is kept).
    void Fail(int32_t status);
};

/// The software blob agent (host buffers).
class OMBREL_API swBlobAgent : public BlobAgent {
  public:
    ///@{
    /// The region: the whole source, the rectangle `r`, or `roi` placed at `p`; object pixels are
    /// `lowThr` <= v <= `highThr`; regions go into `res`.
    swBlobAgent(Buffer* src, BlobResult* res, int lowThr, int highThr);
    swBlobAgent(Buffer* src, Rect r, BlobResult* res, int lowThr, int highThr);
    swBlobAgent(Buffer* src, Point p, const ROI& roi, BlobResult* res, int lowThr, int highThr);
    ///@}
    ~swBlobAgent() override;

    int Go() override;

  protected:
    int PreGo() override;

  private:
    /// An active run: where it starts and the slot of the region that owns it.
    struct ActiveRun {
        int32_t x;
        uint32_t slot;
    };
    /// A region as the joiner names it. Merged-away regions forward to their survivor (`up`), so runs need
    /// not be re-pointed when their region merges; `open` counts the active runs of a surviving region.
    struct RegionSlot {
        Blob* blob;
        uint32_t up;
        int32_t open;
    };

    int Stop(int32_t status);
    int RunRows();
    int CodeRow(const Buffer* buf, Point origin, const Rect& clip, int row, blobrle::Band band,
                bool emptyBand);
    int CodeRowSpan(const uint8_t* line, int x, int cnt, int n, blobrle::Band band);
    void JoinRow(int n, int y);
    template <bool kGrey, bool kBdry, bool kStepOne>
    void JoinRowAs(int n, int y);
    void EndRow(int k);
    uint32_t Find(uint32_t slot);
    bool ExtendRun(uint32_t slot, BdryCell** bdry, int s, int t, int32_t grey, int y);
    bool newseg(int k, int& i, int s, int t, int32_t grey, int y);
    void endseg(int before, int ended);
    bool ReserveSlot();
    uint32_t TakeSlot(Blob* blob);
    bool incbdry(BdryCell*& cell, int x, int y);
    BdryCell* NewChain();
    int PrepareMask();

    /// The active runs, as alternating background / object runs from the root's run (x = -32767) to a
    /// terminator (x = 32767): the previous row's are read from _prev at a cursor while the current row's
    /// are written to _cur; the two swap after every row.
    std::vector<ActiveRun> _prev, _cur;
    std::vector<BdryCell*> _prevBdry, _curBdry;  ///< boundary chain at each run's left end (option 4 only)
    int _prevCount = 0;                          ///< runs in _prev, terminator included
    std::vector<RegionSlot> _slots;              ///< slot 0 is the root
    uint32_t _nSlots = 0;                        ///< slots ever handed out in this run
    std::vector<uint32_t> _freeSlots;            ///< slots of closed regions, and merged away two rows ago
    std::vector<uint32_t> _mergedSlots;          ///< merged away in this row
    std::vector<uint32_t> _mergedLastRow;        ///< merged away in the row before
    bool _bdryOn = false;
    int _y = 0;
    int _sx = 1, _sy = 1;  ///< the steps of this run (a bad step was reported and runs as 1)
    Isa _isa = Isa::Scalar;
    std::vector<int16_t> _trans;  ///< transitions of the current row, then 32767 and -32768
    std::vector<int32_t> _greys;  ///< grey sum of the run ending at each transition
    int32_t _greyTail = 0;        ///< grey sum of the run after the last transition
    /// Masked regions.
    std::unique_ptr<Buffer> _pMaskedSrcBuf;
    std::unique_ptr<MaskAgent> _maskAgent;
    ROI _scannedRoi;                ///< the spans of mask bits that came without a scan list
    const ROI* _spanRoi = nullptr;  ///< where this run's mask spans are read (_sRoi or _scannedRoi)
    bool _masked = false;
};

///@{
/// Blob agent over the whole image, a rectangle, an origin and region, or four ints (left, top, right,
/// bottom). Reports "(src != NULL) && (res != NULL) && (highThr >= lowThr) && (lowThr >= 0) && (highThr <=
/// 255)" (module lfblob) and still chooses by the source type: host -> swBlobAgent, board or null -> null.
OMBREL_API BlobAgent* BlobFact(Buffer* src, BlobResult* res, int lowThr, int highThr);
OMBREL_API BlobAgent* BlobFact(Buffer* src, const Rect& r, BlobResult* res, int lowThr, int highThr);
OMBREL_API BlobAgent* BlobFact(Buffer* src, const Point& p, const ROI& roi, BlobResult* res, int lowThr,
                               int highThr);
OMBREL_API BlobAgent* BlobFact(Buffer* src, int left, int top, int right, int bottom, BlobResult* res,
                               int lowThr, int highThr);
///@}

}  // namespace ombrel
