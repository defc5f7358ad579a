// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "ombrel/framework/kernel_family.h"
#include "ombrel/pixelops/decimate.h"
#include "ombrel/pixelops/decimate_kernels.h"
#include "testing/images.h"
#include "testing/recorders.h"

namespace ombrel {
namespace {

using testing::kPadByte;
using testing::Pixels;
using testing::RandomImage;

// The output read straight from the rules, sample by sample, for a region inside the source: an oracle
// that shares no code with the kernels.
std::vector<uint8_t> Oracle(const Buffer& src, Point p, int w, int h, int s) {
    const int xl = p.x + w - 1, yl = p.y + h - 1;
    auto at = [&](int x, int y) { return int{src.Row(y)[x]}; };
    std::vector<uint8_t> out;
    for (int y = p.y + s - 1; y <= yl; y += s)
        for (int x = p.x + s - 1; x <= xl; x += s) {
            const int l = x < 1 ? 0 : x - 1, r = std::min(x + 1, xl);
            const int u = y < 1 ? 0 : y - 1, d = std::min(y + 1, yl);
            const int sum = 4 * at(x, y) + 2 * (at(l, y) + at(r, y) + at(x, u) + at(x, d)) + at(l, u) +
                            at(r, u) + at(l, d) + at(r, d);
            out.push_back(static_cast<uint8_t>(sum >> 4));
        }
    return out;
}

// The top-left ow x oh pixels of an image.
std::vector<uint8_t> Corner(const Buffer& b, int ow, int oh) {
    std::vector<uint8_t> out;
    for (int y = 0; y < oh; ++y) out.insert(out.end(), b.Row(y), b.Row(y) + ow);
    return out;
}

std::unique_ptr<Buffer> Image(int w, int h, std::vector<uint8_t> pixels) {
    auto b = std::make_unique<Buffer>(w, h, EIGHT);
    for (int y = 0; y < h; ++y) std::copy_n(pixels.begin() + y * w, w, b->Row(y));
    return b;
}

class DecimateIsa : public testing::IsaLevelTest {};

TEST_P(DecimateIsa, EveryLevelGivesTheOracleBytesAtAwkwardWidthsOriginsAndPaddedDestinations) {
    uint32_t seed = 1;
    for (int step : {1, 2})
        for (int w : testing::AwkwardWidths())
            for (Point p : {Point{0, 0}, Point{1, 1}, Point{3, 2}, Point{0, 5}, Point{7, 0}}) {
                const int h = 3 + w % 7;
                auto src = RandomImage(w + p.x + 5, h + p.y + 4, seed++);
                const int ow = w / step, oh = h / step;
                if (ow == 0 || oh == 0) continue;
                auto dst = testing::FilledImage(ow, oh, 0x3C);
                swDecimateAgent agent(src.get(), dst.get(), Rect{p.x, p.y, p.x + w, p.y + h},
                                      static_cast<PixelStep>(step));
                ASSERT_EQ(agent.Go(), 0);
                EXPECT_EQ(Pixels(*dst), Oracle(*src, p, w, h, step))
                    << "step " << step << " width " << w << " origin " << p.x << "," << p.y;
                testing::ExpectPaddingIs(*dst, kPadByte);
            }
}

// The whole image with both edges clamped is OpenCV's 1-2-1 filter with replicated borders.
TEST_P(DecimateIsa, WholeImageEqualsOpenCvBinomialFilterTruncatedAndSampled) {
    for (int step : {1, 2})
        for (auto [w, h] : {std::pair{97, 61}, std::pair{256, 33}, std::pair{1, 1}, std::pair{2, 5}}) {
            auto src = RandomImage(w, h, 40 + w);
            Buffer dst(w, h, EIGHT);
            swDecimateAgent agent(src.get(), &dst, static_cast<PixelStep>(step));
            agent.Go();
            const cv::Mat image(h, w, CV_8UC1, src->BaseAddr(), static_cast<size_t>(src->Pitch()));
            cv::Mat sums;
            const cv::Mat k = (cv::Mat_<float>(1, 3) << 1, 2, 1);
            cv::sepFilter2D(image, sums, CV_32F, k, k, cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
            std::vector<uint8_t> expected;
            for (int y = step - 1; y < h; y += step)
                for (int x = step - 1; x < w; x += step)
                    expected.push_back(static_cast<uint8_t>(static_cast<int>(sums.at<float>(y, x)) >> 4));
            EXPECT_EQ(Corner(dst, w / step, h / step), expected) << w << "x" << h << " step " << step;
        }
}

TEST_P(DecimateIsa, EachVectorLevelHandlesTheWholeVectorsOfARow) {
    if (Level() == Isa::Scalar || !decimate::kRowKernels.HasOwnKernel(Level()))
        GTEST_SKIP() << "no kernel of its own at this level";
    auto src = RandomImage(600, 3, 5);
    for (int step : {1, 2}) {
        std::vector<uint8_t> ours(200, 0), reference(200, 0);
        decimate::RowJob job{src->Row(0), src->Row(1), src->Row(2), 1, 599, step, ours.data()};
        const int handled = decimate::kRowKernels.At(Level())(0, 200, job);
        EXPECT_GT(handled, 200 - 64) << "step " << step;
        EXPECT_LE(handled, 200);
        job.d = reference.data();
        decimate::kRowKernels.Scalar()(0, handled, job);
        EXPECT_EQ(ours, reference) << "step " << step;
        // A row whose first sample sits on column 0 needs the clamp: no vector takes it.
        job.first = 0;
        EXPECT_EQ(decimate::kRowKernels.At(Level())(0, 200, job), 0);
    }
    // The two passes of step 1: column sums, then outputs from them.
    std::vector<uint16_t> sums(600, 0), sumsReference(600, 0);
    decimate::ColumnJob columns{src->Row(0), src->Row(1), src->Row(2), sums.data()};
    const int summed = decimate::kColumnSumKernels.At(Level())(0, 600, columns);
    EXPECT_GT(summed, 600 - 32);
    columns.v = sumsReference.data();
    decimate::kColumnSumKernels.Scalar()(0, 600, columns);
    EXPECT_TRUE(std::equal(sums.begin(), sums.begin() + summed, sumsReference.begin()));
    std::vector<uint8_t> ours(200, 0), reference(200, 0);
    decimate::SumRowJob fromSums{sumsReference.data(), 0, 1, 599, ours.data()};
    const int handled = decimate::kStepOneKernels.At(Level())(0, 200, fromSums);
    EXPECT_GT(handled, 200 - 64);
    fromSums.d = reference.data();
    decimate::kStepOneKernels.Scalar()(0, handled, fromSums);
    EXPECT_EQ(ours, reference);
}

OMBREL_INSTANTIATE_ISA_LEVELS(DecimateIsa);

TEST(Decimate, StepTwoOverFiveByFiveSamplesColumnsAndRowsOneAndThree) {
    std::vector<uint8_t> pixels(25);
    for (int i = 0; i < 25; ++i) pixels[i] = static_cast<uint8_t>(8 * i);  // 8 * (5 y + x)
    auto src = Image(5, 5, pixels);
    Buffer dst(4, 4, EIGHT);
    std::fill(dst.Row(0), dst.Row(0) + dst.Pitch() * 4, 0xEE);
    swDecimateAgent agent(src.get(), &dst, PIXEL_STEP_2);
    agent.Go();
    // Every neighbourhood is inside: a linear ramp keeps its centre value 8 * (5 y + x).
    EXPECT_EQ(Corner(dst, 2, 2), (std::vector<uint8_t>{48, 64, 128, 144}));
    EXPECT_EQ(dst.Row(0)[2], 0xEE) << "a 2 x 2 output writes nothing beyond it";
    EXPECT_EQ(dst.Row(2)[0], 0xEE);
}

TEST(Decimate, NeighboursBeforeClampAtTheImageEdgeAndAfterAtTheRegionEdge) {
    // A 4 x 4 image, 0 everywhere but a bright frame row and column outside a 2 x 2 region at (1, 1).
    std::vector<uint8_t> pixels(16, 0);
    for (int i = 0; i < 4; ++i) pixels[i] = pixels[4 * i] = 160;  // row 0 and column 0
    pixels[15] = 255;                                             // (3, 3): beyond the region's corner
    auto src = Image(4, 4, pixels);
    Buffer dst(2, 2, EIGHT);
    swDecimateAgent moved(src.get(), &dst, Rect{1, 1, 3, 3}, PIXEL_STEP_1);
    moved.Go();
    // (1, 1): left column and upper row are the frame (160): 2*(160+160) + 160 + 160 + 160 = 1120 -> 70.
    // (2, 1): upper row 160 over three columns: 2*160 + 160 + 160 = 640 -> 40; its right neighbour is
    //         clamped to column 2, so (3, 3) is never read.
    // (1, 2): left column 160 over three rows (lower clamped to row 2): 640 -> 40. (2, 2): 0.
    EXPECT_EQ(Corner(dst, 2, 2), (std::vector<uint8_t>{70, 40, 40, 0}));

    // At the image's corner the upper and left neighbours clamp to row and column 0.
    std::vector<uint8_t> flat(16, 0);
    flat[0] = 16;
    auto corner = Image(4, 4, flat);
    swDecimateAgent atCorner(corner.get(), &dst, Rect{0, 0, 2, 2}, PIXEL_STEP_1);
    atCorner.Go();
    // (0, 0) is its own centre, left, up and upper-left: 4 + 2 * 2 + 1 = 9 times 16 -> 9.
    EXPECT_EQ(dst.Row(0)[0], 9);
    EXPECT_EQ(dst.Row(0)[1], 3);  // (1, 0): left 2x and upper-left 1x -> 48 >> 4
}

TEST(Decimate, AssertionsReportByModuleLineAndText) {
    Buffer src(20, 10, EIGHT), small(3, 3, EIGHT);
    {
        testing::AssertRecorder rec;
        swDecimateAgent agent(&src, &small, Rect{0, 0, 20, 10}, PIXEL_STEP_2);
        agent.Go();
        EXPECT_TRUE(rec.Has("decimate", 60, "_dstBuf->Width() >= _sRoi.Width()/2"));
        EXPECT_TRUE(rec.Has("decimate", 61, "_dstBuf->Height() >= _sRoi.Height()/2"));
        EXPECT_EQ(rec.Count(), 2u);
    }
    {
        testing::AssertRecorder rec;
        swDecimateAgent agent(&src, &small, Rect{0, 0, 4, 3}, PIXEL_STEP_1);
        agent.Go();
        EXPECT_TRUE(rec.Has("decimate", 64, "_dstBuf->Width() >= _sRoi.Width()"));
        EXPECT_FALSE(rec.Has("decimate", 65));
        EXPECT_EQ(rec.Count(), 1u);
    }
    {
        testing::AssertRecorder rec;
        swDecimateAgent agent(nullptr, nullptr, Rect{-1, 12, -1, 12}, PIXEL_STEP_2);
        EXPECT_EQ(agent.Go(), 0);
        for (int line : {57, 58, 67, 68, 69, 73}) EXPECT_TRUE(rec.Has("decimate", line)) << line;
        EXPECT_TRUE(rec.Has("decimate", 57, "_srcBuf"));
        EXPECT_TRUE(rec.Has("decimate", 67, "_sPt.x >= 0 && _sPt.x < _srcBuf->Width()"));
        EXPECT_TRUE(rec.Has("decimate", 69, "_sRoi.Width()"));
        EXPECT_TRUE(rec.Has("decimate", 73, "_sRoi.Height()"));
    }
    {
        testing::AssertRecorder rec;
        Buffer big(40, 40, EIGHT);
        swDecimateAgent agent(&src, &big, Rect{15, 5, 25, 12}, PIXEL_STEP_1);
        agent.Go();
        EXPECT_TRUE(rec.Has("decimate", 74, "_sPt.x + _sRoi.Width() <= _srcBuf->Width()"));
        EXPECT_TRUE(rec.Has("decimate", 75, "_sPt.y + _sRoi.Height() <= _srcBuf->Height()"));
        EXPECT_EQ(rec.Count(), 2u);
    }
}

TEST(Decimate, RegionsOutsideBuffersAndOtherStepsStayInsideTheMemoryGiven) {
    testing::AssertRecorder quiet;
    auto src = RandomImage(30, 20, 9);
    for (Rect r : {Rect{-7, -5, 12, 9}, Rect{20, 14, 50, 40}, Rect{-100, -100, 200, 200}, Rect{0, 0, 0, 20},
                   Rect{5, 5, 3, 9}, Rect{31, 0, 40, 5}})
        for (int step : {0, 1, 2, 3, -2}) {
            auto dst = testing::FilledImage(9, 7, 0x11);
            swDecimateAgent agent(src.get(), dst.get(), r, static_cast<PixelStep>(step));
            EXPECT_EQ(agent.Go(), 0);
            testing::ExpectPaddingIs(*dst, kPadByte);
            if ((step != 1 && step != 2) || r.Width() <= 0) {
                EXPECT_EQ(Pixels(*dst), std::vector<uint8_t>(63, 0x11)) << "step " << step;
            }
        }
    // Samples that fall inside the source keep their output positions when the region is cut: the region
    // at (-4, -4) samples columns -3, -1, 1, 3 ... as outputs 0, 1, 2, 3 ...
    auto dst = testing::FilledImage(8, 8, 0x77);
    swDecimateAgent cut(src.get(), dst.get(), Rect{-4, -4, 12, 12}, PIXEL_STEP_2);
    cut.Go();
    auto whole = testing::FilledImage(8, 8, 0);
    swDecimateAgent inside(src.get(), whole.get(), Rect{0, 0, 10, 10}, PIXEL_STEP_2);
    inside.Go();
    EXPECT_EQ(dst->Row(0)[0], 0x77) << "sample (-3, -3) lies outside and is skipped";
    EXPECT_EQ(dst->Row(1)[2], 0x77) << "sample (1, -1) too";
    EXPECT_EQ(dst->Row(2)[2], whole->Row(0)[0]);  // both sample (1, 1) with its full neighbourhood
    // A one-bit destination is not written as bytes.
    Buffer oneBit(16, 16, ONE);
    swDecimateAgent wrongDepth(src.get(), &oneBit, PIXEL_STEP_2);
    wrongDepth.Go();
    EXPECT_EQ(oneBit.Row(0)[0], 0);
}

TEST(DecimateFact, EveryFormChoosesSoftwareForHostBuffersOnly) {
    auto src = RandomImage(20, 12, 4);
    Buffer dst(20, 12, EIGHT);
    std::vector<uint8_t> lent(20 * 12);
    Buffer wrapped(lent.data(), 20, 12, 20, EIGHT);
    Buffer board(nullptr, MONSTER_ALLOC_DEFAULT, BANK_0, 20, 12, EIGHT);
    testing::TextRecorder text;
    std::unique_ptr<DecimateAgent> whole(DecimateFact(src.get(), &wrapped, PIXEL_STEP_2));
    ASSERT_NE(dynamic_cast<swDecimateAgent*>(whole.get()), nullptr);
    whole->Go();
    EXPECT_EQ(lent[0], Oracle(*src, Point{0, 0}, 20, 12, 2)[0]);
    std::unique_ptr<DecimateAgent> ints(DecimateFact(src.get(), &dst, 2, 4, 12, 10, PIXEL_STEP_1));
    ASSERT_NE(ints, nullptr);
    EXPECT_EQ(ints->SrcPt(), (Point{2, 4}));
    EXPECT_EQ(ints->SrcROI().Width(), 10);
    EXPECT_EQ(ints->SrcROI().Height(), 6);
    ints->Go();
    EXPECT_EQ(Corner(dst, 10, 6), Oracle(*src, Point{2, 4}, 10, 6, 1));
    std::unique_ptr<DecimateAgent> roi(DecimateFact(src.get(), &dst, Point{1, 1}, ROI(5, 5), PIXEL_STEP_2));
    EXPECT_NE(roi, nullptr);
    EXPECT_EQ(DecimateFact(src.get(), &board, Rect{0, 0, 4, 4}, PIXEL_STEP_2), nullptr);
    EXPECT_EQ(DecimateFact(&board, &board, PIXEL_STEP_2), nullptr);
}

}  // namespace
}  // namespace ombrel
