// SPDX-License-Identifier: MIT
/// \file
/// What blob analysis produces: the BlobResult that owns the region records (blob_record.h), their pools
/// and the tree of regions.
///
/// The result list (built when Go ends). Every surviving region has a label 1..NParts() and appears once in
/// the list, in raster order of its first pixel (top row, then the x of its first run there); the root has
/// label 0. Objects and holes share the list. Walk it with First()/Next() or Blobs(); walk the tree with
/// Root(), FirstChild(), NextSibling(), Parent(); every child list is in label order too. Feature 52 is the
/// parent's label (0 for a top-level region).
#pragma once
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <vector>

#include "ombrel/blob/blob_pool.h"
#include "ombrel/blob/blob_record.h"
#include "ombrel/framework/export.h"
#include "ombrel/framework/geometry.h"

namespace ombrel {

/// What a blob agent produces: the tree of regions under the root, the list of surviving regions in raster
/// order, the status of the run and the pools that hold them. Reuse one result across runs.
class OMBREL_API BlobResult {
  public:
    /// An empty result, scales 1.
    BlobResult();
    ///@{
    /// An empty result with drawing scales (and draw mode) kept for the caller.
    BlobResult(double scaleX, double scaleY);
    BlobResult(int drawMode, double scaleX, double scaleY);
    ///@}
    /// Frees every region and the pools.
    ~BlobResult();
    BlobResult(const BlobResult&) = delete;
    BlobResult& operator=(const BlobResult&) = delete;

    /// Surviving regions (objects and holes), root excluded.
    int NParts() const { return _nBlobs; }
    /// The root: the background around everything.
    Blob* Root() const { return _root; }
    /// The first region of the list, or null.
    Blob* First() const { return _list.empty() ? nullptr : _list.front(); }
    /// The surviving regions in raster order of their first pixel (label k is Blobs()[k - 1]).
    std::span<Blob* const> Blobs() const { return {_list.data(), _list.size()}; }
    /// The region with label `label` (1..NParts()), or null.
    Blob* ByLabel(int label) const;
    /// The largest top-level region seen by the keep-flag rule, or null.
    Blob* Largest() const { return _largest; }

    /// BLOB_OK or the status of the last run.
    int32_t Error() const { return _error; }
    /// Image position of the region's (0, 0) in the last run.
    Point Origin() const { return _origin; }
    /// Pixels in the region of the last run.
    int64_t PixelCount() const { return _pixelCount; }
    ///@{
    /// The option word (BLOB_OPT_*); the agent sets it at SetResult and Go.
    int32_t Options() const { return _options; }
    void SetOptions(int32_t options) { _options = options; }
    ///@}

    /// Returns every region, run entry and boundary cell to the pools (keeping their memory).
    void CleanUp();

    /// Draws every surviving region: objects in `objectColour`, holes in `holeColour` (0xRRGGBB), their
    /// boundary (or bounding box without boundary lists), and the centroids when `centroids` is set.
    void HighlightTree(HalvardMetaDC* dc, bool centroids, Matrix* xf, int objectColour, int holeColour);

    /// One line per region of the list: "%-3d: blob: 0x%x blob->_Next 0x%x\n" (the last without _Next).
    void Dump(FILE* out) const;

    ///@{
    /// Pool access for the agent and the tests.
    RefStoragePool<Blob>& BlobPool() { return _blobPool; }
    CountedPool& SegmentPool() { return _segPool; }
    StoragePool<BdryCell>& BdryPool() { return _bdryPool; }
    int ChunkLimit() const { return _blobPool.Limit(); }
    ///@}

  private:
    friend class Blob;
    friend class BlobAgent;
    friend class swBlobAgent;

    void BuildList();

    Point _origin;
    int64_t _pixelCount = 0;
    int32_t _options = BLOB_OPT_FIRST_MOMENTS | BLOB_OPT_SECOND_MOMENTS;
    int32_t _error = BLOB_OK;
    int32_t _drawMode = 0;
    double _scaleX = 1.0, _scaleY = 1.0;
    Blob* _root = nullptr;
    Blob* _head = nullptr;
    Blob* _largest = nullptr;
    int32_t _nBlobs = 0;
    uint32_t _nextSeq = 0;
    RefStoragePool<Blob> _blobPool;
    CountedPool _segPool;  ///< the joiner's run entries (held in its own arrays)
    StoragePool<BdryCell> _bdryPool;
    std::vector<Blob*> _list;
    std::vector<Blob*> _bySeq;  ///< scratch of BuildList, kept between runs
    struct ClosedRegion {
        Blob* blob;
        uint32_t seq;
    };
    std::vector<ClosedRegion> _closed;  ///< regions in the order they closed
    int64_t _closedDeleted = 0;         ///< closed regions deleted afterwards
    /// Derived features of the listed regions, one slot per label; kept (not cleared) between runs.
    std::unique_ptr<BlobFeatures[]> _features;
    size_t _featureCapacity = 0;
};

/// Inline, like the two below: a noisy image makes a region every few runs.
inline void Blob::Init(BlobResult* res) {
    /// The pool constructed the record; only what the constructor leaves open is set.
    _res = res;
    _color = -1;
    _label = -1;
    _inUse = true;
}

inline void Blob::SetMomentLevel() {
    const int32_t options = _res != nullptr ? _res->_options : 0;
    if ((options & BLOB_OPT_EXTENT_ONLY_0) && _color == 0)
        _moments = 0;
    else
        _moments = static_cast<uint8_t>(((options & BLOB_OPT_FIRST_MOMENTS) ? kFirstSums : 0) |
                                        ((options & BLOB_OPT_SECOND_MOMENTS) ? kSecondSums : 0));
}

}  // namespace ombrel
