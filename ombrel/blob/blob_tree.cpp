// SPDX-License-Identifier: MIT
// Tree surgery of blob segmentation: deleting and merging regions, their boundary cells and child lists, and
// the completion of a closed region (filled area, filters, the largest-region rule).
#include <algorithm>
#include <new>
#include <vector>

#include "ombrel/blob/blob_agent.h"
#include "ombrel/framework/hal.h"

namespace ombrel {

void BlobAgent::delbdry(Blob* blob) {
    if (blob == nullptr || blob->_bdry == nullptr || _pres == nullptr) return;
    // Collect the chains of the contour first: freeing while walking would cut the links.
    std::vector<BdryCell*>& chains = _chainScratch;
    chains.clear();
    const BdryCell* start = blob->_bdry->first;
    const BdryCell* chain = start;
    bool down = true;
    const int64_t guard = int64_t{_pres->_bdryPool.Chunks()} * kBlobPoolChunkElements + 2;
    for (int64_t steps = 0; chain != nullptr && steps < guard; ++steps) {
        chains.push_back(const_cast<BdryCell*>(chain));
        chain = down ? chain->bottomLink : chain->topLink;
        down = !down;
        if (chain == start) break;
    }
    for (BdryCell* c : chains) {
        // Unhook the partners so that a later walk from a neighbour cannot reach freed cells.
        if (c->topLink != nullptr && c->topLink->topLink == c) c->topLink->topLink = nullptr;
        if (c->bottomLink != nullptr && c->bottomLink->bottomLink == c) c->bottomLink->bottomLink = nullptr;
    }
    for (BdryCell* c : chains) {
        for (BdryCell* cell = c; cell != nullptr;) {
            BdryCell* next = cell->next;
            _pres->_bdryPool.Free(cell);
            cell = next;
        }
    }
    blob->_bdry = nullptr;
}

// Removes `blob` from its parent's child list.
void BlobAgent::UnlinkChild(Blob* blob, Blob*& parentChild, Blob*& parentLast) {
    if (blob->_prevSibling != nullptr)
        blob->_prevSibling->_sibling = blob->_sibling;
    else
        parentChild = blob->_sibling;
    if (blob->_sibling != nullptr)
        blob->_sibling->_prevSibling = blob->_prevSibling;
    else
        parentLast = blob->_prevSibling;
    blob->_sibling = blob->_prevSibling = nullptr;
    if (blob->_parent != nullptr) {
        blob->_parent->_childFilled -= blob->_filledArea;
        --blob->_parent->_nChildren;
    }
}

void BlobAgent::MoveChildren(Blob* from, Blob* to) {
    for (Blob* c = from->_child; c != nullptr; c = c->_sibling) {
        RefStoragePool<Blob>::RemoveRef(from);
        RefStoragePool<Blob>::AddRef(to);
        c->_parent = to;
    }
    to->_childFilled += from->_childFilled;
    to->_nChildren += from->_nChildren;
    from->_childFilled = 0;
    from->_nChildren = 0;
    if (from->_child == nullptr) return;
    if (to->_lastChild != nullptr) {
        to->_lastChild->_sibling = from->_child;
        from->_child->_prevSibling = to->_lastChild;
    } else {
        to->_child = from->_child;
    }
    to->_lastChild = from->_lastChild;
    from->_child = from->_lastChild = nullptr;
}

void BlobAgent::delblob(Blob*& blob, bool withChildren) {
    if (blob == nullptr || _pres == nullptr || blob->_parent == nullptr || !blob->_inUse ||
        (blob->_computed & BLOB_MERGED_AWAY))
        return;
    Blob* b = blob;
    Blob* parent = b->_parent;
    --_pres->_nBlobs;
    if (withChildren || parent == _pres->_root) {
        // Children of a top-level region go with it (their own children follow them up and go too).
        while (b->_child != nullptr) {
            Blob* child = b->_child;
            delblob(child, withChildren);
            if (b->_child == child) break;  // could not be removed: never loop
        }
    } else {
        MoveChildren(b, parent);
    }
    delbdry(b);
    if (parent != _pres->_root) parent->AddMoments(*b);
    UnlinkChild(b, parent->_child, parent->_lastChild);
    RefStoragePool<Blob>::RemoveRef(parent);
    if (RefStoragePool<Blob>::RefCount(b) > 0) TraceReferrers(b);
    if (_pres->_largest == b) _pres->_largest = nullptr;
    if (b->_computed & BLOB_DONE_COMPLETION) ++_pres->_closedDeleted;
    b->_inUse = false;
    _pres->_blobPool.Free(b);
    blob = nullptr;
}

void BlobAgent::TraceReferrers(const Blob* b) {
    halHandleTrace("Blob 0x%jx reflist: ", static_cast<uintmax_t>(reinterpret_cast<uintptr_t>(b)));
    _pres->_blobPool.ForEachUsed([&](const Blob& other) {
        if (other._inUse && (other._parent == b || other._child == b || other._sibling == b))
            halHandleTrace("0x%jx ", static_cast<uintmax_t>(reinterpret_cast<uintptr_t>(&other)));
    });
}

// The runs of `other` already name the survivor (see swBlobAgent::endseg).
void BlobAgent::mergeBlobs(Blob* survivor, Blob* other) {
    if (survivor != _pres->_root) survivor->AddMoments(*other);
    MoveChildren(other, survivor);
    if (other->_parent != nullptr) {
        UnlinkChild(other, other->_parent->_child, other->_parent->_lastChild);
        RefStoragePool<Blob>::RemoveRef(other->_parent);
    }
    other->_computed |= BLOB_MERGED_AWAY;
    other->_inUse = false;
    _pres->_blobPool.Free(other);
    --_pres->_nBlobs;
}

// Filled area and number of holes. Children close before their parent and add their filled area to it
// as they close (and take it away when they leave), so nothing needs to be walked here; a child still
// open (filled area 0) would be completed first.
void BlobAgent::HCells(Blob* b) {
    if (b->_childFilled == 0 && b->_nChildren > 0)
        for (Blob* c = b->_child; c != nullptr; c = c->_sibling)
            if (c->_filledArea == 0) HCells(c);  // adds itself to b
    b->SetFilled(static_cast<int32_t>(std::min<int64_t>(b->_area + b->_childFilled, 2147483647)),
                 b->_nChildren);
    if (b->_parent != nullptr) b->_parent->_childFilled += b->_filledArea;
}

void BlobAgent::recpreprocess(Blob* blob) {
    Blob* b = blob;
    HCells(b);
    const bool topLevel = b->_parent == _pres->_root;
    const int32_t compared = (_filterFlags & BLOB_FILTER_PLAIN_AREA) ? b->_area : b->_filledArea;
    if ((!(_filterFlags & BLOB_FILTER_MIN_TOP_ONLY) || topLevel) && compared < _minArea) {
        delblob(b, true);
        return;
    }
    if ((!(_filterFlags & BLOB_FILTER_MAX_TOP_ONLY) || topLevel) && compared > _maxArea) {
        delblob(b, false);
        return;
    }
    if ((_filterFlags & BLOB_FILTER_BORDER) &&
        (b->_left < 1 || b->_right >= _roiWidth || b->_top < 1 || b->_bottom >= _roiHeight)) {
        delblob(b, (_filterFlags & BLOB_FILTER_BORDER_CHILDREN) != 0);
        return;
    }
    if (topLevel) {
        Blob* largest = _pres->_largest;
        if (largest == nullptr) {
            _pres->_largest = b;
        } else if (b->_area >= largest->_area) {
            _pres->_largest = b;
            if (_keepFlag == 0) delblob(largest, true);
        } else if (_keepFlag == 0) {
            delblob(b, true);
            return;
        }
    }
    // Features are derived on first use (Blob::GetFeat): a value depends only on what is final now.
    b->_computed |= BLOB_DONE_COMPLETION;
    try {
        _pres->_closed.push_back({b, b->_seq});
    } catch (const std::bad_alloc&) {
        Fail(BLOB_ERR_NO_MEMORY);
    }
}

}  // namespace ombrel
