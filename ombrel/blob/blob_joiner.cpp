// SPDX-License-Identifier: MIT
// The run joiner of blob segmentation: row coding, run joining, region creation and the ending of runs
// (see blob_joiner.h). Its hot members (the joiner per row, newseg, endseg, Find) live in this one
// translation unit so that they inline into each other.
#include <algorithm>
#include <cmath>

#include "ombrel/blob/blob_agent.h"
#include "ombrel/blob/blob_joiner.h"
#include "ombrel/blob/blob_rle.h"
#include "ombrel/framework/hal.h"
#include "ombrel/framework/region_clip.h"

namespace ombrel {

using namespace blobjoin;

// Codes one region row into _trans (and _greys): the transitions of every span of the row, then 32767 and
// the end mark. A rectangular region's row is one span; a masked region's spans are its mask's. Both are
// clipped to the buffer.
int swBlobAgent::CodeRow(const Buffer* buf, Point origin, const Rect& clip, int row, blobrle::Band band,
                         bool emptyBand) {
    int n = 0;
    _greyTail = 0;
    if (!emptyBand && row >= clip.top && row < clip.bottom) {
        const uint8_t* line = buf->Row(origin.y + row) + origin.x;
        if (!_masked) {
            n = CodeRowSpan(line, clip.left, clip.Width(), 0, band);
        } else if (row < _spanRoi->ScanRows()) {
            const ROIRowStore& store = _spanRoi->GetScans()[row];
            for (int i = 0; i < store.SegCnt(); ++i) {
                const int64_t start = std::max<int64_t>(store.scans[i].Start(), clip.left);
                const int64_t end =
                    std::min<int64_t>(int64_t{store.scans[i].Start()} + store.scans[i].Len(), clip.right);
                if (start < end)
                    n = CodeRowSpan(line, static_cast<int>(start), static_cast<int>(end - start), n, band);
            }
        }
        if (n > 0 && _trans[n - 1] > _roiWidth) _trans[n - 1] = static_cast<int16_t>(_roiWidth);
    }
    _trans[n] = kRunEnd;
    _trans[n + 1] = kEndMark;
    return n;
}

// Appends the transitions of the span [x, x + cnt) of a row (`line` is its column 0) to the n coded so far,
// sampling from the span's own start; a span shorter than the step is skipped. Every span starts and ends in
// the background, so the spans' lists join into one.
int swBlobAgent::CodeRowSpan(const uint8_t* line, int x, int cnt, int n, blobrle::Band band) {
    if (cnt < _sx || !OMBREL_ASSERT_HERE("swblob", cnt > 0, "cnt > 0")) return n;
    const uint8_t* p = line + x;
    if (_filterFlags & BLOB_FILTER_GREY) {
        int32_t tail = 0;
        const int m =
            blobrle::CodeSpanGrey(p, cnt, x, _sx, band, _trans.data() + n, _greys.data() + n, &tail);
        // The background between two spans is one run: its sum goes on into this span's first run.
        if (m > 0) {
            _greys[n] += _greyTail;
            _greyTail = tail;
        } else {
            _greyTail += tail;
        }
        return n + m;
    }
    if (_sx == 1) return n + blobrle::CodeSpanStep1(p, cnt, x, band, _trans.data() + n, _isa);
    return n + blobrle::CodeSpan(p, cnt, x, _sx, band, _trans.data() + n);
}

int swBlobAgent::RunRows() {
    const Buffer* buf = _masked ? _pMaskedSrcBuf.get() : _srcBuf;
    const Point origin = _masked ? Point{0, 0} : _sPt;
    const Rect clip = ClipRegionToBuffers(_roiWidth, _roiHeight, {{buf, origin}});
    const bool validDepth = buf != nullptr && buf->BitsPerPixel() == EIGHT;
    // A masked region is segmented on the 0/1 image of its in-band pixels.
    const int low = _masked ? 1 : std::max(_lowThr, 0), high = _masked ? 1 : std::min(_highThr, 255);
    const bool emptyBand = low > high || !validDepth;
    const blobrle::Band band{static_cast<uint8_t>(emptyBand ? 0 : low),
                             static_cast<uint8_t>(emptyBand ? 0 : high - low)};
    _isa = ActiveIsa();
    for (int row = 0; row < _roiHeight; row += _sy) {
        _y += _sy;
        const int n = CodeRow(buf, origin, clip, row, band, emptyBand);
        JoinRow(n, _y);
        if (_stopped) return _pres->_error;
    }
    // Closing pass: one background run over everything ends every open run.
    _y = static_cast<int>(std::lround(double(_roiHeight) / _sy));
    _trans[0] = kRunEnd;
    _trans[1] = kEndMark;
    _greyTail = 0;
    JoinRow(0, _y);
    return _stopped ? _pres->_error : 0;
}

// The surviving region a slot stands for (halving the forwarding path on the way).
inline uint32_t swBlobAgent::Find(uint32_t slot) {
    RegionSlot* slots = _slots.data();
    while (slots[slot].up != slot) {
        slots[slot].up = slots[slots[slot].up].up;
        slot = slots[slot].up;
    }
    return slot;
}

// A current run [s, t) extends the region of `slot` and, with boundary lists, the chain at its left end.
// Inlined into the joiner: it runs for every run of every row.
inline __attribute__((always_inline)) bool swBlobAgent::ExtendRun(uint32_t slot, BdryCell** bdry, int s,
                                                                  int t, int32_t grey, int y) {
    Blob* b = _slots[slot].blob;
    if (b != _pres->_root) b->ExtendMoments(y, s, t, grey, _sy);
    if (bdry != nullptr && *bdry != nullptr) return incbdry(*bdry, s, y);
    return true;
}

void swBlobAgent::JoinRow(int n, int y) {
    // The grey sums and the boundary lists are settled for the whole run: a joiner without their tests
    // per run is a noticeable share of a noisy image.
    const bool greyOn = (_filterFlags & BLOB_FILTER_GREY) != 0;
    // The usual case (row step 1, neither) has a joiner of its own, where the moments need no step factors.
    if (_bdryOn)
        greyOn ? JoinRowAs<true, true, false>(n, y) : JoinRowAs<false, true, false>(n, y);
    else if (greyOn)
        JoinRowAs<true, false, false>(n, y);
    else if (_sy == 1)
        JoinRowAs<false, false, true>(n, y);
    else
        JoinRowAs<false, false, false>(n, y);
}

template <bool kGrey, bool kBdry, bool kStepOne>
void swBlobAgent::JoinRowAs(int n, int y) {
    const int term = _prevCount - 1;
    ActiveRun* const prev = _prev.data();  // neither array is resized while a row is joined
    ActiveRun* const cur = _cur.data();
    const Blob* const root = _pres->_root;
    int i = 0;  // cursor: the first previous-row run not joined yet
    int k = 0;  // current-row runs written
    for (int j = 0; j <= n; ++j) {
        const int s = j == 0 ? kRunStart : _trans[j - 1];
        const int t = j < n ? _trans[j] : kRunEnd;
        const bool object = (j & 1) != 0;
        const int32_t grey = kGrey ? (j < n ? _greys[j] : _greyTail) : 0;
        // Noisy rows touch a different record every few pixels, and each is a cache miss: fetch the records
        // of the previous-row runs a few runs ahead of the cursor, in time for their turn.
        if (i + kPrefetchRuns < term) __builtin_prefetch(_slots[prev[i + kPrefetchRuns].slot].blob);
        if (i != term && Touches(object, s, t, prev[i].x, prev[i + 1].x)) {
            const uint32_t slot = Find(prev[i].slot);
            cur[k] = ActiveRun{s, slot};
            Blob* b = _slots[slot].blob;
            if (b != root) b->ExtendMoments(y, s, t, grey, kStepOne ? 1 : _sy);
            if (kBdry) {
                _curBdry[k] = _prevBdry[i];
                if (_curBdry[k] != nullptr && !incbdry(_curBdry[k], s, y)) return;
            }
            ++k;
            ++i;
            // Further previous runs of this class under the current run join it; the runs between them
            // (of the other class) cannot continue and end here.
            while (i != term && i + 1 != term) {
                const int a = prev[i + 1].x;
                if (!(object ? a <= t : a < t)) break;
                endseg(k - 1, i);
                i += 2;
                if (_stopped) return;
            }
        } else if (!newseg(k++, i, s, t, grey, y)) {
            return;
        }
    }
    EndRow(k);
}

// The current row becomes the previous one. Every run of it was written with the slot its region had then,
// so the slots merged away during the row before are named by no run any more and are free.
void swBlobAgent::EndRow(int k) {
    _freeSlots.insert(_freeSlots.end(), _mergedLastRow.begin(), _mergedLastRow.end());
    std::swap(_mergedLastRow, _mergedSlots);
    _mergedSlots.clear();
    std::swap(_prev, _cur);
    if (_bdryOn) std::swap(_prevBdry, _curBdry);
    _prev[k] = ActiveRun{kRunEnd, 0};
    _prevCount = k + 1;
}

BdryCell* swBlobAgent::NewChain() {
    BdryCell* c = _pres->_bdryPool.Alloc();
    if (c == nullptr) {
        Fail(_pres->_bdryPool.Error());
        return nullptr;
    }
    c->first = c;
    return c;
}

// Room for one more slot: the table grows (and is kept for the next run) when no slot is free. The lists
// of released slots can never hold more than the table, so they never grow while a row is joined.
bool swBlobAgent::ReserveSlot() {
    if (!_freeSlots.empty() || _nSlots < _slots.size()) return true;
    try {
        const size_t size = _slots.size() * 2;
        _slots.resize(size);
        _freeSlots.reserve(size);
        _mergedSlots.reserve(size);
        _mergedLastRow.reserve(size);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

// Slots are recycled so that the table stays as small as the rows' regions (it is read for every run).
uint32_t swBlobAgent::TakeSlot(Blob* blob) {
    uint32_t slot;
    if (!_freeSlots.empty()) {
        slot = _freeSlots.back();
        _freeSlots.pop_back();
    } else {
        slot = _nSlots++;
    }
    _slots[slot] = RegionSlot{blob, slot, 1};
    return slot;
}

// Current run k = [s, t) touches nothing of its class: a new region, child of the region enclosing it (that
// of current run k - 1), whose continuation [t, ...) goes back in front of the cursor `i`.
bool swBlobAgent::newseg(int k, int& i, int s, int t, int32_t grey, int y) {
    const uint32_t enclosingSlot = Find(_cur[k - 1].slot);
    Blob* enclosing = _slots[enclosingSlot].blob;
    Blob* nb = _pres->_blobPool.Alloc();
    if (nb == nullptr) {
        Fail(_pres->_blobPool.Error());
        return false;
    }
    if (!ReserveSlot()) {
        _pres->_blobPool.Free(nb);
        Fail(BLOB_ERR_NO_MEMORY);
        return false;
    }
    // The new run and the continuation are two entries, taken in that order.
    CountedPool& entries = _pres->_segPool;
    if (!entries.Take()) {
        _pres->_blobPool.Free(nb);
        Fail(entries.Error());
        return false;
    }
    if (!entries.Take()) {
        entries.Give();
        _pres->_blobPool.Free(nb);
        Fail(entries.Error());
        return false;
    }
    nb->Init(_pres);
    nb->_parent = enclosing;
    RefStoragePool<Blob>::AddRef(enclosing);
    nb->_color = Complement(enclosing->_color);
    nb->SetMomentLevel();
    nb->_sibling = enclosing->_child;
    if (enclosing->_child != nullptr)
        enclosing->_child->_prevSibling = nb;
    else
        enclosing->_lastChild = nb;
    enclosing->_child = nb;
    ++enclosing->_nChildren;
    nb->_top = static_cast<int16_t>(y);
    nb->_topX = static_cast<int16_t>(s);
    nb->_seq = _pres->_nextSeq++;
    ++_pres->_nBlobs;

    // The cursor never sits on the root's run (always continued first), so the slot before it is free.
    const uint32_t slot = TakeSlot(nb);
    ++_slots[enclosingSlot].open;
    --i;
    _cur[k] = ActiveRun{s, slot};
    _prev[i] = ActiveRun{t, enclosingSlot};

    BdryCell** bdry = nullptr;
    if (_bdryOn) {
        // The new run's two ends start chains that meet at its top.
        _curBdry[k] = NewChain();
        _prevBdry[i] = _curBdry[k] != nullptr ? NewChain() : nullptr;
        if (_prevBdry[i] == nullptr) return false;
        _curBdry[k]->topLink = _prevBdry[i];
        _prevBdry[i]->topLink = _curBdry[k];
        nb->_bdry = _curBdry[k];
        bdry = &_curBdry[k];
    }
    // Records are written as soon as they are made, and a fresh record is a cache miss on each of its lines
    // (a noisy image makes a region every few runs): fetch the one a few regions ahead in pool order, far
    // enough for memory to answer in time. A record from the free list was freed lately and is still near.
    if (const Blob* upcoming = _pres->_blobPool.Ahead(kPrefetchRecords)) {
        for (size_t line = 0; line < sizeof(Blob); line += 64)
            __builtin_prefetch(reinterpret_cast<const char*>(upcoming) + line, 1);
    }
    return ExtendRun(slot, bdry, s, t, grey, y) && !_stopped;
}

// Previous run `ended` ends, and the run after it with it; the runs either side of them (current run
// `before` and whatever follows) become one run, so their regions are one.
void swBlobAgent::endseg(int before, int ended) {
    const uint32_t leftSlot = Find(_cur[before].slot);
    const uint32_t endedSlot = Find(_prev[ended].slot);
    const uint32_t rightSlot = Find(_prev[ended + 1].slot);
    Blob* endedBlob = _slots[endedSlot].blob;
    Blob* left = _slots[leftSlot].blob;
    Blob* right = _slots[rightSlot].blob;
    --_slots[endedSlot].open;
    --_slots[rightSlot].open;
    if (_bdryOn && _prevBdry[ended] != nullptr && _prevBdry[ended + 1] != nullptr) {
        BdryCell* a = _prevBdry[ended]->first;
        BdryCell* b = _prevBdry[ended + 1]->first;
        a->bottomLink = b;
        b->bottomLink = a;
        a->flags |= 1;
        b->flags |= 1;
    }
    _pres->_segPool.Give();
    _pres->_segPool.Give();
    if (left != right) {
        Blob* survivor;
        if (endedBlob->_parent == left)
            survivor = left;
        else if (endedBlob->_parent == right)
            survivor = right;
        else
            survivor = right->_top < left->_top ? right : left;
        Blob* other = survivor == left ? right : left;
        if (other == _pres->_root) std::swap(survivor, other);  // the root is never merged away
        // Every run of `other` now belongs to the survivor.
        const uint32_t survivorSlot = survivor == left ? leftSlot : rightSlot;
        const uint32_t otherSlot = survivor == left ? rightSlot : leftSlot;
        _slots[survivorSlot].open += _slots[otherSlot].open;
        _slots[otherSlot].open = 0;
        _slots[otherSlot].up = survivorSlot;
        // Runs may still name the merged-away slot until the next row has read (and resolved) them all.
        _mergedSlots.push_back(otherSlot);
        mergeBlobs(survivor, other);
    }
    if (_slots[endedSlot].open == 0 && endedBlob != _pres->_root) {
        // Closed: like the run ends, its bottom becomes exclusive.
        endedBlob->_bottom = static_cast<int16_t>(endedBlob->_bottom + 1);
        _freeSlots.push_back(endedSlot);  // no run resolves to it any more
        recpreprocess(endedBlob);
    }
}

bool swBlobAgent::incbdry(BdryCell*& cell, int x, int y) {
    BdryCell* c = cell;
    if (c->count > 0) {
        BdryPoint& p = c->pts[c->count - 1];
        if (p.x == x && p.y1 + _sy == y) {
            p.y1 = static_cast<int16_t>(y);
            return true;
        }
    }
    if (c->count == kBdryCellPoints) {
        BdryCell* n = _pres->_bdryPool.Alloc();
        if (n == nullptr) {
            Fail(_pres->_bdryPool.Error());
            return false;
        }
        n->first = c->first;
        c->next = n;
        cell = n;
        c = n;
    }
    c->pts[c->count++] = BdryPoint{static_cast<int16_t>(x), static_cast<int16_t>(y), static_cast<int16_t>(y)};
    return true;
}

}  // namespace ombrel
