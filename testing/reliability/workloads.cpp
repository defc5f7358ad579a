// SPDX-License-Identifier: MIT
#include "testing/reliability/workloads.h"

#include <atomic>
#include <cmath>
#include <cstring>
#include <new>

#include <ombrel/ombrel.h>

namespace ombrel::testing {
namespace {

constexpr int kW = 80, kH = 60;

uint32_t Mix(uint32_t v) {
    v ^= v >> 16;
    v *= 0x7feb352dU;
    v ^= v >> 15;
    v *= 0x846ca68bU;
    return v ^ (v >> 16);
}

// A part under the camera: a ramp, a bright disc and a row of dark bars that move from frame to frame, and
// a little sensor noise. `salt` makes the images of one workload differ from each other.
int Scene(uint32_t frame, int x, int y, uint32_t salt) {
    const int cx = 16 + static_cast<int>((frame * 3 + salt) % 48),
              cy = 12 + static_cast<int>((frame * 7) % 36);
    int v = 20 + ((x * 2 + y) & 0x7f);
    if ((x - cx) * (x - cx) + (y - cy) * (y - cy) < 90) v = 215;
    if (y > 42 && ((x + static_cast<int>(frame)) / 6) % 4 == 0) v = 35;
    return v + static_cast<int>(Mix(frame * 131071U + static_cast<uint32_t>(y * kW + x) + salt * 7919U) & 7);
}

void Fill(Buffer& b, uint32_t frame, uint32_t salt, bool binary = false) {
    for (int y = 0; y < b.Height(); ++y) {
        uint8_t* row = b.Row(y);
        for (int x = 0; x < b.Width(); ++x) {
            const int v = Scene(frame, x, y, salt);
            row[x] = static_cast<uint8_t>(binary ? (v > 128 ? 1 : 0) : v);
        }
    }
}

// A disc of 1s in an 8-bit mask image.
void FillDisc(Buffer& b, int cx, int cy, int r) {
    for (int y = 0; y < b.Height(); ++y)
        for (int x = 0; x < b.Width(); ++x)
            b.Row(y)[x] = (x - cx) * (x - cx) + (y - cy) * (y - cy) <= r * r ? 1 : 0;
}

class Hash {
  public:
    void Bytes(const void* p, size_t n) {
        const auto* c = static_cast<const uint8_t*>(p);
        for (size_t i = 0; i < n; ++i) _h = (_h ^ c[i]) * 0x100000001b3ULL;
    }
    template <class T>
    void Value(T v) {
        Bytes(&v, sizeof v);
    }
    void Image(const Buffer& b) {
        Value(b.Width());
        Value(b.Height());
        for (int y = 0; y < b.Height(); ++y)
            Bytes(b.Row(y), static_cast<size_t>(Buffer::RowBytes(b.Width(), b.BitsPerPixel())));
    }
    uint64_t Get() const { return _h; }

  private:
    uint64_t _h = 0xcbf29ce484222325ULL;
};

std::unique_ptr<Buffer> Image(int w = kW, int h = kH, PixelDepth depth = EIGHT) {
    return std::make_unique<Buffer>(w, h, depth);
}

constexpr Rect kInner{4, 3, kW - 4, kH - 3};

// The common shape: an agent made by Prepare, run by Go, deleted with the workload.
template <class A>
class AgentWorkload : public Workload {
  public:
    int Prepare() override {
        _agent.reset(Make());
        return _agent ? 0 : kNoAgent;
    }
    int Go() override { return _agent ? _agent->Go() : kNoAgent; }

  protected:
    virtual A* Make() = 0;
    std::unique_ptr<A> _agent;
};

class Arith final : public AgentWorkload<ArithAgent> {
    std::unique_ptr<Buffer> _a = Image(), _b = Image(), _d = Image();
    ArithAgent* Make() override {
        return ArithFact(_a.get(), kInner, _b.get(), _ARITH_DIFF, 1.5f, 3, _d.get());
    }
    void Feed(uint32_t f) override {
        Fill(*_a, f, 1);
        Fill(*_b, f + 1, 2);
    }
    uint64_t Digest() const override {
        Hash h;
        h.Image(*_d);
        return h.Get();
    }
};

class Histogram final : public AgentWorkload<HistogramAgent> {
    std::unique_ptr<Buffer> _src = Image();
    std::vector<int> _bins;
    HistogramAgent* Make() override { return HistogramFact(_src.get(), HISTRES_4, kInner, &_bins); }
    void Feed(uint32_t f) override { Fill(*_src, f, 3); }
    int Go() override {
        const int status = AgentWorkload::Go();
        return status != 0 ? status : _agent->GetError();
    }
    uint64_t Digest() const override {
        Hash h;
        for (int v : _bins) h.Value(v);
        h.Value(_agent->Mean());
        h.Value(_agent->StdDev());
        h.Value(_agent->Median());
        return h.Get();
    }
};

class Mask final : public AgentWorkload<MaskAgent> {
    std::unique_ptr<Buffer> _src = Image(), _dst = Image(), _mask = Image(50, 40);
    std::unique_ptr<ROI> _roi;
    MaskAgent* Make() override { return MaskFact(_src.get(), _dst.get(), Point{10, 8}, *_roi, 40, 200, 0u); }

  public:
    Mask() {
        FillDisc(*_mask, 25, 20, 17);
        _roi = std::make_unique<ROI>(_mask.get());
    }
    void Feed(uint32_t f) override { Fill(*_src, f, 4); }
    uint64_t Digest() const override {
        Hash h;
        h.Image(*_dst);
        return h.Get();
    }
};

class Project final : public AgentWorkload<ProjectAgent> {
    std::unique_ptr<Buffer> _src = Image(), _dst = Image(kW, 8);
    ProjectAgent* Make() override { return ProjectFact(_src.get(), _dst.get(), kInner, HORIZONTAL); }
    void Feed(uint32_t f) override { Fill(*_src, f, 5); }
    uint64_t Digest() const override {
        Hash h;
        h.Image(*_dst);
        return h.Get();
    }
};

class FrameAverage final : public AgentWorkload<FrameAverageAgent> {
    std::unique_ptr<Buffer> _src = Image(), _dst = Image();
    FrameAverageAgent* Make() override { return FrameAverageFact(_src.get(), _dst.get(), 4, kInner); }
    void Feed(uint32_t f) override { Fill(*_src, f, 6); }
    uint64_t Digest() const override {
        Hash h;
        h.Image(*_dst);
        return h.Get();
    }
};

class Decimate final : public AgentWorkload<DecimateAgent> {
    std::unique_ptr<Buffer> _src = Image(), _dst = Image(kW / 2, kH / 2);
    DecimateAgent* Make() override { return DecimateFact(_src.get(), _dst.get(), kInner, PIXEL_STEP_2); }
    void Feed(uint32_t f) override { Fill(*_src, f, 7); }
    uint64_t Digest() const override {
        Hash h;
        h.Image(*_dst);
        return h.Get();
    }
};

class Transpose final : public AgentWorkload<TransposeAgent> {
    std::unique_ptr<Buffer> _src = Image(), _dst = Image(kH, kW);
    TransposeAgent* Make() override {
        return TransposeFact(_src.get(), _dst.get(), kInner, TRANSPOSE_ROT90_CW);
    }
    void Feed(uint32_t f) override { Fill(*_src, f, 8); }
    uint64_t Digest() const override {
        Hash h;
        h.Image(*_dst);
        return h.Get();
    }
};

class Conv final : public AgentWorkload<ConvAgent> {
    std::unique_ptr<Buffer> _src = Image(), _dst = Image(), _kernel = Image(5, 5);
    std::unique_ptr<CorrTemplate> _tpl;
    ConvAgent* Make() override { return ConvFact(_src.get(), _dst.get(), kInner, _tpl.get(), 0, 0, 1, 1); }

  public:
    Conv() {
        for (int y = 0; y < 5; ++y)
            for (int x = 0; x < 5; ++x) _kernel->Row(y)[x] = static_cast<uint8_t>(10 + 20 * x + 7 * y);
        _tpl = std::make_unique<CorrTemplate>(_kernel.get(), 0);
        _tpl->SetHotSpot(Point{2, 2});
    }
    void Feed(uint32_t f) override { Fill(*_src, f, 9); }
    uint64_t Digest() const override {
        Hash h;
        h.Image(*_dst);
        return h.Get();
    }
};

class BinMorph final : public AgentWorkload<BinMorphAgent> {
    std::unique_ptr<Buffer> _src = Image(), _dst = Image();
    BinMorphOperator _op{ErodeFull};
    BinMorphAgent* Make() override {
        return BinMorphFact(_src.get(), _dst.get(), kInner, BMBORDER_CLEAR, &_op, 2);
    }
    void Feed(uint32_t f) override { Fill(*_src, f, 10, true); }
    int Go() override {
        const int status = AgentWorkload::Go();
        return status != 0 ? status : _agent->TempBufferStatus();
    }
    uint64_t Digest() const override {
        Hash h;
        h.Image(*_dst);
        return h.Get();
    }
};

class GrayMorph final : public AgentWorkload<GrayMorphAgent> {
    std::unique_ptr<Buffer> _src = Image(), _dst = Image();
    GrayMorphElem _elem{2, 1, 5, 3,
                        "11111"
                        "11111"
                        "11111"};
    GrayMorphAgent* Make() override {
        return GrayMorphFact(_src.get(), _dst.get(), kInner, GRAYMORPH_OPEN, GM_POLARITY_NORMAL, 1, &_elem);
    }
    void Feed(uint32_t f) override { Fill(*_src, f, 11); }
    int Go() override {
        const int status = AgentWorkload::Go();
        return status != 0 ? status : _agent->GetStatus();
    }
    uint64_t Digest() const override {
        Hash h;
        h.Image(*_dst);
        return h.Get();
    }
};

// A masked region, so that the agent also runs its mask sub-agent on an intermediate image.
class Blob final : public AgentWorkload<BlobAgent> {
    std::unique_ptr<Buffer> _src = Image(), _mask = Image(70, 50);
    std::unique_ptr<ROI> _roi;
    mutable BlobResult _result;  // its pool accessors are not const
    BlobAgent* Make() override { return BlobFact(_src.get(), Point{5, 5}, *_roi, &_result, 120, 255); }

  public:
    Blob() {
        FillDisc(*_mask, 35, 25, 24);
        _roi = std::make_unique<ROI>(_mask.get());
    }
    void Feed(uint32_t f) override { Fill(*_src, f, 12); }
    int Go() override {
        const int status = AgentWorkload::Go();
        return status != 0 ? status : _result.Error();
    }
    uint64_t Digest() const override {
        Hash h;
        for (ombrel::Blob* b = _result.First(); b != nullptr; b = b->Next())
            for (int feature = 1; feature <= 20; ++feature) h.Value(b->GetFeat(feature));
        return h.Get();
    }
    int PoolChunks() const override {
        return _result.BlobPool().Chunks() + _result.SegmentPool().Chunks() + _result.BdryPool().Chunks();
    }
};

class Sobel final : public AgentWorkload<SobelAgent> {
    std::unique_ptr<Buffer> _src = Image(), _dst = Image();
    SobelAgent* Make() override {
        return SobelFact(_src.get(), _dst.get(), kInner, MAG, SOBEL_SHIFT_0, 0, 1);
    }
    void Feed(uint32_t f) override { Fill(*_src, f, 13); }
    uint64_t Digest() const override {
        Hash h;
        h.Image(*_dst);
        return h.Get();
    }
};

class SceneAngle final : public AgentWorkload<SceneAngleAgent> {
    std::unique_ptr<Buffer> _src = Image();
    SceneAngleAgent* Make() override { return SceneAngleFact(_src.get(), kInner); }
    int Prepare() override {
        const int status = AgentWorkload::Prepare();
        return status != 0 ? status : _agent->PreGo(true);
    }
    void Feed(uint32_t f) override { Fill(*_src, f, 14); }
    uint64_t Digest() const override {
        Hash h;
        h.Value(_agent->Angle());
        h.Value(_agent->Strength());
        h.Value(_agent->Coverage());
        h.Bytes(_agent->Hist(), 128 * sizeof(int32_t));
        return h.Get();
    }
};

class AutoFocus final : public AgentWorkload<AutoFocusAgent> {
    std::unique_ptr<Buffer> _src = Image();
    AutoFocusAgent* Make() override { return AutoFocusFact(_src.get(), kInner); }
    int Prepare() override {
        const int status = AgentWorkload::Prepare();
        return status != 0 ? status : _agent->PreGo(true);
    }
    void Feed(uint32_t f) override { Fill(*_src, f, 15); }
    uint64_t Digest() const override {
        Hash h;
        h.Value(_agent->Focus());
        h.Value(_agent->Mean());
        h.Value(_agent->StdDev());
        return h.Get();
    }
};

// Training: a template made from a masked part of each new image, statistics read back.
class CorrTemplateTraining final : public Workload {
    std::unique_ptr<Buffer> _src = Image(), _mask = Image(24, 20);
    std::unique_ptr<ROI> _roi;
    std::unique_ptr<CorrTemplate> _tpl;

  public:
    CorrTemplateTraining() {
        FillDisc(*_mask, 12, 10, 9);
        _roi = std::make_unique<ROI>(_mask.get());
    }
    int Prepare() override { return 0; }
    void Feed(uint32_t f) override { Fill(*_src, f, 16); }
    int Go() override {
        _tpl.reset(new (std::nothrow) CorrTemplate(_src.get(), Point{20, 15}, _roi.get(), 1));
        if (!_tpl) return kNoAgent;
        _tpl->Recompute(0);
        return _tpl->GetError();
    }
    uint64_t Digest() const override {
        Hash h;
        h.Value(_tpl->GetCount());
        h.Value(_tpl->GetSum());
        h.Value(_tpl->GetSumSq());
        h.Value(_tpl->GetVariance());
        h.Image(*_tpl->GetBuffer());
        return h.Get();
    }
};

class CorrMatch final : public AgentWorkload<CorrMatchAgent> {
    std::unique_ptr<Buffer> _src = Image(), _patch = Image(12, 10);
    std::unique_ptr<CorrTemplate> _tpl;
    CorrResult _result;
    CorrMatchAgent* Make() override {
        return CorrMatchFact(_src.get(), kInner, _tpl.get(), &_result, 0, 0, 2, 2);
    }

  public:
    CorrMatch() {
        Fill(*_patch, 0, 17);
        _tpl = std::make_unique<CorrTemplate>(_patch.get(), 0);
    }
    void Feed(uint32_t f) override { Fill(*_src, f, 17); }
    int Go() override {
        const int status = AgentWorkload::Go();
        return status != 0 ? status : _agent->GetError();
    }
    uint64_t Digest() const override {
        Hash h;
        h.Value(_result.Count());
        for (int k = 0; k < _result.Count(); ++k) {
            h.Value(_result.At(k)._pos);
            h.Value(_result.At(k)._score);
        }
        return h.Get();
    }
};

// A board of binary traces (the template), and an image of it with a cut that moves, with the image's
// 3x3 dilation.
class Break final : public Workload {
    std::unique_ptr<Buffer> _image = Image(), _template = Image(), _dilated = Image();
    std::unique_ptr<BreakAgent> _agent;

  public:
    Break() {
        for (int y = 0; y < kH; ++y)
            for (int x = 0; x < kW; ++x) _template->Row(y)[x] = (y % 10) >= 3 && (y % 10) < 6 ? 1 : 0;
    }
    int Prepare() override {
        _agent.reset(new (std::nothrow)
                         BreakAgent(_image.get(), _template.get(), _dilated.get(), BMBORDER_CLEAR, 2, 1));
        return _agent ? _agent->PreGo() : kNoAgent;
    }
    void Feed(uint32_t f) override {
        const int cut = 6 + static_cast<int>(f % 60);
        for (int y = 0; y < kH; ++y)
            for (int x = 0; x < kW; ++x)
                _image->Row(y)[x] = x >= cut && x < cut + 4 ? 0 : _template->Row(y)[x];
        for (int y = 0; y < kH; ++y)
            for (int x = 0; x < kW; ++x) {
                uint8_t v = 0;
                for (int dy = -1; dy <= 1; ++dy)
                    for (int dx = -1; dx <= 1; ++dx) {
                        const int yy = y + dy, xx = x + dx;
                        if (yy >= 0 && yy < kH && xx >= 0 && xx < kW) v |= _image->Row(yy)[xx];
                    }
                _dilated->Row(y)[x] = v;
            }
    }
    int Go() override {
        if (!_agent) return kNoAgent;
        const int status = _agent->Go();
        return status != 0 ? status : _agent->PostGo();
    }
    uint64_t Digest() const override {
        Hash h;
        if (const Buffer* breaks = _agent->Breaks()) h.Image(*breaks);
        return h.Get();
    }
};

template <class W>
std::unique_ptr<Workload> MakeOne() {
    return std::make_unique<W>();
}

}  // namespace

const std::vector<WorkloadKind>& AllWorkloads() {
    static const std::vector<WorkloadKind> kinds{
        {"arith", MakeOne<Arith>},
        {"histogram", MakeOne<Histogram>},
        {"mask", MakeOne<Mask>},
        {"project", MakeOne<Project>},
        {"frame_average", MakeOne<FrameAverage>},
        {"decimate", MakeOne<Decimate>},
        {"transpose", MakeOne<Transpose>},
        {"conv", MakeOne<Conv>},
        {"binmorph", MakeOne<BinMorph>},
        {"graymorph", MakeOne<GrayMorph>},
        {"blob", MakeOne<Blob>},
        {"sobel", MakeOne<Sobel>},
        {"scene_angle", MakeOne<SceneAngle>},
        {"auto_focus", MakeOne<AutoFocus>},
        {"corr_template", MakeOne<CorrTemplateTraining>},
        {"corr_match", MakeOne<CorrMatch>},
        {"break", MakeOne<Break>},
    };
    return kinds;
}

std::atomic<int64_t> gAssertions{0};

int64_t AssertionReports() {
    return gAssertions.load(std::memory_order_relaxed);
}

void QuietSinks() {
    SetAssertSink([](const char*, int, const char*) { gAssertions.fetch_add(1, std::memory_order_relaxed); });
    SetTextSink([](TextChannel, std::string_view) {});
    SetDebugWindowSink([](uint32_t, std::string_view) {});
}

}  // namespace ombrel::testing
