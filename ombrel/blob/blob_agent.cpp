// SPDX-License-Identifier: MIT
// The blob agent: settings, set-up of a run (result, root, working arrays, the masked region's sub-agent),
// the run itself and the factories. The joiner is in blob_joiner.cpp, the tree surgery in blob_tree.cpp.
#include "ombrel/blob/blob_agent.h"

#include <algorithm>
#include <new>

#include "ombrel/blob/blob_joiner.h"
#include "ombrel/framework/factory.h"
#include "ombrel/framework/hal.h"
#include "ombrel/pixelops/mask.h"

namespace ombrel {

using namespace blobjoin;

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

swBlobAgent::swBlobAgent(Buffer* src, BlobResult* res, int lowThr, int highThr)
    : BlobAgent(src, res, lowThr, highThr) {}
swBlobAgent::swBlobAgent(Buffer* src, Rect r, BlobResult* res, int lowThr, int highThr)
    : BlobAgent(src, r, res, lowThr, highThr) {}
swBlobAgent::swBlobAgent(Buffer* src, Point p, const ROI& roi, BlobResult* res, int lowThr, int highThr)
    : BlobAgent(src, p, roi, res, lowThr, highThr) {}

swBlobAgent::~swBlobAgent() = default;

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
    // A region is masked when it has mask bits, whether or not their scan list was made yet.
    _masked = _sRoi.GetMaskbits() != nullptr;
    if (_masked) return PrepareMask();
    return 0;
}

int swBlobAgent::Stop(int32_t status) {
    Fail(status);
    return status;
}

int swBlobAgent::Go() {
    int status = PreGo();
    if (status == 0) status = RunRows();
    if (_pres != nullptr) {
        PostGo();
        if (status == 0) status = _pres->_error;
    }
    return status;
}

// Masked regions: the in-band pixels under the mask become 1 in a private buffer (width rounded up to 32)
// that is then segmented for the value 1, span by span of the mask. The buffer and the mask agent are made
// on the first masked run and kept; each run re-aims the mask agent at the agent's source, origin, region
// and band, since any of them may have changed. The agent's own settings are never touched.
int swBlobAgent::PrepareMask() {
    _spanRoi = &_sRoi;
    if (!_sRoi.IsMasked()) {
        // Mask bits without a scan list (attached without scanning): the spans are made from the bits here.
        _scannedRoi.SetMaskbits(_sRoi.GetMaskbits(), false);
        _scannedRoi.SetExtent(_sRoi.Width(), _sRoi.Height());
        _spanRoi = &_scannedRoi;
    }
    const int width = (_roiWidth + 31) / 32 * 32;
    if (!_pMaskedSrcBuf || _pMaskedSrcBuf->Width() != width || _pMaskedSrcBuf->Height() != _roiHeight) {
        _pMaskedSrcBuf.reset(new (std::nothrow) Buffer(width, _roiHeight, HOST_BANK, EIGHT, 0, 1));
    }
    if (!OMBREL_ASSERT_HERE("swblob", _pMaskedSrcBuf && _pMaskedSrcBuf->BaseAddr(),
                            "_pMaskedSrcBuf && _pMaskedSrcBuf->BaseAddr()")) {
        _pMaskedSrcBuf.reset();
        return Stop(BLOB_ERR_NO_MEMORY);
    }
    if (!_maskAgent) {
        _maskAgent.reset(new (std::nothrow) swMaskAgent(_srcBuf, _pMaskedSrcBuf.get(), _sPt, *_spanRoi,
                                                        _lowThr, _highThr, MASK_BAND));
        if (!_maskAgent) return Stop(BLOB_ERR_NO_MEMORY);
    } else {
        _maskAgent->SetSrcBuf(_srcBuf);
        _maskAgent->SetDstBuf(_pMaskedSrcBuf.get());
        _maskAgent->SetSrcPt(_sPt);
        _maskAgent->SetSrcROI(*_spanRoi);
        _maskAgent->SetBand(_lowThr, _highThr);
    }
    _maskAgent->Go();
    return 0;
}

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
