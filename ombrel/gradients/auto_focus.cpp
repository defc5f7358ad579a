// SPDX-License-Identifier: MIT
#include "ombrel/gradients/auto_focus.h"

#include <cmath>
#include <cstdlib>
#include <new>

#include "ombrel/framework/factory.h"
#include "ombrel/framework/hal.h"
#include "ombrel/pixelops/arith.h"
#include "ombrel/pixelops/histogram.h"

namespace ombrel {

namespace {
constexpr const char* kModule = "autofocusagent";
constexpr const char* kFactoryModule = "lfautofocusagent";
}  // namespace

AutoFocusAgent::AutoFocusAgent(Buffer* src) : Agent(src) {
    Setup();
}
AutoFocusAgent::AutoFocusAgent(Buffer* src, Rect r) : Agent(src, r) {
    Setup();
}
AutoFocusAgent::AutoFocusAgent(Buffer* src, Point p, const ROI& roi) : Agent(src, p, roi) {
    Setup();
}
AutoFocusAgent::~AutoFocusAgent() {
    FreeParts();
}

void AutoFocusAgent::Setup() {
    _subtractor = nullptr;
    _histogram = nullptr;
    _regionCopy = _diffBuf = nullptr;
    _horizontalSparseness = _verticalSparseness = 1;
    _prepared = false;
    _signed = false;
    _histRes = 256;
    _focus = _pixelSum = _diffSum = _pixelCount = _mean = _stdDev = 0;
    RecordRegion();
}

void AutoFocusAgent::FreeParts() {
    delete _subtractor;
    delete _histogram;
    delete _regionCopy;
    delete _diffBuf;
    _subtractor = nullptr;
    _histogram = nullptr;
    _regionCopy = _diffBuf = nullptr;
}

void AutoFocusAgent::RecordRegion() {
    _regionRect = Rect{_sPt.x, _sPt.y, _sPt.x + _sRoi.Width(), _sPt.y + _sRoi.Height()};
}

// Makes the difference image and then the region copy; the status of the first that fails.
int AutoFocusAgent::MakeImages() {
    const int w = _sRoi.Width(), h = _sRoi.Height();
    for (Buffer** image : {&_diffBuf, &_regionCopy}) {
        int error = BUFFER_NO_MEMORY;
        *image = new (std::nothrow) Buffer(w, h, EIGHT);
        if (*image != nullptr) error = (*image)->GetError();
        if (error != BUFFER_OK) {
            delete *image;
            *image = nullptr;
            return kAutoFocusNoMemoryBase - std::abs(error);
        }
    }
    return 0;
}

int AutoFocusAgent::PreGo(bool keep) {
    if (keep) _prepared = true;
    FreeParts();  // a new set-up replaces everything the previous one built
    if (_srcBuf != nullptr) {
        // The displaced copy must stay inside the source: the region gives up the displacement itself.
        if (int64_t{_sPt.x} + _sRoi.Width() + _horizontalSparseness > _srcBuf->Width())
            _sRoi.SetExtent(_sRoi.Width() - _horizontalSparseness, _sRoi.Height());
        if (int64_t{_sPt.y} + _sRoi.Height() + _verticalSparseness > _srcBuf->Height())
            _sRoi.SetExtent(_sRoi.Width(), _sRoi.Height() - _verticalSparseness);
    }
    if (const int status = MakeImages(); status != 0) return status;
    RecordRegion();
    const Point displaced{_sPt.x + _horizontalSparseness, _sPt.y + _verticalSparseness};
    _subtractor = ArithFact(_srcBuf, displaced, _sRoi, _regionCopy, _ARITH_DIFF, 1.0f, 0, _diffBuf);
    try {
        _histCounts.assign(static_cast<size_t>(_histRes), 0);
    } catch (const std::bad_alloc&) {
        _histCounts.clear();
    }
    _histogram = HistogramFact(_srcBuf, HISTRES_256, _sPt, _sRoi, &_histCounts);
    DoAssertions();
    if (_signed) {
        if (_histogram != nullptr) _histogram->SetSigned(true);
        if (_subtractor != nullptr)
            _subtractor->SetSignClip(_ARITH_SIGNED, _ARITH_SIGNED, _ARITH_SIGNED, true, false);
    }
    return 0;
}

void AutoFocusAgent::DoAssertions() {
    // A null source can only report the first check; the others would read through it.
    if (!OMBREL_ASSERT_HERE(kModule, _srcBuf, "_srcBuf")) {
        OMBREL_ASSERT_HERE(kModule, _diffBuf, "_diffBuf");
        OMBREL_ASSERT_HERE(kModule, _histogram, "_histogram");
        OMBREL_ASSERT_HERE(kModule, _diffBuf, "_diffBuf");
        OMBREL_ASSERT_HERE(kModule, _subtractor, "_subtractor");
        return;
    }
    const int width = _srcBuf->Width(), height = _srcBuf->Height();
    OMBREL_ASSERT_HERE(kModule, _sPt.x >= 0 && _sPt.x < width, "_sPt.x >= 0 && _sPt.x < _srcBuf->Width()");
    OMBREL_ASSERT_HERE(kModule, _sPt.y >= 0 && _sPt.y < height, "_sPt.y >= 0 && _sPt.y < _srcBuf->Height()");
    OMBREL_ASSERT_HERE(kModule, _sRoi.Width() != 0, "_sRoi.Width()");
    OMBREL_ASSERT_HERE(kModule, _sRoi.Height() != 0, "_sRoi.Height()");
    OMBREL_ASSERT_HERE(kModule, int64_t{_sPt.x} + _sRoi.Width() <= width,
                       "_sPt.x + _sRoi.Width() <= _srcBuf->Width()");
    OMBREL_ASSERT_HERE(kModule, int64_t{_sPt.y} + _sRoi.Height() <= height,
                       "_sPt.y + _sRoi.Height() <= _srcBuf->Height()");
    OMBREL_ASSERT_HERE(kModule, _horizontalSparseness < _sRoi.Width(),
                       "_horizontalSparseness < _sRoi.Width()");
    OMBREL_ASSERT_HERE(kModule, _verticalSparseness < _sRoi.Height(), "_verticalSparseness < _sRoi.Height()");
    OMBREL_ASSERT_HERE(kModule, _diffBuf, "_diffBuf");
    OMBREL_ASSERT_HERE(kModule, _histogram, "_histogram");
    OMBREL_ASSERT_HERE(kModule, _diffBuf, "_diffBuf");
    OMBREL_ASSERT_HERE(kModule, _subtractor, "_subtractor");
}

int AutoFocusAgent::Go() {
    if (!_prepared) {
        if (const int status = PreGo(false); status < 0) return status;
    }
    int status = kAutoFocusNoSubAgent;
    if (_subtractor != nullptr && _histogram != nullptr) {
        _subtractor->SetSrcPt(Point{_sPt.x + _horizontalSparseness, _sPt.y + _verticalSparseness});
        _histogram->SetSrcPt(_sPt);
        RecordRegion();
        _histogram->SetSrcBuf(_srcBuf);
        // The subtractor follows a new source too: left on the old one it would mix two images (or read a
        // buffer the caller may have freed).
        _subtractor->SetSrcBuf(_srcBuf);
        _regionCopy->CopyFrom(_srcBuf, _regionRect);
        status = _subtractor->Go();
        if (status >= 0) status = _histogram->Go();
        if (status >= 0) {
            ComputeResults();
            status = 0;
        }
    }
    if (!_prepared) FreeParts();
    return status;
}

void AutoFocusAgent::ComputeResults() {
    ArithResults words;
    _subtractor->GetResults(&words);
    _diffSum = words.word[0];
    _pixelCount = _histogram->PixelCount();
    _pixelSum = _histogram->PixelSum();
    _mean = _stdDev = 0;
    if (_pixelCount > 0) {
        const auto bins = static_cast<double>(_histCounts.size());
        const double w = bins > 0 ? 256.0 / bins : 1.0;
        _mean = _pixelSum / _pixelCount;
        double centre = (w - 1) / 2, sum = 0;
        for (const int count : _histCounts) {
            sum += count * (centre - _mean) * (centre - _mean);
            centre += w;
            if (_signed && centre > 127.0) centre -= 128.0;
        }
        _stdDev = std::sqrt(sum / (bins - 1));
    }
    _focus = _pixelSum != 0 ? _diffSum / _pixelSum * 1000.0 : 0.0;
}

AutoFocusAgent* AutoFocusFact(Buffer* src) {
    OMBREL_ASSERT_HERE(kFactoryModule, src, "src");
    return MakeAgent<AutoFocusAgent>({{src, HostTypes::OwnedOnly}}, src);
}
AutoFocusAgent* AutoFocusFact(Buffer* src, Rect r) {
    OMBREL_ASSERT_HERE(kFactoryModule, src, "src");
    return MakeAgent<AutoFocusAgent>({{src, HostTypes::OwnedOnly}}, src, r);
}
AutoFocusAgent* AutoFocusFact(Buffer* src, Point p, const ROI& roi) {
    OMBREL_ASSERT_HERE(kFactoryModule, src, "src");
    return MakeAgent<AutoFocusAgent>({{src, HostTypes::OwnedOnly}}, src, p, roi);
}

}  // namespace ombrel
