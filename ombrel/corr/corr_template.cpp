// SPDX-License-Identifier: MIT
#include "ombrel/corr/corr_template.h"

#include <cmath>
#include <new>
#include <utility>

#include "ombrel/framework/hal.h"
#include "ombrel/framework/object_stream.h"
#include "ombrel/framework/region_clip.h"

namespace ombrel {
namespace {

Buffer* NewBufferLike(const Buffer* src, int w, int h) {
    return new (std::nothrow) Buffer(src, w, h);
}

int ErrorOf(const Buffer* b) {
    if (b == nullptr) return BUFFER_NO_MEMORY;
    return b->GetError();
}

bool UsableSource(const Buffer* src) {
    return src != nullptr && src->BaseAddr() != nullptr && src->BitsPerPixel() == EIGHT;
}

// The eight loops: template signed or not, image signed or not, mask or not; no flag is tested per pixel.
template <bool TS, bool IS, bool MASK>
void SumLoop(const uint8_t* img, int64_t imgPitch, const uint8_t* tpl, int64_t tplPitch, int w, int h,
             CorrPoint* pt) {
    double sI = 0, sI2 = 0, sTI = 0;
    for (int y = 0; y < h; ++y, img += imgPitch, tpl += tplPitch) {
        for (int x = 0; x < w; ++x) {
            const int32_t t = TS ? int32_t{static_cast<int8_t>(tpl[x])} : int32_t{tpl[x]};
            if (MASK && t == 0) continue;
            const int32_t i = IS ? int32_t{static_cast<int8_t>(img[x])} : int32_t{img[x]};
            sI += i;
            sI2 += i * i;
            sTI += t * i;
        }
    }
    pt->_sumI = sI;
    pt->_sumI2 = sI2;
    pt->_sumTI = sTI;
}

}  // namespace

double CorrScore(double sumI, double sumI2, double sumTI, int32_t count, double sum, double sumSq,
                 int32_t positionOnly) {
    if (count == 0) return 0.0;
    const double n = count;
    const double mI = sumI / n, mT = sum / n, mTI = sumTI / n;
    const double v = (sumI2 / n - mI * mI) * (sumSq / n - mT * mT);
    const double c = mTI - mT * mI;
    if (!(v > 0.0)) return 0.0;
    if (positionOnly == 0) {
        const double root = std::sqrt(v);
        return root == 0.0 ? 0.0 : std::fabs(c) / root;
    }
    return c * c / v;
}

CorrTemplate::CorrTemplate(Buffer* src, int mask) {
    const bool usable = UsableSource(src);
    if (usable) {
        _roi.SetExtent(src->Width(), src->Height());
        _buf = NewBufferLike(src, src->Width(), src->Height());
    }
    _error = usable ? ErrorOf(_buf) : (src == nullptr ? BUFFER_BAD_SIZE : BUFFER_BAD_DEPTH);
    if (_error != 0) return;
    _buf->CopyFrom(src);
    _mask = mask ? 1 : 0;
    Recompute(0);
}

CorrTemplate::CorrTemplate(Buffer* src, Point p, ROI* roi, int mask) {
    if (roi != nullptr) _roi = *roi;
    const bool usable = UsableSource(src) && roi != nullptr;
    if (usable) _buf = NewBufferLike(src, _roi.Width(), _roi.Height());
    _error = usable ? ErrorOf(_buf) : (src != nullptr && roi != nullptr ? BUFFER_BAD_DEPTH : BUFFER_BAD_SIZE);
    if (_error != 0) return;
    // A rectangle that reaches the source's right or bottom edge copies one column or row less.
    int64_t right = int64_t{p.x} + _roi.Width(), bottom = int64_t{p.y} + _roi.Height();
    if (right >= src->Width()) right = src->Width() - 1;
    if (bottom >= src->Height()) bottom = src->Height() - 1;
    _buf->CopyFrom(src, Rect{p.x, p.y, static_cast<int32_t>(right), static_cast<int32_t>(bottom)});
    _mask = mask ? 1 : 0;
    Recompute(0);
}

CorrTemplate::CorrTemplate(const CorrTemplate& other) {
    _buf = other._buf != nullptr ? new (std::nothrow) Buffer(*other._buf) : nullptr;
    _error = other._buf != nullptr ? ErrorOf(_buf) : other._error;
    CopyStatistics(other);
}

CorrTemplate& CorrTemplate::operator=(const CorrTemplate& other) {
    _error = 0;
    if (this == &other) return *this;
    if (_buf != nullptr) {
        delete _buf;
        _buf = other._buf != nullptr ? new (std::nothrow) Buffer(*other._buf) : nullptr;
        _error = other._buf != nullptr ? ErrorOf(_buf) : other._error;
    }
    CopyStatistics(other);
    return *this;
}

CorrTemplate::~CorrTemplate() {
    delete _buf;
}

void CorrTemplate::CopyStatistics(const CorrTemplate& other) {
    _roi = other._roi;
    _hotSpot = other._hotSpot;
    _count = other._count;
    _sum = other._sum;
    _sumSq = other._sumSq;
    _variance = other._variance;
    _mask = other._mask;
    _signed = other._signed;
}

void CorrTemplate::Recompute(int isSigned) {
    _signed = isSigned ? 1 : 0;
    if (_buf == nullptr) return;
    // Host buffers are always readable here, so no temporary copy is needed.
    double s = 0, q = 0;
    int32_t n = 0;
    const Rect clip = ClipRegionToBuffers(_roi, {{_buf, Point{0, 0}}});
    ForEachSpan(_roi, clip, [&](int row, int column, int length) {
        const uint8_t* p = _buf->Row(row) + column;
        for (int k = 0; k < length; ++k) {
            if (_mask && p[k] == 0) continue;
            const int v = _signed ? int{static_cast<int8_t>(p[k])} : int{p[k]};
            s += v;
            q += double(v) * v;
            ++n;
        }
    });
    _count = n;
    _sum = s;
    _sumSq = q;
    _variance = double(n) * q - s * s;
}

void CorrTemplate::FastComputeSums(unsigned char* img, int* pitch, int imgSigned, CorrPoint* pt) const {
    if (pt == nullptr) return;
    if (_buf == nullptr || _buf->BaseAddr() == nullptr || img == nullptr || pitch == nullptr) {
        pt->_sumI = pt->_sumI2 = pt->_sumTI = 0.0;
        pt->_score = 0.0;
        return;
    }
    const int w = _buf->Width(), h = _buf->Height();
    const uint8_t* tpl = _buf->BaseAddr();
    const int64_t ip = *pitch, tp = _buf->Pitch();
    const int code = (_signed ? 4 : 0) | (imgSigned ? 2 : 0) | (_mask ? 1 : 0);
    switch (code) {
        case 0:
            SumLoop<false, false, false>(img, ip, tpl, tp, w, h, pt);
            break;
        case 1:
            SumLoop<false, false, true>(img, ip, tpl, tp, w, h, pt);
            break;
        case 2:
            SumLoop<false, true, false>(img, ip, tpl, tp, w, h, pt);
            break;
        case 3:
            SumLoop<false, true, true>(img, ip, tpl, tp, w, h, pt);
            break;
        case 4:
            SumLoop<true, false, false>(img, ip, tpl, tp, w, h, pt);
            break;
        case 5:
            SumLoop<true, false, true>(img, ip, tpl, tp, w, h, pt);
            break;
        case 6:
            SumLoop<true, true, false>(img, ip, tpl, tp, w, h, pt);
            break;
        default:
            SumLoop<true, true, true>(img, ip, tpl, tp, w, h, pt);
            break;
    }
    pt->_score = CorrScore(pt->_sumI, pt->_sumI2, pt->_sumTI, _count, _sum, _sumSq, pt->_positionOnly);
}

// ---- Persistence
// ---------------------------------------------------------------------------------------------

namespace {

constexpr uint32_t kOldestVersion = 1;
constexpr uint32_t kVersion12 = 100200000;
constexpr uint32_t kVersion13 = 100300000;

void WriteList(os_bstream& s, const std::vector<int32_t>& list) {
    s.WriteUnsigned(static_cast<uint32_t>(list.size()));
    for (int32_t v : list) s.WriteInt(v);
}

// The count is checked against the bytes left before anything is allocated.
bool ReadList(os_bstream& s, std::vector<int32_t>& list) {
    uint32_t count = 0;
    if (!s.ReadUnsigned(count)) return false;
    if (count > s.Remaining() / sizeof(int32_t)) {
        s.Fail("list longer than its object");
        return false;
    }
    std::vector<int32_t> read(count);
    for (int32_t& v : read)
        if (!s.ReadInt(v)) return false;
    list.swap(read);
    return true;
}

void WriteTrainVector(os_bstream& s, const CorrTrainVector& v) {
    WriteList(s, v._first);
    s.WriteInt(v._integer);
    s.WriteFloat(v._value);
    WriteList(s, v._second);
}

bool ReadTrainVector(os_bstream& s, CorrTrainVector& v, uint32_t) {
    v._first.clear();
    v._second.clear();
    return ReadList(s, v._first) && s.ReadInt(v._integer) && s.ReadFloat(v._value) && ReadList(s, v._second);
}

const os_class kTrainVectorClass = os_class::Make<CorrTrainVector, &WriteTrainVector, &ReadTrainVector>(
    "(CorrTrainVector*)", static_cast<uint32_t>(RCSStringToNumber("$Revision: 1.1 $")));

}  // namespace

const os_class& StreamClassOf(const CorrTrainVector*) {
    return kTrainVectorClass;
}

const os_class CorrTemplate::kStreamClass(
    "(CorrTemplate*)", static_cast<uint32_t>(RCSStringToNumber("$Revision: 1.4 $")),
    // No default constructor: a template made from nothing carries an error until a stream fills it.
    []() -> void* { return new (std::nothrow) CorrTemplate(nullptr, 0); },
    [](void* obj) { delete static_cast<CorrTemplate*>(obj); },
    [](os_bstream& s, const void* obj) { WriteStream(s, *static_cast<const CorrTemplate*>(obj)); },
    [](os_bstream& s, void* obj, uint32_t v) { return ReadStream(s, *static_cast<CorrTemplate*>(obj), v); });

const os_class& StreamClassOf(const CorrTemplate*) {
    return CorrTemplate::kStreamClass;
}

void CorrTemplate::WriteStream(os_bstream& s, const CorrTemplate& t) {
    s.WritePointer(t._buf);
    s.WriteValue(t._roi);
    s.WriteInt(t._hotSpot.x);
    s.WriteInt(t._hotSpot.y);
    s.WriteInt(t._count);
    s.WriteDouble(t._sum);
    s.WriteDouble(t._sumSq);
    s.WriteDouble(t._variance);
    s.WriteInt(t._mask);
    s.WriteInt(t._signed);
}

bool CorrTemplate::ReadStream(os_bstream& s, CorrTemplate& t, uint32_t version) {
    if (version != kStreamClass.Version() && version != kVersion13 && version != kVersion12 &&
        version != kOldestVersion) {
        OMBREL_ASSERT("lscorrtemplate", 129, false, "0");
        return true;
    }
    // Everything is read into locals first, so a stream that fails part way leaves the template as it was.
    Buffer* stored = nullptr;  // the reader's own
    ROI roi;
    Point hot{0, 0};
    int32_t count = 0, mask = 0, isSigned = 0;
    double sum = 0, sumSq = 0, variance = 0;
    if (!s.ReadPointer(stored) || !s.ReadValue(roi) || !s.ReadInt(hot.x) || !s.ReadInt(hot.y) ||
        !s.ReadInt(count) || !s.ReadDouble(sum) || !s.ReadDouble(sumSq) || !s.ReadDouble(variance) ||
        !s.ReadInt(mask) || !s.ReadInt(isSigned))
        return false;
    if (version == kOldestVersion) {
        int32_t discardedInt = 0;
        CorrTrainVector discarded1, discarded2;
        if (!s.ReadInt(discardedInt) || !s.ReadValue(discarded1) || !s.ReadValue(discarded2)) return false;
    }
    if (stored != nullptr && (stored->BitsPerPixel() != EIGHT || stored->BaseAddr() == nullptr)) {
        s.Fail("correlation template buffer is not an 8-bit image");
        return false;
    }
    if (count < 0 || !std::isfinite(sum) || !std::isfinite(sumSq) || !std::isfinite(variance)) {
        s.Fail("correlation template statistics out of range");
        return false;
    }
    Buffer* copy = nullptr;
    if (stored != nullptr) {
        copy = new (std::nothrow) Buffer(*stored);
        if (copy == nullptr) {
            s.Fail("out of memory");
            return false;
        }
    }
    delete t._buf;
    t._buf = copy;
    t._error = copy != nullptr ? ErrorOf(copy) : BUFFER_BAD_SIZE;
    t._roi = std::move(roi);
    t._hotSpot = hot;
    t._count = count;
    t._sum = sum;
    t._sumSq = sumSq;
    t._variance = variance;
    t._mask = mask;
    t._signed = isSigned;
    return true;
}

}  // namespace ombrel
