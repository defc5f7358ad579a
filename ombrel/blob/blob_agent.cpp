// SPDX-License-Identifier: MIT
// Blob segmentation: row coding, run joining, region creation, merging and completion.
//
// The active runs of one row are alternating background / object runs, from the root's run (x = -32767)
// to a terminator (x = 32767); a run ends where the next one starts. While a row is joined, the previous
// row's runs are read from one array at a cursor and the current row's are written to another, so that
// the runs left of the cursor describe the current row and those from it on the previous one. Three
// edits keep them a partition of the row:
//   continue: a previous run touched by a current run of its class takes the current run's start;
//   newseg:   a current run that touches nothing of its class splits the run enclosing it into three
//             (the enclosing region's part, the new region's run, the enclosing region's continuation,
//             which goes back in front of the cursor);
//   endseg:   a previous run that no current run of its class continues is removed together with the run
//             after it, so that the runs on either side (of one class) become one, merging their regions.
// Runs name their region through a slot; a merge forwards the merged-away slot to the survivor's instead of
// re-pointing its runs, and the survivor's slot counts the open runs of both. Plain arrays and slots keep
// a noisy image (hundreds of thousands of tiny regions) from spending its time on linked, pooled entries;
// the entry pool's accounting is kept as counts (CountedPool) so that limits and failures stay the same.
#include "ombrel/blob/blob_agent.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "ombrel/blob/blob_rle.h"
#include "ombrel/framework/factory.h"
#include "ombrel/framework/hal.h"
#include "ombrel/framework/region_clip.h"
#include "ombrel/pixelops/mask.h"

namespace ombrel {
namespace {

constexpr int16_t kRunStart = -32767;
constexpr int16_t kRunEnd = 32767;
constexpr int16_t kEndMark = -32768;
constexpr int kMaxExtent = 32766;    // the reach of the 16-bit run coordinates
constexpr int kPrefetchRuns = 4;     // how far ahead of the cursor the joiner fetches region records
constexpr int kPrefetchRecords = 4;  // how far ahead of the pool newseg fetches fresh records

int Complement(int colour) {
    return colour == -1 ? 0 : -1;
}

// Same-class runs [s, t) and [a, b): objects touch 8-connected, background 4-connected.
inline bool Touches(bool object, int s, int t, int a, int b) {
    return object ? (s <= b && a <= t) : (s < b && a < t);
}

}  // namespace

// ---- BlobAgent
// ----------------------------------------------------------------------------------------------
BlobAgent::BlobAgent(Buffer* src, BlobResult* res, int lowThr, int highThr) : Agent(src) {
    Init(res, lowThr, highThr);
}
BlobAgent::BlobAgent(Buffer* src, Rect r, BlobResult* res, int lowThr, int highThr) : Agent(src, r) {
    Init(res, lowThr, highThr);
}
BlobAgent::BlobAgent(Buffer* src, Point p, const ROI& roi, BlobResult* res, int lowThr, int highThr)
    : Agent(src, p, roi) {
    Init(res, lowThr, highThr);
}

void BlobAgent::Init(BlobResult* res, int lowThr, int highThr) {
    _lowThr = lowThr;
    _highThr = highThr;
    _StepX = 1;
    _StepY = 1;
    _minArea = 1;
    _maxArea = 2147483647;
    _filterFlags = BLOB_FILTER_BORDER_CHILDREN;
    _options = BLOB_OPT_FIRST_MOMENTS | BLOB_OPT_SECOND_MOMENTS;
    _keepFlag = 1;
    SetResult(res);
}

void BlobAgent::SetResult(BlobResult* res) {
    _pres = res;
    if (res == nullptr) return;
    res->_origin = _sPt;
    res->_pixelCount = int64_t{_sRoi.Width()} * _sRoi.Height();
    res->_options = _options;
}

int BlobAgent::PreGo() {
    return 0;
}

int BlobAgent::PostGo() {
    if (_pres != nullptr) _pres->BuildList();
    return 0;
}

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

// ---- swBlobAgent
// --------------------------------------------------------------------------------------------
swBlobAgent::swBlobAgent(Buffer* src, BlobResult* res, int lowThr, int highThr)
    : BlobAgent(src, res, lowThr, highThr) {}
swBlobAgent::swBlobAgent(Buffer* src, Rect r, BlobResult* res, int lowThr, int highThr)
    : BlobAgent(src, r, res, lowThr, highThr) {}
swBlobAgent::swBlobAgent(Buffer* src, Point p, const ROI& roi, BlobResult* res, int lowThr, int highThr)
    : BlobAgent(src, p, roi, res, lowThr, highThr) {}

swBlobAgent::~swBlobAgent() {
    DeleteMaskAgent();
}

void BlobAgent::Fail(int32_t status) {
    if (!_stopped && _pres != nullptr) _pres->_error = status;
    _stopped = true;
}

int swBlobAgent::PreGo() {
    OMBREL_ASSERT_HERE("swblob", _sRoi.Width() > _StepX, "_sRoi.Width() > _StepX");
    if (!OMBREL_ASSERT_HERE("swblob", _pres, "_pres")) return BLOB_ERR_NO_RESULT;
    _sx = _StepX;
    _sy = _StepY;
    if (!OMBREL_ASSERT_HERE("swblob", (_StepX > 0) && (_StepY > 0), "(_StepX > 0) && (_StepY > 0)")) {
        _sx = std::max(_sx, 1);
        _sy = std::max(_sy, 1);
    }
    _stopped = false;
    _pres->CleanUp();
    SetResult(_pres);
    _roiWidth = std::clamp(_sRoi.Width(), 0, kMaxExtent);
    _roiHeight = std::clamp(_sRoi.Height(), 0, kMaxExtent);

    Blob* root = _pres->_blobPool.Alloc();
    if (root == nullptr) return Stop(_pres->_blobPool.Error());
    root->Init(_pres);
    _pres->_root = _pres->_head = root;
    // The root's run and the terminator are entries like any other for the pool's accounting.
    const bool rootRun = _pres->_segPool.Take();
    const bool terminator = _pres->_segPool.Take();
    if (!rootRun || !terminator) return Stop(_pres->_segPool.Error());
    _bdryOn = (_pres->_options & BLOB_OPT_BOUNDARY) != 0;
    _y = -_sy;
    try {
        // A row of w columns has at most w + 1 runs, the terminator and one continuation in front of the
        // cursor beside them.
        const size_t runs = static_cast<size_t>(_roiWidth) + 4;
        _trans.resize(runs);
        _greys.resize(runs);
        _prev.resize(runs);
        _cur.resize(runs);
        if (_bdryOn) {
            _prevBdry.assign(runs, nullptr);
            _curBdry.assign(runs, nullptr);
        }
        if (_slots.empty()) {
            _slots.resize(1024);
            _freeSlots.reserve(1024);
            _mergedSlots.reserve(1024);
            _mergedLastRow.reserve(1024);
        }
    } catch (const std::bad_alloc&) {
        return Stop(BLOB_ERR_NO_MEMORY);
    }
    _slots[0] = RegionSlot{root, 0, 1};
    _nSlots = 1;
    _freeSlots.clear();
    _mergedSlots.clear();
    _mergedLastRow.clear();
    _prev[0] = ActiveRun{kRunStart, 0};
    _prev[1] = ActiveRun{kRunEnd, 0};
    _prevCount = 2;
    _masked = _sRoi.IsMasked();
    if (_masked) return PrepareMask();
    return 0;
}

int swBlobAgent::Stop(int32_t status) {
    Fail(status);
    return status;
}

int swBlobAgent::Go() {
    _maskRan = false;
    int status = PreGo();
    if (status == 0) status = RunRows();
    if (_maskRan) {
        _lowThr = _savedLow;
        _highThr = _savedHigh;
    }
    if (_pres != nullptr) {
        PostGo();
        if (status == 0) status = _pres->_error;
    }
    return status;
}

// Codes one region row into _trans (and _greys): transitions, then 32767 and the end mark.
int swBlobAgent::CodeRow(const Buffer* buf, Point origin, const Rect& clip, int row, blobrle::Band band,
                         bool emptyBand) {
    int n = 0;
    const int cnt = clip.Width();
    _greyTail = 0;
    if (!emptyBand && row >= clip.top && row < clip.bottom && cnt >= _sx &&
        OMBREL_ASSERT_HERE("swblob", cnt > 0, "cnt > 0")) {
        const uint8_t* p = buf->Row(origin.y + row) + origin.x + clip.left;
        if (_filterFlags & BLOB_FILTER_GREY)
            n = blobrle::CodeSpanGrey(p, cnt, clip.left, _sx, band, _trans.data(), _greys.data(), &_greyTail);
        else if (_sx == 1)
            n = blobrle::CodeSpanStep1(p, cnt, clip.left, band, _trans.data(), _isa);
        else
            n = blobrle::CodeSpan(p, cnt, clip.left, _sx, band, _trans.data());
        if (n > 0 && _trans[n - 1] > _roiWidth) _trans[n - 1] = static_cast<int16_t>(_roiWidth);
    }
    _trans[n] = kRunEnd;
    _trans[n + 1] = kEndMark;
    return n;
}

int swBlobAgent::RunRows() {
    const Buffer* buf = _masked ? _pMaskedSrcBuf.get() : _srcBuf;
    const Point origin = _masked ? Point{0, 0} : _sPt;
    const Rect clip = ClipRegionToBuffers(_roiWidth, _roiHeight, {{buf, origin}});
    const bool validDepth = buf != nullptr && buf->BitsPerPixel() == EIGHT;
    const int low = std::max(_lowThr, 0), high = std::min(_highThr, 255);
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

// ---- Masked regions
// ----------------------------------------------------------------------------------------- The in-band
// pixels under the mask become 1 in a private buffer (width rounded up to 32), which is then segmented with
// both thresholds 1. The buffer is kept while the region's size stays; the mask agent is made again for every
// run, since the thresholds, the origin or the region may have changed.
int swBlobAgent::PrepareMask() {
    const int width = (_roiWidth + 31) / 32 * 32;
    if (!_pMaskedSrcBuf || _pMaskedSrcBuf->Width() != width || _pMaskedSrcBuf->Height() != _roiHeight) {
        _pMaskedSrcBuf.reset(new (std::nothrow) Buffer(width, _roiHeight, HOST_BANK, EIGHT, 0, 1));
    }
    if (!OMBREL_ASSERT_HERE("swblob", _pMaskedSrcBuf && _pMaskedSrcBuf->BaseAddr(),
                            "_pMaskedSrcBuf && _pMaskedSrcBuf->BaseAddr()")) {
        _pMaskedSrcBuf.reset();
        return Stop(BLOB_ERR_NO_MEMORY);
    }
    DeleteMaskAgent();
    _maskAgent = MaskFact(_srcBuf, _pMaskedSrcBuf.get(), _sPt, _sRoi, _lowThr, _highThr, MASK_BAND);
    if (_maskAgent == nullptr) return Stop(BLOB_ERR_NO_MEMORY);
    _maskAgent->Go();
    _savedLow = _lowThr;
    _savedHigh = _highThr;
    _lowThr = _highThr = 1;
    _maskRan = true;
    return 0;
}

void swBlobAgent::DeleteMaskAgent() {
    delete _maskAgent;
    _maskAgent = nullptr;
}

// ---- Factories
// ----------------------------------------------------------------------------------------------
namespace {

void CheckFactoryArgs(const Buffer* src, const BlobResult* res, int lowThr, int highThr) {
    Check(src != nullptr && res != nullptr && highThr >= lowThr && lowThr >= 0 && highThr <= 255, "lfblob",
          __LINE__,
          "(src != NULL) && (res != NULL) && (highThr >= lowThr) && (lowThr >= 0) && (highThr <= 255)");
}

}  // namespace

BlobAgent* BlobFact(Buffer* src, BlobResult* res, int lowThr, int highThr) {
    CheckFactoryArgs(src, res, lowThr, highThr);
    if (src == nullptr) return nullptr;
    return MakeAgent<swBlobAgent>({{src, HostTypes::Any}}, src, res, lowThr, highThr);
}

BlobAgent* BlobFact(Buffer* src, const Rect& r, BlobResult* res, int lowThr, int highThr) {
    CheckFactoryArgs(src, res, lowThr, highThr);
    if (src == nullptr) return nullptr;
    return MakeAgent<swBlobAgent>({{src, HostTypes::Any}}, src, r, res, lowThr, highThr);
}

BlobAgent* BlobFact(Buffer* src, const Point& p, const ROI& roi, BlobResult* res, int lowThr, int highThr) {
    CheckFactoryArgs(src, res, lowThr, highThr);
    if (src == nullptr) return nullptr;
    return MakeAgent<swBlobAgent>({{src, HostTypes::Any}}, src, p, roi, res, lowThr, highThr);
}

BlobAgent* BlobFact(Buffer* src, int left, int top, int right, int bottom, BlobResult* res, int lowThr,
                    int highThr) {
    return BlobFact(src, RectFromInts(left, top, right, bottom), res, lowThr, highThr);
}

}  // namespace ombrel
