// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "ombrel/corr/corr_template.h"
#include "ombrel/framework/kernel_family.h"
#include "ombrel/pixelops/conv.h"
#include "ombrel/pixelops/conv_kernels.h"
#include "testing/images.h"
#include "testing/recorders.h"

namespace ombrel {
namespace {

using testing::kPadByte;
using testing::Pixels;
using testing::RandomImage;

std::unique_ptr<Buffer> Image(int w, int h, const std::vector<uint8_t>& pixels) {
    auto b = std::make_unique<Buffer>(w, h, EIGHT);
    for (int y = 0; y < h; ++y) std::copy_n(pixels.begin() + y * w, w, b->Row(y));
    return b;
}

std::vector<uint8_t> Corner(const Buffer& b, int ow, int oh) {
    std::vector<uint8_t> out;
    for (int y = 0; y < oh; ++y) out.insert(out.end(), b.Row(y), b.Row(y) + ow);
    return out;
}

// A kernel template of w x h bytes with its hot spot.
std::unique_ptr<CorrTemplate> Kernel(int w, int h, const std::vector<uint8_t>& bytes, Point hot = {0, 0}) {
    auto b = Image(w, h, bytes);
    auto t = std::make_unique<CorrTemplate>(b.get(), 0);
    t->SetHotSpot(hot);
    return t;
}

// The rules read straight, sample by sample, with 64-bit sums cut to 32 bits: shares no code with the
// kernels. Ranges are those of a region well inside the source.
std::vector<uint8_t> Oracle(const Buffer& src, int x0, int y0, int nx, int ny, int sx, int sy,
                            const std::vector<int>& k, int kw, int kh, bool imgSigned, int shift) {
    std::vector<uint8_t> out;
    for (int oy = 0; oy < ny; ++oy)
        for (int ox = 0; ox < nx; ++ox) {
            int64_t acc = 0;
            for (int ky = 0; ky < kh; ++ky)
                for (int kx = 0; kx < kw; ++kx) {
                    const uint8_t v = src.Row(y0 + oy * sy + ky)[x0 + ox * sx + kx];
                    acc += int64_t{k[ky * kw + kx]} * (imgSigned ? static_cast<int8_t>(v) : v);
                }
            out.push_back(static_cast<uint8_t>(static_cast<int32_t>(static_cast<uint32_t>(acc)) >> shift));
        }
    return out;
}

class ConvIsa : public testing::IsaLevelTest {};

TEST_P(ConvIsa, EveryLevelGivesTheOracleBytesAtAwkwardWidthsOriginsStepsAndPaddedDestinations) {
    uint32_t seed = 3;
    for (auto [kw, kh] : {std::pair{3, 3}, std::pair{1, 1}, std::pair{4, 2}, std::pair{7, 5}})
        for (int signs : {0, 1, 2, 3})
            for (int step : {1, 2, 3})
                for (int w : testing::AwkwardWidths())
                    for (Point p : {Point{0, 0}, Point{3, 1}, Point{5, 4}}) {
                        const bool imgSigned = signs & 1, tplSigned = signs & 2;
                        auto kernelImage = RandomImage(kw, kh, seed++);
                        auto tpl = std::make_unique<CorrTemplate>(kernelImage.get(), 0);
                        std::vector<int> k;
                        for (uint8_t v : Pixels(*kernelImage)) k.push_back(tplSigned ? int{int8_t(v)} : v);
                        const int h = 2 + w % 5;
                        auto src = RandomImage(w + p.x + kw + 2, h + p.y + kh + 2, seed++);
                        auto dst = testing::FilledImage(w + 1, h, 0x3C);
                        swConvAgent agent(src.get(), dst.get(), Rect{p.x, p.y, p.x + w, p.y + h}, tpl.get(),
                                          imgSigned, tplSigned, step, step);
                        testing::AssertRecorder quiet;
                        agent.Go();
                        const int nx = (w + step - 1) / step, ny = (h + step - 1) / step;
                        const auto expected =
                            Oracle(*src, p.x, p.y, nx, ny, step, step, k, kw, kh, imgSigned, agent.Shift());
                        ASSERT_EQ(Corner(*dst, nx, ny), expected)
                            << kw << "x" << kh << " signs " << signs << " step " << step << " width " << w;
                        EXPECT_EQ(dst->Row(0)[nx], 0x3C) << "nothing beyond the output is written";
                        testing::ExpectPaddingIs(*dst, kPadByte);
                    }
}

// filter2D with the anchor at the kernel's top-left and no mirroring computes the same sums where the
// kernel stays inside; its exact sums (CV_32S in double) then get our shift and wrap.
TEST_P(ConvIsa, SumsEqualOpenCvFilter2DShiftedAndWrapped) {
    for (int kw : {3, 7}) {
        const int w = 131, h = 47;
        auto src = RandomImage(w, h, 70 + kw);
        auto kernelImage = RandomImage(kw, kw, 80 + kw);
        CorrTemplate tpl(kernelImage.get(), 0);
        for (int step : {1, 2}) {
            Buffer dst(w, h, EIGHT);
            swConvAgent agent(src.get(), &dst, &tpl, 0, 0, step, step);
            agent.Go();
            const cv::Mat image(h, w, CV_8UC1, src->BaseAddr(), static_cast<size_t>(src->Pitch()));
            cv::Mat k(kw, kw, CV_64F);
            for (int y = 0; y < kw; ++y)
                for (int x = 0; x < kw; ++x) k.at<double>(y, x) = kernelImage->Row(y)[x];
            cv::Mat sums;
            cv::filter2D(image, sums, CV_64F, k, cv::Point(0, 0), 0, cv::BORDER_CONSTANT);
            std::vector<uint8_t> expected;
            int nx = 0, ny = 0;
            for (int y = 0; y + kw <= h; y += step, ++ny)
                for (int x = 0, n = 0; x + kw <= w; x += step, ++n) {
                    const auto sum = static_cast<int32_t>(sums.at<double>(y, x));
                    expected.push_back(static_cast<uint8_t>(sum >> agent.Shift()));
                    nx = n + 1;
                }
            EXPECT_EQ(Corner(dst, nx, ny), expected) << kw << " step " << step;
        }
    }
}

TEST_P(ConvIsa, EachVectorLevelHandlesTheWholeVectorsOfARow) {
    if (Level() == Isa::Scalar || !conv::kConvKernels.HasOwnKernel(Level()))
        GTEST_SKIP() << "no kernel of its own at this level";
    auto src = RandomImage(300, 5, 9);
    const std::vector<int16_t> k{-3, 100, 7, 255, -128, 0, 9, 1, 2, 3, 4, 5, 6, 7, 8};
    for (int kw : {1, 2, 3, 5}) {
        std::vector<uint8_t> ours(200, 0), reference(200, 0);
        conv::RowJob job{src->Row(0), src->Pitch(), k.data(), kw, 3, 1, kw & 1, 0, 3, ours.data()};
        const int handled = conv::kConvKernels.At(Level())(0, 200, job);
        EXPECT_GT(handled, 200 - 64) << kw;
        EXPECT_LE(handled, 200);
        job.d = reference.data();
        conv::kConvKernels.Scalar()(0, handled, job);
        EXPECT_EQ(ours, reference) << kw;
    }
}

OMBREL_INSTANTIATE_ISA_LEVELS(ConvIsa);

TEST(Conv, ShiftIsTheSignificantBitsOfTheRootOfTheKernelEnergy) {
    auto src = Image(4, 4, {10, 20, 30, 40, 50, 60, 70, 80, 90, 100, 110, 120, 200, 210, 220, 230});
    Buffer dst(4, 4, EIGHT);
    {  // 1 x 1 of 1: d = 1, shift 1, each output half its input
        auto one = Kernel(1, 1, {1});
        swConvAgent agent(src.get(), &dst, one.get(), 0, 0, 1, 1);
        agent.Go();
        EXPECT_EQ(agent.Shift(), 1);
        EXPECT_EQ(Corner(dst, 4, 1), (std::vector<uint8_t>{5, 10, 15, 20}));
    }
    {  // a 3 x 3 box: sqrt 9 = 3, shift 2; the bright bottom rows wrap instead of saturating
        auto box = Kernel(3, 3, std::vector<uint8_t>(9, 1));
        swConvAgent agent(src.get(), &dst, box.get(), 0, 0, 1, 1);
        agent.Go();
        EXPECT_EQ(agent.Shift(), 2);
        // (0,0): 10+20+30+50+60+70+90+100+110 = 540 -> 135; (1,0): 630 -> 157;
        // (0,1): 50+60+70+90+100+110+200+210+220 = 1110 >> 2 = 277 -> wraps to 21; (1,1): 1200 -> 300 -> 44
        EXPECT_EQ(Corner(dst, 2, 2), (std::vector<uint8_t>{135, 157, 21, 44}));
    }
    {  // energy 0: shift 0, raw sums
        auto zero = Kernel(2, 1, {0, 0});
        swConvAgent agent(src.get(), &dst, zero.get(), 0, 0, 1, 1);
        agent.Go();
        EXPECT_EQ(agent.Shift(), 0);
        EXPECT_EQ(dst.Row(0)[0], 0);
    }
    {  // 2 x 1 of (2, 1): sqrt 5 = 2, shift 2; not mirrored: 2*left + right
        auto pair = Kernel(2, 1, {2, 1});
        swConvAgent agent(src.get(), &dst, pair.get(), 0, 0, 1, 1);
        agent.Go();
        EXPECT_EQ(agent.Shift(), 2);
        EXPECT_EQ(Corner(dst, 3, 1),
                  (std::vector<uint8_t>{(2 * 10 + 20) >> 2, (2 * 20 + 30) >> 2, (2 * 30 + 40) >> 2}));
    }
}

TEST(Conv, SignedKernelAndImageAndTheRecomputedTemplate) {
    // A signed difference kernel (-1, 1) over a signed image: 0x90 reads as -112.
    auto src = Image(3, 2, {0x10, 0x90, 0x20, 0x10, 0x90, 0x20});
    Buffer dst(3, 2, EIGHT);
    auto diff = Kernel(2, 1, {0xFF, 0x01});
    ASSERT_EQ(diff->GetSigned(), 0);
    swConvAgent agent(src.get(), &dst, diff.get(), 1, 1, 1, 1);
    agent.Go();
    EXPECT_EQ(diff->GetSigned(), 1) << "Go recomputes the template with the template-signed setting";
    EXPECT_EQ(agent.Shift(), 1);  // sqrt(2) -> 1
    // (-112 - 16) >> 1 = -64 -> 0xC0; (32 + 112) >> 1 = 72
    EXPECT_EQ(Corner(dst, 2, 2), (std::vector<uint8_t>{0xC0, 72, 0xC0, 72}));
}

TEST(Conv, HotSpotMovesTheRangeAndTheDestinationStartsAtItsCorner) {
    std::vector<uint8_t> pixels(36);
    for (int i = 0; i < 36; ++i) pixels[i] = static_cast<uint8_t>(i);
    auto src = Image(6, 6, pixels);
    auto one = Kernel(3, 3, {0, 0, 0, 0, 2, 0, 0, 0, 0}, Point{1, 1});  // centre 2: sqrt 4 = 2, shift 2
    Buffer dst(6, 6, EIGHT);
    std::fill(dst.Row(0), dst.Row(0) + dst.Pitch() * 6, 0xEE);
    swConvAgent agent(src.get(), &dst, Rect{2, 2, 6, 6}, one.get(), 0, 0, 2, 2);
    agent.Go();
    // sx from 1 to min(5, 7 - 3 = 4): samples 1, 3; each output is 2 * centre >> 2 = centre / 2.
    EXPECT_EQ(agent.SxStart(), 1);
    EXPECT_EQ(agent.SxStop(), 4);
    EXPECT_EQ(Corner(dst, 3, 3),
              (std::vector<uint8_t>{14 / 2, 16 / 2, 0xEE, 26 / 2, 28 / 2, 0xEE, 0xEE, 0xEE, 0xEE}));
}

TEST(Conv, AssertionsReportByModuleLineAndText) {
    Buffer src(20, 10, EIGHT), dst(20, 10, EIGHT), small(3, 3, EIGHT);
    auto box = Kernel(3, 3, std::vector<uint8_t>(9, 1));
    {
        testing::AssertRecorder rec;
        swConvAgent agent(&src, &small, box.get(), 0, 0, 0, -1);
        EXPECT_TRUE(rec.Has("conv", 129, "_dstBuf->Width() >= _sRoi.Width()"));
        EXPECT_TRUE(rec.Has("conv", 130, "_dstBuf->Height() >= _sRoi.Height()"));
        EXPECT_TRUE(rec.Has("conv", 131, "_xStep > 0"));
        EXPECT_TRUE(rec.Has("conv", 132, "_yStep > 0"));
        EXPECT_EQ(rec.Count(), 4u) << "the constructor checks the list";
        rec.Clear();
        EXPECT_EQ(agent.Go(), 0);
        EXPECT_EQ(rec.Count(), 4u) << "and Setup again; the range is fine";
    }
    {
        testing::AssertRecorder rec;
        swConvAgent agent(nullptr, nullptr, Rect{-1, 12, -1, 12}, nullptr, 0, 0, 1, 1);
        rec.Clear();
        EXPECT_EQ(agent.Go(), 0);
        EXPECT_TRUE(rec.Has("conv", 127, "_srcBuf"));
        EXPECT_TRUE(rec.Has("conv", 128, "_dstBuf"));
        EXPECT_TRUE(rec.Has("conv", 133, "_convTemplate->GetBuffer()"));
        EXPECT_TRUE(rec.Has("conv", 134, "_sPt.x >= 0 && _sPt.x < _srcBuf->Width()"));
        EXPECT_TRUE(rec.Has("conv", 135, "_sPt.y >= 0 && _sPt.y < _srcBuf->Height()"));
        EXPECT_TRUE(rec.Has("conv", 136, "_sRoi.Width()"));
        EXPECT_TRUE(rec.Has("conv", 137, "_sRoi.Height()"));
        EXPECT_TRUE(rec.Has("conv", 133, "sy_stop > sy_start"));
        EXPECT_TRUE(rec.Has("conv", 134, "sx_stop > sx_start"));
    }
    {
        testing::AssertRecorder rec;
        swConvAgent agent(&src, &dst, Rect{15, 5, 25, 12}, box.get(), 0, 0, 1, 1);
        EXPECT_EQ(agent.Go(), 0);
        EXPECT_TRUE(rec.Has("conv", 138, "_sPt.x + _sRoi.Width() <= _srcBuf->Width()"));
        EXPECT_TRUE(rec.Has("conv", 139, "_sPt.y + _sRoi.Height() <= _srcBuf->Height()"));
    }
    {  // a 2 x 2 sample range: fewer than 5 positions, reported, and still filtered
        testing::AssertRecorder rec;
        Buffer four(4, 4, EIGHT);
        std::fill(four.Row(0), four.Row(0) + four.Pitch() * 4, 4);
        swConvAgent agent(&four, &dst, box.get(), 0, 0, 1, 1);
        agent.Go();
        EXPECT_TRUE(rec.Has("conv", 136, "(sy_stop - sy_start) * (sx_stop - sx_start) >= 5"));
        EXPECT_EQ(rec.Count(), 1u);
        EXPECT_EQ(dst.Row(1)[1], 9);  // 36 >> 2
    }
}

TEST(Conv, FactoriesMakeTheSoftwareAgentInEveryForm) {
    auto src = RandomImage(16, 16, 2);
    Buffer dst(16, 16, EIGHT);
    auto box = Kernel(3, 3, std::vector<uint8_t>(9, 1));
    ROI roi;
    roi.SetExtent(8, 8);
    std::unique_ptr<ConvAgent> forms[] = {
        std::unique_ptr<ConvAgent>(ConvFact(src.get(), &dst, box.get(), 0, 0, 1, 1)),
        std::unique_ptr<ConvAgent>(ConvFact(src.get(), &dst, Rect{0, 0, 8, 8}, box.get(), 0, 0, 1, 1)),
        std::unique_ptr<ConvAgent>(ConvFact(src.get(), &dst, Point{0, 0}, &roi, box.get(), 0, 0, 1, 1)),
        std::unique_ptr<ConvAgent>(ConvFact(src.get(), &dst, 0, 0, 8, 8, box.get(), 0, 0, 1, 1))};
    std::vector<uint8_t> first;
    for (auto& agent : forms) {
        ASSERT_NE(dynamic_cast<swConvAgent*>(agent.get()), nullptr);
        agent->Go();
        if (first.empty()) first = Corner(dst, 6, 6);
        EXPECT_EQ(Corner(dst, 6, 6), first);
    }
}

}  // namespace
}  // namespace ombrel
