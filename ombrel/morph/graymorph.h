// SPDX-License-Identifier: MIT
/// \file
/// Grey morphology: minimum and maximum filters over a flat structuring element of any size, and their usual
/// compositions, on 8-bit images.
///
/// The element: width x height weights, row by row; a cell is a member when its weight is not 0. Its hot spot
/// is the cell that lies on the output pixel, and always lies inside the element (constructors move a hot
/// spot given outside to the nearest cell; SetElementHotSpot refuses one).
///
/// One filter pass (GenMorph), per-pixel contract for the software agent, every SIMD path and any future
/// board agent. The pass works on a rectangle of w x h pixels of the destination, in place:
///   out(x, y) = min (mode 0) or max (mode 1) over the members (i, j) of in(x - hotX + i, y - hotY + j),
///   where a cell outside the rectangle reads 255 for a minimum and 0 for a maximum, so the outside never
///   wins; every pixel sees the image as it was before the pass. The effective mode is the given one
///   exclusive-or the polarity. A source other than the destination is copied into it first (the region of
///   the source at the agent's origin to the destination from (0, 0)); `iterations` passes follow (none for
///   0 or less). An element without members leaves the copy, and the agent's status becomes -3996 (Go still
///   returns 0).
/// Operations (Go): ERODE one pass mode 0, DILATE mode 1; OPEN mode 0 then mode 1; CLOSE mode 1 then mode 0;
/// GRADIENT |max - min| of the source, through a temporary copy of the destination (no memory: status 4003,
/// nothing computed); TOPHAT |source - opening|; WELL |source - closing|. The differences are absolute on
/// purpose (ImageSubtract), also where they could only be non-negative. Any other code: the note
/// "Unknown morphology function specified: [%d]", status 4001, Go returns 1. Otherwise Go returns 0.
///
/// Regions: the region's bounding rectangle is processed (a mask is not consulted). Work is clipped to the
/// part of the region inside the source (at the agent's origin) and the destination (at (0, 0)); the clipped
/// rectangle is the one whose outside reads as padding. With nothing inside, or buffers that are not 8-bit,
/// no pixel is touched. When the filter passes cannot get their line memory the status becomes 4003.
///
/// Speed (the bytes are those above on every path): a full rectangle up to 8 x 8 is filtered down the columns
/// straight from the image rows and then along the row; a taller full rectangle is filtered along the rows
/// and then down the columns by van Herk/Gil-Werman (three row operations per pixel whatever the height); any
/// other element is cut into horizontal runs of members whose minima are kept per image row and folded. Runs
/// up to 8 long take one vector load per member, longer ones a few overlapping loads of a doubling row.
#pragma once
#include <cstdint>
#include <cstdio>
#include <vector>

#include "ombrel/framework/agent.h"
#include "ombrel/framework/buffer.h"
#include "ombrel/framework/export.h"
#include "ombrel/framework/geometry.h"
#include "ombrel/framework/roi.h"
#include "ombrel/morph/graymorph_ops.h"

namespace ombrel {

class os_bstream;
class os_class;

///@{
/// Go() statuses.
constexpr int kGrayMorphUnknownOp = 4001;
constexpr int kGrayMorphNoMemory = 4003;
constexpr int kGrayMorphNoMembers = -3996;
///@}

///@{
/// Largest element side and cell count an element accepts.
constexpr int kGrayMorphMaxSide = 4096;
constexpr int64_t kGrayMorphMaxCells = int64_t{1} << 22;
///@}

/// A grey structuring element: width x height weights (0 leaves the cell out, anything else keeps it) and a
/// hot spot. Persistent through the object stream as "(GrayMorphElem*)".
class OMBREL_API GrayMorphElem {
  public:
    /// 3 x 3, hot spot (1, 1), all nine weights 255.
    GrayMorphElem();
    /// Copies width x height weights. A null pointer, a size below 1 or above the limits gives an element
    /// without weights (0 x 0, no member).
    GrayMorphElem(int hotX, int hotY, int width, int height, const unsigned char* weights);
    /// Reads the pattern character by character, skipping ',' and ' ': '0' gives weight 0 and any other
    /// character 255, until width x height weights are read. A pattern with fewer (or a null one) gives an
    /// element without weights.
    GrayMorphElem(int hotX, int hotY, int width, int height, const char* pattern);
    /// New weights all 255, then the cells that exist in both copied from `from`. A null `from` or a size
    /// below 1 gives an element without weights.
    GrayMorphElem(const GrayMorphElem* from, int hotX, int hotY, int width, int height);
    virtual ~GrayMorphElem() = default;

    /// Persistence hooks of the object stream: the registered type name and the object's address.
    virtual const char* get_class() const { return "(GrayMorphElem*)"; }
    /// The object's address, which identifies it in a stream.
    virtual const void* get_address() const { return this; }
    /// Bytes the element occupies: the object, its weights and its tile masks.
    size_t SizeOf() const;

    ///@{
    /// Resizing keeps the weights of cells that exist in both sizes and gives new cells 255; false (nothing
    /// changed) for a size below 1, above the limits, or a failed allocation. A hot spot left outside moves
    /// to the nearest cell.
    bool SetElementWidth(int width);
    bool SetElementHeight(int height);
    bool SetElementDims(int width, int height);
    ///@}
    /// False, nothing changed, for a cell outside the element.
    bool SetElementHotSpot(int x, int y);
    ///@{
    /// Sets one weight, by index (row-major) or by cell; false, nothing changed, for a cell outside.
    bool SetElementWeight(int index, unsigned char weight);
    bool SetElementWeight(int x, int y, unsigned char weight);
    ///@}
    ///@{
    /// 0 for a cell outside the element.
    unsigned char GetElementWeight(int index) const;
    unsigned char GetElementWeight(int x, int y) const;
    ///@}
    ///@{
    /// Size and hot spot.
    int GetElementWidth() const { return _width; }
    int GetElementHeight() const { return _height; }
    int GetElementHotX() const { return _hotX; }
    int GetElementHotY() const { return _hotY; }
    ///@}
    /// The weights, row-major (null without weights).
    const unsigned char* Weights() const { return _weights.data(); }
    /// False for an element built from bad arguments.
    bool HasWeights() const { return !_weights.empty(); }
    /// Cells with a non-zero weight.
    int Members() const;

    /// The element cut into 3 x 3 tiles, left to right and top to bottom, each with a 9-bit membership mask
    /// in the neighbourhood-code layout (bit 2 upper left, bit 0 upper right, bit 4 centre, bit 8 lower
    /// left); tiles at the right or bottom edge cover only the cells that exist.
    int GetMaskSize() const { return static_cast<int>(_tiles.size()); }
    /// 0 for an index outside the tiles.
    unsigned GetMaskByIndex(int index) const;

    ///@{
    /// Set by construction and every change; whoever caches the element's tiles clears it.
    bool ElementsUpdated() const { return _updated; }
    void SetElementsUpdated(bool updated) { _updated = updated; }
    ///@}

  private:
    bool Resize(int width, int height);
    void ClampHotSpot();
    void Changed();

    static void WriteStream(os_bstream& s, const GrayMorphElem& elem);
    static bool ReadStream(os_bstream& s, GrayMorphElem& elem, uint32_t version);
    static const os_class kStreamClass;
    friend OMBREL_API const os_class& StreamClassOf(const GrayMorphElem*);

    int32_t _hotX = 0;
    int32_t _hotY = 0;
    int32_t _width = 0;
    int32_t _height = 0;
    std::vector<unsigned char> _weights;
    std::vector<uint16_t> _tiles;
    bool _updated = true;
};

/// Elements persist as "(GrayMorphElem*)", version 100100000 ("$Revision: 1.1 $"): hot spot x and y, width
/// and height (four ints), then the weights as one chunk of width x height bytes, row by row. Tiles and the
/// updated flag are not stored: reading rebuilds the tiles and sets the flag, as every change does. An
/// element without weights is 0 x 0 with an empty chunk. A size beyond the limits, a hot spot outside the
/// element or a chunk of another length makes the stream corrupt; any other version reports "0" (module
/// lsgraymorph) and leaves the element unread.
OMBREL_API const os_class& StreamClassOf(const GrayMorphElem*);

/// Grey morphology with a structuring element: minimum (erosion) or maximum (dilation) over the element's
/// members, and the operations built from them, `iterations` times (rules in graymorph.h). Made by
/// GrayMorphFact.
class OMBREL_API GrayMorphAgent : public Agent {
  public:
    ///@{
    /// Operation `op` with element `elem`, `iterations` times, from `src` into `dst` from (0, 0), over the
    /// whole source, the rectangle `r`, or `roi` placed at `p`.
    GrayMorphAgent(Buffer* src, Buffer* dst, GRAYMORPHOP op, GMPOLARITY polarity, int iterations,
                   GrayMorphElem* elem);
    GrayMorphAgent(Buffer* src, Buffer* dst, Rect r, GRAYMORPHOP op, GMPOLARITY polarity, int iterations,
                   GrayMorphElem* elem);
    GrayMorphAgent(Buffer* src, Buffer* dst, Point p, const ROI& roi, GRAYMORPHOP op, GMPOLARITY polarity,
                   int iterations, GrayMorphElem* elem);
    ///@}
    ~GrayMorphAgent() override = default;

    int Go() override { return Go(nullptr); }
    /// Each filter pass writes one line to `trace` (when not null): mode, rectangle, element and iterations.
    virtual int Go(FILE* trace) = 0;

    ///@{
    /// The destination, operation, polarity, iteration count and element, as set.
    void SetDstBuf(Buffer* dst) { _dstBuf = dst; }
    void SetOperation(GRAYMORPHOP op) { _op = op; }
    void SetPolarity(GMPOLARITY polarity) { _polarity = polarity; }
    void SetIterations(int iterations) { _iterations = iterations; }
    void SetElement(GrayMorphElem* elem) { _elem = elem; }
    Buffer* DstBuf() const { return _dstBuf; }
    GRAYMORPHOP Operation() const { return _op; }
    GMPOLARITY Polarity() const { return _polarity; }
    int Iterations() const { return _iterations; }
    GrayMorphElem* Element() const { return _elem; }
    ///@}
    /// Status of the last Go.
    int GetStatus() const { return _status; }

  protected:
    Buffer* _dstBuf = nullptr;  ///< not owned
    GRAYMORPHOP _op = GRAYMORPH_ERODE;
    GMPOLARITY _polarity = GM_POLARITY_NORMAL;
    int32_t _iterations = 1;
    GrayMorphElem* _elem = nullptr;  ///< not owned
    int32_t _status = 0;
};

/// The software grey-morphology agent (host buffers).
class OMBREL_API swGrayMorphAgent : public GrayMorphAgent {
  public:
    using GrayMorphAgent::Go;
    /// The constructors of GrayMorphAgent.
    using GrayMorphAgent::GrayMorphAgent;
    int Go(FILE* trace) override;

    /// One filter step, as described above: the region `r` of `src` at `p` into `dst` from (0, 0); mode 0
    /// minimum, 1 maximum (before the polarity). Returns 0, -3996 without members, or 4003 without memory.
    int GenMorph(Buffer* src, Buffer* dst, Rect r, Point p, int mode, int iterations, FILE* trace = nullptr);
    /// b = |a - b| per pixel, a's region rows read at `p`, b's from its origin; clipped to both buffers.
    static void ImageSubtract(Buffer* a, Buffer* b, const ROI* roi, const Point* p);
};

///@{
/// Factories: "!((src->Width() != dst->Width()) || (src->Height() != dst->Height()))" is asserted (module
/// lfmorph) and the factory goes on (the agent clips its work to both buffers). Host buffers (either type)
/// give the software agent; board buffers give null in this build (no board back end), a mix null.
OMBREL_API GrayMorphAgent* GrayMorphFact(Buffer* src, Buffer* dst, GRAYMORPHOP op, GMPOLARITY polarity,
                                         int iterations, GrayMorphElem* elem);
OMBREL_API GrayMorphAgent* GrayMorphFact(Buffer* src, Buffer* dst, Rect r, GRAYMORPHOP op,
                                         GMPOLARITY polarity, int iterations, GrayMorphElem* elem);
OMBREL_API GrayMorphAgent* GrayMorphFact(Buffer* src, Buffer* dst, Point p, const ROI& roi, GRAYMORPHOP op,
                                         GMPOLARITY polarity, int iterations, GrayMorphElem* elem);
OMBREL_API GrayMorphAgent* GrayMorphFact(Buffer* src, Buffer* dst, int left, int top, int right, int bottom,
                                         GRAYMORPHOP op, GMPOLARITY polarity, int iterations,
                                         GrayMorphElem* elem);
///@}

}  // namespace ombrel
