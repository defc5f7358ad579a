// SPDX-License-Identifier: MIT
#include "ombrel/morph/graymorph.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <opencv2/imgproc.hpp>
#include <random>
#include <vector>

#include "ombrel/framework/kernel_family.h"
#include "ombrel/morph/graymorph_kernels.h"
#include "testing/images.h"
#include "testing/recorders.h"

namespace ombrel {
namespace {

using testing::kPadByte;
using testing::Pixels;

GrayMorphElem RandomElement(std::mt19937& rng, int maxSide) {
    const int w = 1 + static_cast<int>(rng() % maxSide), h = 1 + static_cast<int>(rng() % maxSide);
    std::vector<unsigned char> weights(static_cast<size_t>(w) * h);
    const bool full = rng() % 3 == 0;
    for (auto& v : weights) v = full || rng() % 3 != 0 ? static_cast<unsigned char>(1 + rng() % 255) : 0;
    weights[rng() % weights.size()] = 255;  // at least one member
    return GrayMorphElem(static_cast<int>(rng() % w), static_cast<int>(rng() % h), w, h, weights.data());
}

// The operation built from the plain pass: the w x h region of `src` at `at`, results from (0, 0).
std::vector<uint8_t> Reference(const Buffer& src, Point at, int w, int h, GRAYMORPHOP op, int polarity,
                               int iterations, const GrayMorphElem& e) {
    std::vector<uint8_t> source(static_cast<size_t>(w) * h);
    for (int y = 0; y < h; ++y)
        std::copy_n(src.Row(at.y + y) + at.x, w, source.data() + static_cast<size_t>(y) * w);
    auto filtered = [&](std::vector<uint8_t> image, std::initializer_list<int> modes) {
        for (int mode : modes)
            graymorph::PlainPass(e.Weights(), e.GetElementWidth(), e.GetElementHeight(), e.GetElementHotX(),
                                 e.GetElementHotY(), image.data(), w, w, h, mode ^ polarity, iterations);
        return image;
    };
    auto absDiff = [](std::vector<uint8_t> a, const std::vector<uint8_t>& b) {
        for (size_t i = 0; i < a.size(); ++i) a[i] = static_cast<uint8_t>(std::abs(a[i] - b[i]));
        return a;
    };
    switch (op) {
        case GRAYMORPH_ERODE:
            return filtered(source, {0});
        case GRAYMORPH_DILATE:
            return filtered(source, {1});
        case GRAYMORPH_OPEN:
            return filtered(source, {0, 1});
        case GRAYMORPH_CLOSE:
            return filtered(source, {1, 0});
        case GRAYMORPH_GRADIENT:
            return absDiff(filtered(source, {1}), filtered(source, {0}));
        case GRAYMORPH_TOPHAT:
            return absDiff(source, filtered(source, {0, 1}));
        default:
            return absDiff(source, filtered(source, {1, 0}));
    }
}

std::vector<uint8_t> Block(const Buffer& b, int w, int h) {
    std::vector<uint8_t> out;
    for (int y = 0; y < h; ++y) out.insert(out.end(), b.Row(y), b.Row(y) + w);
    return out;
}

TEST(GrayMorphElem, BuildsResizesAndTilesItsWeights) {
    const GrayMorphElem standard;
    EXPECT_EQ(standard.GetElementWidth(), 3);
    EXPECT_EQ(standard.GetElementHotX(), 1);
    EXPECT_EQ(standard.Members(), 9);
    ASSERT_EQ(standard.GetMaskSize(), 1);
    EXPECT_EQ(standard.GetMaskByIndex(0), 511u);

    GrayMorphElem ring(1, 1, 3, 3, "1, 1, 1, 0, 1, 0, 1, 1, 1");
    EXPECT_EQ(ring.GetElementWeight(0, 1), 0);
    EXPECT_EQ(ring.GetElementWeight(2, 1), 0);
    EXPECT_EQ(ring.GetElementWeight(1, 1), 255);
    EXPECT_EQ(ring.Members(), 7);
    EXPECT_EQ(ring.GetMaskByIndex(0), 511u - 8u - 32u);               // right and left cleared
    EXPECT_EQ(GrayMorphElem(0, 0, 2, 1, "x7").Members(), 2);          // any character but '0' is a member
    EXPECT_FALSE(GrayMorphElem(1, 1, 3, 3, "1,1,1,1").HasWeights());  // too few characters
    EXPECT_FALSE(GrayMorphElem(0, 0, 2, 2, static_cast<const char*>(nullptr)).HasWeights());
    EXPECT_FALSE(GrayMorphElem(0, 0, 0, 3, "111").HasWeights());
    EXPECT_FALSE(GrayMorphElem(0, 0, kGrayMorphMaxSide + 1, 1, static_cast<const unsigned char*>(nullptr))
                     .HasWeights());
    EXPECT_EQ(GrayMorphElem(9, -4, 3, 2, "111111").GetElementHotX(), 2);  // moved inside
    EXPECT_EQ(GrayMorphElem(9, -4, 3, 2, "111111").GetElementHotY(), 0);

    // Resizing keeps common cells and gives new ones 255; tiles at the edge cover only existing cells.
    ASSERT_TRUE(ring.SetElementDims(4, 4));
    EXPECT_EQ(ring.GetElementWeight(0, 1), 0);
    EXPECT_EQ(ring.GetElementWeight(3, 3), 255);
    ASSERT_EQ(ring.GetMaskSize(), 4);
    EXPECT_EQ(ring.GetMaskByIndex(1), 4u | 32u | 256u);  // column 3: the tile's left column only
    EXPECT_EQ(ring.GetMaskByIndex(3), 4u);               // cell (3, 3) alone
    EXPECT_EQ(ring.GetMaskByIndex(4), 0u);
    EXPECT_FALSE(ring.SetElementWidth(0));
    EXPECT_EQ(ring.GetElementWidth(), 4);
    EXPECT_FALSE(ring.SetElementHotSpot(4, 0));
    EXPECT_TRUE(ring.SetElementHotSpot(3, 0));
    ring.SetElementsUpdated(false);
    EXPECT_TRUE(ring.SetElementWeight(3, 3, 0));
    EXPECT_TRUE(ring.ElementsUpdated());
    EXPECT_EQ(ring.GetMaskByIndex(3), 0u);
    EXPECT_FALSE(ring.SetElementWeight(16, 1));
    EXPECT_EQ(ring.GetElementWeight(-1), 0);

    const GrayMorphElem grown(&standard, 0, 0, 4, 2);
    EXPECT_EQ(grown.Members(), 8);
    EXPECT_FALSE(GrayMorphElem(nullptr, 0, 0, 3, 3).HasWeights());
    EXPECT_GT(grown.SizeOf(), sizeof(GrayMorphElem));
}

TEST(GrayMorphAgent, FollowsTheOperationRules) {
    auto src = testing::RandomImage(23, 17, 11);
    Buffer dst(23, 17, EIGHT);
    GrayMorphElem one(0, 0, 1, 1, "1");
    for (int op = GRAYMORPH_ERODE; op <= GRAYMORPH_WELL; ++op) {
        swGrayMorphAgent agent(src.get(), &dst, static_cast<GRAYMORPHOP>(op), GM_POLARITY_NORMAL, 1, &one);
        ASSERT_EQ(agent.Go(), 0);
        const auto expected = op <= GRAYMORPH_CLOSE ? Pixels(*src) : std::vector<uint8_t>(23 * 17, 0);
        EXPECT_EQ(Pixels(dst), expected) << op;
    }
    // Only the eight neighbours: the centre's own value never shows unless a neighbour has it.
    Buffer tiny(3, 3, EIGHT), out(3, 3, EIGHT);
    const uint8_t values[9] = {9, 8, 7, 6, 1, 5, 4, 3, 2};
    for (int i = 0; i < 9; ++i) tiny.Row(i / 3)[i % 3] = values[i];
    GrayMorphElem ring(1, 1, 3, 3, "111101111");
    swGrayMorphAgent erode(&tiny, &out, GRAYMORPH_ERODE, GM_POLARITY_NORMAL, 1, &ring);
    ASSERT_EQ(erode.Go(), 0);
    EXPECT_EQ(out.Row(1)[1], 2);
    EXPECT_EQ(out.Row(0)[0], 1);  // outside reads 255: the corner sees 8, 6 and its diagonal 1
    swGrayMorphAgent dilate(&tiny, &out, GRAYMORPH_DILATE, GM_POLARITY_NORMAL, 1, &ring);
    ASSERT_EQ(dilate.Go(), 0);
    EXPECT_EQ(out.Row(1)[1], 9);
    EXPECT_EQ(out.Row(2)[2], 5);  // outside reads 0

    // Inverted polarity turns an erosion into the dilation; two 3 x 3 passes are one 5 x 5 pass.
    Buffer a(23, 17, EIGHT), b(23, 17, EIGHT);
    GrayMorphElem square, big(2, 2, 5, 5, "1111111111111111111111111");
    swGrayMorphAgent inverted(src.get(), &a, GRAYMORPH_ERODE, GM_POLARITY_INVERTED, 1, &square);
    swGrayMorphAgent normal(src.get(), &b, GRAYMORPH_DILATE, GM_POLARITY_NORMAL, 1, &square);
    ASSERT_EQ(inverted.Go(), 0);
    ASSERT_EQ(normal.Go(), 0);
    EXPECT_EQ(Pixels(a), Pixels(b));
    swGrayMorphAgent twice(src.get(), &a, GRAYMORPH_ERODE, GM_POLARITY_NORMAL, 2, &square);
    swGrayMorphAgent once(src.get(), &b, GRAYMORPH_ERODE, GM_POLARITY_NORMAL, 1, &big);
    ASSERT_EQ(twice.Go(), 0);
    ASSERT_EQ(once.Go(), 0);
    EXPECT_EQ(Pixels(a), Pixels(b));

    // In place, and in place shifted within one buffer, as from a separate source.
    GrayMorphElem tall(1, 4, 3, 7, "111111111111111111111");
    for (Point at : {Point{0, 0}, Point{2, 3}, Point{0, 0}}) {
        Buffer same(*src);
        swGrayMorphAgent inPlace(&same, &same, at, ROI(19, 12), GRAYMORPH_CLOSE, GM_POLARITY_NORMAL, 2,
                                 &tall);
        swGrayMorphAgent apart(src.get(), &b, at, ROI(19, 12), GRAYMORPH_CLOSE, GM_POLARITY_NORMAL, 2, &tall);
        ASSERT_EQ(inPlace.Go(), 0);
        ASSERT_EQ(apart.Go(), 0);
        EXPECT_EQ(Block(same, 19, 12), Block(b, 19, 12));
    }
}

TEST(GrayMorphAgent, ReportsUnknownOperationsEmptyElementsAndSizeMismatches) {
    testing::TextRecorder text;
    auto src = testing::RandomImage(8, 6, 2);
    auto dst = testing::FilledImage(8, 6, 7);
    GrayMorphElem e;
    swGrayMorphAgent unknown(src.get(), dst.get(), static_cast<GRAYMORPHOP>(9), GM_POLARITY_NORMAL, 1, &e);
    EXPECT_EQ(unknown.Go(), 1);
    EXPECT_EQ(unknown.GetStatus(), kGrayMorphUnknownOp);
    EXPECT_NE(text.Text().find("Unknown morphology function specified: [9]"), std::string::npos);
    EXPECT_EQ(Pixels(*dst), std::vector<uint8_t>(48, 7));

    GrayMorphElem none(0, 0, 2, 2, "0000");
    swGrayMorphAgent empty(src.get(), dst.get(), GRAYMORPH_DILATE, GM_POLARITY_NORMAL, 3, &none);
    EXPECT_EQ(empty.Go(), 0);
    EXPECT_EQ(empty.GetStatus(), kGrayMorphNoMembers);
    EXPECT_EQ(Pixels(*dst), Pixels(*src));  // the copy stays
    swGrayMorphAgent noElement(src.get(), dst.get(), GRAYMORPH_ERODE, GM_POLARITY_NORMAL, 1, nullptr);
    EXPECT_EQ(noElement.Go(), 0);
    EXPECT_EQ(noElement.GetStatus(), kGrayMorphNoMembers);

    testing::AssertRecorder asserts;
    Buffer small(5, 6, EIGHT);
    std::unique_ptr<GrayMorphAgent> agent(
        GrayMorphFact(src.get(), &small, GRAYMORPH_ERODE, GM_POLARITY_NORMAL, 1, &e));
    ASSERT_EQ(asserts.Count(), 1u);
    EXPECT_EQ(asserts.Reports()[0].module, "lfmorph");
    EXPECT_EQ(asserts.Reports()[0].expression,
              "!((src->Width() != dst->Width()) || (src->Height() != dst->Height()))");
    ASSERT_NE(agent, nullptr);  // the factory goes on; the agent clips to the smaller destination
    EXPECT_EQ(agent->Go(), 0);
    asserts.Clear();
    std::unique_ptr<GrayMorphAgent> r(
        GrayMorphFact(src.get(), dst.get(), Rect{1, 1, 4, 4}, GRAYMORPH_OPEN, GM_POLARITY_INVERTED, 2, &e));
    std::unique_ptr<GrayMorphAgent> p(GrayMorphFact(src.get(), dst.get(), Point{1, 2}, ROI(3, 3),
                                                    GRAYMORPH_CLOSE, GM_POLARITY_NORMAL, 1, &e));
    std::unique_ptr<GrayMorphAgent> i(
        GrayMorphFact(src.get(), dst.get(), 1, 1, 4, 4, GRAYMORPH_WELL, GM_POLARITY_NORMAL, 1, &e));
    ASSERT_TRUE(r && p && i);
    EXPECT_EQ(r->Polarity(), GM_POLARITY_INVERTED);
    EXPECT_EQ(p->SrcPt(), (Point{1, 2}));
    EXPECT_EQ(i->SrcROI().Width(), 3);
    EXPECT_EQ(asserts.Count(), 0u);

    FILE* trace = std::tmpfile();
    ASSERT_NE(trace, nullptr);
    EXPECT_EQ(r->Go(trace), 0);
    EXPECT_GT(std::ftell(trace), 0);
    std::fclose(trace);
}

// Flat erosion and dilation as OpenCV computes them, with a border that never wins.
TEST(GrayMorphAgent, ErodeAndDilateMatchOpenCv) {
    std::mt19937 rng(21);
    for (int trial = 0; trial < 40; ++trial) {
        const GrayMorphElem e = RandomElement(rng, trial < 30 ? 7 : 23);
        const int w = 1 + static_cast<int>(rng() % 90), h = 1 + static_cast<int>(rng() % 40);
        auto src = testing::RandomImage(w, h, static_cast<uint32_t>(trial));
        cv::Mat m(h, w, CV_8U), kernel(e.GetElementHeight(), e.GetElementWidth(), CV_8U);
        for (int y = 0; y < h; ++y) std::copy_n(src->Row(y), w, m.ptr<uint8_t>(y));
        for (int j = 0; j < kernel.rows; ++j)
            for (int i = 0; i < kernel.cols; ++i) kernel.at<uint8_t>(j, i) = e.GetElementWeight(i, j) != 0;
        const cv::Point anchor(e.GetElementHotX(), e.GetElementHotY());
        for (GRAYMORPHOP op : {GRAYMORPH_ERODE, GRAYMORPH_DILATE}) {
            cv::Mat expected;
            if (op == GRAYMORPH_ERODE)
                cv::erode(m, expected, kernel, anchor, 1, cv::BORDER_CONSTANT, cv::Scalar(255));
            else
                cv::dilate(m, expected, kernel, anchor, 1, cv::BORDER_CONSTANT, cv::Scalar(0));
            Buffer dst(w, h, EIGHT);
            swGrayMorphAgent agent(src.get(), &dst, op, GM_POLARITY_NORMAL, 1,
                                   const_cast<GrayMorphElem*>(&e));
            ASSERT_EQ(agent.Go(), 0);
            for (int y = 0; y < h; ++y)
                ASSERT_TRUE(std::equal(dst.Row(y), dst.Row(y) + w, expected.ptr<uint8_t>(y)))
                    << "trial " << trial << " op " << op << " row " << y;
        }
    }
}

class GrayMorphAtLevel : public testing::IsaLevelTest {};

TEST_P(GrayMorphAtLevel, EveryPathWritesThePlainPassBytes) {
    std::mt19937 rng(static_cast<uint32_t>(Level()) + 40);
    for (int w : testing::AwkwardWidths()) {
        for (int trial = 0; trial < 6; ++trial) {
            GrayMorphElem e = RandomElement(rng, trial == 5 ? 25 : 9);
            const int h = 1 + static_cast<int>(rng() % 30);
            const auto op = static_cast<GRAYMORPHOP>(rng() % 7);
            const int polarity = static_cast<int>(rng() % 2), iterations = 1 + static_cast<int>(rng() % 2);
            auto src = testing::RandomImage(w + 5, h + 3, static_cast<uint32_t>(w * 31 + trial));
            auto dst = testing::FilledImage(w + 2, h + 1, kPadByte);
            swGrayMorphAgent agent(src.get(), dst.get(), Point{5, 3}, ROI(w, h), op,
                                   static_cast<GMPOLARITY>(polarity), iterations, &e);
            ASSERT_EQ(agent.Go(), 0);
            ASSERT_EQ(Block(*dst, w, h), Reference(*src, Point{5, 3}, w, h, op, polarity, iterations, e))
                << "width " << w << " element " << e.GetElementWidth() << "x" << e.GetElementHeight()
                << " op " << op;
            testing::ExpectPaddingIs(*dst);
            for (int y = 0; y < h; ++y)
                ASSERT_EQ(dst->Row(y)[w], kPadByte);  // the column right of the region
        }
    }
}

TEST_P(GrayMorphAtLevel, EachVectorLevelHandlesTheWholeVectorsOfARow) {
    if (!graymorph::kRowKernels.HasOwnKernel(Level()) || Level() == Isa::Scalar)
        GTEST_SKIP() << "no vector kernel of its own at this level";
    const int n = 64 * 3 + 9, width = Level() == Isa::Sse2 ? 16 : Level() == Isa::Avx2 ? 32 : 64;
    std::mt19937 rng(3);
    std::vector<uint8_t> a(n), b(n);
    for (int i = 0; i < n; ++i) a[i] = static_cast<uint8_t>(rng()), b[i] = static_cast<uint8_t>(rng());
    for (uint32_t op : {graymorph::kRowMin, graymorph::kRowMax, graymorph::kRowAbsDiff}) {
        std::vector<uint8_t> vec(n, 0xEE), ref(n, 0xEE);
        graymorph::RowJob job{op, a.data(), b.data(), vec.data()};
        const int stopped = graymorph::kRowKernels.At(Level())(0, n, job);
        EXPECT_EQ(stopped, n / width * width);
        job.d = ref.data();
        graymorph::kRowKernels.Scalar()(0, stopped, job);
        EXPECT_EQ(vec, ref) << op;
    }
    const uint8_t* rows[5] = {a.data(), b.data(), a.data() + 3, b.data() + 1, a.data() + 2};
    for (uint32_t op : {graymorph::kRowMin, graymorph::kRowMax}) {
        std::vector<uint8_t> vec(n, 0xEE), ref(n, 0xEE);
        graymorph::FoldJob job{op, rows, 5, vec.data()};
        const int stopped = graymorph::kFoldKernels.At(Level())(0, n - 3, job);
        EXPECT_EQ(stopped, (n - 3) / width * width);
        job.d = ref.data();
        graymorph::kFoldKernels.Scalar()(0, stopped, job);
        EXPECT_EQ(vec, ref) << op;
    }
}

OMBREL_INSTANTIATE_ISA_LEVELS(GrayMorphAtLevel);

}  // namespace
}  // namespace ombrel
