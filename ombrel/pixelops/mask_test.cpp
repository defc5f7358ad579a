// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <memory>
#include <numeric>
#include <random>
#include <vector>

#include "ombrel/framework/kernel_family.h"
#include "ombrel/pixelops/mask.h"
#include "ombrel/pixelops/mask_kernels.h"
#include "testing/recorders.h"

namespace ombrel {
namespace {

using testing::ScopedIsaCap;

const std::vector<unsigned> kAllCodes = {0, 1, 2, 3, 4, 5, 6, 8, 9, 10, 11, 12, 13, 99};

void FillRandom(const Buffer& b, std::mt19937& rng, int bytesPerRow) {
    for (int y = 0; y < b.Height(); ++y)
        for (int x = 0; x < bytesPerRow; ++x) b.Row(y)[x] = static_cast<uint8_t>(rng());
}

// A region with an 8-bit mask of random runs (the region copies it into one-bit scans), or a rectangle
// when `mask` is null; `Selected` reads the same choice back from the bytes.
ROI RegionOf(const Buffer* mask, int w, int h) {
    return mask != nullptr ? ROI(mask) : ROI(w, h);
}
bool Selected(const Buffer* mask, int x, int y) {
    return mask == nullptr || mask->Row(y)[x] != 0;
}

// What one visited pixel becomes, the destination having been cleared to 0 first.
int FromCleared(unsigned op, int s, int low, int high) {
    if (op == 1) return (256 - s) & 0xFF;
    if (op == 11) return (low <= s && s <= high) ? 1 : 0;
    const bool copies = op == 0 || op == 2 || op == 4 || op == 5 || op == 8 || op == 10 || op == 13;
    return copies ? s : 0;
}

// The destination after a run, computed pixel by pixel from the operation table.
std::vector<uint8_t> Expected(const Buffer& src, Point p, const Buffer* mask, int dw, int dh, unsigned op,
                              int low = 1, int high = 255) {
    std::vector<uint8_t> out(static_cast<size_t>(dw) * dh, 0);
    for (int y = 0; y < dh; ++y)
        for (int x = 0; x < dw; ++x) {
            const int sx = p.x + x, sy = p.y + y;
            if (!Selected(mask, x, y) || sx < 0 || sy < 0 || sx >= src.Width() || sy >= src.Height())
                continue;
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

class MaskAtLevel : public testing::IsaLevelTest {};

TEST_P(MaskAtLevel, EveryCodeMatchesTheTableOverMasksOfAwkwardWidthsAndLeavesPaddingAlone) {
    std::mt19937 rng(7);
    for (int w : {1, 7, 15, 16, 17, 31, 32, 33, 63, 64, 65, 127, 129, 200}) {
        const int h = 1 + w % 5;
        Buffer src(w + 9, h + 3, EIGHT);
        FillRandom(src, rng, src.Width());
        const Point origin{static_cast<int>(rng() % 9), static_cast<int>(rng() % 3)};
        Buffer mask(w, h, EIGHT);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) mask.Row(y)[x] = rng() % 3 != 0;
        for (const Buffer* m : {static_cast<const Buffer*>(&mask), static_cast<const Buffer*>(nullptr)})
            for (unsigned op : kAllCodes) {
                Buffer dst(w, h, EIGHT);
                FillRandom(dst, rng, dst.Width());
                for (int y = 0; y < h; ++y) std::fill(dst.Row(y) + w, dst.Row(y) + dst.Pitch(), 0xA5);
                const int low = op == 11 ? 40 : 1, high = op == 11 ? 180 : 255;
                swMaskAgent agent(&src, &dst, origin, RegionOf(m, w, h), low, high, op);
                ASSERT_EQ(agent.Go(), 0);
                EXPECT_EQ(Pixels(dst, 0xA5), Expected(src, origin, m, w, h, op, low, high))
                    << "width " << w << " op " << op << " masked " << (m != nullptr);
            }
    }
}

// Inside Go every visit sees a cleared destination; the kernels themselves combine any d, so prove that too.
TEST_P(MaskAtLevel, KernelCombinesArbitraryDestinationsExactlyAsTheReference) {
    const auto kernel = mask::kSpanKernels.At(Level());
    std::mt19937 rng(11);
    const std::pair<int, int> bands[] = {{1, 255}, {-5, 300},  {0, 0},  {255, 255},
                                         {90, 20}, {256, 400}, {-9, -1}};
    for (int n : {0, 1, 15, 16, 17, 33, 64, 65, 130}) {
        std::vector<uint8_t> s(n + 1), d(n + 1);
        for (auto& v : s) v = static_cast<uint8_t>(rng());
        for (auto& v : d) v = static_cast<uint8_t>(rng());
        for (unsigned op : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 8u, 9u, 10u, 11u, 13u, 99u})
            for (auto [low, high] : bands) {
                std::vector<uint8_t> probe = d, ours = d, reference = d;
                mask::SpanJob job{op, low, high, s.data() + 1, probe.data() + 1};
                const int done = kernel(0, n, job);
                ASSERT_LE(done, n);
                // A level of its own handles every whole vector; unknown codes and empty bands report all.
                if (mask::kSpanKernels.HasOwnKernel(Level()) && n >= 64) {
                    ASSERT_GT(done, n - 64);
                }
                job.d = ours.data() + 1;
                mask::kSpanKernels.Run(Level(), 0, n, job);
                job.d = reference.data() + 1;
                mask::kSpanKernels.Scalar()(0, n, job);
                EXPECT_EQ(ours, reference) << "n " << n << " op " << op << " band " << low << ".." << high;
            }
    }
}

OMBREL_INSTANTIATE_ISA_LEVELS(MaskAtLevel);

TEST(MaskFact, ChoosesSoftwareOnlyForHostBuffersWithAnOwnedDestination) {
    Buffer src(16, 8, EIGHT), dst(16, 8, EIGHT);
    std::vector<uint8_t> lent(16 * 8);
    Buffer wrapped(lent.data(), 16, 8, 16, EIGHT);
    Buffer board(nullptr, MONSTER_ALLOC_DEFAULT, BANK_0, 16, 8, EIGHT);
    testing::TextRecorder text;  // the board note
    const ROI roi(16, 8);
    std::unique_ptr<MaskAgent> agent(MaskFact(&wrapped, &dst, Point{0, 0}, roi, 3, 9, MASK_BAND));
    EXPECT_NE(dynamic_cast<swMaskAgent*>(agent.get()), nullptr);
    EXPECT_EQ(MaskFact(&src, &wrapped, Point{0, 0}, roi, MASK_COPY), nullptr);
    EXPECT_EQ(MaskFact(&board, &board, Point{0, 0}, roi, MASK_COPY), nullptr);
    EXPECT_EQ(MaskFact(&src, &board, Point{0, 0}, roi, MASK_COPY), nullptr);

    // The two-int form: origin (2, 3), the band 5..6 with the band operation.
    src.Row(3)[2] = 5;
    src.Row(4)[3] = 7;
    src.Row(5)[4] = 6;
    ROI region(4, 4);
    std::unique_ptr<MaskAgent> band(MaskFact(&src, &dst, 2, 3, &region, 5, 6));
    ASSERT_NE(band, nullptr);
    EXPECT_EQ(band->Go(), 0);
    const std::vector<uint8_t> pixels = Pixels(dst, 0);
    EXPECT_EQ(pixels[0] + pixels[16 + 1] + pixels[32 + 2], 2);
    EXPECT_EQ(std::accumulate(pixels.begin(), pixels.end(), 0), 2);
    std::unique_ptr<MaskAgent> noRegion(MaskFact(&src, &dst, 0, 0, nullptr, 1, 255));  // an empty region
    EXPECT_EQ(noRegion->Go(), 0);
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
        EXPECT_EQ(Pixels(dst, 0xA5), Expected(src, p, nullptr, 12, 6, MASK_COPY)) << p.x << "," << p.y;
    }
    Buffer bad(0, 0, EIGHT), oneBit(40, 4, ONE);
    std::fill(oneBit.Row(0), oneBit.Row(0) + oneBit.Pitch() * 4, 0xFF);
    for (Buffer* s : {static_cast<Buffer*>(nullptr), &bad, &src})
        for (Buffer* d : {static_cast<Buffer*>(nullptr), &bad, &oneBit}) {
            swMaskAgent agent(s, d, Point{0, 0}, ROI(40, 4), MASK_COPY);
            EXPECT_EQ(agent.Go(), 0);
        }
    // A one-bit destination is cleared over its own row bytes (five for 40 pixels) and not written as bytes.
    for (int y = 0; y < 4; ++y)
        EXPECT_EQ(std::accumulate(oneBit.Row(y), oneBit.Row(y) + 6, 0), 0xFF) << "row " << y;
    swMaskAgent negative(&src, &dst, Point{0, 0}, ROI(-4, -2), MASK_COPY);
    EXPECT_EQ(negative.Go(), 0);
    EXPECT_EQ(Pixels(dst, 0xA5), std::vector<uint8_t>(72, 0));
}

}  // namespace
}  // namespace ombrel
