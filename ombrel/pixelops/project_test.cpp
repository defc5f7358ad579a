// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <opencv2/core.hpp>
#include <vector>

#include "ombrel/framework/kernel_family.h"
#include "ombrel/pixelops/project.h"
#include "ombrel/pixelops/project_kernels.h"
#include "testing/images.h"
#include "testing/recorders.h"

namespace ombrel {
namespace {

using testing::AssertRecorder;
using testing::FilledImage;
using testing::RandomImage;

int Bits(int64_t n) {
    int b = 0;
    while (n > 0) ++b, n >>= 1;
    return b;
}

// Image pixel, 0 outside the image.
uint32_t At(const Buffer& b, int64_t x, int64_t y) {
    return (x < 0 || y < 0 || x >= b.Width() || y >= b.Height()) ? 0 : b.Row(static_cast<int>(y))[x];
}

// The zone starts of one line [first, last), written out from the zone rule independently of the agent.
std::vector<int64_t> ZoneStarts(int64_t first, int64_t last, int size, int space) {
    std::vector<int64_t> starts;
    for (int64_t start = first; start < last; start += space) {
        if (start + size > last) {
            starts.push_back(last - size);
            break;
        }
        starts.push_back(start);
    }
    return starts;
}

// The destination an agent run should leave: `dst` is the destination before the run (copied).
std::vector<std::vector<uint8_t>> Expected(const Buffer& src, const Buffer& dst, Point p, int w, int h,
                                           ProjectType type, int zoneSize, int zoneSpace) {
    std::vector<std::vector<uint8_t>> out(static_cast<size_t>(dst.Height()));
    for (int y = 0; y < dst.Height(); ++y)
        out[static_cast<size_t>(y)].assign(dst.Row(y), dst.Row(y) + dst.Width());
    std::fill(out[0].begin(), out[0].end(), 0);
    auto put = [&](int64_t x, int64_t y, uint32_t sum, int64_t n) {
        if (x < dst.Width() && y < dst.Height())
            out[static_cast<size_t>(y)][static_cast<size_t>(x)] = static_cast<uint8_t>(sum >> Bits(n));
    };
    for (int64_t line = 0; line < (type == HORIZONTAL ? w : h); ++line) {
        const int64_t first = type == HORIZONTAL ? p.y : p.x, last = first + (type == HORIZONTAL ? h : w);
        auto sum = [&](int64_t from, int64_t to) {
            uint32_t s = 0;
            for (int64_t i = from; i < to; ++i)
                s += type == HORIZONTAL ? At(src, p.x + line, i) : At(src, i, p.y + line);
            return s;
        };
        if (zoneSize == 0) {
            put(line, 0, sum(first, last), last - first);
            continue;
        }
        const auto starts = ZoneStarts(first, last, zoneSize, zoneSpace);
        for (size_t k = 0; k < starts.size(); ++k) {
            const uint32_t s = sum(starts[k], starts[k] + zoneSize);
            if (type == HORIZONTAL)
                put(line, static_cast<int64_t>(k), s, zoneSize);
            else
                put(static_cast<int64_t>(k), line, s, zoneSize);
        }
    }
    return out;
}

std::vector<std::vector<uint8_t>> Rows(const Buffer& b) {
    std::vector<std::vector<uint8_t>> out;
    for (int y = 0; y < b.Height(); ++y) out.emplace_back(b.Row(y), b.Row(y) + b.Width());
    return out;
}

class ProjectAtLevel : public testing::IsaLevelTest {};

TEST_P(ProjectAtLevel, ColumnAndRowKernelsAddExactlyAsTheReferenceAcrossSixteenBitBlocks) {
    for (int w : testing::AwkwardWidths()) {
        for (int rows : {1, 3, 255, 256, 257, 600}) {
            // Saturated pixels find a 16-bit lane that wraps; random ones the lane order.
            for (bool white : {true, false}) {
                auto img = white ? FilledImage(w + 1, rows, 255) : RandomImage(w + 1, rows, w * 7 + rows);
                std::vector<uint32_t> ours(w + 2, 0xFFFFFF00u), reference = ours;
                project::ColumnJob job{img->Row(0) + 1, img->Pitch(), rows, ours.data() + 1};
                project::kColumnKernels.Run(Level(), 0, w, job);
                job.sums = reference.data() + 1;
                project::kColumnKernels.Scalar()(0, w, job);
                ASSERT_EQ(ours, reference) << "width " << w << " rows " << rows << " white " << white;
            }
        }
        auto row = RandomImage(w + 1, 1, w);
        uint64_t ours = 5, reference = 5;
        project::kRowKernels.Run(Level(), 0, w, project::RowJob{row->Row(0) + 1, &ours});
        project::kRowKernels.Scalar()(0, w, project::RowJob{row->Row(0) + 1, &reference});
        EXPECT_EQ(ours, reference) << "width " << w;
    }
}

TEST_P(ProjectAtLevel, EachVectorLevelHandlesTheWholeVectorsOfASpan) {
    if (!project::kColumnKernels.HasOwnKernel(Level())) GTEST_SKIP() << "no kernel of its own at this level";
    auto img = RandomImage(200, 4, 3);
    std::vector<uint32_t> sums(200, 0);
    const int columns =
        project::kColumnKernels.At(Level())(0, 200, {img->Row(0), img->Pitch(), 4, sums.data()});
    EXPECT_GT(columns, 200 - 64);
    for (int i = 0; i < columns; ++i)
        EXPECT_EQ(sums[i], At(*img, i, 0) + At(*img, i, 1) + At(*img, i, 2) + At(*img, i, 3)) << i;
    uint64_t sum = 0;
    const int done = project::kRowKernels.At(Level())(0, 200, {img->Row(0), &sum});
    EXPECT_GT(done, 200 - 64);
    uint64_t expected = 0;
    for (int i = 0; i < done; ++i) expected += At(*img, i, 0);
    EXPECT_EQ(sum, expected);
}

TEST_P(ProjectAtLevel, AgentMatchesTheRuleOverAwkwardRegionsZonesAndPaddedDestinations) {
    AssertRecorder quiet;
    for (int w : testing::AwkwardWidths()) {
        const int h = 5 + w % 23;
        auto src = RandomImage(w + 7, h + 4, w);
        const Point origin{w % 7, w % 4};
        for (ProjectType type : {HORIZONTAL, VERTICAL})
            for (auto [size, space] : {std::pair{0, 0}, {5, 5}, {7, 3}, {6, 11}}) {
                auto dst = RandomImage(std::max(w, h) + 5, h + 2, 99);
                const auto expected = Expected(*src, *dst, origin, w, h, type, size, space);
                swProjectAgent agent(src.get(), dst.get(), origin, ROI(w, h), type);
                if (size != 0) agent.SetZoneSizeSpace(size, space);
                ASSERT_EQ(agent.Go(), 0);
                EXPECT_EQ(Rows(*dst), expected) << "width " << w << " type " << type << " zones " << size;
                testing::ExpectPaddingIs(*dst);
            }
    }
}

OMBREL_INSTANTIATE_ISA_LEVELS(ProjectAtLevel);

TEST(ProjectSums, EqualOpenCvReduceBeforeTheShift) {
    for (auto [w, h] : {std::pair{640, 480}, {33, 1000}, {1, 1}, {1000, 3}}) {
        auto src = RandomImage(w, h, w + h);
        const cv::Mat mat(h, w, CV_8U, src->BaseAddr(), static_cast<size_t>(src->Pitch()));
        cv::Mat columns, rows;
        cv::reduce(mat, columns, 0, cv::REDUCE_SUM, CV_32S);
        cv::reduce(mat, rows, 1, cv::REDUCE_SUM, CV_32S);

        std::vector<uint32_t> sums(w, 0);
        project::kColumnKernels.Run(ActiveIsa(), 0, w, {src->Row(0), src->Pitch(), h, sums.data()});
        Buffer profile(std::max(w, h), 1, EIGHT);
        swProjectAgent horizontal(src.get(), &profile, Rect{0, 0, w, h}, HORIZONTAL);
        horizontal.Go();
        for (int x = 0; x < w; ++x) {
            ASSERT_EQ(sums[x], static_cast<uint32_t>(columns.at<int32_t>(0, x))) << x;
            ASSERT_EQ(profile.Row(0)[x], static_cast<uint32_t>(columns.at<int32_t>(0, x)) >> Bits(h)) << x;
        }
        swProjectAgent vertical(src.get(), &profile, Rect{0, 0, w, h}, VERTICAL);
        vertical.Go();
        for (int y = 0; y < h; ++y) {
            uint64_t sum = 0;
            project::kRowKernels.Run(ActiveIsa(), 0, w, {src->Row(y), &sum});
            ASSERT_EQ(sum, static_cast<uint64_t>(rows.at<int32_t>(y, 0))) << y;
            ASSERT_EQ(profile.Row(0)[y], static_cast<uint32_t>(rows.at<int32_t>(y, 0)) >> Bits(w)) << y;
        }
    }
}

TEST(ProjectRules, ShiftIsTheBitLengthOfThePixelCount) {
    auto src = RandomImage(9, 1, 4);
    Buffer dst(9, 1, EIGHT);
    swProjectAgent one(src.get(), &dst, Rect{0, 0, 9, 1}, HORIZONTAL);
    one.Go();
    EXPECT_EQ(one.Shift(), 1);
    for (int x = 0; x < 9; ++x) EXPECT_EQ(dst.Row(0)[x], src->Row(0)[x] / 2) << x;

    auto white = FilledImage(4, 256, 255);
    swProjectAgent tall(white.get(), &dst, Rect{0, 0, 4, 256}, HORIZONTAL);
    tall.Go();
    EXPECT_EQ(tall.Shift(), 9);
    EXPECT_EQ(dst.Row(0)[0], 127);  // 65280 >> 9
    swProjectAgent shorter(white.get(), &dst, Rect{0, 0, 4, 255}, HORIZONTAL);
    shorter.Go();
    EXPECT_EQ(dst.Row(0)[3], 254);  // 65025 >> 8
    swProjectAgent rows(white.get(), &dst, Rect{0, 0, 4, 3}, VERTICAL);
    rows.Go();
    EXPECT_EQ(rows.Shift(), 3);  // 4 pixels per row sum
    EXPECT_EQ(std::vector<uint8_t>(dst.Row(0), dst.Row(0) + 4), (std::vector<uint8_t>{127, 127, 127, 0}));
}

TEST(ProjectRules, TheLastZoneMovesBackToEndAtTheRegionsEdge) {
    Buffer src(3, 25, EIGHT);
    for (int y = 0; y < 25; ++y) std::memset(src.Row(y), y * 10, 3);
    auto dst = FilledImage(3, 4, 7);
    swProjectAgent agent(&src, dst.get(), Rect{0, 0, 3, 25}, HORIZONTAL);
    agent.SetZoneSizeSpace(10, 10);
    agent.Go();
    // Rows 0-9 sum to 450, 10-19 to 1450, 15-24 to 1950; ten pixels give a shift of 4.
    EXPECT_EQ(dst->Row(0)[1], 28);
    EXPECT_EQ(dst->Row(1)[1], 90);
    EXPECT_EQ(dst->Row(2)[1], 121);
    EXPECT_EQ(dst->Row(3)[1], 7);  // no fourth zone, and only row 0 is cleared
}

TEST(ProjectRules, ZoneSettingsOutOfRangeAreNotedAndIgnored) {
    AssertRecorder asserts;
    testing::TextRecorder text;
    swProjectAgent agent(nullptr, nullptr, Rect{0, 0, 1, 1}, HORIZONTAL);
    agent.SetZoneSizeSpace(4, 10);
    EXPECT_EQ(text.Text(), "\nProjection zone size too small . . . ignored.");
    EXPECT_EQ(agent.ZoneSize(), 0);
    EXPECT_EQ(agent.ZoneSpace(), 10);
    text.Clear();
    agent.SetZoneSizeSpace(8, -1);
    EXPECT_EQ(text.Text(), "\nProjection zone spacing has illegal value . . . ignored.");
    EXPECT_EQ(agent.ZoneSize(), 0);
    EXPECT_EQ(agent.ZoneSpace(), -1);
    text.Clear();
    agent.SetZoneSizeSpace(8, 2);
    EXPECT_EQ(text.Text(), "");
    EXPECT_EQ(agent.ZoneSize(), 8);
}

TEST(ProjectAssertions, AreReportedInOrderAndTheWorkStaysInsideTheBuffers) {
    AssertRecorder asserts;
    auto src = RandomImage(20, 10, 1);
    auto dst = FilledImage(8, 1, 9);  // narrower than the region
    swProjectAgent agent(src.get(), dst.get(), Rect{-2, 4, 14, 12}, HORIZONTAL);
    EXPECT_EQ(agent.Go(), 0);
    std::vector<int> lines;
    for (const auto& r : asserts.Reports()) {
        EXPECT_EQ(r.module, "project");
        lines.push_back(r.line);
    }
    EXPECT_EQ(lines, (std::vector<int>{66, 71, 73}));
    EXPECT_TRUE(asserts.Has("project", 73, "_dstBuf->Width() >= _sRoi.Width()"));
    // Column 0 and 1 lie left of the image and add nothing; rows 10 and 11 lie below it.
    EXPECT_EQ(dst->Row(0)[0], 0);
    EXPECT_EQ(dst->Row(0)[2], (At(*src, 0, 4) + At(*src, 0, 5) + At(*src, 0, 6) + At(*src, 0, 7) +
                               At(*src, 0, 8) + At(*src, 0, 9)) >>
                                  4);
    testing::ExpectPaddingIs(*dst);

    asserts.Clear();
    swProjectAgent none(nullptr, nullptr, Rect{0, 0, 0, 0}, static_cast<ProjectType>(5));
    none.Go();
    lines.clear();
    for (const auto& r : asserts.Reports()) lines.push_back(r.line);
    EXPECT_EQ(lines, (std::vector<int>{63, 64, 65, 68, 69, 79}));
    EXPECT_TRUE(asserts.Has("project", 65, "_type == HORIZONTAL || _type == VERTICAL"));
}

TEST(ProjectAssertions, ZonesWithoutSpacingAreRefusedAndEndAfterTheFirstZone) {
    AssertRecorder asserts;
    auto src = FilledImage(6, 40, 100);
    auto dst = FilledImage(6, 3, 9);
    for (ProjectType type : {HORIZONTAL, VERTICAL}) {
        swProjectAgent agent(src.get(), dst.get(), Rect{0, 0, 6, 40}, type);
        agent.SetZoneSizeSpace(5, 0);
        asserts.Clear();
        agent.Go();
        const int line = type == HORIZONTAL ? 76 : 77;
        EXPECT_TRUE(asserts.Has("project", line)) << type;
        EXPECT_EQ(dst->Row(0)[0], 62);  // 500 >> 3
    }
    EXPECT_EQ(dst->Row(1)[1], 9);  // the rows after the zone were never written
}

TEST(ProjectFact, ChoosesSoftwareForAnOwnedHostSourceOnly) {
    AssertRecorder asserts;
    Buffer src(16, 8, EIGHT), dst(16, 1, EIGHT);
    std::vector<uint8_t> pixels(16 * 8);
    Buffer wrapped(pixels.data(), 16, 8, 16, EIGHT);
    Buffer board(nullptr, MONSTER_ALLOC_DEFAULT, BANK_0, 16, 8, EIGHT);
    std::unique_ptr<ProjectAgent> whole(ProjectFact(&src, &dst, VERTICAL));
    ASSERT_NE(whole, nullptr);
    EXPECT_EQ(whole->SrcROI().Width(), 16);
    EXPECT_EQ(whole->Type(), VERTICAL);
    std::unique_ptr<ProjectAgent> ints(ProjectFact(&src, &dst, 1, 2, 9, 4, HORIZONTAL));
    ASSERT_NE(ints, nullptr);
    EXPECT_EQ(ints->SrcROI().Width(), 8);
    EXPECT_EQ(ints->SrcPt().y, 2);
    EXPECT_EQ(std::unique_ptr<ProjectAgent>(ProjectFact(&wrapped, &dst, HORIZONTAL)), nullptr);
    EXPECT_EQ(std::unique_ptr<ProjectAgent>(ProjectFact(&src, &board, HORIZONTAL)), nullptr);
    EXPECT_EQ(asserts.Count(), 0u);
    std::unique_ptr<ProjectAgent>(ProjectFact(nullptr, &dst, Point{0, 0}, ROI(4, 4), HORIZONTAL));
    ASSERT_EQ(asserts.Count(), 1u);
    EXPECT_EQ(asserts.Reports()[0].module, "lfproject");
    EXPECT_EQ(asserts.Reports()[0].expression, "src && dst");
}

}  // namespace
}  // namespace ombrel
