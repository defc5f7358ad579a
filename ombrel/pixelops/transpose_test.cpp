// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include <opencv2/core.hpp>

#include "ombrel/framework/kernel_family.h"
#include "ombrel/pixelops/transpose.h"
#include "ombrel/pixelops/transpose_kernels.h"
#include "testing/images.h"
#include "testing/recorders.h"

namespace ombrel {
namespace {

using testing::kPadByte;
using testing::Pixels;
using testing::RandomImage;

constexpr TransOpType kOps[] = {TRANSPOSE_ROT90_CCW, TRANSPOSE_ROT90_CW, TRANSPOSE_ROT180, TRANSPOSE_FLIP_TB,
                                TRANSPOSE_FLIP_LR};

bool Quarter(TransOpType op) {
    return op == TRANSPOSE_ROT90_CCW || op == TRANSPOSE_ROT90_CW;
}

// A cv::Mat over a part of a buffer (no copy).
cv::Mat View(const Buffer& b, Rect r) {
    return cv::Mat(b.Height(), b.Width(), CV_8UC1, b.BaseAddr(),
                   static_cast<size_t>(b.Pitch()))(cv::Rect(r.left, r.top, r.Width(), r.Height()));
}

// OpenCV's answer for the region `r` of `src`.
cv::Mat OpenCv(const Buffer& src, Rect r, TransOpType op) {
    cv::Mat out;
    const cv::Mat in = View(src, r);
    switch (op) {
        case TRANSPOSE_ROT90_CCW:
            cv::rotate(in, out, cv::ROTATE_90_COUNTERCLOCKWISE);
            break;
        case TRANSPOSE_ROT90_CW:
            cv::rotate(in, out, cv::ROTATE_90_CLOCKWISE);
            break;
        case TRANSPOSE_ROT180:
            cv::rotate(in, out, cv::ROTATE_180);
            break;
        case TRANSPOSE_FLIP_TB:
            cv::flip(in, out, 0);
            break;
        case TRANSPOSE_FLIP_LR:
            cv::flip(in, out, 1);
            break;
    }
    return out;
}

std::vector<uint8_t> MatBytes(const cv::Mat& m) {
    std::vector<uint8_t> out;
    for (int y = 0; y < m.rows; ++y) out.insert(out.end(), m.ptr<uint8_t>(y), m.ptr<uint8_t>(y) + m.cols);
    return out;
}

class TransposeIsa : public testing::IsaLevelTest {};

TEST_P(TransposeIsa, EveryOperationEqualsOpenCvAtAwkwardSizesOriginsAndPaddedDestinations) {
    uint32_t seed = 3;
    for (int w : testing::AwkwardWidths())
        for (int h : {1, 15, 16, 17, 33, 40})
            for (Point p : {Point{0, 0}, Point{3, 1}}) {
                auto src = RandomImage(w + p.x + 2, h + p.y + 3, seed++);
                const Rect r{p.x, p.y, p.x + w, p.y + h};
                for (TransOpType op : kOps) {
                    const int dw = Quarter(op) ? h : w, dh = Quarter(op) ? w : h;
                    auto dst = testing::FilledImage(dw, dh, 0x3C);
                    swTransposeAgent agent(src.get(), dst.get(), r, op);
                    ASSERT_EQ(agent.Go(), 0);
                    EXPECT_EQ(Pixels(*dst), MatBytes(OpenCv(*src, r, op)))
                        << "op " << op << " region " << w << "x" << h << " at " << p.x << "," << p.y;
                    testing::ExpectPaddingIs(*dst, kPadByte);
                }
            }
}

TEST_P(TransposeIsa, EachVectorLevelHandlesTheWholeVectorsOfARowOrBand) {
    if (Level() == Isa::Scalar) GTEST_SKIP() << "the reference finishes every span";
    auto src = RandomImage(200, 16, 8);
    if (transpose::kTileKernels.HasOwnKernel(Level())) {
        Buffer ours(16, 200, EIGHT), reference(16, 200, EIGHT);
        transpose::TileJob job{src->Row(0), src->Pitch(), 16, ours.Row(0), ours.Pitch()};
        const int handled = transpose::kTileKernels.At(Level())(0, 200, job);
        EXPECT_GT(handled, 200 - 64);
        EXPECT_LE(handled, 200);
        job.d = reference.Row(0);
        transpose::kTileKernels.Scalar()(0, handled, job);
        EXPECT_EQ(Pixels(ours), Pixels(reference));
        job.rows = 15;  // a short band is the reference's alone
        EXPECT_EQ(transpose::kTileKernels.At(Level())(0, 200, job), 0);
    }

    std::vector<uint8_t> line(200, 0), expected(200, 0);
    for (const auto* family : {&transpose::kReverseKernels, &transpose::kCopyKernels}) {
        const bool reverse = family == &transpose::kReverseKernels;
        transpose::LineJob lj{src->Row(0), line.data() + (reverse ? 199 : 0)};
        const int done = family->At(Level())(0, 200, lj);
        EXPECT_GT(done, 200 - 64);
        lj.d = expected.data() + (reverse ? 199 : 0);
        family->Scalar()(0, done, lj);
        EXPECT_EQ(line, expected) << (reverse ? "reverse" : "copy");
    }
}

TEST_P(TransposeIsa, ATurnThenItsInverseAndTwoEqualMirrorsGiveTheRegionBack) {
    auto src = RandomImage(131, 77, 21);
    const Rect r{5, 3, 5 + 100, 3 + 67};
    const cv::Mat region = View(*src, r).clone();
    const std::pair<TransOpType, TransOpType> pairs[] = {{TRANSPOSE_ROT90_CW, TRANSPOSE_ROT90_CCW},
                                                         {TRANSPOSE_ROT90_CCW, TRANSPOSE_ROT90_CW},
                                                         {TRANSPOSE_ROT180, TRANSPOSE_ROT180},
                                                         {TRANSPOSE_FLIP_TB, TRANSPOSE_FLIP_TB},
                                                         {TRANSPOSE_FLIP_LR, TRANSPOSE_FLIP_LR}};
    for (auto [there, back] : pairs) {
        const bool quarter = Quarter(there);
        Buffer mid(quarter ? 67 : 100, quarter ? 100 : 67, EIGHT), out(100, 67, EIGHT);
        swTransposeAgent first(src.get(), &mid, r, there);
        first.Go();
        swTransposeAgent second(&mid, &out, back);
        second.Go();
        EXPECT_EQ(Pixels(out), MatBytes(region)) << there << " then " << back;
    }
}

OMBREL_INSTANTIATE_ISA_LEVELS(TransposeIsa);

TEST(Transpose, SmallRegionFollowsTheMappingsByHand) {
    // A 3 x 2 region: row 0 is 1 2 3, row 1 is 4 5 6.
    Buffer src(3, 2, EIGHT);
    const uint8_t values[] = {1, 2, 3, 4, 5, 6};
    for (int i = 0; i < 6; ++i) src.Row(i / 3)[i % 3] = values[i];
    const std::vector<uint8_t> expected[] = {
        {3, 6, 2, 5, 1, 4},  // counter-clockwise: the right column becomes the top row
        {4, 1, 5, 2, 6, 3},  // clockwise: the left column read upwards becomes the top row
        {6, 5, 4, 3, 2, 1},
        {4, 5, 6, 1, 2, 3},
        {3, 2, 1, 6, 5, 4}};
    for (TransOpType op : kOps) {
        Buffer dst(Quarter(op) ? 2 : 3, Quarter(op) ? 3 : 2, EIGHT);
        swTransposeAgent agent(&src, &dst, op);
        agent.Go();
        EXPECT_EQ(Pixels(dst), expected[op]) << "op " << op;
    }
}

TEST(Transpose, ValuesAboveFourAndNegativeOnesWriteNothing) {
    auto src = RandomImage(20, 20, 1);
    for (int op : {5, 9, 1000, -1}) {
        testing::AssertRecorder rec;
        auto dst = testing::FilledImage(4, 4, 0x5A);  // too small for any operation: still no assertion
        swTransposeAgent agent(src.get(), dst.get(), static_cast<TransOpType>(op));
        EXPECT_EQ(agent.Go(), 0);
        EXPECT_EQ(Pixels(*dst), std::vector<uint8_t>(16, 0x5A)) << op;
        EXPECT_EQ(rec.Count(), 0u) << op;
    }
}

TEST(Transpose, DestinationAssertionsOfEachOperationByModuleLineAndText) {
    auto src = RandomImage(30, 20, 2);
    Buffer small(10, 10, EIGHT);
    const int quarterLines[2][2] = {{22, 23}, {31, 32}};
    for (TransOpType op : {TRANSPOSE_ROT90_CCW, TRANSPOSE_ROT90_CW}) {
        testing::AssertRecorder rec;
        swTransposeAgent agent(src.get(), &small, op);
        agent.Go();
        EXPECT_TRUE(rec.Has("swtranspose", quarterLines[op][0], "_dstBuf->Height() >= _sRoi.Width()"));
        EXPECT_TRUE(rec.Has("swtranspose", quarterLines[op][1], "_dstBuf->Width() >= _sRoi.Height()"));
        EXPECT_EQ(rec.Count(), 2u);
    }
    for (auto [op, line] : {std::pair{TRANSPOSE_ROT180, 40}, std::pair{TRANSPOSE_FLIP_TB, 49},
                            std::pair{TRANSPOSE_FLIP_LR, 58}}) {
        testing::AssertRecorder rec;
        swTransposeAgent agent(src.get(), &small, op);
        agent.Go();
        EXPECT_TRUE(rec.Has("swtranspose", line, "_dstBuf->Width() >= _sRoi.Width()"));
        EXPECT_TRUE(rec.Has("swtranspose", line + 1, "_dstBuf->Height() >= _sRoi.Height()"));
        EXPECT_EQ(rec.Count(), 2u);
    }
    testing::AssertRecorder rec;
    swTransposeAgent none(nullptr, nullptr, Rect{0, 0, 4, 4}, TRANSPOSE_FLIP_LR);
    EXPECT_EQ(none.Go(), 0);
    EXPECT_EQ(rec.Reports().at(0).expression, "_srcBuf");
    EXPECT_EQ(rec.Reports().at(1).expression, "_dstBuf");
    EXPECT_TRUE(rec.Has("swtranspose", 58));
}

// Regions over the source's edges and destinations too small: only pixels whose source lies inside the
// source and whose mapped position lies inside the destination are written, at their unshifted positions.
TEST(Transpose, ClippedRegionsWriteOnlyTheMappedPixelsThatExist) {
    testing::AssertRecorder quiet;
    auto src = RandomImage(23, 19, 12);
    for (TransOpType op : kOps)
        for (Rect r : {Rect{-5, -4, 15, 12}, Rect{10, 8, 40, 30}, Rect{-50, -50, 80, 80}, Rect{23, 0, 30, 5}})
            for (auto [dw, dh] : {std::pair{7, 9}, std::pair{40, 40}}) {
                auto dst = testing::FilledImage(dw, dh, 0x3C);
                swTransposeAgent agent(src.get(), dst.get(), r, op);
                EXPECT_EQ(agent.Go(), 0);
                testing::ExpectPaddingIs(*dst, kPadByte);
                const int W = r.Width(), H = r.Height();
                std::vector<uint8_t> expected(static_cast<size_t>(dw) * dh, 0x3C);
                for (int row = 0; row < H; ++row)
                    for (int c = 0; c < W; ++c) {
                        const int sx = r.left + c, sy = r.top + row;
                        if (sx < 0 || sy < 0 || sx >= 23 || sy >= 19) continue;
                        int x = 0, y = 0;
                        switch (op) {
                            case TRANSPOSE_ROT90_CCW:
                                x = row, y = W - 1 - c;
                                break;
                            case TRANSPOSE_ROT90_CW:
                                x = H - 1 - row, y = c;
                                break;
                            case TRANSPOSE_ROT180:
                                x = W - 1 - c, y = H - 1 - row;
                                break;
                            case TRANSPOSE_FLIP_TB:
                                x = c, y = H - 1 - row;
                                break;
                            case TRANSPOSE_FLIP_LR:
                                x = W - 1 - c, y = row;
                                break;
                        }
                        if (x < dw && y < dh) expected[static_cast<size_t>(y) * dw + x] = src->Row(sy)[sx];
                    }
                EXPECT_EQ(Pixels(*dst), expected) << "op " << op << " region at " << r.left << "," << r.top;
            }
}

TEST(TransposeFact, ChoosesSoftwareForAHostSourceAndAnOwnedDestination) {
    auto src = RandomImage(12, 8, 4);
    Buffer dst(8, 12, EIGHT);
    std::vector<uint8_t> lent(96);
    Buffer wrapped(lent.data(), 12, 8, 12, EIGHT);
    Buffer board(nullptr, MONSTER_ALLOC_DEFAULT, BANK_0, 12, 8, EIGHT);
    testing::TextRecorder text;
    std::unique_ptr<TransposeAgent> whole(TransposeFact(&wrapped, &dst, TRANSPOSE_ROT90_CW));
    ASSERT_NE(dynamic_cast<swTransposeAgent*>(whole.get()), nullptr);
    std::unique_ptr<TransposeAgent> rect(TransposeFact(src.get(), &dst, Rect{1, 1, 5, 5}, TRANSPOSE_ROT180));
    ASSERT_NE(rect, nullptr);
    rect->Go();
    EXPECT_EQ(dst.Row(0)[0], src->Row(4)[4]);
    std::unique_ptr<TransposeAgent> roi(
        TransposeFact(src.get(), &dst, Point{2, 2}, ROI(3, 3), TRANSPOSE_FLIP_LR));
    ASSERT_NE(roi, nullptr);
    roi->Go();
    EXPECT_EQ(dst.Row(0)[0], src->Row(2)[4]);
    EXPECT_EQ(TransposeFact(src.get(), &wrapped, TRANSPOSE_FLIP_TB), nullptr);
    EXPECT_EQ(TransposeFact(src.get(), &board, TRANSPOSE_FLIP_TB), nullptr);
    EXPECT_EQ(TransposeFact(&board, &board, TRANSPOSE_FLIP_TB), nullptr);
}

}  // namespace
}  // namespace ombrel
