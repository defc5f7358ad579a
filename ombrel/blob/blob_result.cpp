// SPDX-License-Identifier: MIT
// The blob result: its pools, clean-up between runs, the dump, and the labelled result list built after a
// run.
#include "ombrel/blob/blob_result.h"

#include <algorithm>
#include <new>

namespace ombrel {

BlobResult::BlobResult() : BlobResult(0, 1.0, 1.0) {}
BlobResult::BlobResult(double scaleX, double scaleY) : BlobResult(0, scaleX, scaleY) {}
BlobResult::BlobResult(int drawMode, double scaleX, double scaleY)
    : _drawMode(drawMode),
      _scaleX(scaleX),
      _scaleY(scaleY),
      _blobPool(GetBlobMaxPoolSize()),
      _segPool(GetBlobMaxPoolSize()),
      _bdryPool(GetBlobMaxPoolSize()) {}

BlobResult::~BlobResult() = default;

void BlobResult::CleanUp() {
    _blobPool.Reset();
    _segPool.Reset();
    _bdryPool.Reset();
    _root = _head = _largest = nullptr;
    _nBlobs = 0;
    _nextSeq = 0;
    _error = BLOB_OK;
    _list.clear();
    _closed.clear();
    _closedDeleted = 0;
}

Blob* BlobResult::ByLabel(int label) const {
    if (label < 1 || label > static_cast<int>(_list.size())) return nullptr;
    return _list[static_cast<size_t>(label - 1)];
}

void BlobResult::Dump(FILE* out) const {
    if (out == nullptr) return;
    for (size_t i = 0; i < _list.size(); ++i) {
        const Blob* b = _list[i];
        if (b->_Next != nullptr)
            std::fprintf(out, "%-3d: blob: 0x%jx blob->_Next 0x%jx\n", static_cast<int>(i),
                         static_cast<uintmax_t>(reinterpret_cast<uintptr_t>(b)),
                         static_cast<uintmax_t>(reinterpret_cast<uintptr_t>(b->_Next)));
        else
            std::fprintf(out, "%-3d: blob: 0x%jx\n", static_cast<int>(i),
                         static_cast<uintmax_t>(reinterpret_cast<uintptr_t>(b)));
    }
}

// Labels the completed survivors in raster order of their first pixel (their smallest creation number),
// links the result list, and relinks every child list in the same order.
void BlobResult::BuildList() {
    _list.clear();
    try {
        _bySeq.assign(_nextSeq, nullptr);
        _list.reserve(_closed.size());  // every listed region fits: the linking below cannot fail
    } catch (const std::bad_alloc&) {
        _bySeq.clear();
        if (_root != nullptr) _root->_child = _root->_lastChild = nullptr;
        if (_error == BLOB_OK) _error = BLOB_ERR_NO_MEMORY;
        _nBlobs = 0;
        return;
    }
    size_t listed = 0;
    for (const ClosedRegion& c : _closed) {
        Blob* b = c.blob;
        // A record deleted after it closed may have been reused by a later region: its number tells. Only
        // looked at when such deletions happened (reading every record costs a cache miss each).
        if (_closedDeleted != 0 && !(b->_inUse && b->_seq == c.seq && (b->_computed & BLOB_DONE_COMPLETION)))
            continue;
        if (c.seq < _bySeq.size()) {
            _bySeq[c.seq] = b;
            ++listed;
        }
    }
    if (listed > _featureCapacity) {
        const size_t capacity = std::max(listed, _featureCapacity + _featureCapacity / 2);
        _features.reset(new (std::nothrow) BlobFeatures[capacity]);
        _featureCapacity = _features ? capacity : 0;
        if (!_features && _error == BLOB_OK) _error = BLOB_ERR_NO_MEMORY;
    }
    // Squeeze out the numbers of merged-away and deleted regions (a third of a noisy image's, in no
    // predictable pattern) without a branch on each.
    size_t survivors = 0;
    for (Blob* b : _bySeq) {
        _bySeq[survivors] = b;
        survivors += b != nullptr;
    }
    _bySeq.resize(survivors);
    // A parent always has a smaller number than its children, so each child list is emptied (when its
    // owner is listed) before the first child is appended. After a failure a listed region may sit in an
    // open one: those lists are emptied first.
    if (_root != nullptr) _root->_child = _root->_lastChild = nullptr;
    if (_error != BLOB_OK)
        for (Blob* b : _bySeq) b->_parent->_child = b->_parent->_lastChild = nullptr;
    // The records lie in pool order, not in creation order, and a noisy image's are long out of the cache:
    // fetch far enough ahead for memory to answer in time (a few entries ahead was too late).
    constexpr size_t kPrefetchAhead = 24;
    for (size_t i = 0; i < _bySeq.size(); ++i) {
        if (i + kPrefetchAhead < _bySeq.size())
            __builtin_prefetch(&_bySeq[i + kPrefetchAhead]->_parent, 1);  // the tree fields' line
        Blob* b = _bySeq[i];
        b->_child = b->_lastChild = nullptr;
        b->_f = _list.size() < _featureCapacity ? &_features[_list.size()] : nullptr;
        b->_label = static_cast<int32_t>(_list.size()) + 1;
        if (!_list.empty()) _list.back()->_Next = b;
        b->_Next = nullptr;
        _list.push_back(b);
        Blob* p = b->_parent;
        b->_sibling = nullptr;
        b->_prevSibling = p->_lastChild;
        if (p->_lastChild != nullptr)
            p->_lastChild->_sibling = b;
        else
            p->_child = b;
        p->_lastChild = b;
    }
    if (_root != nullptr) _root->_label = 0;
    _nBlobs = static_cast<int32_t>(_list.size());
}

}  // namespace ombrel
