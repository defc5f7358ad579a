// SPDX-License-Identifier: MIT
#include "ombrel/morph/binmorph.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <vector>

#include "ombrel/framework/factory.h"
#include "ombrel/framework/hal.h"
#include "ombrel/framework/isa.h"
#include "ombrel/framework/kernel_family.h"
#include "ombrel/framework/region_clip.h"
#include "ombrel/morph/binmorph_kernels.h"

namespace ombrel {

// ---- GrowNoMergeLut ---------------------------------------------------------------------------------------

namespace {

uint8_t gGrowNoMerge[256];
std::once_flag gGrowNoMergeOnce;

// Ring cell positions of the 8-bit neighbour code's bits: upper right, upper, upper left, right, left,
// lower right, lower, lower left.
constexpr int kRingX[8] = {1, 0, -1, 1, -1, 1, 0, -1};
constexpr int kRingY[8] = {-1, -1, -1, 0, 0, 1, 1, 1};

// Number of 8-connected groups the cells of `cells` (a set of ring bits) form among themselves.
int RingGroups(int cells) {
    int groups = 0, seen = 0;
    for (int start = 0; start < 8; ++start) {
        if (!(cells >> start & 1) || (seen >> start & 1)) continue;
        ++groups;
        int stack[8], top = 0;
        stack[top++] = start;
        seen |= 1 << start;
        while (top > 0) {
            const int a = stack[--top];
            for (int b = 0; b < 8; ++b) {
                const bool touch =
                    std::max(std::abs(kRingX[a] - kRingX[b]), std::abs(kRingY[a] - kRingY[b])) == 1;
                if ((cells >> b & 1) && !(seen >> b & 1) && touch) {
                    seen |= 1 << b;
                    stack[top++] = b;
                }
            }
        }
    }
    return groups;
}

void FillGrowNoMerge() {
    for (int i = 0; i < 256; ++i) gGrowNoMerge[i] = RingGroups(i) <= 1 ? 1 : 0;
}

}  // namespace

void CreateGrowNoMergeLut() {
    std::call_once(gGrowNoMergeOnce, FillGrowNoMerge);
}

const uint8_t* GrowNoMergeLut() {
    CreateGrowNoMergeLut();
    return gGrowNoMerge;
}

int GrowNoMergeEntry(int code) {
    const int packed = (code & 0xF) | ((code >> 5) & 0xF) << 4;
    return GrowNoMergeLut()[~packed & 0xFF];
}

// ---- BinMorphOperator
// ---------------------------------------------------------------------------------------

namespace {

bool HasAll(int code, int mask) {
    return (code & mask) == mask;
}

bool IsEndPixel(int code, int n, bool ctr) {
    static constexpr int kDiagonalEnds[] = {21, 81, 336, 276, 85, 277, 340, 337, 341};
    if (n == 1 || (n == 2 && ctr)) return true;
    return std::find(std::begin(kDiagonalEnds), std::end(kDiagonalEnds), code) != std::end(kDiagonalEnds);
}

bool ThinTrigger(int op, int code) {
    const bool upper = code >> 1 & 1, right = code >> 3 & 1, left = code >> 5 & 1, lower = code >> 7 & 1;
    switch (op) {
        case ThinIfRightOrBelow:
            return (code & 136) != 0;
        case ThinIfLeftOrAbove:
            return (code & 34) != 0;
        case Up:
            return lower && !upper;
        case Down:
            return upper && !lower;
        case Left:
            return right && !left;
        default:  // Right
            return left && !right;
    }
}

// The rule of predefined operation `op` (0..17) for one 9-bit code.
bool Rule(int op, int code) {
    const int n = std::popcount(static_cast<unsigned>(code));
    const bool ctr = code >> 4 & 1;
    switch (op) {
        case ErodeKeep6:
            return ctr && n >= 7;
        case ErodeFull:
            return ctr && n == 9;
        case DilateMin2:
            return ctr || n >= 2;
        case Copy:
            return ctr;
        case ErodeKeep2:
            return ctr && n >= 3;
        case KeepSquareOrDiagonal:
            for (int mask : {27, 54, 216, 432, 94, 307, 409, 244})
                if (HasAll(code, mask)) return true;
            return false;
        case DilateFull:
            return n >= 1;
        case FillBridges:
            if (ctr) return true;
            for (int mask : {417, 204, 102, 267, 484, 457, 295, 79})
                if ((code & ~mask) == 0) return false;
            return true;
        case ThinIfRightOrBelow:
        case ThinIfLeftOrAbove:
        case Up:
        case Down:
        case Left:
        case Right:
            if (GrowNoMergeEntry(code) == 1 && ThinTrigger(op, code)) return false;
            if (IsEndPixel(code, n, ctr)) return false;
            return ctr;
        case ETPTL:
            return ctr && (code & 75) == 0;
        case ETPBR:
            return ctr && (code & 420) == 0;
        case TFP:
            return ctr && n <= 7;
        default:  // FillPinholes
            return ctr || n == 8;
    }
}

}  // namespace

BinMorphOperator::BinMorphOperator(BinMorphOpCode code) {
    BuildLut(code);
}

BinMorphOperator::BinMorphOperator(const unsigned int* lut) {
    if (lut == nullptr) {
        _error = kBinMorphUnknownOp;
        return;
    }
    std::copy(lut, lut + 16, _lut);
    _lutInUse = _lut;
}

void BinMorphOperator::BuildLut(int code) {
    CreateGrowNoMergeLut();
    std::fill(std::begin(_lut), std::end(_lut), 0u);
    if (code < 0 || code > FillPinholes) {
        _error = kBinMorphUnknownOp;
        _lutInUse = nullptr;
        return;
    }
    for (int c = 0; c < 512; ++c)
        if (Rule(code, c)) _lut[c / 32] |= 1u << (c % 32);
    _error = 0;
    _lutInUse = _lut;
}

int BinMorphOperator::Bmo(int code) const {
    if (_lutInUse == nullptr || code < 0 || code > 511) return 0;
    return static_cast<int>(_lutInUse[code / 32] & (1u << (code % 32)));
}

// ---- BinMorphAgent ---------------------------------------------------------------------------------------

BinMorphAgent::BinMorphAgent(Buffer* src, Buffer* dst, BMBORDER border, BinMorphOperator* op, int iterations)
    : _dstBuf(dst), _border(border), _op(op), _iterations(iterations) {
    Setup(src);
}

BinMorphAgent::BinMorphAgent(Buffer* src, Buffer* dst, Rect r, BMBORDER border, BinMorphOperator* op,
                             int iterations)
    : Agent(src, r), _dstBuf(dst), _border(border), _op(op), _iterations(iterations) {}

BinMorphAgent::BinMorphAgent(Buffer* src, Buffer* dst, Point p, const ROI& roi, BMBORDER border,
                             BinMorphOperator* op, int iterations)
    : Agent(src, p, roi), _dstBuf(dst), _border(border), _op(op), _iterations(iterations) {}

int BinMorphAgent::Go() {
    return Go(_op);
}

namespace {

// One pass's geometry: w x h pixels read from `in` at `inAt`, written to `out` at `outAt`.
struct PassArea {
    const Buffer* in;
    Point inAt;
    const Buffer* out;
    Point outAt;
    int w, h;
};

// Runs passes with line buffers allocated once per Go.
class PassRunner {
  public:
    PassRunner(const uint32_t* lut, uint8_t border) : _lut(lut), _border(border) {
        for (int c = 0; c < 512; ++c)
            if (lut != nullptr && (lut[c / 32] >> (c % 32) & 1))
                _lutBytes[c / 8] |= static_cast<uint8_t>(1 << (c % 8));
    }

    // Storage for the 3-bit codes of rows of up to `width` pixels; false when there is no memory.
    bool Reserve(int width) {
        try {
            _stride = static_cast<size_t>(width);
            _triples.assign(_stride * 4, _border ? 7 : 0);
            return true;
        } catch (const std::bad_alloc&) {
            return false;
        }
    }

    // One pass; returns the set-pixel count.
    int64_t Pass(const PassArea& a) {
        const uint32_t zeroLut[16] = {};
        const Isa level = ActiveIsa();
        uint8_t* slot[3] = {Slot(0), Slot(1), Slot(2)};
        const uint8_t* borderRow = Slot(3);  // a row outside the rectangle: every bit the border value
        auto image = [&](int row) { return a.in->Row(a.inAt.y + row) + a.inAt.x; };
        // Row r's codes live in slot r % 3, made before any row they border is written.
        auto codes = [&](int row) -> const uint8_t* {
            if (row >= a.h) return borderRow;
            const uint8_t* src = image(row);
            uint8_t* t = slot[row % 3];
            const int b = _border, w = a.w;
            t[0] = static_cast<uint8_t>((w > 1 ? src[1] & 1 : b) | (src[0] & 1) << 1 | b << 2);
            if (w > 1) t[w - 1] = static_cast<uint8_t>(b | (src[w - 1] & 1) << 1 | (src[w - 2] & 1) << 2);
            if (w > 2) {
                binmorph::TripleJob job;
                job.row = src, job.t = t;
                binmorph::kTripleKernels.Run(level, 1, w - 1, job);
            }
            return t;
        };
        const uint8_t* up = borderRow;
        const uint8_t* mid = codes(0);
        const uint8_t* down = codes(1);
        uint64_t count = 0;
        for (int y = 0; y < a.h; ++y) {
            binmorph::RowJob job;
            job.up = up, job.mid = mid, job.down = down;
            job.centre = image(y);
            job.d = a.out->Row(a.outAt.y + y) + a.outAt.x;
            job.lut = _lut != nullptr ? _lut : zeroLut;
            job.lutBytes = _lutBytes;
            job.count = &count;
            binmorph::kRowKernels.Run(level, 0, a.w, job);
            up = mid, mid = down;
            down = codes(y + 2);
        }
        return static_cast<int64_t>(count);
    }

  private:
    uint8_t* Slot(int i) { return _triples.data() + _stride * static_cast<size_t>(i); }

    const uint32_t* _lut;
    uint8_t _border;
    uint8_t _lutBytes[64] = {};
    size_t _stride = 0;
    std::vector<uint8_t> _triples;
};

bool SameRows(const Buffer& a, const Buffer& b, int w, int h) {
    for (int y = 0; y < h; ++y)
        if (std::memcmp(a.Row(y), b.Row(y), static_cast<size_t>(w)) != 0) return false;
    return true;
}

int32_t SaturatedCount(int64_t count) {
    return static_cast<int32_t>(std::min<int64_t>(count, std::numeric_limits<int32_t>::max()));
}

}  // namespace

int swBinMorphAgent::Go(BinMorphOperator* op) {
    if (_iterations <= 0 || _srcBuf == nullptr || _dstBuf == nullptr) return 0;
    if (_srcBuf->BitsPerPixel() != EIGHT || _dstBuf->BitsPerPixel() != EIGHT) return 0;
    const Rect clip =
        ClipRegionToBuffers(_sRoi.Width(), _sRoi.Height(), {{_srcBuf, _sPt}, {_dstBuf, Point{0, 0}}});
    if (clip.IsEmpty()) return 0;

    PassRunner runner(op != nullptr ? op->Lut() : nullptr, _border == BMBORDER_SET ? 1 : 0);
    if (!runner.Reserve(std::max(clip.Width(), _dstBuf->Width()))) return kBinMorphTempBase - 2;
    const PassArea first{_srcBuf,      Point{_sPt.x + clip.left, _sPt.y + clip.top},
                         _dstBuf,      Point{clip.left, clip.top},
                         clip.Width(), clip.Height()};
    int64_t count = 0;
    if (_iterations == 1) {
        count = runner.Pass(first);
    } else {
        Buffer temp(*_dstBuf);
        _tempStatus = temp.GetError();
        if (_tempStatus != 0) return kBinMorphTempBase - std::abs(_tempStatus);
        Buffer& dst = *_dstBuf;
        const int w = dst.Width(), h = dst.Height();
        auto whole = [&](const Buffer& from, const Buffer& to) {
            return PassArea{&from, Point{0, 0}, &to, Point{0, 0}, w, h};
        };
        // A whole-area pass that changes nothing has reached the image every later pass reproduces.
        auto settled = [&](const Buffer& from, const Buffer& to) { return SameRows(from, to, w, h); };
        int remaining = _iterations;
        bool isFirst = true, done = false;
        while (remaining >= 2 && !done) {
            PassArea intoTemp = isFirst ? first : whole(dst, temp);
            intoTemp.out = &temp;
            count = runner.Pass(intoTemp);
            if (!isFirst && settled(dst, temp)) {
                done = true;
                break;
            }
            isFirst = false;
            count = runner.Pass(whole(temp, dst));
            done = settled(temp, dst);
            remaining -= 2;
        }
        if (remaining == 1 && !done) {
            count = runner.Pass(whole(dst, temp));
            dst.CopyFrom(&temp);
        }
    }
    _count = SaturatedCount(count);
    _changed = 0;
    if (_count != _previousCount) {
        _previousCount = _count;
        _changed = 1;
    }
    return 0;
}

// ---- BinMorphFact ---------------------------------------------------------------------------------------

namespace {

template <class... Args>
BinMorphAgent* MakeBinMorph(Buffer* src, Buffer* dst, Args&&... args) {
    const bool sameSize =
        src != nullptr && dst != nullptr && src->Width() == dst->Width() && src->Height() == dst->Height();
    if (!Check(sameSize, "lfbinmorph", __LINE__,
               "(src->Width() == dst->Width()) && (src->Height() == dst->Height())"))
        return nullptr;
    return MakeAgent<swBinMorphAgent>({{src, HostTypes::Any}, {dst, HostTypes::OwnedOnly}}, src, dst,
                                      std::forward<Args>(args)...);
}

}  // namespace

BinMorphAgent* BinMorphFact(Buffer* src, Buffer* dst, BMBORDER border, BinMorphOperator* op, int iterations) {
    return MakeBinMorph(src, dst, border, op, iterations);
}

BinMorphAgent* BinMorphFact(Buffer* src, Buffer* dst, Rect r, BMBORDER border, BinMorphOperator* op,
                            int iterations) {
    return MakeBinMorph(src, dst, r, border, op, iterations);
}

BinMorphAgent* BinMorphFact(Buffer* src, Buffer* dst, Point p, const ROI& roi, BMBORDER border,
                            BinMorphOperator* op, int iterations) {
    return MakeBinMorph(src, dst, p, roi, border, op, iterations);
}

BinMorphAgent* BinMorphFact(Buffer* src, Buffer* dst, int left, int top, int right, int bottom,
                            BMBORDER border, BinMorphOperator* op, int iterations) {
    return BinMorphFact(src, dst, RectFromInts(left, top, right, bottom), border, op, iterations);
}

}  // namespace ombrel
