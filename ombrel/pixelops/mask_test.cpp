// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <random>
#include <vector>

#include "ombrel/pixelops/mask.h"
#include "ombrel/pixelops/mask_kernels.h"
#include "testing/recorders.h"

namespace ombrel {
namespace {

using testing::ScopedIsaCap;

const std::vector<unsigned> kAllCodes = {0, 1, 2, 3, 4, 5, 8, 9, 10, 11, 13};

void FillRandom(const Buffer& b, std::mt19937& rng, int bytesPerRow) {
    for (int y = 0; y < b.Height(); ++y)
        for (int x = 0; x < bytesPerRow; ++x) b.Row(y)[x] = static_cast<uint8_t>(rng());
}

// An 8-bit mask of random runs: the region copies it into one-bit scans.
ROI RandomMaskedRegion(int w, int h, std::mt19937& rng) {
    Buffer mask(w, h, EIGHT);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) mask.Row(y)[x] = (rng() % 3 != 0) ? 1 : 0;
    return ROI(&mask);
}

bool InMask(const ROI& roi, int x, int y) {
    const ROIRowStore* scans = roi.GetScans();
    if (scans == nullptr) return x < roi.Width() && y < roi.Height();
    if (y >= roi.ScanRows()) return false;
    for (int i = 0; i < scans[y].SegCnt(); ++i)
        if (x >= scans[y].scans[i].Start() && x < scans[y].scans[i].Start() + scans[y].scans[i].Len())
            return true;
    return false;
}

// What one visited pixel becomes, the destination having been cleared to 0 first.
int FromCleared(unsigned op, int s, int low, int high) {
    switch (op) {
        case 0:
        case 2:
        case 4:
        case 5:
        case 8:
        case 10:
        case 13:
            return s;
        case 1:
            return (256 - s) & 0xFF;
        case 11:
            return (low <= s && s <= high) ? 1 : 0;
        default:
            return 0;
    }
}

// The destination after a run, computed pixel by pixel from the operation table.
std::vector<uint8_t> Expected(const Buffer& src, Point p, const ROI& roi, int dw, int dh, unsigned op,
                              int low, int high) {
    std::vector<uint8_t> out(static_cast<size_t>(dw) * dh, 0);
    for (int y = 0; y < dh; ++y)
        for (int x = 0; x < dw; ++x) {
            const int sx = p.x + x, sy = p.y + y;
            if (!InMask(roi, x, y) || sx < 0 || sy < 0 || sx >= src.Width() || sy >= src.Height()) continue;
            out[static_cast<size_t>(y) * dw + x] =
                static_cast<uint8_t>(FromCleared(op, src.Row(sy)[sx], low, high));
        }
    return out;
}

// Destination pixels, with the padding of each row checked against `pad` on the way.
std::vector<uint8_t> Pixels(const Buffer& b, uint8_t pad) {
    std::vector<uint8_t> out;
    for (int y = 0; y < b.Height(); ++y) {
        out.insert(out.end(), b.Row(y), b.Row(y) + b.Width());
        for (int x = b.Width(); x < b.Pitch(); ++x)
            EXPECT_EQ(b.Row(y)[x], pad) << "padding written at row " << y;
    }
    return out;
}

class MaskAtLevel : public ::testing::TestWithParam<Isa> {};

TEST_P(MaskAtLevel, EveryCodeMatchesTheTableOverMasksOfAwkwardWidthsAndLeavesPaddingAlone) {
    OMBREL_SKIP_IF_UNSUPPORTED(GetParam());
    ScopedIsaCap cap(GetParam());
    std::mt19937 rng(7);
    for (int w : {1, 7, 15, 16, 17, 31, 32, 33, 63, 64, 65, 127, 129, 200}) {
        const int h = 1 + w % 5;
        Buffer src(w + 9, h + 3, EIGHT);
        FillRandom(src, rng, src.Width());
        const Point origin{static_cast<int>(rng() % 9), static_cast<int>(rng() % 3)};
        const ROI regions[] = {RandomMaskedRegion(w, h, rng), ROI(w, h)};
        for (const ROI& roi : regions)
            for (unsigned op : kAllCodes) {
                Buffer dst(w, h, EIGHT);
                FillRandom(dst, rng, dst.Width());
                for (int y = 0; y < h; ++y) std::fill(dst.Row(y) + w, dst.Row(y) + dst.Pitch(), 0xA5);
                const int low = op == 11 ? 40 : 1, high = op == 11 ? 180 : 255;
                swMaskAgent agent(&src, &dst, origin, roi, low, high, op);
                ASSERT_EQ(agent.Go(), 0);
                EXPECT_EQ(Pixels(dst, 0xA5), Expected(src, origin, roi, w, h, op, low, high))
                    << "width " << w << " op " << op << " masked " << roi.IsMasked();
            }
    }
}

// Inside Go every visit sees a cleared destination; the kernels themselves combine any d, so prove that too.
TEST_P(MaskAtLevel, KernelCombinesArbitraryDestinationsExactlyAsTheReference) {
    OMBREL_SKIP_IF_UNSUPPORTED(GetParam());
    const MaskSpanFn kernel = SelectMaskKernel(GetParam());
    std::mt19937 rng(11);
    const std::pair<int, int> bands[] = {{1, 255}, {-5, 300},  {0, 0},  {255, 255},
                                         {90, 20}, {256, 400}, {-9, -1}};
    for (int n : {0, 1, 15, 16, 17, 33, 64, 65, 130}) {
        std::vector<uint8_t> s(n + 1), d(n + 1);
        for (auto& v : s) v = static_cast<uint8_t>(rng());
        for (auto& v : d) v = static_cast<uint8_t>(rng());
        for (unsigned op : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 8u, 9u, 10u, 11u, 13u, 99u})
            for (auto [low, high] : bands) {
                std::vector<uint8_t> ours = d, reference = d;
                const int done = kernel(op, low, high, s.data() + 1, ours.data() + 1, n);
                ASSERT_LE(done, n);
                scalar::MaskSpan(op, low, high, s.data() + 1 + done, ours.data() + 1 + done, n - done);
                scalar::MaskSpan(op, low, high, s.data() + 1, reference.data() + 1, n);
                EXPECT_EQ(ours, reference) << "n " << n << " op " << op << " band " << low << ".." << high;
            }
    }
}

INSTANTIATE_TEST_SUITE_P(Levels, MaskAtLevel, ::testing::ValuesIn(testing::AllIsaLevels()),
                         testing::IsaTestName);

TEST(MaskAgent, ClearedDestinationGivesMaskedCopiesZeroNegationAndBand) {
    Buffer src(4, 1, EIGHT);
    const uint8_t values[] = {0, 1, 200, 255};
    std::copy(values, values + 4, src.Row(0));
    auto run = [&](unsigned op) {
        Buffer dst(4, 1, EIGHT);
        std::fill(dst.Row(0), dst.Row(0) + 4, 77);  // a previous run's leftovers
        swMaskAgent agent(&src, &dst, Point{0, 0}, ROI(4, 1), op);
        EXPECT_EQ(agent.Go(), 0);
        return std::vector<int>(dst.Row(0), dst.Row(0) + 4);
    };
    EXPECT_EQ(run(MASK_ADD), (std::vector<int>{0, 1, 200, 255}));
    EXPECT_EQ(run(MASK_SUB), (std::vector<int>{0, 255, 56, 1}));
    EXPECT_EQ(run(MASK_AND), (std::vector<int>{0, 0, 0, 0}));
    EXPECT_EQ(run(MASK_MIN), (std::vector<int>{0, 0, 0, 0}));
    EXPECT_EQ(run(MASK_BAND), (std::vector<int>{0, 1, 1, 1}));  // default band 1..255
    EXPECT_EQ(run(7), (std::vector<int>{0, 0, 0, 0}));          // unknown code: cleared, status 0
    EXPECT_EQ(run(12), (std::vector<int>{0, 0, 0, 0}));
}

TEST(MaskAgent, FillWithValueWritesOnlyTheGivenWidthOfEachRow) {
    std::vector<uint8_t> memory(5 * 8, 9);
    fillWithValue(memory.data(), 5, 4, 0x1FF, 8);  // the low byte of the value
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 8; ++x)
            EXPECT_EQ(memory[y * 8 + x], (y < 4 && x < 5) ? 0xFF : 9) << x << "," << y;
    fillWithValue(nullptr, 5, 4, 0, 8);
    fillWithValue(memory.data(), -1, 4, 0, 8);
    EXPECT_EQ(memory[0], 0xFF);
}

TEST(MaskFact, ChoosesSoftwareForHostBuffersWithAnOwnedDestinationOnly) {
    Buffer src(16, 8, EIGHT), dst(16, 8, EIGHT);
    std::vector<uint8_t> lent(16 * 8);
    Buffer wrapped(lent.data(), 16, 8, 16, EIGHT);
    Buffer board(nullptr, MONSTER_ALLOC_DEFAULT, BANK_0, 16, 8, EIGHT);
    const ROI roi(16, 8);
    testing::TextRecorder text;  // the board note

    std::unique_ptr<MaskAgent> a(MaskFact(&src, &dst, Point{0, 0}, roi, MASK_COPY));
    EXPECT_NE(dynamic_cast<swMaskAgent*>(a.get()), nullptr);
    std::unique_ptr<MaskAgent> b(MaskFact(&wrapped, &dst, Point{0, 0}, roi, 3, 9, MASK_BAND));
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(b->BandLow(), 3);
    EXPECT_EQ(b->BandHigh(), 9);
    EXPECT_EQ(MaskFact(&src, &wrapped, Point{0, 0}, roi, MASK_COPY), nullptr);
    EXPECT_EQ(MaskFact(&board, &board, Point{0, 0}, roi, MASK_COPY), nullptr);
    EXPECT_EQ(MaskFact(&src, &board, Point{0, 0}, roi, MASK_COPY), nullptr);

    ROI region(16, 8);
    std::unique_ptr<MaskAgent> c(MaskFact(&src, &dst, 2, 3, &region, 5, 6));
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->OpCode(), unsigned{MASK_BAND});
    EXPECT_EQ(c->SrcPt(), (Point{2, 3}));
    EXPECT_EQ(c->BandLow(), 5);
    std::unique_ptr<MaskAgent> d(MaskFact(&src, &dst, 0, 0, nullptr, 1, 255));
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(d->Go(), 0);
}

TEST(MaskAgent, BadBuffersAndRegionsStayInsideTheMemoryTheyOwn) {
    std::mt19937 rng(3);
    Buffer src(20, 10, EIGHT), dst(12, 6, EIGHT);
    FillRandom(src, rng, 20);
    // Regions hanging over every edge of the source and larger than the destination: only the overlap
    // is written, and the destination is fully cleared elsewhere.
    for (Point p : {Point{-5, -3}, Point{15, 8}, Point{0, 0}}) {
        FillRandom(dst, rng, dst.Width());
        for (int y = 0; y < dst.Height(); ++y) std::fill(dst.Row(y) + 12, dst.Row(y) + dst.Pitch(), 0xA5);
        swMaskAgent agent(&src, &dst, p, ROI(40, 30), MASK_COPY);
        EXPECT_EQ(agent.Go(), 0);
        EXPECT_EQ(Pixels(dst, 0xA5), Expected(src, p, ROI(40, 30), 12, 6, MASK_COPY, 1, 255))
            << p.x << "," << p.y;
    }
    Buffer bad(0, 0, EIGHT), oneBit(40, 4, ONE);
    for (Buffer* s : {static_cast<Buffer*>(nullptr), &bad, &src})
        for (Buffer* d : {static_cast<Buffer*>(nullptr), &bad, &oneBit}) {
            swMaskAgent agent(s, d, Point{0, 0}, ROI(40, 4), MASK_COPY);
            EXPECT_EQ(agent.Go(), 0);
        }
    // A one-bit destination is cleared within its rows and never written as bytes.
    EXPECT_EQ(oneBit.Row(3)[0], 0);
    swMaskAgent negative(&src, &dst, Point{0, 0}, ROI(-4, -2), MASK_COPY);
    EXPECT_EQ(negative.Go(), 0);
    EXPECT_EQ(Pixels(dst, 0xA5), std::vector<uint8_t>(72, 0));
}

}  // namespace
}  // namespace ombrel
