// SPDX-License-Identifier: MIT
#include "ombrel/morph/graymorph.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include "ombrel/framework/factory.h"
#include "ombrel/framework/hal.h"
#include "ombrel/framework/isa.h"
#include "ombrel/framework/kernel_family.h"
#include "ombrel/framework/region_clip.h"
#include "ombrel/morph/graymorph_kernels.h"

namespace ombrel {

namespace {

// A horizontal run of members: element row, first column, length.
struct Run {
    int row, start, length;
};

// The element as the filter reads it.
struct ElemPlan {
    int width = 0, height = 0, hotX = 0, hotY = 0, members = 0;
    bool full = false;
    std::vector<Run> runs;
    std::vector<int> lengths;  // the distinct run lengths, ascending

    explicit ElemPlan(const GrayMorphElem& e)
        : width(e.GetElementWidth()),
          height(e.GetElementHeight()),
          hotX(e.GetElementHotX()),
          hotY(e.GetElementHotY()),
          members(e.Members()) {
        full = members > 0 && members == width * height;
        const unsigned char* w = e.Weights();
        for (int j = 0; j < height; ++j)
            for (int i = 0; i < width;) {
                if (w[static_cast<size_t>(j) * width + i] == 0) {
                    ++i;
                    continue;
                }
                const int start = i;
                while (i < width && w[static_cast<size_t>(j) * width + i] != 0) ++i;
                runs.push_back({j, start, i - start});
                lengths.push_back(i - start);
            }
        std::sort(lengths.begin(), lengths.end());
        lengths.erase(std::unique(lengths.begin(), lengths.end()), lengths.end());
    }

    int LengthIndex(int length) const {
        return static_cast<int>(std::lower_bound(lengths.begin(), lengths.end(), length) - lengths.begin());
    }
};

// Runs up to this long are read with one load per member; longer ones from doubling minima.
constexpr int kDirectRunMax = 8;

// Rectangles at least this tall are filtered column-wise by van Herk/Gil-Werman; shorter ones fold rows.
constexpr int kVanHerkMinHeight = 5;

// One filter pass over w x h pixels, read from `in` at `inAt` and written to `out` at `outAt` (they may be
// the same pixels). Line memory is kept between passes of one Go.
class Filter {
  public:
    Filter(const ElemPlan& plan, Isa level) : _plan(plan), _level(level) {}

    // False when the line memory cannot be had (nothing is written then).
    bool Pass(const Buffer& in, Point inAt, const Buffer& out, Point outAt, int w, int h, int mode) {
        _in = &in, _inAt = inAt, _w = w, _h = h;
        _op = mode == 0 ? graymorph::kRowMin : graymorph::kRowMax;
        _pad = mode == 0 ? 255 : 0;
        _n = w + _plan.width;
        try {
            Reserve();
        } catch (const std::bad_alloc&) {
            return false;
        }
        auto outRow = [&](int y) { return out.Row(outAt.y + y) + outAt.x; };
        if (SmallRectangle())
            SmallRectanglePass(outRow, &in == &out && inAt == outAt);
        else if (_plan.full && _plan.height >= kVanHerkMinHeight)
            RectanglePass(outRow);
        else
            RunsPass(outRow);
        return true;
    }

  private:
    static size_t Bytes(int64_t rows, int64_t length) { return static_cast<size_t>(rows * length); }

    // The doubling step a long run is read from: at most kDirectRunMax loads of it cover the run.
    static unsigned PowerFor(int length) {
        return std::bit_ceil(static_cast<unsigned>((length + kDirectRunMax - 1) / kDirectRunMax));
    }

    // Full rectangles this small are filtered down the columns first, straight from the image rows.
    bool SmallRectangle() const {
        return _plan.full && _plan.width <= kDirectRunMax && _plan.height <= kDirectRunMax;
    }

    void Reserve() {
        const int longest = _plan.lengths.back();
        const int powers = longest > kDirectRunMax ? std::bit_width(PowerFor(longest)) - 1 : 0;
        _line.assign(_n, _pad);
        _padRow.assign(_n, _pad);
        _powers.resize(Bytes(powers, _n));
        _powerCount = powers;
        if (SmallRectangle()) {
            _ring.resize(Bytes(_plan.height, _w));
        } else if (_plan.full && _plan.height >= kVanHerkMinHeight) {
            _ring.resize(Bytes(2 * int64_t{_plan.height}, _w));
            _suffix.resize(Bytes(_plan.height, _w));
            _prefix.resize(_w);
        } else {
            _ring.resize(Bytes(int64_t{_plan.height} * static_cast<int64_t>(_plan.lengths.size()), _n));
        }
    }

    void Op(const uint8_t* a, const uint8_t* b, uint8_t* d, int count) const {
        graymorph::RowJob job;
        job.op = _op, job.a = a, job.b = b, job.d = d;
        graymorph::kRowKernels.Run(_level, 0, count, job);
    }

    // d[i] = op over the `count` rows; one row is copied.
    void FoldRows(const uint8_t* const* rows, int count, uint8_t* d, int n) const {
        if (count == 1) {
            std::memcpy(d, rows[0], static_cast<size_t>(n));
            return;
        }
        graymorph::FoldJob job;
        job.op = _op, job.src = rows, job.count = count, job.d = d;
        graymorph::kFoldKernels.Run(_level, 0, n, job);
    }

    uint8_t* Power(int k) { return _powers.data() + Bytes(k - 1, _n); }  // minima over 2^k, k >= 1

    // Copies image row `row` into the padded line (hot-spot-x padding bytes before it) and builds the
    // doubling minima (maxima) the run lengths need.
    void LoadLine(int row) {
        std::memcpy(_line.data() + _plan.hotX, _in->Row(_inAt.y + row) + _inAt.x, static_cast<size_t>(_w));
        const uint8_t* previous = _line.data();
        for (int k = 1; k <= _powerCount; ++k) {
            const int half = 1 << (k - 1);
            Op(previous, previous + half, Power(k), _n - 2 * half + 1);
            previous = Power(k);
        }
    }

    // dst[x] = min (max) of line[x .. x + length - 1] for x in [0, n): one load per member for short runs,
    // else a few overlapping loads of the doubling row that covers a block of members.
    void Horizontal(int length, uint8_t* dst, int n) {
        if (length <= kDirectRunMax) {
            const uint8_t* shifted[kDirectRunMax];
            for (int i = 0; i < length; ++i) shifted[i] = _line.data() + i;
            FoldRows(shifted, length, dst, n);
            return;
        }
        const int step = static_cast<int>(PowerFor(length));
        const uint8_t* src = Power(std::bit_width(static_cast<unsigned>(step)) - 1);
        const uint8_t* covering[kDirectRunMax + 1];
        int count = 0;
        for (int offset = 0; offset < length - step; offset += step) covering[count++] = src + offset;
        covering[count++] = src + length - step;
        FoldRows(covering, count, dst, n);
    }

    // Any element: each image row's run minima of every length are kept in a ring of element-height rows,
    // and an output row folds the runs of every element row.
    template <class OutRow>
    void RunsPass(OutRow outRow) {
        const int slots = _plan.height, kinds = static_cast<int>(_plan.lengths.size());
        auto slot = [&](int row, int kind) {
            return _ring.data() + Bytes(static_cast<int64_t>(row % slots) * kinds + kind, _n);
        };
        int loaded = -1;
        std::vector<const uint8_t*>& sources = _sources;
        for (int y = 0; y < _h; ++y) {
            // Rows are loaded when first needed, never later than the output row they share: in place works.
            const int need = std::min(_h - 1, y - _plan.hotY + _plan.height - 1);
            while (loaded < need) {
                ++loaded;
                LoadLine(loaded);
                for (int kind = 0; kind < kinds; ++kind)
                    Horizontal(_plan.lengths[kind], slot(loaded, kind), _n - _plan.lengths[kind] + 1);
            }
            sources.clear();
            for (const Run& run : _plan.runs) {
                const int row = y - _plan.hotY + run.row;
                if (row < 0 || row >= _h) continue;  // padding never wins
                sources.push_back(slot(row, _plan.LengthIndex(run.length)) + run.start);
            }
            Fold(sources, outRow(y));
        }
    }

    void Fold(const std::vector<const uint8_t*>& sources, uint8_t* out) {
        if (sources.empty())
            std::memset(out, _pad, static_cast<size_t>(_w));
        else
            FoldRows(sources.data(), static_cast<int>(sources.size()), out, _w);
    }

    // A small full rectangle: the column minima of each output row's window (read from the image, or in place
    // from copies of its rows taken before they are overwritten) go into the padded line, and the row
    // minima of that line are the output.
    template <class OutRow>
    void SmallRectanglePass(OutRow outRow, bool inPlace) {
        const int K = _plan.height;
        auto copy = [&](int row) { return _ring.data() + Bytes(row % K, _w); };
        auto image = [&](int row) -> const uint8_t* { return _in->Row(_inAt.y + row) + _inAt.x; };
        int loaded = -1;
        const uint8_t* rows[kDirectRunMax];
        const uint8_t* shifted[kDirectRunMax];
        for (int i = 0; i < _plan.width; ++i) shifted[i] = _line.data() + i;
        uint8_t* column = _line.data() + _plan.hotX;
        for (int y = 0; y < _h; ++y) {
            const int top = y - _plan.hotY, need = std::min(_h - 1, top + K - 1);
            while (inPlace && loaded < need) {
                ++loaded;
                std::memcpy(copy(loaded), image(loaded), static_cast<size_t>(_w));
            }
            int count = 0;
            for (int row = std::max(top, 0); row <= need; ++row)
                rows[count++] = inPlace ? copy(row) : image(row);
            if (count == 0)
                std::memset(column, _pad, static_cast<size_t>(_w));
            else
                FoldRows(rows, count, column, _w);
            FoldRows(shifted, _plan.width, outRow(y), _w);
        }
    }

    // A full rectangle: rows by doubling, columns by van Herk/Gil-Werman. Rows are cut into blocks of K (the
    // element's height), aligned so that output row kK's window is block k exactly; any other window is a
    // suffix of block k and a prefix of block k + 1.
    template <class OutRow>
    void RectanglePass(OutRow outRow) {
        const int K = _plan.height, hotY = _plan.hotY;
        auto ringRow = [&](int row) { return _ring.data() + Bytes((row + hotY) % (2 * K), _w); };
        auto H = [&](int row) -> const uint8_t* {
            return row < 0 || row >= _h ? _padRow.data() : ringRow(row);
        };
        auto computeBlock = [&](int block) {
            for (int i = 0; i < K; ++i) {
                const int row = block * K - hotY + i;
                if (row < 0 || row >= _h) continue;
                LoadLine(row);
                Horizontal(_plan.width, ringRow(row), _w);
            }
        };
        auto suffix = [&](int i) { return _suffix.data() + Bytes(i, _w); };
        computeBlock(0);
        for (int block = 0; block * K < _h; ++block) {
            computeBlock(block + 1);  // before this block's rows are written: in place works
            const int first = block * K - hotY, next = first + K;
            std::memcpy(suffix(K - 1), H(first + K - 1), static_cast<size_t>(_w));
            for (int i = K - 2; i >= 0; --i) Op(H(first + i), suffix(i + 1), suffix(i), _w);
            const uint8_t* prefix = nullptr;
            for (int i = 0; i < K && block * K + i < _h; ++i) {
                uint8_t* out = outRow(block * K + i);
                if (i == 0) {
                    std::memcpy(out, suffix(0), static_cast<size_t>(_w));
                    continue;
                }
                if (i == 1) {
                    prefix = H(next);
                } else {
                    Op(prefix, H(next + i - 1), _prefix.data(), _w);
                    prefix = _prefix.data();
                }
                Op(suffix(i), prefix, out, _w);
            }
        }
    }

    const ElemPlan& _plan;
    Isa _level;
    const Buffer* _in = nullptr;
    Point _inAt;
    int _w = 0, _h = 0, _n = 0, _powerCount = 0;
    uint32_t _op = graymorph::kRowMin;
    uint8_t _pad = 255;
    std::vector<uint8_t> _line, _padRow, _powers, _ring, _suffix, _prefix;
    std::vector<const uint8_t*> _sources;
};

// Copies w x h pixels; rows go in the order that keeps an overlapping copy within one buffer correct.
void CopyRegion(const Buffer& src, Point at, const Buffer& dst, Point to, int w, int h) {
    const bool upwards = &src == &dst && at.y < to.y;
    for (int i = 0; i < h; ++i) {
        const int y = upwards ? h - 1 - i : i;
        std::memmove(dst.Row(to.y + y) + to.x, src.Row(at.y + y) + at.x, static_cast<size_t>(w));
    }
}

// b = |a - b| over the rectangle `r` of region coordinates, a read at `at`, b from its origin.
void Subtract(const Buffer& a, Point at, const Buffer& b, Rect r) {
    const Isa level = ActiveIsa();
    for (int y = r.top; y < r.bottom; ++y) {
        graymorph::RowJob job;
        job.op = graymorph::kRowAbsDiff;
        job.a = a.Row(at.y + y) + at.x + r.left;
        job.b = job.d = b.Row(y) + r.left;
        graymorph::kRowKernels.Run(level, 0, r.Width(), job);
    }
}

bool EightBit(const Buffer* b) {
    return b != nullptr && b->BaseAddr() != nullptr && b->BitsPerPixel() == EIGHT;
}

}  // namespace

GrayMorphAgent::GrayMorphAgent(Buffer* src, Buffer* dst, GRAYMORPHOP op, GMPOLARITY polarity, int iterations,
                               GrayMorphElem* elem)
    : _dstBuf(dst), _op(op), _polarity(polarity), _iterations(iterations), _elem(elem) {
    Setup(src);
}

GrayMorphAgent::GrayMorphAgent(Buffer* src, Buffer* dst, Rect r, GRAYMORPHOP op, GMPOLARITY polarity,
                               int iterations, GrayMorphElem* elem)
    : Agent(src, r), _dstBuf(dst), _op(op), _polarity(polarity), _iterations(iterations), _elem(elem) {}

GrayMorphAgent::GrayMorphAgent(Buffer* src, Buffer* dst, Point p, const ROI& roi, GRAYMORPHOP op,
                               GMPOLARITY polarity, int iterations, GrayMorphElem* elem)
    : Agent(src, p, roi), _dstBuf(dst), _op(op), _polarity(polarity), _iterations(iterations), _elem(elem) {}

int swGrayMorphAgent::GenMorph(Buffer* src, Buffer* dst, Rect r, Point p, int mode, int iterations,
                               FILE* trace) {
    if (!EightBit(src) || !EightBit(dst)) return 0;
    Rect clip =
        ClipRegionToBuffers(std::max(r.right, 0), std::max(r.bottom, 0), {{src, p}, {dst, Point{0, 0}}});
    clip.left = std::max(clip.left, r.left);
    clip.top = std::max(clip.top, r.top);
    if (clip.IsEmpty()) return 0;
    const Point from{p.x + clip.left, p.y + clip.top}, to{clip.left, clip.top};
    const int w = clip.Width(), h = clip.Height();
    const int effective = (mode ^ _polarity) & 1;
    const int members = _elem != nullptr ? _elem->Members() : 0;
    if (trace != nullptr)
        std::fprintf(
            trace, "morph pass: %s, %dx%d at (%d, %d), element %dx%d with %d members, %d iterations\n",
            effective == 0 ? "minimum" : "maximum", w, h, from.x, from.y,
            _elem ? _elem->GetElementWidth() : 0, _elem ? _elem->GetElementHeight() : 0, members, iterations);
    if (members == 0 || iterations <= 0) {
        if (src != dst || from != to) CopyRegion(*src, from, *dst, to, w, h);
        return members == 0 ? kGrayMorphNoMembers : 0;
    }
    if (src == dst && from != to) {
        // The same pixels shifted: copy first, so that every pass then works in place.
        CopyRegion(*src, from, *dst, to, w, h);
        src = dst;
    }
    try {
        const ElemPlan plan(*_elem);  // its run lists need memory too
        Filter filter(plan, ActiveIsa());
        for (int pass = 0; pass < iterations; ++pass) {
            const bool fromSource = pass == 0 && src != dst;
            if (!filter.Pass(fromSource ? *src : *dst, fromSource ? from : to, *dst, to, w, h, effective))
                return kGrayMorphNoMemory;
        }
    } catch (const std::bad_alloc&) {
        return kGrayMorphNoMemory;
    }
    return 0;
}

void swGrayMorphAgent::ImageSubtract(Buffer* a, Buffer* b, const ROI* roi, const Point* p) {
    if (!EightBit(a) || !EightBit(b) || roi == nullptr) return;
    const Point at = p != nullptr ? *p : Point{0, 0};
    const Rect clip = ClipRegionToBuffers(roi->Width(), roi->Height(), {{a, at}, {b, Point{0, 0}}});
    if (!clip.IsEmpty()) Subtract(*a, at, *b, clip);
}

int swGrayMorphAgent::Go(FILE* trace) {
    _status = 0;
    if (_op < GRAYMORPH_ERODE || _op > GRAYMORPH_WELL) {
        aprintf("\nUnknown morphology function specified: [%d]", static_cast<int>(_op));
        _status = kGrayMorphUnknownOp;
        return 1;
    }
    Buffer* src = _srcBuf;
    Buffer* dst = _dstBuf;
    if (!EightBit(src) || !EightBit(dst)) return 0;
    // Every step works on the same rectangle: the part of the region inside both buffers.
    const Rect region = ClipRegionToBuffers(_sRoi.Width(), _sRoi.Height(), {{src, _sPt}, {dst, Point{0, 0}}});
    if (region.IsEmpty()) return 0;
    // A pass status of -3996 (no member) is kept but does not stop the composition; 4003 does.
    auto pass = [&](Buffer* from, Rect r, Point at, int mode) {
        const int s = GenMorph(from, dst, r, at, mode, _iterations, trace);
        if (s != 0 && _status == 0) _status = s;
        return s != kGrayMorphNoMemory;
    };
    switch (_op) {
        case GRAYMORPH_ERODE:
        case GRAYMORPH_DILATE:
            pass(src, region, _sPt, _op == GRAYMORPH_ERODE ? 0 : 1);
            break;
        case GRAYMORPH_OPEN:
        case GRAYMORPH_CLOSE:
        case GRAYMORPH_TOPHAT:
        case GRAYMORPH_WELL: {
            const int firstMode = (_op == GRAYMORPH_OPEN || _op == GRAYMORPH_TOPHAT) ? 0 : 1;
            if (pass(src, region, _sPt, firstMode) && pass(dst, region, Point{0, 0}, 1 - firstMode) &&
                (_op == GRAYMORPH_TOPHAT || _op == GRAYMORPH_WELL))
                Subtract(*src, _sPt, *dst, region);
            break;
        }
        case GRAYMORPH_GRADIENT: {
            Buffer* temp = new (std::nothrow) Buffer(*dst);
            if (temp == nullptr || temp->GetError() != 0) {
                delete temp;
                _status = kGrayMorphNoMemory;
                break;
            }
            Buffer* keep = dst;
            dst = temp;
            const bool ok = pass(src, region, _sPt, 1);
            dst = keep;
            if (ok && pass(src, region, _sPt, 0)) Subtract(*temp, Point{0, 0}, *dst, region);
            delete temp;
            break;
        }
    }
    return 0;
}

namespace {

template <class... Args>
GrayMorphAgent* MakeGrayMorph(Buffer* src, Buffer* dst, Args&&... args) {
    const bool sameSize =
        src != nullptr && dst != nullptr && src->Width() == dst->Width() && src->Height() == dst->Height();
    Check(sameSize, "lfmorph", __LINE__,
          "!((src->Width() != dst->Width()) || (src->Height() != dst->Height()))");
    if (src == nullptr || dst == nullptr) return nullptr;
    return MakeAgent<swGrayMorphAgent>({{src, HostTypes::Any}, {dst, HostTypes::Any}}, src, dst,
                                       std::forward<Args>(args)...);
}

}  // namespace

GrayMorphAgent* GrayMorphFact(Buffer* src, Buffer* dst, GRAYMORPHOP op, GMPOLARITY polarity, int iterations,
                              GrayMorphElem* elem) {
    return MakeGrayMorph(src, dst, op, polarity, iterations, elem);
}

GrayMorphAgent* GrayMorphFact(Buffer* src, Buffer* dst, Rect r, GRAYMORPHOP op, GMPOLARITY polarity,
                              int iterations, GrayMorphElem* elem) {
    return MakeGrayMorph(src, dst, r, op, polarity, iterations, elem);
}

GrayMorphAgent* GrayMorphFact(Buffer* src, Buffer* dst, Point p, const ROI& roi, GRAYMORPHOP op,
                              GMPOLARITY polarity, int iterations, GrayMorphElem* elem) {
    return MakeGrayMorph(src, dst, p, roi, op, polarity, iterations, elem);
}

GrayMorphAgent* GrayMorphFact(Buffer* src, Buffer* dst, int left, int top, int right, int bottom,
                              GRAYMORPHOP op, GMPOLARITY polarity, int iterations, GrayMorphElem* elem) {
    return GrayMorphFact(src, dst, RectFromInts(left, top, right, bottom), op, polarity, iterations, elem);
}

}  // namespace ombrel
