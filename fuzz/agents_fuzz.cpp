// SPDX-License-Identifier: MIT
// Drives every agent with images, regions, masks, origins and parameters taken from the fuzzer's bytes:
// whatever they are, an agent may report assertions but must stay inside its buffers, end, and not leak.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <ombrel/ombrel.h>

namespace {

// Reads the fuzzer's bytes as a stream of small numbers; zeros once they run out.
class Bytes {
  public:
    Bytes(const uint8_t* data, size_t size) : _data(data), _size(size) {}
    uint8_t Byte() { return _pos < _size ? _data[_pos++] : 0; }
    int Int(int low, int high) { return low + static_cast<int>((Byte() | Byte() << 8) % (high - low + 1)); }
    bool Flag() { return Byte() & 1; }

  private:
    const uint8_t* _data;
    size_t _size;
    size_t _pos = 0;
};

std::unique_ptr<ombrel::Buffer> Image(Bytes& in, ombrel::PixelDepth depth) {
    auto image = std::make_unique<ombrel::Buffer>(in.Int(1, 48), in.Int(1, 48), depth);
    for (int y = 0; y < image->Height(); ++y)
        for (int64_t x = 0; x < ombrel::Buffer::RowBytes(image->Width(), depth); ++x)
            image->Row(y)[x] = in.Byte();
    return image;
}

// A rectangle or a masked region, possibly larger than the images and placed partly outside them.
ombrel::ROI Region(Bytes& in, std::unique_ptr<ombrel::Buffer>& maskKeeper) {
    if (!in.Flag()) return ombrel::ROI(in.Int(-4, 60), in.Int(-4, 60));
    maskKeeper = Image(in, in.Flag() ? ombrel::ONE : ombrel::EIGHT);
    ombrel::ROI roi(maskKeeper.get());
    if (in.Flag()) roi.SetExtent(in.Int(-4, 60), in.Int(-4, 60));
    return roi;
}

void RunArith(Bytes& in) {
    auto a = Image(in, ombrel::EIGHT), b = Image(in, ombrel::EIGHT), d = Image(in, ombrel::EIGHT);
    std::unique_ptr<ombrel::Buffer> mask;
    const ombrel::ROI roi = Region(in, mask);
    const auto op = static_cast<ombrel::ArithOp>(in.Int(0, 15));
    const float gain = static_cast<float>(in.Int(-300, 300)) / static_cast<float>(in.Int(1, 8));
    std::unique_ptr<ombrel::ArithAgent> agent(
        ombrel::ArithFact(a.get(), ombrel::Point{in.Int(-8, 50), in.Int(-8, 50)}, roi,
                          in.Flag() ? b.get() : nullptr, op, gain, in.Int(-70000, 70000), d.get()));
    if (!agent) return;
    agent->SetCornerB(in.Int(-8, 50), in.Int(-8, 50));
    agent->SetSignClip(static_cast<ombrel::ArithSign>(in.Int(0, 1)),
                       static_cast<ombrel::ArithSign>(in.Int(0, 1)),
                       static_cast<ombrel::ArithSign>(in.Int(0, 1)), in.Flag(), in.Flag());
    agent->SetMaskShift(static_cast<ombrel::ArithMaskOp>(in.Int(0, 2)), in.Int(0, 255), in.Int(-9, 9));
    agent->SetBand(in.Int(-5, 260), in.Int(-5, 260));
    agent->SetVectorInstructions(in.Flag());
    agent->Go();
}

void RunHistogram(Bytes& in) {
    auto image = Image(in, ombrel::EIGHT);
    std::unique_ptr<ombrel::Buffer> mask;
    const ombrel::ROI roi = Region(in, mask);
    std::vector<int> bins;
    std::unique_ptr<ombrel::HistogramAgent> agent(
        ombrel::HistogramFact(image.get(), static_cast<ombrel::HistRes>(1 << in.Int(0, 8)),
                              ombrel::Point{in.Int(-8, 50), in.Int(-8, 50)}, roi, &bins));
    if (!agent) return;
    agent->SetBinOffset(in.Int(-300, 300));
    agent->SetSigned(in.Flag());
    if (in.Flag()) bins.resize(static_cast<size_t>(in.Int(0, 300)));
    agent->Go();
    // The standard statistics and Otsu's threshold read any vector of counts.
    ombrel::StatisticsOfHistogram(bins);
    ombrel::OtsuThreshold(bins);
}

void RunMask(Bytes& in) {
    auto src = Image(in, ombrel::EIGHT), dst = Image(in, in.Flag() ? ombrel::EIGHT : ombrel::SIXTEEN);
    std::unique_ptr<ombrel::Buffer> mask;
    const ombrel::ROI roi = Region(in, mask);
    std::unique_ptr<ombrel::MaskAgent> agent(
        ombrel::MaskFact(src.get(), dst.get(), ombrel::Point{in.Int(-8, 50), in.Int(-8, 50)}, roi,
                         in.Int(-5, 260), in.Int(-5, 260), static_cast<unsigned>(in.Int(0, 15))));
    if (agent) agent->Go();
}

void RunBlob(Bytes& in) {
    auto image = Image(in, ombrel::EIGHT);
    std::unique_ptr<ombrel::Buffer> mask;
    const ombrel::ROI roi = Region(in, mask);
    ombrel::BlobResult result;
    ombrel::SetBlobMaxPoolSize(in.Int(1, 64));
    std::unique_ptr<ombrel::BlobAgent> agent(
        ombrel::BlobFact(image.get(), ombrel::Point{in.Int(-8, 50), in.Int(-8, 50)}, roi, &result,
                         in.Int(-5, 260), in.Int(-5, 260)));
    if (!agent) return;
    agent->SetStep(in.Int(-2, 60), in.Int(-2, 60));
    agent->SetAreaLimits(in.Int(-5, 500), in.Int(-5, 5000));
    agent->SetFilterFlags(in.Int(0, 63));
    agent->SetOptions(in.Int(0, 63));
    const int wanted[] = {in.Int(-2, 70), in.Int(-2, 70)};
    ombrel::EnableBlobFeatures(*agent, wanted);
    for (int run = 0; run < 2; ++run) agent->Go();
    // Rebuilding regions from a classification of any size reads nothing outside it.
    auto inBand = Image(in, in.Flag() ? ombrel::EIGHT : ombrel::ONE);
    for (ombrel::Blob* blob = result.First(); blob != nullptr; blob = blob->Next()) {
        for (int feature = 0; feature <= 65; ++feature) blob->GetFeat(feature);
        ombrel::RegionPixels pixels;
        if (inBand && ombrel::BlobPixels(*blob, *inBand, ombrel::Point{}, &pixels))
            ombrel::MeasureShape(pixels);
    }
}

void RunProject(Bytes& in) {
    auto src = Image(in, in.Flag() ? ombrel::EIGHT : ombrel::SIXTEEN), dst = Image(in, ombrel::EIGHT);
    std::unique_ptr<ombrel::Buffer> mask;
    const ombrel::ROI roi = Region(in, mask);
    std::unique_ptr<ombrel::ProjectAgent> agent(ombrel::ProjectFact(
        src.get(), in.Flag() ? dst.get() : nullptr, ombrel::Point{in.Int(-8, 50), in.Int(-8, 50)}, roi,
        static_cast<ombrel::ProjectType>(in.Int(0, 2))));
    if (!agent) return;
    if (in.Flag()) agent->SetZoneSizeSpace(in.Int(-2, 60), in.Int(-2, 60));
    agent->Go();
}

// A stream of frames of changing sizes and regions through one window.
void RunFrameAverage(Bytes& in) {
    auto dst = Image(in, in.Flag() ? ombrel::EIGHT : ombrel::SIXTEEN);
    std::unique_ptr<ombrel::Buffer> mask;
    const ombrel::ROI roi = Region(in, mask);
    std::unique_ptr<ombrel::FrameAverageAgent> agent(ombrel::FrameAverageFact(
        nullptr, dst.get(), in.Int(-2, 40), ombrel::Point{in.Int(-8, 50), in.Int(-8, 50)}, roi));
    if (!agent) return;
    for (int frame = in.Int(1, 12); frame > 0; --frame) {
        auto src = Image(in, ombrel::EIGHT);
        agent->SetSrcBuf(src.get());
        if (in.Byte() % 8 == 0) agent->SetExtent(in.Int(-4, 60), in.Int(-4, 60));
        if (in.Byte() % 16 == 0) agent->Setup(dst.get(), in.Int(-2, 40));
        agent->Go();
        agent->SetSrcBuf(nullptr);
    }
}

void RunSobel(Bytes& in) {
    auto src = Image(in, in.Flag() ? ombrel::EIGHT : ombrel::SIXTEEN);
    auto dst = Image(in, in.Flag() ? ombrel::EIGHT : ombrel::ONE);
    std::unique_ptr<ombrel::Buffer> mask;
    ombrel::ROI roi = Region(in, mask);
    std::unique_ptr<ombrel::SobelAgent> agent(ombrel::SobelFact(
        src.get(), dst.get(), ombrel::Point{in.Int(-8, 50), in.Int(-8, 50)}, in.Flag() ? &roi : nullptr,
        static_cast<ombrel::SobelOut>(in.Int(-1, 11)), static_cast<ombrel::SobelShift>(in.Int(-2, 40)),
        in.Int(-300, 300), in.Int(-3, 60)));
    if (!agent) return;
    agent->SetUseThreshold2(in.Flag());
    agent->SetThreshold2(in.Int(-300, 300));
    agent->Go();
}

void RunBinMorph(Bytes& in) {
    auto src = Image(in, in.Flag() ? ombrel::EIGHT : ombrel::SIXTEEN);
    auto dst = in.Flag() ? std::make_unique<ombrel::Buffer>(src.get(), src->Width(), src->Height())
                         : Image(in, ombrel::EIGHT);
    std::unique_ptr<ombrel::Buffer> mask;
    const ombrel::ROI roi = Region(in, mask);
    unsigned lut[16];
    for (unsigned& word : lut) word = static_cast<unsigned>(in.Int(0, 65535)) * 65537u;
    ombrel::BinMorphOperator predefined(static_cast<ombrel::BinMorphOpCode>(in.Int(-2, 20))), own(lut);
    // Bounded: an operation that never settles runs every pass it is given.
    std::unique_ptr<ombrel::BinMorphAgent> agent(ombrel::BinMorphFact(
        src.get(), in.Flag() ? src.get() : dst.get(), ombrel::Point{in.Int(-8, 50), in.Int(-8, 50)}, roi,
        static_cast<ombrel::BMBORDER>(in.Int(0, 1)), in.Flag() ? &predefined : &own, in.Int(-2, 9)));
    if (!agent) return;
    agent->Go();
    agent->Go(in.Flag() ? nullptr : &own);
}

void RunGrayMorph(Bytes& in) {
    auto src = Image(in, in.Flag() ? ombrel::EIGHT : ombrel::ONE), dst = Image(in, ombrel::EIGHT);
    std::unique_ptr<ombrel::Buffer> mask;
    const ombrel::ROI roi = Region(in, mask);
    const int w = in.Int(-1, 30), h = in.Int(-1, 30);
    std::vector<unsigned char> weights(static_cast<size_t>(w > 0 && h > 0 ? w * h : 0));
    for (auto& v : weights) v = in.Flag() ? 255 : 0;
    ombrel::GrayMorphElem element(in.Int(-3, 33), in.Int(-3, 33), w, h,
                                  weights.empty() ? nullptr : weights.data());
    if (in.Flag()) element.SetElementDims(in.Int(-1, 12), in.Int(-1, 12));
    std::unique_ptr<ombrel::GrayMorphAgent> agent(ombrel::GrayMorphFact(
        src.get(), in.Flag() ? src.get() : dst.get(), ombrel::Point{in.Int(-8, 50), in.Int(-8, 50)}, roi,
        static_cast<ombrel::GRAYMORPHOP>(in.Int(-1, 8)), static_cast<ombrel::GMPOLARITY>(in.Int(0, 3)),
        in.Int(-2, 4), in.Flag() ? &element : nullptr));
    if (agent) agent->Go();
}

void RunBreak(Bytes& in) {
    auto image = Image(in, ombrel::EIGHT), templ = Image(in, ombrel::EIGHT);
    auto dilated = in.Flag() ? Image(in, ombrel::EIGHT) : std::make_unique<ombrel::Buffer>(*image);
    std::unique_ptr<ombrel::Buffer> mask;
    const ombrel::ROI roi = Region(in, mask);
    const auto border = static_cast<ombrel::BMBORDER>(in.Int(0, 1));
    const int iterations = in.Int(-1, 5), xorMode = in.Int(0, 1);
    std::unique_ptr<ombrel::BreakAgent> agent;
    std::vector<ombrel::Buffer*> images{image.get(), dilated.get()}, templates{templ.get(), image.get()},
        dilateds{dilated.get(), templ.get()};
    if (in.Flag()) templates.resize(static_cast<size_t>(in.Int(0, 2)));
    switch (in.Int(0, 2)) {
        case 0:
            agent = std::make_unique<ombrel::BreakAgent>(image.get(), templ.get(), dilated.get(),
                                                         ombrel::Point{in.Int(-8, 50), in.Int(-8, 50)}, roi,
                                                         border, iterations, xorMode);
            break;
        case 1:
            agent = std::make_unique<ombrel::BreakAgent>(&images, &templates, &dilateds, border, iterations,
                                                         xorMode);
            break;
        default:
            agent = std::make_unique<ombrel::BreakAgent>(image.get(), templ.get(), dilated.get(), border,
                                                         iterations, xorMode);
            break;
    }
    if (agent->Go() == 0) agent->PostGo();
}

void RunDecimate(Bytes& in) {
    auto src = Image(in, ombrel::EIGHT), dst = Image(in, in.Flag() ? ombrel::EIGHT : ombrel::ONE);
    const ombrel::Rect r{in.Int(-8, 50), in.Int(-8, 50), in.Int(-8, 60), in.Int(-8, 60)};
    const auto step = static_cast<ombrel::PixelStep>(in.Int(-1, 3));
    std::unique_ptr<ombrel::DecimateAgent> agent(
        in.Flag() ? ombrel::DecimateFact(src.get(), dst.get(), r, step)
                  : ombrel::DecimateFact(in.Flag() ? src.get() : nullptr, dst.get(), step));
    if (agent) agent->Go();
}

void RunTranspose(Bytes& in) {
    auto src = Image(in, ombrel::EIGHT), dst = Image(in, in.Flag() ? ombrel::EIGHT : ombrel::SIXTEEN);
    std::unique_ptr<ombrel::Buffer> mask;
    const ombrel::ROI roi = Region(in, mask);
    const auto op = static_cast<ombrel::TransOpType>(in.Int(-1, 6));
    std::unique_ptr<ombrel::TransposeAgent> agent(
        ombrel::TransposeFact(src.get(), dst.get(), ombrel::Point{in.Int(-8, 50), in.Int(-8, 50)}, roi, op));
    if (agent) agent->Go();
}

// Two scenes measured (a masked region is walked as its rectangle), re-aimed, and compared.
void RunSceneAngle(Bytes& in) {
    auto a = Image(in, in.Flag() ? ombrel::EIGHT : ombrel::ONE), b = Image(in, ombrel::EIGHT);
    std::unique_ptr<ombrel::Buffer> mask;
    const ombrel::ROI roi = Region(in, mask);
    std::unique_ptr<ombrel::SceneAngleAgent> first(
        ombrel::SceneAngleFact(a.get(), ombrel::Point{in.Int(-8, 50), in.Int(-8, 50)}, roi));
    std::unique_ptr<ombrel::SceneAngleAgent> second(
        ombrel::SceneAngleFact(b.get(), in.Int(-8, 50), in.Int(-8, 50), in.Int(-8, 60), in.Int(-8, 60)));
    if (!first || !second) return;
    first->SetFoldMode(in.Int(-1, 3));
    first->SetFitMode(in.Int(0, 3));
    first->SetUseWeights(in.Flag());
    if (in.Flag()) first->PreGo(true);
    first->Go();
    second->Go();
    first->SetSrcPt(ombrel::Point{in.Int(-8, 50), in.Int(-8, 50)});
    first->Go();
    first->AngleDiff(second.get());
    second->AngleDiff(first.get());
}

// Prepared or not, with any displacement and sign, run twice; the prepared agent is then re-prepared on a
// new region.
void RunAutoFocus(Bytes& in) {
    auto src = Image(in, in.Flag() ? ombrel::EIGHT : ombrel::SIXTEEN);
    std::unique_ptr<ombrel::Buffer> mask;
    const ombrel::ROI roi = Region(in, mask);
    std::unique_ptr<ombrel::AutoFocusAgent> agent(
        in.Flag() ? ombrel::AutoFocusFact(src.get(), ombrel::Point{in.Int(-8, 50), in.Int(-8, 50)}, roi)
                  : ombrel::AutoFocusFact(src.get(), ombrel::Rect{in.Int(-8, 50), in.Int(-8, 50),
                                                                  in.Int(-8, 60), in.Int(-8, 60)}));
    if (!agent) return;
    agent->SetSparseness(in.Int(-3, 60), in.Int(-3, 60));
    agent->SetSigned(in.Flag());
    const bool keep = in.Flag();
    if (keep) agent->PreGo(true);
    for (int run = 0; run < 2; ++run) agent->Go();
    if (!keep) return;
    agent->SetSrcPt(ombrel::Point{in.Int(-8, 50), in.Int(-8, 50)});
    agent->SetExtent(in.Int(-4, 60), in.Int(-4, 60));
    agent->PreGo(true);
    agent->Go();
}

void RunCorrMatch(Bytes& in) {
    auto image = Image(in, ombrel::EIGHT), patch = Image(in, ombrel::EIGHT);
    std::unique_ptr<ombrel::Buffer> mask;
    ombrel::ROI roi = Region(in, mask);
    ombrel::ROI patchRoi(in.Int(-2, 20), in.Int(-2, 20));
    std::unique_ptr<ombrel::CorrTemplate> tpl =
        in.Flag() ? std::make_unique<ombrel::CorrTemplate>(patch.get(), in.Int(0, 1))
                  : std::make_unique<ombrel::CorrTemplate>(
                        patch.get(), ombrel::Point{in.Int(-4, 50), in.Int(-4, 50)}, &patchRoi, in.Int(0, 1));
    tpl->SetHotSpot(ombrel::Point{in.Int(-60, 60), in.Int(-60, 60)});
    ombrel::Point origin{in.Int(-8, 50), in.Int(-8, 50)};
    const int imgSigned = in.Int(0, 1), tplSigned = in.Int(0, 1), xs = in.Int(-2, 9), ys = in.Int(-2, 9);
    ombrel::CorrResult result;
    ombrel::CorrPoint best;
    std::unique_ptr<ombrel::CorrMatchAgent> agent(
        in.Flag() ? ombrel::CorrMatchFact(image.get(), &origin, &roi, tpl.get(), &result, imgSigned,
                                          tplSigned, xs, ys)
                  : ombrel::CorrMatchFact(image.get(), &origin, &roi, tpl.get(), &best, imgSigned, tplSigned,
                                          xs, ys));
    if (agent) {
        agent->Go();
        ombrel::CorrSubpixel sub;
        agent->RefinePeak(in.Int(-1, 3000), &sub);
        ombrel::CorrTopN(result, in.Int(0, 5), in.Int(0, 10));
    }
    ombrel::CorrTempl search = ombrel::CorrTempl::From(*tpl);
    std::vector<ombrel::Point> at;
    for (int k = in.Int(0, 8); k > 0; --k) at.push_back(ombrel::Point{in.Int(-60, 60), in.Int(-60, 60)});
    std::vector<float> scores;
    ombrel::swComputeScores(&search, image.get(), at, scores, in.Int(-2, 10), false, in.Flag());
}

// Any kernel (either signedness, any hot spot, possibly larger than the image), steps and regions.
void RunConv(Bytes& in) {
    auto src = Image(in, in.Flag() ? ombrel::EIGHT : ombrel::ONE), dst = Image(in, ombrel::EIGHT);
    auto kernel = Image(in, ombrel::EIGHT);
    std::unique_ptr<ombrel::Buffer> mask;
    ombrel::ROI roi = Region(in, mask);
    ombrel::CorrTemplate tpl(kernel.get(), in.Int(0, 1));
    tpl.SetHotSpot(ombrel::Point{in.Int(-60, 60), in.Int(-60, 60)});
    const int imgSigned = in.Int(0, 1), tplSigned = in.Int(0, 1), xs = in.Int(-2, 9), ys = in.Int(-2, 9);
    const ombrel::Rect r{in.Int(-8, 50), in.Int(-8, 50), in.Int(-8, 60), in.Int(-8, 60)};
    std::unique_ptr<ombrel::ConvAgent> agent(
        in.Flag() ? ombrel::ConvFact(src.get(), dst.get(), r, &tpl, imgSigned, tplSigned, xs, ys)
                  : ombrel::ConvFact(src.get(), dst.get(), ombrel::Point{in.Int(-8, 50), in.Int(-8, 50)},
                                     &roi, &tpl, imgSigned, tplSigned, xs, ys));
    if (agent) agent->Go();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool quiet = [] {
        ombrel::SetAssertSink([](const char*, int, const char*) {});
        ombrel::SetTextSink([](ombrel::TextChannel, std::string_view) {});
        ombrel::SetDebugWindowSink([](uint32_t, std::string_view) {});
        return true;
    }();
    (void)quiet;
    Bytes in(data, size);
    // One agent per input, chosen by its first bytes. A new agent adds its runner here.
    using Runner = void (*)(Bytes&);
    static constexpr Runner kRunners[] = {RunArith,      RunHistogram,    RunMask,      RunBlob,
                                          RunProject,    RunFrameAverage, RunSobel,     RunBinMorph,
                                          RunGrayMorph,  RunBreak,        RunDecimate,  RunTranspose,
                                          RunSceneAngle, RunAutoFocus,    RunCorrMatch, RunConv};
    constexpr int kCount = static_cast<int>(sizeof(kRunners) / sizeof(kRunners[0]));
    kRunners[in.Int(0, kCount - 1)](in);
    ombrel::SetBlobMaxPoolSize(512);
    return 0;
}
