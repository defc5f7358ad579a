// SPDX-License-Identifier: MIT
#include "ombrel/gradients/sobel.h"

#include <gtest/gtest.h>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "ombrel/framework/kernel_family.h"
#include "ombrel/gradients/sobel_kernels.h"
#include "testing/images.h"
#include "testing/recorders.h"

namespace ombrel {
namespace {

using testing::AssertRecorder;
using testing::ExpectPaddingIs;
using testing::FilledImage;
using testing::Pixels;
using testing::RandomImage;
using testing::ScopedIsaCap;

constexpr SobelOut kAllOuts[] = {DX, DY, MAG, ANGLE, QANGLE, ABSDX, ABSDY, _3M5A, _4GX4GY, SUMABS};

struct Stats {
    std::array<int32_t, 6> acc;
    bool operator==(const Stats&) const = default;
};
Stats StatsOf(const SobelAgent& a) {
    return {{a.StrongGraySum(), a.StrongCount(), a.OutputSum(), a.NonZeroCount(), a.ExcessSum(),
             a.ExcessCount()}};
}

// ---- Shared tables
// -----------------------------------------------------------------------------------------

TEST(SobelTables, LengthTableIsTheRoundedHypotenuseUpTo180) {
    const SQRT_struct& t = SobelSqrtTable();
    EXPECT_EQ(t.Size(), 128);
    EXPECT_EQ(t.At(0, 0), 0);
    EXPECT_EQ(t.At(4, 3), 5);
    EXPECT_EQ(t.At(1, 1), 1);  // 1.414
    EXPECT_EQ(t.At(2, 1), 2);  // 2.236
    EXPECT_EQ(t.At(3, 2), 4);  // 3.606
    EXPECT_EQ(t.At(127, 127), 180);
    int largest = 0;
    for (int r = 0; r < 128; ++r)
        for (int c = 0; c <= r; ++c) largest = std::max(largest, t.At(r, c));
    EXPECT_EQ(largest, 180);
    EXPECT_EQ(t.Length(-3, 4), 5);
    EXPECT_EQ(t.At(3, 4), 0);  // outside the triangle
    EXPECT_EQ(SQRT_struct(3).At(2, 2), 3);
}

TEST(SobelTables, DirectionCodesFollowTheArcRuleWithTheFourBoundaryEntries) {
    EXPECT_EQ(SobelDirection(0, 0), 128);
    EXPECT_EQ(SobelDirection(100, 0), 255);   // 0 degrees
    EXPECT_EQ(SobelDirection(127, 1), 0);     // just above 0
    EXPECT_EQ(SobelDirection(50, 50), 31);    // 45
    EXPECT_EQ(SobelDirection(0, 9), 63);      // 90
    EXPECT_EQ(SobelDirection(-9, 0), 127);    // 180
    EXPECT_EQ(SobelDirection(0, -9), 191);    // 270
    EXPECT_EQ(SobelDirection(77, -77), 223);  // 315
    EXPECT_EQ(SobelDirection(-1, -1), 159);   // 225
    EXPECT_EQ(SobelDirection(112, 37), 12);
    EXPECT_EQ(SobelDirection(-37, 112), 76);
    EXPECT_EQ(SobelDirection(-112, -37), 140);
    EXPECT_EQ(SobelDirection(37, -112), 204);
    EXPECT_EQ(SobelDirection(112, -37), 242);  // the mirror images are not exceptions
    // Every other entry: its angle lies in (c * step, (c + 1) * step], judged in long double with the exact
    // pi (the boundary cases are exact rationals, so the tolerance only absorbs rounding).
    const long double pi = 3.141592653589793238462643383279L, step = 360.0L / 256.0L;
    int exceptions = 0;
    for (int gx = -127; gx <= 127; ++gx)
        for (int gy = -127; gy <= 127; ++gy) {
            if (gx == 0 && gy == 0) continue;
            long double theta = std::atan2((long double)gy, (long double)gx) * 180.0L / pi;
            if (theta < 0) theta += 360.0L;
            const int c = SobelDirection(gx, gy);
            const long double lo = c * step, hi = (c + 1) * step;
            const bool inside = (c == 255 && theta < 1e-12L) || (theta > lo + 1e-12L && theta <= hi + 1e-12L);
            if (!inside) ++exceptions;
        }
    EXPECT_EQ(exceptions, 4);
}

TEST(SobelTables, AreBuiltOnceAndSharedAcrossThreads) {
    const int32_t* seen[4] = {};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) threads.emplace_back([&seen, t] { seen[t] = SobelDirectionTable(); });
    for (auto& th : threads) th.join();
    for (const int32_t* p : seen) EXPECT_EQ(p, SobelDirectionTable());
    EXPECT_EQ(&SobelSqrtTable(), &SobelSqrtTable());
}

// ---- Hand-computed rules
// -----------------------------------------------------------------------------------

// Runs one encoding over the whole of `src` into a destination of the same size.
std::unique_ptr<Buffer> Sobel(Buffer* src, SobelOut out, int shift = 0, int threshold = 0,
                              Stats* stats = nullptr) {
    auto dst = FilledImage(src->Width(), src->Height(), 0x77);
    swSobelAgent agent(src, dst.get(), out, SobelShift(shift), threshold, 1);
    EXPECT_EQ(agent.Go(), 0);
    if (stats != nullptr) *stats = StatsOf(agent);
    return dst;
}

TEST(SobelRules, FlatImageGivesZeroGradientsAndFillEverywhere) {
    auto src = FilledImage(20, 10, 90);
    const std::pair<SobelOut, uint8_t> zeroByte[] = {{DX, 0},        {MAG, 0},      {ANGLE, 128},
                                                     {QANGLE, 0x40}, {_3M5A, 0x10}, {SUMABS, 0}};
    for (auto [out, byte] : zeroByte) {
        Stats st;
        auto dst = Sobel(src.get(), out, 0, 0, &st);
        const auto px = Pixels(*dst);
        // Interior pixels have the zero-gradient byte; the border the fill value.
        EXPECT_EQ(dst->Row(5)[7], byte) << out;
        EXPECT_EQ(dst->Row(0)[7], SobelFillValue(out)) << out;
        const int interior = 18 * 8;
        EXPECT_EQ(st.acc[sobel::kOutputSum], byte * interior) << out;
        EXPECT_EQ(st.acc[sobel::kNonZeroCount], byte != 0 ? interior : 0) << out;
        EXPECT_EQ(st.acc[sobel::kStrongCount], 0) << out;
        EXPECT_EQ(st.acc[sobel::kStrongGraySum], 0) << out;
    }
}

TEST(SobelRules, VerticalStepSaturatesAndItsMirrorTurnsHalfway) {
    auto src = FilledImage(8, 5, 0);
    for (int y = 0; y < 5; ++y)
        for (int x = 4; x < 8; ++x) src->Row(y)[x] = 255;
    EXPECT_EQ(Sobel(src.get(), MAG)->Row(2)[3], 127);
    EXPECT_EQ(Sobel(src.get(), ANGLE)->Row(2)[3], 255);
    EXPECT_EQ(Sobel(src.get(), DX)->Row(2)[3], 0x7F);
    EXPECT_EQ(Sobel(src.get(), DX, 3)->Row(2)[3], 127);  // 1020 >> 3 = 127
    EXPECT_EQ(Sobel(src.get(), DX, 4)->Row(2)[3], 63);
    EXPECT_EQ(Sobel(src.get(), _4GX4GY)->Row(2)[3], 0x70);
    auto mirror = FilledImage(8, 5, 255);
    for (int y = 0; y < 5; ++y)
        for (int x = 4; x < 8; ++x) mirror->Row(y)[x] = 0;
    EXPECT_EQ(Sobel(mirror.get(), DX)->Row(2)[3], 0x81);
    EXPECT_EQ(Sobel(mirror.get(), ANGLE)->Row(2)[3], 127);
    EXPECT_EQ(Sobel(mirror.get(), ABSDX)->Row(2)[3], 127);
    EXPECT_EQ(Sobel(mirror.get(), _4GX4GY)->Row(2)[3], 0x80);
    // -1020 >> 9 = -2 (toward minus infinity), stored as 0xFE
    EXPECT_EQ(Sobel(mirror.get(), DX, 9)->Row(2)[3], 0xFE);
}

TEST(SobelRules, SaturatedDiagonalGivesTheLargestMagnitudeAndQuantisedCodes) {
    auto src = FilledImage(9, 9, 0);
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 9; ++x) src->Row(y)[x] = x - y > 0 ? 255 : 0;  // brighter up and to the right
    EXPECT_EQ(Sobel(src.get(), MAG)->Row(4)[5], 180);
    EXPECT_EQ(Sobel(src.get(), ANGLE)->Row(4)[5], 31);
    EXPECT_EQ(Sobel(src.get(), SUMABS)->Row(4)[5], 254);
    EXPECT_EQ(Sobel(src.get(), _3M5A)->Row(4)[5], (180 & 0xE0) | (31 >> 3));
    EXPECT_EQ(Sobel(src.get(), QANGLE, 0, 179)->Row(4)[5], 0x80 | 15);
    EXPECT_EQ(Sobel(src.get(), QANGLE, 0, 180)->Row(4)[5], 15);
}

TEST(SobelRules, OuterRowsAndColumnsAreFilledEvenInsideTheSource) {
    auto src = RandomImage(40, 30, 5);
    for (SobelOut out : {MAG, QANGLE}) {
        auto dst = FilledImage(10, 8, 0x33);
        swSobelAgent agent(src.get(), dst.get(), Rect{10, 10, 20, 18}, out, SOBEL_SHIFT_0, 0, 1);
        ASSERT_EQ(agent.Go(), 0);
        const uint8_t fill = SobelFillValue(out);
        for (int x = 0; x < 10; ++x) EXPECT_TRUE(dst->Row(0)[x] == fill && dst->Row(7)[x] == fill);
        for (int y = 0; y < 8; ++y) EXPECT_TRUE(dst->Row(y)[0] == fill && dst->Row(y)[9] == fill);
        ExpectPaddingIs(*dst);
    }
}

// The gradient at one source pixel, straight from the definition.
std::pair<int, int> Gradient(const Buffer& b, int x, int y, int shift) {
    auto p = [&](int dx, int dy) { return int{b.Row(y + dy)[x + dx]}; };
    const int gx = ((p(1, -1) + 2 * p(1, 0) + p(1, 1)) - (p(-1, -1) + 2 * p(-1, 0) + p(-1, 1))) >> shift;
    const int gy = ((p(-1, -1) + 2 * p(0, -1) + p(1, -1)) - (p(-1, 1) + 2 * p(0, 1) + p(1, 1))) >> shift;
    return {std::clamp(gx, -127, 127), std::clamp(gy, -127, 127)};
}

TEST(SobelRules, SparseSamplesTakeUnitSpacedNeighbours) {
    auto src = RandomImage(120, 100, 6);
    auto dst = FilledImage(50, 40, 0);
    swSobelAgent agent(src.get(), dst.get(), Rect{7, 9, 107, 89}, MAG, SOBEL_SHIFT_2, 0, 2);
    ASSERT_EQ(agent.Go(), 0);
    for (int j = 1; j < 39; ++j)
        for (int i = 1; i < 49; ++i) {
            auto [gx, gy] = Gradient(*src, 7 + 2 * i, 9 + 2 * j, 2);
            ASSERT_EQ(dst->Row(j)[i], SobelSqrtTable().Length(gx, gy)) << i << "," << j;
        }
}

TEST(SobelRules, StatisticsCountStrongPixelsMeanGreyAndExcess) {
    auto src = FilledImage(6, 5, 0);
    for (int y = 0; y < 5; ++y)
        for (int x = 3; x < 6; ++x) src->Row(y)[x] = 40;  // gx = 160 at columns 2 and 3, clamped to 127
    auto dst = FilledImage(6, 5, 0);
    swSobelAgent agent(src.get(), dst.get(), ABSDX, SOBEL_SHIFT_0, 100, 1);
    agent.SetUseThreshold2(true);
    agent.SetThreshold2(120);
    ASSERT_EQ(agent.Go(), 0);
    // Three interior rows, columns 2 (centre 0) and 3 (centre 40) reach 127.
    EXPECT_EQ(agent.StrongCount(), 6);
    EXPECT_EQ(agent.StrongGraySum(), 3 * 40);
    EXPECT_EQ(agent.OutputSum(), 6 * 127);
    EXPECT_EQ(agent.NonZeroCount(), 6);
    EXPECT_EQ(agent.ExcessCount(), 6);
    EXPECT_EQ(agent.ExcessSum(), 6 * 7);
    agent.SetThreshold(255);
    ASSERT_EQ(agent.Go(), 0);
    EXPECT_EQ(agent.StrongCount(), 0);
    // DX keeps no strong pixels; its negative bytes count as non-zero with their two's-complement value.
    agent.SetSobelOut(DX);
    agent.SetThreshold(-5);
    ASSERT_EQ(agent.Go(), 0);
    EXPECT_EQ(agent.StrongCount(), 0);
    EXPECT_EQ(agent.OutputSum(), 6 * 127);
}

// A one-bit mask of w x h with every pixel set except those `excluded` says.
std::unique_ptr<Buffer> Mask(int w, int h, bool (*excluded)(int x, int y)) {
    auto m = std::make_unique<Buffer>(w, h, ONE);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            if (!excluded(x, y)) m->Row(y)[x / 8] |= uint8_t(0x80 >> (x % 8));
    return m;
}

TEST(SobelRules, MaskedOutPixelsAreFilledAndCountNothing) {
    auto src = RandomImage(30, 20, 8);
    auto mask = Mask(30, 20, [](int x, int y) { return x >= 10 && x < 14 && y >= 5; });
    const ROI roi(mask.get());
    auto plain = FilledImage(30, 20, 0), masked = FilledImage(30, 20, 0x55);
    swSobelAgent all(src.get(), plain.get(), Point{0, 0}, ROI(30, 20), QANGLE, SOBEL_SHIFT_1, 20, 1);
    swSobelAgent some(src.get(), masked.get(), Point{0, 0}, roi, QANGLE, SOBEL_SHIFT_1, 20, 1);
    EXPECT_FALSE(all.UseMask());
    EXPECT_TRUE(some.UseMask());
    ASSERT_EQ(all.Go(), 0);
    ASSERT_EQ(some.Go(), 0);
    int64_t sum = 0, strong = 0;
    for (int y = 1; y < 19; ++y)
        for (int x = 1; x < 29; ++x) {
            const bool out = x >= 10 && x < 14 && y >= 5;
            EXPECT_EQ(masked->Row(y)[x], out ? 0x40 : plain->Row(y)[x]);
            if (!out) sum += plain->Row(y)[x], strong += plain->Row(y)[x] >= 0x80;
        }
    EXPECT_EQ(some.OutputSum(), sum);
    EXPECT_EQ(some.StrongCount(), strong);
    EXPECT_LT(some.StrongCount(), all.StrongCount());
}

TEST(SobelRules, UnknownEncodingOnlyClearsMaskedOutPixels) {
    auto src = RandomImage(16, 8, 9);
    auto mask = Mask(16, 8, [](int x, int) { return x < 4; });
    auto dst = FilledImage(16, 8, 0x99);
    swSobelAgent agent(src.get(), dst.get(), Point{0, 0}, ROI(mask.get()), SobelOut(12), SOBEL_SHIFT_0, 0, 1);
    EXPECT_EQ(agent.Go(), 0);
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 16; ++x) ASSERT_EQ(dst->Row(y)[x], x < 4 ? 0 : 0x99);
}

TEST(SobelRules, MaskImageThatCannotBeMadeGivesStatusAndWritesNothing) {
    auto src = RandomImage(16, 8, 9);
    auto mask = Mask(16, 8, [](int, int) { return false; });
    auto dst = FilledImage(16, 8, 0x99);
    swSobelAgent agent(src.get(), dst.get(), Point{0, 0}, ROI(mask.get()), MAG, SOBEL_SHIFT_0, 0, 1);
    agent.SetExtent(0, 8);  // still masked, but a zero-width mask image cannot be made
    EXPECT_EQ(agent.Go(), -5500 - std::abs(int{BUFFER_BAD_SIZE}));
    EXPECT_EQ(Pixels(*dst), Pixels(*FilledImage(16, 8, 0x99)));
}

TEST(SobelRules, BadRegionsAndSparsenessStayInsideTheBuffers) {
    auto src = RandomImage(20, 20, 10);
    for (int s : {0, -3, 1, 2, 50}) {
        for (Rect r :
             {Rect{-5, -5, 15, 15}, Rect{15, 15, 40, 40}, Rect{100, 100, 120, 120}, Rect{0, 0, 2, 2}}) {
            auto dst = FilledImage(25, 25, 0x11);
            swSobelAgent agent(src.get(), dst.get(), r, MAG, SOBEL_SHIFT_0, 0, s);
            EXPECT_EQ(agent.Go(), 0);
            ExpectPaddingIs(*dst);
            if (s < 1) {
                EXPECT_EQ(Pixels(*dst), Pixels(*FilledImage(25, 25, 0))) << s;
            }
        }
    }
    // A region hanging over the source: pixels whose neighbourhood leaves the source are filled.
    auto dst = FilledImage(20, 20, 0x11);
    swSobelAgent agent(src.get(), dst.get(), Rect{5, 0, 25, 20}, MAG, SOBEL_SHIFT_0, 0, 1);
    ASSERT_EQ(agent.Go(), 0);
    for (int y = 1; y < 19; ++y) {
        EXPECT_EQ(dst->Row(y)[14], 0);  // source column 19 has no right neighbour
        auto [gx, gy] = Gradient(*src, 18, y, 0);
        EXPECT_EQ(dst->Row(y)[13], SobelSqrtTable().Length(gx, gy));
    }
}

// ---- Factories
// ---------------------------------------------------------------------------------------------

TEST(SobelFactory, ReportsBadRegionsByTextAndStillMakesTheAgent) {
    auto src = RandomImage(20, 20, 1);
    auto dst = FilledImage(10, 10, 0);
    AssertRecorder rec;
    std::unique_ptr<SobelAgent> ok(
        SobelFact(src.get(), dst.get(), Rect{0, 0, 20, 20}, MAG, SOBEL_SHIFT_0, 0, 2));
    EXPECT_NE(ok, nullptr);
    EXPECT_EQ(rec.Count(), 0u);
    std::unique_ptr<SobelAgent> a(SobelFact(src.get(), dst.get(), 0, 0, 20, 20, MAG, SOBEL_SHIFT_0, 0, 1));
    ASSERT_NE(a, nullptr);
    ASSERT_EQ(rec.Count(), 1u);
    EXPECT_EQ(rec.Reports()[0].module, "lfsobel");
    EXPECT_EQ(rec.Reports()[0].expression,
              "!((sRect.left<0) || (sRect.top<0) || (sRect.right > src->Width()) || (sRect.bottom > "
              "src->Height()) || ( ((sRect.right - sRect.left) / nSparseness) > dst->Width()) || ( "
              "((sRect.bottom - sRect.top) / nSparseness) > dst->Height()))");
    rec.Clear();
    ROI roi(10, 10);
    std::unique_ptr<SobelAgent> b(
        SobelFact(src.get(), dst.get(), Point{15, 0}, &roi, MAG, SOBEL_SHIFT_0, 0, 0));
    ASSERT_NE(b, nullptr);
    ASSERT_EQ(rec.Count(), 1u);
    EXPECT_EQ(rec.Reports()[0].expression,
              "!( (sPt.x<0) || (sPt.y<0) || (sPt.x+sRoi->Width() > src->Width()) || (sPt.y+sRoi->Height() > "
              "src->Height()) || ((sRoi->Width() / nSparseness) > dst->Width()) || ((sRoi->Height() / "
              "nSparseness) > dst->Height()))");
    EXPECT_EQ(b->Go(), 0);  // sparseness 0: filled, no hang
}

TEST(SobelFactory, ChoosesByBufferKindWithSumAbsAlwaysInSoftware) {
    auto host = RandomImage(8, 8, 2);
    Buffer board(nullptr, MONSTER_ALLOC_DEFAULT, BANK_0, 8, 8, EIGHT);
    AssertRecorder rec;
    testing::TextRecorder text;
    std::unique_ptr<SobelAgent> sw(SobelFact(host.get(), host.get(), MAG, SOBEL_SHIFT_0, 0, 1));
    EXPECT_NE(dynamic_cast<swSobelAgent*>(sw.get()), nullptr);
    EXPECT_EQ(SobelFact(host.get(), &board, MAG, SOBEL_SHIFT_0, 0, 1), nullptr);
    EXPECT_EQ(SobelFact(&board, &board, MAG, SOBEL_SHIFT_0, 0, 1), nullptr);
    std::unique_ptr<SobelAgent> mix(SobelFact(host.get(), &board, SUMABS, SOBEL_SHIFT_0, 0, 1));
    ASSERT_NE(dynamic_cast<swSobelAgent*>(mix.get()), nullptr);
    EXPECT_EQ(mix->Go(), 0);  // a board destination has no pixels: nothing is written
}

// ---- Every ISA level gives the scalar reference's bytes and statistics
// -------------------------------------

class SobelIsa : public testing::IsaLevelTest {};

struct Case {
    SobelOut out;
    int shift, threshold, threshold2, sparseness;
    bool masked;
};

std::pair<std::vector<uint8_t>, Stats> RunCase(const Buffer& srcIn, Point origin, int w, int h, const Case& c,
                                               const Buffer* mask) {
    Buffer* src = const_cast<Buffer*>(&srcIn);
    auto dst = FilledImage(w, h, testing::kPadByte ^ 0xFF);
    ROI roi = mask != nullptr ? ROI(mask) : ROI(w * c.sparseness, h * c.sparseness);
    swSobelAgent agent(src, dst.get(), origin, roi, c.out, SobelShift(c.shift), c.threshold, c.sparseness);
    agent.SetUseThreshold2(c.threshold2 >= -1000);
    agent.SetThreshold2(c.threshold2);
    EXPECT_EQ(agent.Go(), 0);
    ExpectPaddingIs(*dst);
    return {Pixels(*dst), StatsOf(agent)};
}

TEST_P(SobelIsa, EveryEncodingMatchesTheReferenceOverAwkwardWidthsOriginsMasksAndSparseness) {
    std::mt19937 rng(11);
    const Case cases[] = {
        {MAG, 0, 40, -2000, 1, false},   {ANGLE, 1, 0, 100, 1, true}, {QANGLE, 2, 15, -5, 1, false},
        {DX, 0, 0, 50, 2, false},        {DY, 3, 0, -2000, 1, true},  {ABSDX, 1, -3, 300, 1, false},
        {ABSDY, 0, 255, 0, 3, true},     {_3M5A, 2, 0, 30, 1, false}, {_4GX4GY, 1, 0, -2000, 2, true},
        {SUMABS, 0, 100, 120, 1, false}, {MAG, 15, 0, 0, 1, true},    {QANGLE, 0, 300, -2000, 2, true}};
    for (int w : testing::AwkwardWidths()) {
        for (const Case& base : cases) {
            for (int variant = 0; variant < 2; ++variant) {
                Case c = base;
                if (variant == 1) c.out = kAllOuts[rng() % 10];
                const int h = 5 + int(rng() % 4), s = c.sparseness;
                const Point origin{int(rng() % 3), int(rng() % 3)};
                auto src = RandomImage(w * s + 4, h * s + 4, uint32_t(rng()));
                std::unique_ptr<Buffer> mask;
                if (c.masked) {
                    mask = std::make_unique<Buffer>(w * s, h * s, ONE);
                    testing::FillRandom(*mask, rng, int(Buffer::RowBytes(w * s, ONE)));
                }
                const auto got = RunCase(*src, origin, w, h, c, mask.get());
                ScopedIsaCap scalar(Isa::Scalar);
                const auto want = RunCase(*src, origin, w, h, c, mask.get());
                ASSERT_EQ(got.first, want.first) << "width " << w << " out " << c.out << " s " << s;
                ASSERT_EQ(got.second, want.second) << "width " << w << " out " << c.out << " s " << s;
            }
        }
    }
}

// Each 3x3 block of a sparseness-3 image is made to give raw sums (2X, 2Y); shift 1 turns them into every
// pair of components in -127..127, so the vector magnitudes and directions meet every table entry.
TEST_P(SobelIsa, MagnitudeAndDirectionEqualTheTablesForAllComponentPairs) {
    const int side = kDirectionTableSide + 2;
    Buffer src(3 * side, 3 * side, EIGHT);
    for (int j = 1; j <= kDirectionTableSide; ++j)
        for (int i = 1; i <= kDirectionTableSide; ++i) {
            const int X = i - 128, Y = j - 128;
            uint8_t* top = src.Row(3 * j - 1) + 3 * i - 1;
            uint8_t* mid = src.Row(3 * j) + 3 * i - 1;
            uint8_t* bottom = src.Row(3 * j + 1) + 3 * i - 1;
            (X >= 0 ? mid[2] : mid[0]) = uint8_t(std::abs(X));
            (Y >= 0 ? top[1] : bottom[1]) = uint8_t(std::abs(Y));
        }
    Buffer mag(side, side, EIGHT), dir(side, side, EIGHT);
    swSobelAgent m(&src, &mag, MAG, SOBEL_SHIFT_1, 0, 3), d(&src, &dir, ANGLE, SOBEL_SHIFT_1, 0, 3);
    ASSERT_EQ(m.Go(), 0);
    ASSERT_EQ(d.Go(), 0);
    for (int j = 1; j <= kDirectionTableSide; ++j)
        for (int i = 1; i <= kDirectionTableSide; ++i) {
            const int X = i - 128, Y = j - 128;
            ASSERT_EQ(mag.Row(j)[i], SobelSqrtTable().Length(X, Y)) << X << "," << Y;
            ASSERT_EQ(dir.Row(j)[i], SobelDirection(X, Y)) << X << "," << Y;
        }
}

TEST_P(SobelIsa, EachVectorLevelHandlesTheWholeVectorsOfARow) {
    if (!sobel::kRowKernels.HasOwnKernel(Level())) GTEST_SKIP() << "no kernel of its own at this level";
    auto src = RandomImage(210, 3, 12);
    std::vector<uint8_t> d(200, 0);
    for (SobelOut out : kAllOuts) {
        uint64_t acc[6] = {};
        sobel::RowJob job;
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c) job.p[r][c] = src->Row(r) + c;
        job.d = d.data(), job.out = out, job.threshold = 50, job.directions = SobelDirectionBytes();
        job.acc = acc;
        const int handled = sobel::kRowKernels.At(Level())(0, 200, job);
        EXPECT_GT(handled, 200 - 64) << out;
        EXPECT_LE(handled, 200) << out;
        uint64_t expected = 0;
        for (int i = 0; i < handled; ++i) expected += d[i];
        EXPECT_EQ(acc[sobel::kOutputSum], expected) << out;
    }
}

OMBREL_INSTANTIATE_ISA_LEVELS(SobelIsa);

// ---- Cross-checks against OpenCV
// ---------------------------------------------------------------------------

TEST(SobelOpenCv, ComponentsMagnitudeAndAngleAgreeAtEveryInteriorPixel) {
    auto src = RandomImage(97, 61, 13);
    // Smooth a little so that not every gradient saturates.
    cv::Mat raw(61, 97, CV_8U, src->BaseAddr(), size_t(src->Pitch())), smooth;
    cv::GaussianBlur(raw, smooth, cv::Size(5, 5), 1.5);
    smooth.copyTo(raw);
    for (int shift : {0, 2, 3}) {
        cv::Mat cx, cy;
        cv::Sobel(raw, cx, CV_16S, 1, 0, 3, 1, 0, cv::BORDER_REPLICATE);
        cv::Sobel(raw, cy, CV_16S, 0, 1, 3, 1, 0, cv::BORDER_REPLICATE);
        auto dx = Sobel(src.get(), DX, shift), dy = Sobel(src.get(), DY, shift);
        auto mag = Sobel(src.get(), MAG, shift), ang = Sobel(src.get(), ANGLE, shift);
        for (int y = 1; y < 60; ++y)
            for (int x = 1; x < 96; ++x) {
                const int gx = std::clamp(cx.at<int16_t>(y, x) >> shift, -127, 127);
                const int gy =
                    std::clamp(-cy.at<int16_t>(y, x) >> shift, -127, 127);  // ours is top minus bottom
                ASSERT_EQ(int8_t(dx->Row(y)[x]), gx) << x << "," << y;
                ASSERT_EQ(int8_t(dy->Row(y)[x]), gy) << x << "," << y;
                ASSERT_EQ(mag->Row(y)[x], int(std::lround(std::hypot(gx, gy))));
                if (gx == 0 && gy == 0) {
                    ASSERT_EQ(ang->Row(y)[x], 128);
                    continue;
                }
                double theta = std::atan2(double(gy), double(gx)) * 180.0 / 3.14159265358979;
                if (theta < 0) theta += 360.0;
                const int code = (int(std::ceil(theta * 256.0 / 360.0 - 1e-9)) - 1 + 256) % 256;
                const int table = ang->Row(y)[x];
                // The four boundary entries sit one code lower than the rule.
                ASSERT_TRUE(table == code || (table == code - 1 && std::abs(gx * gy) == 112 * 37))
                    << x << "," << y << " gx " << gx << " gy " << gy;
            }
    }
}

}  // namespace
}  // namespace ombrel
