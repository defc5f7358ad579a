// SPDX-License-Identifier: MIT
#include "ombrel/tools/break.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "testing/recorders.h"

namespace ombrel {
namespace {

// A 40 x 12 image with a horizontal line on row 5 from column 4 to 35, optionally cut at columns 18..22.
std::unique_ptr<Buffer> Line(bool cut) {
    auto b = std::make_unique<Buffer>(40, 12, EIGHT);
    for (int x = 4; x < 36; ++x) b->Row(5)[x] = (cut && x >= 18 && x <= 22) ? 0 : 1;
    return b;
}

std::unique_ptr<Buffer> Dilated(Buffer& image) {
    auto d = std::make_unique<Buffer>(image.Width(), image.Height(), EIGHT);
    BinMorphOperator dilate(DilateFull);
    swBinMorphAgent agent(&image, d.get(), BMBORDER_CLEAR, &dilate, 1);
    EXPECT_EQ(agent.Go(), 0);
    return d;
}

std::vector<Point> SetPixels(const Buffer& b) {
    std::vector<Point> points;
    for (int y = 0; y < b.Height(); ++y)
        for (int x = 0; x < b.Width(); ++x)
            if (b.Row(y)[x] & 1) points.push_back({x, y});
    return points;
}

TEST(BreakAgent, MarksTheGapOfACutLineAndNothingOfAWholeOne) {
    auto templ = Line(false);
    for (int xorMode : {1, 0}) {
        for (int iterations : {0, 4, 2}) {
            testing::AssertRecorder asserts;  // a well-formed run, in either mode, reports nothing
            auto whole = Line(false), cut = Line(true);
            auto dilatedWhole = Dilated(*whole), dilatedCut = Dilated(*cut);
            BreakAgent same(whole.get(), templ.get(), dilatedWhole.get(), BMBORDER_CLEAR, iterations,
                            xorMode);
            ASSERT_EQ(same.Go(), 0);
            ASSERT_EQ(same.PostGo(), 0);
            EXPECT_TRUE(SetPixels(*same.Breaks()).empty());

            // The dilated image reaches one pixel into the gap from each side: columns 19..21 are the break,
            // and the end-point passes leave its right end.
            BreakAgent broken(cut.get(), templ.get(), dilatedCut.get(), BMBORDER_CLEAR, iterations, xorMode);
            ASSERT_EQ(broken.Go(), 0);
            ASSERT_EQ(broken.PostGo(), 0);
            const auto found = SetPixels(*broken.Breaks());
            ASSERT_EQ(found.size(), 1u) << "xor " << xorMode << " iterations " << iterations;
            EXPECT_EQ(found[0], (Point{21, 5}));
            EXPECT_EQ(asserts.Count(), 0u) << "xor " << xorMode << " iterations " << iterations;
        }
    }
}

TEST(BreakAgent, BuildsItsNamedBuffersAndAgentsOnce) {
    auto image = Line(true), templ = Line(false);
    auto dilated = Dilated(*image);
    BreakAgent converging(image.get(), templ.get(), dilated.get(), BMBORDER_SET, 0, 0);
    ASSERT_EQ(converging.PreGo(false), 0);
    EXPECT_TRUE(converging.Converging());
    for (const char* name : {"CTsame", "CTdiff", "CTdiffa", "work0", "work1", "breaks", "savebuf"})
        EXPECT_NE(converging.GetBuffer(name), nullptr) << name;
    for (const char* name : {"arith2", "arith3", "arith3a", "arith4", "arith"})
        EXPECT_NE(converging.GetArith(name), nullptr) << name;
    for (const char* name : {"bmaLeft", "bmaUp", "bmaRight", "bmaDown", "bmaTFP", "bmaTLPt", "bmaBRPt"}) {
        ASSERT_NE(converging.GetMorph(name), nullptr) << name;
        EXPECT_EQ(converging.GetMorph(name)->Iterations(), 1);
        EXPECT_EQ(converging.GetMorph(name)->Border(), BMBORDER_SET);
    }
    EXPECT_EQ(converging.GetOperator("bmopETPBR")->Bmo(16), BinMorphOperator(ETPBR).Bmo(16));
    Buffer* first = converging.GetBuffer("work0");
    EXPECT_EQ(converging.PreGo(true), 0);  // built already
    EXPECT_EQ(converging.GetBuffer("work0"), first);

    BreakAgent counted(image.get(), templ.get(), dilated.get(), BMBORDER_CLEAR, 3, 1);
    ASSERT_EQ(counted.PreGo(), 0);
    EXPECT_EQ(counted.GetBuffer("savebuf"), nullptr);
    EXPECT_EQ(counted.GetArith("arith3a"), nullptr);
    // The region forms read the sources at the region's origin.
    BreakAgent inRegion(image.get(), templ.get(), dilated.get(), Rect{2, 3, 38, 9}, BMBORDER_CLEAR, 4, 1);
    ASSERT_EQ(inRegion.Go(), 0);
    EXPECT_EQ(SetPixels(*inRegion.Breaks()), (std::vector<Point>{{19, 2}}));
    BreakAgent atPoint(image.get(), templ.get(), dilated.get(), Point{2, 3}, ROI(36, 6), BMBORDER_CLEAR, 4,
                       1);
    ASSERT_EQ(atPoint.Go(), 0);
    EXPECT_EQ(SetPixels(*atPoint.Breaks()), (std::vector<Point>{{19, 2}}));
}

TEST(BreakAgent, FilmStripCountsBreaksPerFrame) {
    auto whole = Line(false), cut = Line(true), templ = Line(false);
    auto dWhole = Dilated(*whole), dCut = Dilated(*cut);
    std::vector<Buffer*> images{whole.get(), cut.get(), whole.get()}, templates(3, templ.get()),
        dilated{dWhole.get(), dCut.get(), dWhole.get()};
    BreakAgent strip(&images, &templates, &dilated, BMBORDER_CLEAR, 0, 1);
    ASSERT_EQ(strip.Go(), 0);
    ASSERT_EQ(strip.PostGo(), 0);
    EXPECT_EQ(strip.FrameCounts(), (std::vector<int>{0, 1, 0}));
    EXPECT_EQ(strip.GetBuffer("imageStrip")->Height(), 36);

    testing::AssertRecorder asserts;
    std::vector<Buffer*> shorter{templ.get()};
    BreakAgent mismatched(&images, &shorter, &dilated, BMBORDER_CLEAR, 1, 1);
    EXPECT_TRUE(
        asserts.Count() == 1u && asserts.Reports()[0].module == "break" &&
        asserts.Reports()[0].expression ==
            "(image->size() == theTemplate->size()) && (theTemplate->size() == DilatedImage->size())");
    EXPECT_EQ(mismatched.Go(), kBreakMissing);
}

TEST(BreakAgent, MissingPiecesAreNamedAndStopTheRun) {
    testing::AssertRecorder asserts;
    auto image = Line(true);
    BreakAgent noTemplate(image.get(), nullptr, image.get(), BMBORDER_CLEAR, 1, 1);
    EXPECT_EQ(noTemplate.Go(), kBreakMissing);
    bool named = false;
    for (const auto& r : asserts.Reports()) named |= r.module == "break" && r.expression == "arith2";
    EXPECT_TRUE(named);
    asserts.Clear();
    Buffer* none = nullptr;
    BreakAgent nothing(none, none, none, BMBORDER_CLEAR, 1, 1);
    EXPECT_EQ(nothing.Go(), kBreakMissing);
    named = false;
    for (const auto& r : asserts.Reports()) named |= r.expression == "_srcBuf || _srcImage";
    EXPECT_TRUE(named);
}

}  // namespace
}  // namespace ombrel
