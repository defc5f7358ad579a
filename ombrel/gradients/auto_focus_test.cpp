// SPDX-License-Identifier: MIT
#include "ombrel/gradients/auto_focus.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "scenes/synthetic_scene.h"
#include "testing/allocation_counter.h"
#include "testing/images.h"
#include "testing/recorders.h"

namespace ombrel {
namespace {

using testing::AssertRecorder;

// An 8-bit image holding `rows`, row after row.
std::unique_ptr<Buffer> ImageOf(int w, int h, const std::vector<int>& pixels) {
    auto img = testing::FilledImage(w, h, 0);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) img->Row(y)[x] = static_cast<uint8_t>(pixels[size_t(y * w + x)]);
    return img;
}

cv::Mat AsMat(const Buffer& b) {
    return cv::Mat(b.Height(), b.Width(), CV_8UC1, b.BaseAddr(), size_t(b.Pitch()));
}

TEST(AutoFocus, WholeImageShrinksByTheDisplacementAndGivesTheHandComputedFigures) {
    auto img = ImageOf(4, 3, {0, 20, 30, 40, 50, 60, 70, 80, 90, 100, 110, 120});
    std::unique_ptr<AutoFocusAgent> a(AutoFocusFact(img.get()));
    ASSERT_NE(a, nullptr);
    ASSERT_EQ(a->Go(), 0);
    // The region gave up one column and one row: 3 x 2 at (0, 0), compared with 3 x 2 at (1, 1).
    EXPECT_EQ(a->SrcROI().Width(), 3);
    EXPECT_EQ(a->SrcROI().Height(), 2);
    EXPECT_EQ(a->DiffSum(), 60 + 5 * 50);
    EXPECT_EQ(a->PixelSum(), 230);
    EXPECT_EQ(a->PixelCount(), 5);  // the zero pixel is binned but not counted
    EXPECT_DOUBLE_EQ(a->Mean(), 46.0);
    const double var = (46.0 * 46 + 26 * 26 + 16 * 16 + 4 * 4 + 14 * 14 + 24 * 24) / 255.0;
    EXPECT_DOUBLE_EQ(a->StdDev(), std::sqrt(var));
    EXPECT_DOUBLE_EQ(a->Focus(), 310.0 / 230.0 * 1000.0);
    // The region stays shrunk: a second run shrinks nothing more and gives the same figures.
    ASSERT_EQ(a->Go(), 0);
    EXPECT_EQ(a->SrcROI().Width(), 3);
    EXPECT_EQ(a->DiffSum(), 310);
}

TEST(AutoFocus, DisplacementAndRectangleRegionsShrinkOnlyAtTheRightAndBottomEdges) {
    auto img = testing::RandomImage(30, 20, 7);
    std::unique_ptr<AutoFocusAgent> inside(AutoFocusFact(img.get(), Rect{2, 3, 12, 9}));
    inside->SetSparseness(3, 2);
    AssertRecorder none;
    ASSERT_EQ(inside->Go(), 0);
    EXPECT_EQ(none.Count(), 0u);
    EXPECT_EQ(inside->SrcROI().Width(), 10);
    long diff = 0;
    for (int y = 3; y < 9; ++y)
        for (int x = 2; x < 12; ++x) diff += std::abs(img->Row(y + 2)[x + 3] - img->Row(y)[x]);
    EXPECT_EQ(inside->DiffSum(), double(diff));

    // Touching the right edge by one pixel still gives up the whole displacement of 3.
    std::unique_ptr<AutoFocusAgent> edge(AutoFocusFact(img.get(), Rect{20, 0, 30, 20}));
    edge->SetSparseness(3, 2);
    ASSERT_EQ(edge->Go(), 0);
    EXPECT_EQ(edge->SrcROI().Width(), 7);
    EXPECT_EQ(edge->SrcROI().Height(), 18);
    EXPECT_EQ(edge->RegionRect().right, 27);
    EXPECT_EQ(edge->RegionRect().bottom, 18);
    EXPECT_EQ(none.Count(), 0u);
}

TEST(AutoFocus, SignedModeReadsSignedBytesAndWrapsBinCentresBy128) {
    auto img = ImageOf(3, 3, {200, 10, 0, 5, 250, 20, 0, 30, 100});
    std::unique_ptr<AutoFocusAgent> a(AutoFocusFact(img.get(), Rect{0, 0, 2, 2}));
    testing::TextRecorder notes;  // the arithmetic agent notes that it turned clipping off
    a->SetSigned(true);
    ASSERT_EQ(a->Go(), 0);
    // Displaced bytes -6 20 30 100 against -56 10 5 -6: differences 50 10 25 106.
    EXPECT_EQ(a->DiffSum(), 191);
    EXPECT_EQ(a->PixelSum(), -47);
    EXPECT_EQ(a->PixelCount(), 4);
    EXPECT_DOUBLE_EQ(a->Mean(), -11.75);
    // Bin 200 sits at centre 72 and bin 250 at 122.
    const double m = -11.75;
    const double var =
        ((72 - m) * (72 - m) + (10 - m) * (10 - m) + (5 - m) * (5 - m) + (122 - m) * (122 - m));
    EXPECT_DOUBLE_EQ(a->StdDev(), std::sqrt(var / 255));
    EXPECT_DOUBLE_EQ(a->Focus(), 191.0 / -47.0 * 1000.0);

    std::unique_ptr<AutoFocusAgent> u(AutoFocusFact(img.get(), Rect{0, 0, 2, 2}));
    ASSERT_EQ(u->Go(), 0);
    EXPECT_EQ(u->DiffSum(), 50 + 10 + 25 + 150);
    EXPECT_EQ(u->PixelSum(), 465);
}

TEST(AutoFocus, UniformAndBlackRegionsGiveZerosWithoutDividing) {
    auto grey = testing::FilledImage(40, 30, 90);
    std::unique_ptr<AutoFocusAgent> a(AutoFocusFact(grey.get(), Rect{5, 5, 25, 20}));
    ASSERT_EQ(a->Go(), 0);
    EXPECT_EQ(a->DiffSum(), 0);
    EXPECT_EQ(a->Focus(), 0);
    EXPECT_EQ(a->StdDev(), 0);
    EXPECT_EQ(a->Mean(), 90);

    auto black = testing::FilledImage(40, 30, 0);
    std::unique_ptr<AutoFocusAgent> b(AutoFocusFact(black.get()));
    ASSERT_EQ(b->Go(), 0);
    EXPECT_EQ(b->PixelSum(), 0);
    EXPECT_EQ(b->PixelCount(), 0);
    EXPECT_EQ(b->Focus(), 0);
    EXPECT_EQ(b->Mean(), 0);
    EXPECT_EQ(b->StdDev(), 0);
}

// The texts this agent reported, in order (its sub-agents report their own checks under their modules).
std::vector<std::string> Texts(const AssertRecorder& rec) {
    std::vector<std::string> texts;
    for (const auto& r : rec.Reports())
        if (r.module == "autofocusagent") texts.push_back(r.expression);
    return texts;
}

TEST(AutoFocus, BadRegionsReportInOrderAndStayInsideTheImage) {
    auto img = testing::RandomImage(20, 20, 3);
    {
        AssertRecorder rec;
        std::unique_ptr<AutoFocusAgent> a(AutoFocusFact(img.get(), Rect{-2, 5, 30, 8}));
        EXPECT_EQ(a->Go(), 0);
        EXPECT_EQ(Texts(rec), (std::vector<std::string>{"_sPt.x >= 0 && _sPt.x < _srcBuf->Width()",
                                                        "_sPt.x + _sRoi.Width() <= _srcBuf->Width()"}));
        // Displaced pixels inside the image take part; the copy of the region holds 0 where the region
        // hangs over the left edge, so column -1 meets 0.
        long diff = 0;
        for (int y = 5; y < 8; ++y) {
            diff += img->Row(y + 1)[0];
            for (int x = 0; x + 1 < 20; ++x) diff += std::abs(img->Row(y + 1)[x + 1] - img->Row(y)[x]);
        }
        EXPECT_EQ(a->DiffSum(), double(diff));
    }
    {  // a single pixel: smaller than the displacement in both directions
        AssertRecorder rec;
        std::unique_ptr<AutoFocusAgent> a(AutoFocusFact(img.get(), Rect{4, 4, 5, 5}));
        EXPECT_EQ(a->Go(), 0);
        EXPECT_EQ(Texts(rec), (std::vector<std::string>{"_horizontalSparseness < _sRoi.Width()",
                                                        "_verticalSparseness < _sRoi.Height()"}));
        EXPECT_EQ(a->DiffSum(), std::abs(img->Row(5)[5] - img->Row(4)[4]));
    }
    {  // above and left of the image, one pixel: four reports in their order; the pixel meets 0
        AssertRecorder rec;
        std::unique_ptr<AutoFocusAgent> a(AutoFocusFact(img.get(), Rect{-1, -1, 0, 0}));
        EXPECT_EQ(a->Go(), 0);
        EXPECT_EQ(Texts(rec),
                  (std::vector<std::string>{
                      "_sPt.x >= 0 && _sPt.x < _srcBuf->Width()", "_sPt.y >= 0 && _sPt.y < _srcBuf->Height()",
                      "_horizontalSparseness < _sRoi.Width()", "_verticalSparseness < _sRoi.Height()"}));
        EXPECT_EQ(a->DiffSum(), img->Row(0)[0]);
        EXPECT_EQ(a->PixelCount(), 0);
    }
    {  // one column at the right edge shrinks to nothing: no image can be made
        std::unique_ptr<AutoFocusAgent> a(AutoFocusFact(img.get(), Rect{19, 0, 20, 10}));
        EXPECT_EQ(a->Go(), kAutoFocusNoMemoryBase - std::abs(int(BUFFER_BAD_SIZE)));
        EXPECT_EQ(a->Focus(), 0);
    }
    {  // entirely outside, reversed, huge
        AssertRecorder quiet;
        for (Rect r :
             {Rect{50, 50, 60, 60}, Rect{10, 10, 2, 2}, Rect{-1000000, -1000000, 1000000, 1000000}}) {
            std::unique_ptr<AutoFocusAgent> a(AutoFocusFact(img.get(), r));
            const int status = a->Go();
            EXPECT_TRUE(status == 0 || status < kAutoFocusNoMemoryBase) << status;
        }
    }
    {  // the factory: null source reported, wrapped and board sources refused
        AssertRecorder rec;
        EXPECT_EQ(AutoFocusFact(nullptr), nullptr);
        EXPECT_EQ(rec.Reports().at(0).module, "lfautofocusagent");
        EXPECT_EQ(rec.Reports().at(0).expression, "src");
        Buffer wrapped(img->BaseAddr(), 20, 20, img->Pitch(), EIGHT);
        EXPECT_EQ(AutoFocusFact(&wrapped, Rect{0, 0, 5, 5}), nullptr);
        testing::TextRecorder text;
        Buffer board(nullptr, MONSTER_ALLOC_DEFAULT, BANK_0, 8, 8, EIGHT);
        EXPECT_EQ(AutoFocusFact(&board, Point{0, 0}, ROI(4, 4)), nullptr);
        // Built directly on a wrapped source, the histogram cannot be made: reported, and Go says so.
        rec.Clear();
        AutoFocusAgent direct(&wrapped);
        EXPECT_EQ(direct.Go(), kAutoFocusNoSubAgent);
        EXPECT_EQ(Texts(rec), std::vector<std::string>{"_histogram"});
    }
}

TEST(AutoFocus, BlurredCopiesAlwaysFocusLowerThanSharperOnes) {
    auto scene = scenes::MakeTexturedScene(320, 240, 5);
    std::unique_ptr<AutoFocusAgent> sharp(AutoFocusFact(scene.get(), Rect{16, 16, 300, 220}));
    ASSERT_EQ(sharp->Go(), 0);
    double previous = sharp->Focus();
    EXPECT_GT(previous, 0);
    for (double sigma : {0.6, 1.0, 1.5, 2.2, 3.0, 4.5, 6.0}) {
        Buffer blurred(320, 240, EIGHT);
        cv::Mat out = AsMat(blurred);
        cv::GaussianBlur(AsMat(*scene), out, cv::Size(0, 0), sigma, sigma, cv::BORDER_REFLECT);
        std::unique_ptr<AutoFocusAgent> a(AutoFocusFact(&blurred, Rect{16, 16, 300, 220}));
        ASSERT_EQ(a->Go(), 0);
        EXPECT_LT(a->Focus(), previous) << "sigma " << sigma;
        previous = a->Focus();
    }
}

TEST(AutoFocus, FiguresMatchOpenCvAbsdiffSumAndMean) {
    auto scene = scenes::MakePartsScene(257, 131, 5, 9);
    const cv::Rect roi(11, 7, 200, 100);
    std::unique_ptr<AutoFocusAgent> a(AutoFocusFact(scene.get(), Rect{11, 7, 211, 107}));
    a->SetSparseness(2, 1);
    ASSERT_EQ(a->Go(), 0);
    const cv::Mat m = AsMat(*scene);
    cv::Mat diff;
    cv::absdiff(m(roi), m(roi + cv::Point(2, 1)), diff);
    EXPECT_EQ(a->DiffSum(), cv::sum(diff)[0]);
    EXPECT_EQ(a->PixelSum(), cv::sum(m(roi))[0]);
    EXPECT_EQ(a->PixelCount(), cv::countNonZero(m(roi)));
}

TEST(AutoFocus, PreparedAgentAllocatesNothingPerGoAndKeepsItsParts) {
    auto scene = scenes::MakeTexturedScene(200, 150, 2);
    std::unique_ptr<AutoFocusAgent> prepared(AutoFocusFact(scene.get(), Rect{10, 10, 190, 140}));
    ASSERT_EQ(prepared->PreGo(true), 0);
    EXPECT_TRUE(prepared->Prepared());
    const long before = ombrel::testing::AllocationCount();
    for (int i = 0; i < 5; ++i) ASSERT_EQ(prepared->Go(), 0);
    EXPECT_EQ(ombrel::testing::AllocationCount() - before, 0);

    // Unprepared, every Go builds its parts (the counter does see them) and gives the same figures.
    std::unique_ptr<AutoFocusAgent> fresh(AutoFocusFact(scene.get(), Rect{10, 10, 190, 140}));
    const long start = ombrel::testing::AllocationCount();
    ASSERT_EQ(fresh->Go(), 0);
    EXPECT_GT(ombrel::testing::AllocationCount() - start, 0);
    EXPECT_FALSE(fresh->Prepared());
    EXPECT_EQ(fresh->Focus(), prepared->Focus());
    EXPECT_EQ(fresh->StdDev(), prepared->StdDev());

    // A prepared agent follows a new image in the same buffer: only the region copy is refreshed.
    cv::Mat m = AsMat(*scene);
    cv::GaussianBlur(m, m, cv::Size(0, 0), 2.0);
    const double sharpFocus = prepared->Focus();
    ASSERT_EQ(prepared->Go(), 0);
    EXPECT_LT(prepared->Focus(), sharpFocus);

    // Handed another image of the same size, it measures that one, as a fresh agent does.
    auto other = scenes::MakeTexturedScene(200, 150, 3);
    prepared->SetSrcBuf(other.get());
    ASSERT_EQ(prepared->Go(), 0);
    std::unique_ptr<AutoFocusAgent> check(AutoFocusFact(other.get(), Rect{10, 10, 190, 140}));
    ASSERT_EQ(check->Go(), 0);
    EXPECT_EQ(prepared->DiffSum(), check->DiffSum());
    EXPECT_EQ(prepared->PixelSum(), check->PixelSum());
}

// The agent has no kernels of its own; its sub-agents do, and every level must give the same figures.
class AutoFocusIsa : public testing::IsaLevelTest {};

TEST_P(AutoFocusIsa, EveryLevelGivesTheScalarFigures) {
    for (int w : testing::AwkwardWidths()) {
        auto img = testing::RandomImage(w + 3, 9, uint32_t(w));
        for (bool isSigned : {false, true}) {
            auto run = [&](Isa level) {
                testing::ScopedIsaCap cap(level);
                testing::TextRecorder quiet;
                AssertRecorder alsoQuiet;
                AutoFocusAgent a(img.get(), Rect{1, 1, w + 2, 8});
                a.SetSigned(isSigned);
                EXPECT_EQ(a.Go(), 0);
                return std::vector<double>{a.DiffSum(), a.PixelSum(), a.PixelCount(), a.StdDev(), a.Focus()};
            };
            const auto reference = run(Isa::Scalar);
            EXPECT_EQ(run(Level()), reference) << "width " << w << (isSigned ? " signed" : "");
        }
    }
}

OMBREL_INSTANTIATE_ISA_LEVELS(AutoFocusIsa);

}  // namespace
}  // namespace ombrel
