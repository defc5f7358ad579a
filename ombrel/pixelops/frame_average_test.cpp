// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <memory>
#include <random>
#include <vector>

#include "ombrel/framework/kernel_family.h"
#include "ombrel/pixelops/frame_average.h"
#include "ombrel/pixelops/frame_average_kernels.h"
#include "testing/images.h"
#include "testing/recorders.h"

namespace ombrel {
namespace {

using testing::AssertRecorder;
using testing::FilledImage;
using testing::RandomImage;

// The window written out from the rule: the frames it holds and the destination each new frame gives.
class Model {
  public:
    explicit Model(int n) : _n(n) {}
    std::vector<uint8_t> Push(const std::vector<uint8_t>& frame) {
        std::vector<uint8_t> out(frame.size());
        const bool steady = static_cast<int>(_frames.size()) == _n;
        _frames.push_back(frame);
        if (steady) _frames.pop_front();
        const int shift = _n == 2 ? 1 : _n == 4 ? 2 : _n == 8 ? 3 : _n == 16 ? 4 : _n == 32 ? 5 : 0;
        for (size_t i = 0; i < frame.size(); ++i) {
            uint32_t sum = 0;
            for (const auto& f : _frames) sum += f[i];
            out[i] = static_cast<uint8_t>(steady ? sum >> shift : sum / _frames.size());
        }
        return out;
    }

  private:
    int _n;
    std::deque<std::vector<uint8_t>> _frames;
};

// The w x h region of `b` at p, row after row.
std::vector<uint8_t> RegionPixels(const Buffer& b, Point p, int w, int h) {
    std::vector<uint8_t> out;
    for (int y = 0; y < h; ++y) out.insert(out.end(), b.Row(p.y + y) + p.x, b.Row(p.y + y) + p.x + w);
    return out;
}

class FrameAverageAtLevel : public testing::IsaLevelTest {};

// Kernels see what the agent gives them: an accumulator that is the sum of the window's frames.
TEST_P(FrameAverageAtLevel, FillAndSteadyKernelsMatchTheReference) {
    std::mt19937 rng(5);
    for (int w : testing::AwkwardWidths()) {
        for (uint32_t count : {1u, 2u, 3u, 7u, 8u, 255u, 65535u, 65536u}) {
            std::vector<uint8_t> frame(w + 1), oldest(w + 1);
            for (auto& v : frame) v = static_cast<uint8_t>(rng());
            // Filling: the sum of count - 1 frames; steady: of count frames, the oldest among them.
            std::vector<uint32_t> filling(w + 1), acc(w + 1);
            for (size_t i = 0; i < acc.size(); ++i) {
                oldest[i] = static_cast<uint8_t>(rng());
                filling[i] = static_cast<uint32_t>(rng() % (255 * (count - 1) + 1));
                acc[i] = oldest[i] + filling[i];
            }
            std::vector<uint32_t> accOurs = filling, accReference = filling;
            std::vector<uint8_t> ours(w + 1, 0xA5), reference(w + 1, 0xA5);
            frame_average::FillJob fill{frame.data() + 1, accOurs.data() + 1, ours.data() + 1, count};
            frame_average::kFillKernels.Run(Level(), 0, w, fill);
            fill.acc = accReference.data() + 1, fill.dst = reference.data() + 1;
            frame_average::kFillKernels.Scalar()(0, w, fill);
            ASSERT_EQ(ours, reference) << "fill width " << w << " count " << count;
            ASSERT_EQ(accOurs, accReference);
            for (int shift = 0; shift <= 5; ++shift) {
                accOurs = acc, accReference = acc;
                frame_average::SteadyJob steady{frame.data() + 1, oldest.data() + 1, accOurs.data() + 1,
                                                ours.data() + 1, shift};
                frame_average::kSteadyKernels.Run(Level(), 0, w, steady);
                steady.acc = accReference.data() + 1, steady.dst = reference.data() + 1;
                frame_average::kSteadyKernels.Scalar()(0, w, steady);
                ASSERT_EQ(ours, reference)
                    << "steady width " << w << " count " << count << " shift " << shift;
                ASSERT_EQ(accOurs, accReference);
            }
        }
    }
}

TEST_P(FrameAverageAtLevel, EachVectorLevelHandlesTheWholeVectorsOfASpan) {
    if (!frame_average::kSteadyKernels.HasOwnKernel(Level()))
        GTEST_SKIP() << "no kernel of its own at this level";
    std::vector<uint8_t> frame(200, 9), oldest(200, 4), dst(200, 0);
    std::vector<uint32_t> acc(200, 12);
    const int steady = frame_average::kSteadyKernels.At(Level())(
        0, 200, {frame.data(), oldest.data(), acc.data(), dst.data(), 1});
    EXPECT_GT(steady, 200 - 64);
    for (int i = 0; i < steady; ++i) ASSERT_EQ(dst[i], 8) << i;  // (12 + 9 - 4) >> 1
    const int fill =
        frame_average::kFillKernels.At(Level())(0, 200, {frame.data(), acc.data(), dst.data(), 3});
    EXPECT_GT(fill, 200 - 64);
    for (int i = 0; i < fill; ++i) ASSERT_EQ(dst[i], 8) << i;  // (17 + 9) / 3
}

TEST_P(FrameAverageAtLevel, AgentFollowsTheWindowOverAwkwardRegionsAndPaddedDestinations) {
    for (int w : testing::AwkwardWidths()) {
        const int h = 1 + w % 4;
        const Point origin{w % 5, w % 3};
        for (int n : {1, 3, 4, 8}) {
            auto dst = FilledImage(w, h, testing::kPadByte);
            swFrameAverageAgent agent(nullptr, dst.get(), n, origin, ROI(w, h));
            Model model(n);
            for (int step = 0; step < n + 4; ++step) {
                auto src = RandomImage(w + 5, h + 3, w * 100 + n * 10 + step);
                agent.SetSrcBuf(src.get());
                ASSERT_EQ(agent.Go(), 0);
                EXPECT_EQ(testing::Pixels(*dst), model.Push(RegionPixels(*src, origin, w, h)))
                    << "width " << w << " N " << n << " frame " << step;
                testing::ExpectPaddingIs(*dst);
                EXPECT_EQ(agent.GetQLength(), std::min(step + 1, n));
            }
        }
    }
}

OMBREL_INSTANTIATE_ISA_LEVELS(FrameAverageAtLevel);

TEST(FrameAverageRules, StreamsOfConstantImages) {
    Buffer dst(6, 2, EIGHT);
    const uint8_t values[] = {100, 120, 140, 160, 180};
    // Filling: the mean of what came so far; N = 3 steady: the low byte of the three-frame sum.
    const uint8_t three[] = {100, 110, 120, (120 + 140 + 160) & 255, (140 + 160 + 180) & 255};
    // N = 4 steady divides by 4 through the shift.
    const uint8_t four[] = {100, 110, 120, 130, (120 + 140 + 160 + 180) >> 2};
    for (auto [n, expected] : {std::pair{3, three}, {4, four}}) {
        swFrameAverageAgent agent(nullptr, &dst, n, Rect{0, 0, 6, 2});
        EXPECT_EQ(agent.GetMaxQLength(), n);
        for (int k = 0; k < 5; ++k) {
            auto src = FilledImage(6, 2, values[k]);
            agent.SetSrcBuf(src.get());
            agent.Go();
            EXPECT_EQ(dst.Row(1)[5], expected[k]) << "N " << n << " frame " << k;
        }
    }
    auto same = FilledImage(6, 2, 77);
    swFrameAverageAgent filling(same.get(), &dst, 5);
    for (int k = 0; k < 5; ++k) {
        filling.Go();
        EXPECT_EQ(testing::Pixels(dst), std::vector<uint8_t>(12, 77));
    }
}

TEST(FrameAverageRules, CleanupAndSetupStartANewWindow) {
    auto a = FilledImage(8, 8, 10), b = FilledImage(8, 8, 30);
    Buffer dst(8, 8, EIGHT);
    swFrameAverageAgent agent(a.get(), &dst, 4);
    agent.Go();
    agent.Go();
    EXPECT_EQ(agent.GetQLength(), 2);
    agent.Cleanup();
    EXPECT_EQ(agent.GetQLength(), 0);
    agent.SetSrcBuf(b.get());
    agent.Go();
    EXPECT_EQ(dst.Row(3)[3], 30);  // nothing of the old window is left
    Buffer other(8, 8, EIGHT);
    agent.Setup(&other, 2);
    EXPECT_EQ(agent.GetQLength(), 0);
    EXPECT_EQ(agent.GetMaxQLength(), 2);
    agent.SetSrcBuf(a.get());
    agent.Go();
    EXPECT_EQ(other.Row(0)[0], 10);
    agent.SetDestinationBuffer(&dst);
    agent.SetSrcBuf(b.get());
    agent.Go();
    EXPECT_EQ(dst.Row(0)[0], 20);
    EXPECT_EQ(agent.DstBuf(), &dst);
    // A region of another size cannot share the accumulator: a new window starts.
    agent.SetExtent(4, 4);
    agent.Go();
    EXPECT_EQ(agent.GetQLength(), 1);
    EXPECT_EQ(dst.Row(0)[0], 30);
}

TEST(FrameAverageRules, PerformanceIsTheDurationOfTheLastGo) {
    auto src = RandomImage(512, 512, 3);
    Buffer dst(512, 512, EIGHT);
    swFrameAverageAgent agent(src.get(), &dst, 8);
    EXPECT_EQ(agent.GetPerformance(), 0.0);
    agent.Go();
    EXPECT_GT(agent.GetPerformance(), 0.0);
    EXPECT_LT(agent.GetPerformance(), 60000.0);
}

TEST(FrameAverageBadInput, NothingHappensWithoutASourceOrAWindow) {
    auto src = FilledImage(4, 4, 50);
    auto dst = FilledImage(4, 4, 1);
    for (int n : {0, -3}) {
        swFrameAverageAgent agent(src.get(), dst.get(), n);
        EXPECT_EQ(agent.Go(), 0);
        EXPECT_EQ(agent.GetQLength(), 0);
    }
    swFrameAverageAgent noSource(nullptr, dst.get(), 2, Rect{0, 0, 4, 4});
    EXPECT_EQ(noSource.Go(), 0);
    EXPECT_EQ(noSource.GetQLength(), 0);
    EXPECT_EQ(testing::Pixels(*dst), std::vector<uint8_t>(16, 1));
}

TEST(FrameAverageBadInput, RegionsOutsideTheImagesStayInsideTheBuffers) {
    auto src = FilledImage(10, 6, 200);
    auto dst = FilledImage(5, 3, 1);  // smaller than the region
    swFrameAverageAgent agent(src.get(), dst.get(), 2, Point{-3, 4}, ROI(8, 5));
    for (int k = 0; k < 4; ++k) EXPECT_EQ(agent.Go(), 0);
    // Region rows 0-1 lie on image rows 4-5; columns 0-2 lie left of the image and count as 0.
    EXPECT_EQ(dst->Row(0)[2], 0);
    EXPECT_EQ(dst->Row(0)[3], 200);
    EXPECT_EQ(dst->Row(2)[4], 0);
    testing::ExpectPaddingIs(*dst);

    Buffer sixteen(8, 5, SIXTEEN);
    swFrameAverageAgent wrongDepth(src.get(), &sixteen, 2, Rect{0, 0, 8, 5});
    EXPECT_EQ(wrongDepth.Go(), 0);
    EXPECT_EQ(sixteen.Row(0)[0], 0);

    Buffer huge(1, 1, EIGHT);
    swFrameAverageAgent tooBig(&huge, dst.get(), 2, Rect{0, 0, 1 << 30, 1 << 30});
    EXPECT_EQ(tooBig.Go(), kFrameAverageNoMemory);
    EXPECT_EQ(tooBig.GetQLength(), 0);
}

TEST(FrameAverageFact, ChecksTheRegionAndChoosesSoftwareForAnOwnedDestination) {
    AssertRecorder asserts;
    Buffer src(16, 8, EIGHT), dst(16, 8, EIGHT), small(4, 4, EIGHT);
    std::vector<uint8_t> pixels(16 * 8);
    Buffer wrapped(pixels.data(), 16, 8, 16, EIGHT);
    std::unique_ptr<FrameAverageAgent> whole(FrameAverageFact(&src, &dst, 4));
    ASSERT_NE(whole, nullptr);
    EXPECT_EQ(whole->SrcROI().Width(), 16);
    std::unique_ptr<FrameAverageAgent> ints(FrameAverageFact(&src, &dst, 4, 2, 1, 10, 5));
    ASSERT_NE(ints, nullptr);
    EXPECT_EQ(ints->SrcROI().Width(), 8);
    EXPECT_EQ(ints->SrcROI().Height(), 4);
    EXPECT_EQ(std::unique_ptr<FrameAverageAgent>(FrameAverageFact(&wrapped, &dst, 4)) != nullptr, true);
    EXPECT_EQ(std::unique_ptr<FrameAverageAgent>(FrameAverageFact(&src, &wrapped, 4)), nullptr);
    EXPECT_EQ(asserts.Count(), 0u);

    std::unique_ptr<FrameAverageAgent>(FrameAverageFact(&src, &small, 4, Rect{0, 0, 8, 8}));
    ASSERT_EQ(asserts.Count(), 1u);
    EXPECT_EQ(asserts.Reports()[0].module, "lfframeaverage");
    EXPECT_EQ(
        asserts.Reports()[0].expression,
        "!((sPt.x<0) || (sPt.y<0) || (sPt.x+sRoi->Width() > srcBuf->Width()) || (sPt.y+sRoi->Height() > "
        "srcBuf->Height()) || (sRoi->Width() > dstBuf->Width()) || (sRoi->Height() > dstBuf->Height()))");
    asserts.Clear();
    std::unique_ptr<FrameAverageAgent> noSource(FrameAverageFact(nullptr, &dst, 4));
    ASSERT_EQ(asserts.Count(), 1u);
    EXPECT_EQ(asserts.Reports()[0].expression, "src && dst");
}

}  // namespace
}  // namespace ombrel
