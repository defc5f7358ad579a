// SPDX-License-Identifier: MIT
// Walking a region's boundary chains (internal to blob analysis).
#pragma once
#include "ombrel/blob/blob_result.h"

namespace ombrel {

// ---- Boundary walk
// ------------------------------------------------------------------------------------------ Calls fn(point,
// upward) for every boundary point once around the region's outer contour, chain by chain: down the chain the
// region started with, up the one linked at its bottom, and so on. A point of an upward chain is met at its
// lower row first. Returns true when the walk came back to its start.
template <class Fn>
bool Blob::WalkBoundary(Fn&& fn) const {
    const BdryCell* start = _bdry != nullptr ? _bdry->first : nullptr;
    if (start == nullptr || _res == nullptr) return false;
    const int64_t guard = int64_t{_res->_bdryPool.Chunks()} * kBlobPoolChunkElements + 2;
    const BdryCell* chain = start;
    bool down = true;
    for (int64_t steps = 0; steps < guard; ++steps) {
        // Chains are stored top-down; a chain walked upwards is read in reverse.
        if (down) {
            for (const BdryCell* c = chain; c != nullptr; c = c->next)
                for (int i = 0; i < c->count; ++i) fn(c->pts[i], false);
        } else {
            VisitUpwards(chain, fn);
        }
        const BdryCell* nextChain = down ? chain->bottomLink : chain->topLink;
        if (nextChain == nullptr) return false;
        chain = nextChain;
        down = !down;
        if (chain == start && down) return true;
    }
    return false;
}

template <class Fn>
void Blob::VisitUpwards(const BdryCell* chain, Fn&& fn) {
    // Cells link downwards only; a short recursion-free reversal over the chain's cells.
    int n = 0;
    for (const BdryCell* c = chain; c != nullptr; c = c->next) ++n;
    for (int k = n - 1; k >= 0; --k) {
        const BdryCell* c = chain;
        for (int j = 0; j < k; ++j) c = c->next;
        for (int i = c->count - 1; i >= 0; --i) fn(c->pts[i], true);
    }
}

}  // namespace ombrel
