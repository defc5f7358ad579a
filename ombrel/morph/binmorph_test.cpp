// SPDX-License-Identifier: MIT
#include "ombrel/morph/binmorph.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <opencv2/imgproc.hpp>
#include <random>
#include <string>
#include <vector>

#include "ombrel/framework/kernel_family.h"
#include "ombrel/morph/binmorph_kernels.h"
#include "testing/images.h"
#include "testing/recorders.h"

namespace ombrel {
namespace {

using testing::kPadByte;
using testing::Pixels;

// A w x h image from rows of '.', '#' (1) and 'F' (frozen 1, byte 3), padded.
std::unique_ptr<Buffer> Picture(const std::vector<std::string>& rows) {
    auto b = testing::FilledImage(static_cast<int>(rows[0].size()), static_cast<int>(rows.size()), 0);
    for (size_t y = 0; y < rows.size(); ++y)
        for (size_t x = 0; x < rows[y].size(); ++x)
            b->Row(static_cast<int>(y))[x] = rows[y][x] == '#' ? 1 : rows[y][x] == 'F' ? 3 : 0;
    return b;
}

std::vector<std::string> Drawing(const Buffer& b) {
    std::vector<std::string> rows;
    for (int y = 0; y < b.Height(); ++y) {
        std::string row;
        for (int x = 0; x < b.Width(); ++x) row += b.Row(y)[x] == 0 ? '.' : b.Row(y)[x] == 1 ? '#' : 'F';
        rows.push_back(row);
    }
    return rows;
}

// Random bytes 0..3: set, clear and frozen pixels mixed.
std::unique_ptr<Buffer> RandomBinary(int w, int h, uint32_t seed, int frozenPercent = 5) {
    auto b = testing::RandomImage(w, h, seed);
    std::mt19937 rng(seed);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            b->Row(y)[x] =
                static_cast<uint8_t>((rng() % 2) | (static_cast<int>(rng() % 100) < frozenPercent ? 2 : 0));
    return b;
}

std::vector<std::string> Morph(const std::vector<std::string>& picture, BinMorphOpCode code,
                               int iterations = 1, BMBORDER border = BMBORDER_CLEAR) {
    auto src = Picture(picture);
    Buffer dst(src->Width(), src->Height(), EIGHT);
    BinMorphOperator op(code);
    swBinMorphAgent agent(src.get(), &dst, border, &op, iterations);
    EXPECT_EQ(agent.Go(), 0);
    return Drawing(dst);
}

TEST(BinMorphOperator, TablesFollowTheirRules) {
    int ones = 0;
    for (int i = 0; i < 256; ++i) ones += GrowNoMergeLut()[i];
    EXPECT_EQ(ones, 133);
    EXPECT_EQ(GrowNoMergeLut()[0], 1);     // no clear neighbour
    EXPECT_EQ(GrowNoMergeLut()[0x81], 0);  // upper right and lower left: two groups
    EXPECT_EQ(GrowNoMergeLut()[0x0A], 1);  // upper and right touch diagonally: one group

    const BinMorphOperator erode(ErodeFull), dilate(DilateFull), keep6(ErodeKeep6), pinholes(FillPinholes);
    for (int c = 0; c < 512; ++c) {
        EXPECT_EQ(erode.Bmo(c) != 0, c == 511) << c;
        EXPECT_EQ(dilate.Bmo(c) != 0, c != 0) << c;
        EXPECT_EQ(pinholes.Bmo(c) != 0, (c & 16) != 0 || c == 511 - 16) << c;
    }
    EXPECT_NE(keep6.Bmo(511 - 1 - 2), 0);      // centre and 7 set
    EXPECT_EQ(keep6.Bmo(511 - 1 - 2 - 4), 0);  // centre and 6 set
    const BinMorphOperator square(KeepSquareOrDiagonal), bridges(FillBridges), tfp(TFP);
    EXPECT_NE(square.Bmo(27), 0);
    EXPECT_EQ(square.Bmo(27 - 1), 0);
    EXPECT_NE(square.Bmo(94 | 256), 0);
    EXPECT_EQ(bridges.Bmo(1 | 256), 0);  // both diagonal ends inside mask 417
    EXPECT_NE(bridges.Bmo(2 | 128), 0);  // upper and lower: a bridge through a clear centre
    EXPECT_EQ(bridges.Bmo(1 | 2), 0);    // both inside mask 79
    EXPECT_EQ(tfp.Bmo(511), 0);
    EXPECT_NE(tfp.Bmo(511 - 1 - 2), 0);
    EXPECT_EQ(BinMorphOperator(ETPTL).Bmo(16 | 8), 0);
    EXPECT_NE(BinMorphOperator(ETPTL).Bmo(16 | 32), 0);
    EXPECT_EQ(BinMorphOperator(ETPBR).Bmo(16 | 32), 0);
    // Directional thinning: a pixel whose lower neighbour is set and upper clear, clear neighbours one group.
    const BinMorphOperator up(Up), down(Down);
    const int edgeOfBlock = 16 | 8 | 32 | 64 | 128 | 256;  // the upper row is clear
    EXPECT_EQ(up.Bmo(edgeOfBlock), 0);
    EXPECT_NE(down.Bmo(edgeOfBlock), 0);
    EXPECT_EQ(down.Bmo(16 | 2), 0);  // an end pixel (centre and one neighbour)

    const BinMorphOperator unknown(static_cast<BinMorphOpCode>(18));
    EXPECT_EQ(unknown.GetError(), kBinMorphUnknownOp);
    EXPECT_EQ(unknown.Lut(), nullptr);
    EXPECT_EQ(unknown.Bmo(511), 0);
    EXPECT_EQ(BinMorphOperator(static_cast<BinMorphOpCode>(-1)).GetError(), kBinMorphUnknownOp);
    EXPECT_EQ(erode.Bmo(512), 0);
    EXPECT_EQ(erode.Bmo(-1), 0);
}

TEST(BinMorphAgent, PassesFollowTheNeighbourhoodRules) {
    EXPECT_EQ(Morph({".....", ".....", "..#..", ".....", "....."}, DilateFull),
              (std::vector<std::string>{".....", ".###.", ".###.", ".###.", "....."}));
    EXPECT_EQ(Morph({".....", ".###.", ".###.", ".###.", "....."}, ErodeFull),
              (std::vector<std::string>{".....", ".....", "..#..", ".....", "....."}));
    EXPECT_EQ(Morph({"###", "#.#", "###", "..."}, FillPinholes),
              (std::vector<std::string>{"###", "###", "###", "..."}));
    EXPECT_EQ(Morph({"####", "####", "####"}, ErodeFull, 1, BMBORDER_SET),
              (std::vector<std::string>{"####", "####", "####"}));
    EXPECT_EQ(Morph({"####", "####", "####"}, ErodeFull, 1, BMBORDER_CLEAR),
              (std::vector<std::string>{"....", ".##.", "...."}));
    // A frozen pixel is copied whole and counts; its set bit still feeds its neighbours.
    EXPECT_EQ(Morph({"....", ".F..", "...."}, ErodeFull), (std::vector<std::string>{"....", ".F..", "...."}));
    EXPECT_EQ(Morph({"...", ".F.", "..."}, DilateFull), (std::vector<std::string>{"###", "#F#", "###"}));
    const unsigned allOnes[16] = {~0u, ~0u, ~0u, ~0u, ~0u, ~0u, ~0u, ~0u,
                                  ~0u, ~0u, ~0u, ~0u, ~0u, ~0u, ~0u, ~0u};
    auto src = Picture({"..F", "...", "..."});
    Buffer dst(3, 3, EIGHT);
    BinMorphOperator mine(allOnes), unknown(static_cast<BinMorphOpCode>(40));
    swBinMorphAgent agent(src.get(), &dst, BMBORDER_CLEAR, &mine, 1);
    EXPECT_EQ(agent.Go(), 0);
    EXPECT_EQ(Drawing(dst), (std::vector<std::string>{"##F", "###", "###"}));
    EXPECT_EQ(agent.SetPixelCount(), 9);
    EXPECT_EQ(agent.Go(&unknown), 0);  // no table: every pixel that is not frozen becomes 0
    EXPECT_EQ(Drawing(dst), (std::vector<std::string>{"..F", "...", "..."}));
    EXPECT_EQ(agent.SetPixelCount(), 1);
}

TEST(BinMorphAgent, NarrowRectanglesReadTheBorderOnBothSides) {
    EXPECT_EQ(Morph({"#", "#", "#"}, ErodeFull, 1, BMBORDER_SET), (std::vector<std::string>{"#", "#", "#"}));
    EXPECT_EQ(Morph({"#", "#", "#"}, ErodeFull, 1, BMBORDER_CLEAR),
              (std::vector<std::string>{".", ".", "."}));
    EXPECT_EQ(Morph({"#.#"}, FillPinholes, 1, BMBORDER_SET), (std::vector<std::string>{"###"}));
    EXPECT_EQ(Morph({"."}, FillPinholes, 1, BMBORDER_SET), (std::vector<std::string>{"#"}));
    EXPECT_EQ(Morph({"#"}, TFP, 1, BMBORDER_CLEAR), (std::vector<std::string>{"#"}));
}

TEST(BinMorphAgent, IterationsCountsAndChangedFlag) {
    const std::vector<std::string> dot{".......", ".......", ".......", "...#...",
                                       ".......", ".......", "......."};
    EXPECT_EQ(Morph(dot, DilateFull, 2)[1], ".#####.");
    EXPECT_EQ(Morph(dot, DilateFull, 3)[0], "#######");
    EXPECT_EQ(Morph(dot, DilateFull, 0), std::vector<std::string>(7, "......."));  // destination untouched

    auto src = Picture(dot);
    Buffer dst(7, 7, EIGHT);
    BinMorphOperator dilate(DilateFull);
    swBinMorphAgent agent(src.get(), &dst, BMBORDER_CLEAR, &dilate, 2);
    EXPECT_EQ(agent.Go(), 0);
    EXPECT_EQ(agent.SetPixelCount(), 25);
    EXPECT_EQ(agent.PreviousCount(), 25);
    EXPECT_EQ(agent.Changed(), 1);
    EXPECT_EQ(agent.Go(), 0);
    EXPECT_EQ(agent.Changed(), 0);
    // Later passes work on the destination's whole area: a region of 3 x 3 seeds them, then they spread.
    swBinMorphAgent part(src.get(), &dst, Rect{2, 2, 5, 5}, BMBORDER_CLEAR, &dilate, 3);
    dst.CopyFrom(Picture(std::vector<std::string>(7, ".......")).get());
    EXPECT_EQ(part.Go(), 0);
    EXPECT_EQ(Drawing(dst), (std::vector<std::string>{"#####..", "#####..", "#####..", "#####..", "#####..",
                                                      ".......", "......."}));
    EXPECT_EQ(part.SetPixelCount(), 25);

    // A huge count settles as soon as the image does, with the same result as the passes it needs.
    auto blob = RandomBinary(64, 48, 7, 0);
    Buffer a(64, 48, EIGHT), b(64, 48, EIGHT);
    BinMorphOperator erode(ErodeFull);
    swBinMorphAgent many(blob.get(), &a, BMBORDER_CLEAR, &erode, INT_MAX);
    swBinMorphAgent few(blob.get(), &b, BMBORDER_CLEAR, &erode, 41);
    EXPECT_EQ(many.Go(), 0);
    EXPECT_EQ(few.Go(), 0);
    EXPECT_EQ(Pixels(a), Pixels(b));
    EXPECT_EQ(many.SetPixelCount(), 0);
}

// Left, Up, Right, Down repeated until none of them changes its count, as break detection converges.
void ThinToConvergence(Buffer& work) {
    BinMorphOperator ops[4] = {BinMorphOperator(Left), BinMorphOperator(Up), BinMorphOperator(Right),
                               BinMorphOperator(Down)};
    swBinMorphAgent agents[4] = {{&work, &work, BMBORDER_CLEAR, &ops[0], 1},
                                 {&work, &work, BMBORDER_CLEAR, &ops[1], 1},
                                 {&work, &work, BMBORDER_CLEAR, &ops[2], 1},
                                 {&work, &work, BMBORDER_CLEAR, &ops[3], 1}};
    for (int round = 0; round < 100; ++round) {
        int changed = 0;
        for (auto& agent : agents) {
            ASSERT_EQ(agent.Go(), 0);
            changed |= agent.Changed();
        }
        if (!changed) return;
    }
    FAIL() << "thinning did not settle";
}

TEST(BinMorphAgent, ThinningLeavesTheOnePixelMedialLoopOfARing) {
    // A square ring 20 x 18 with a 6 x 6 hole: bands 7 pixels wide left and right, 6 above and below.
    Buffer work(24, 22, EIGHT);
    for (int y = 2; y < 20; ++y)
        for (int x = 2; x < 22; ++x) work.Row(y)[x] = (y >= 8 && y < 14 && x >= 9 && x < 15) ? 0 : 1;
    ThinToConvergence(work);
    // The loop runs through the middle of each band: columns 5 and 18, rows 5 and 17.
    for (int y = 0; y < 22; ++y)
        for (int x = 0; x < 24; ++x) {
            const bool onLoop =
                (x >= 5 && x <= 18 && (y == 5 || y == 17)) || (y >= 5 && y <= 17 && (x == 5 || x == 18));
            ASSERT_EQ(work.Row(y)[x], onLoop ? 1 : 0) << x << "," << y;
        }
    // One pixel wide: no 2 x 2 block is set anywhere.
    for (int y = 0; y + 1 < 22; ++y)
        for (int x = 0; x + 1 < 24; ++x)
            EXPECT_FALSE(work.Row(y)[x] && work.Row(y)[x + 1] && work.Row(y + 1)[x] &&
                         work.Row(y + 1)[x + 1]);

    // Open branches have end pixels, and the tables clear end pixels: a one-pixel plus vanishes.
    auto plus =
        Picture({".........", "....#....", "....#....", ".#######.", "....#....", "....#....", "........."});
    ThinToConvergence(*plus);
    EXPECT_EQ(Drawing(*plus), std::vector<std::string>(7, "........."));
    // One pass of Left on a line and a block: ends go, and so does the block's left edge.
    EXPECT_EQ(Morph({".......", ".#####.", "......."}, Left)[1], "..###..");
    EXPECT_EQ(Morph({".....", ".###.", ".###.", ".###.", "....."}, Left),
              (std::vector<std::string>{".....", "..##.", "..##.", "..##.", "....."}));
}

TEST(BinMorphAgent, FactoriesCheckSizesAndTypes) {
    testing::AssertRecorder recorder;
    Buffer src(8, 8, EIGHT), dst(8, 8, EIGHT), small(7, 8, EIGHT);
    BinMorphOperator op(Copy);
    EXPECT_EQ(BinMorphFact(&src, &small, BMBORDER_CLEAR, &op, 1), nullptr);
    ASSERT_EQ(recorder.Count(), 1u);
    EXPECT_EQ(recorder.Reports()[0].module, "lfbinmorph");
    EXPECT_EQ(recorder.Reports()[0].expression,
              "(src->Width() == dst->Width()) && (src->Height() == dst->Height())");
    EXPECT_EQ(BinMorphFact(nullptr, &dst, BMBORDER_CLEAR, &op, 1), nullptr);
    recorder.Clear();

    uint8_t pixels[64] = {};
    Buffer wrapped(pixels, 8, 8, 8, EIGHT);
    EXPECT_EQ(BinMorphFact(&src, &wrapped, BMBORDER_CLEAR, &op, 1), nullptr);  // destination must be owned
    std::unique_ptr<BinMorphAgent> a(BinMorphFact(&wrapped, &dst, BMBORDER_CLEAR, &op, 1));
    std::unique_ptr<BinMorphAgent> b(BinMorphFact(&src, &dst, Rect{1, 1, 5, 5}, BMBORDER_SET, &op, 2));
    std::unique_ptr<BinMorphAgent> c(BinMorphFact(&src, &dst, Point{1, 2}, ROI(3, 3), BMBORDER_SET, &op, 1));
    std::unique_ptr<BinMorphAgent> d(BinMorphFact(&src, &dst, 1, 1, 5, 5, BMBORDER_SET, &op, 1));
    ASSERT_TRUE(a && b && c && d);
    EXPECT_EQ(b->SrcPt(), (Point{1, 1}));
    EXPECT_EQ(b->SrcROI().Width(), 4);
    EXPECT_EQ(b->Iterations(), 2);
    EXPECT_EQ(c->SrcPt(), (Point{1, 2}));
    EXPECT_EQ(d->SrcROI().Height(), 4);
    EXPECT_EQ(recorder.Count(), 0u);
}

TEST(BinMorphAgent, InPlaceAndShiftedWithinOneBufferAsFromACopy) {
    BinMorphOperator op(KeepSquareOrDiagonal);
    for (Point at : {Point{0, 0}, Point{2, 3}, Point{0, 1}}) {
        auto image = RandomBinary(40, 20, 9);
        Buffer copy(*image);
        Buffer apart(*image);
        swBinMorphAgent inPlace(image.get(), image.get(), at, ROI(35, 15), BMBORDER_SET, &op, 1);
        swBinMorphAgent fromCopy(&copy, &apart, at, ROI(35, 15), BMBORDER_SET, &op, 1);
        ASSERT_EQ(inPlace.Go(), 0);
        ASSERT_EQ(fromCopy.Go(), 0);
        EXPECT_EQ(Pixels(*image), Pixels(apart)) << at.x << "," << at.y;
    }
}

TEST(BinMorphAgent, RegionsOverTheEdgeAreClipped) {
    auto src = RandomBinary(20, 10, 3);
    auto dst = testing::FilledImage(20, 10, 0);
    BinMorphOperator op(DilateFull);
    swBinMorphAgent agent(src.get(), dst.get(), Point{15, 6}, ROI(100, 100), BMBORDER_CLEAR, &op, 3);
    EXPECT_EQ(agent.Go(), 0);
    testing::ExpectPaddingIs(*dst);
    swBinMorphAgent outside(src.get(), dst.get(), Point{-50, 0}, ROI(10, 10), BMBORDER_CLEAR, &op, 1);
    const auto before = Pixels(*dst);
    EXPECT_EQ(outside.Go(), 0);
    EXPECT_EQ(Pixels(*dst), before);
}

// Erosion and dilation by a 3x3 square, as OpenCV computes them with a constant border of the same value.
TEST(BinMorphAgent, ErodeAndDilateFullMatchOpenCv) {
    for (int w : {1, 5, 33, 70}) {
        for (BMBORDER border : {BMBORDER_CLEAR, BMBORDER_SET}) {
            auto src = RandomBinary(w, 23, static_cast<uint32_t>(w * 3 + border), 0);
            cv::Mat m(23, w, CV_8U);
            for (int y = 0; y < 23; ++y) std::copy(src->Row(y), src->Row(y) + w, m.ptr<uint8_t>(y));
            const cv::Mat square = cv::Mat::ones(3, 3, CV_8U);
            for (BinMorphOpCode code : {ErodeFull, DilateFull}) {
                cv::Mat expected;
                if (code == ErodeFull)
                    cv::erode(m, expected, square, {-1, -1}, 1, cv::BORDER_CONSTANT, cv::Scalar(border));
                else
                    cv::dilate(m, expected, square, {-1, -1}, 1, cv::BORDER_CONSTANT, cv::Scalar(border));
                Buffer dst(w, 23, EIGHT);
                BinMorphOperator op(code);
                swBinMorphAgent agent(src.get(), &dst, border, &op, 1);
                ASSERT_EQ(agent.Go(), 0);
                for (int y = 0; y < 23; ++y)
                    ASSERT_TRUE(std::equal(dst.Row(y), dst.Row(y) + w, expected.ptr<uint8_t>(y)))
                        << "w " << w << " row " << y << " code " << code << " border " << border;
            }
        }
    }
}

class BinMorphAtLevel : public testing::IsaLevelTest {};

TEST_P(BinMorphAtLevel, EveryLevelWritesTheReferenceBytes) {
    uint32_t seed = 1;
    for (int w : testing::AwkwardWidths()) {
        for (int code = 0; code <= 17; ++code, ++seed) {
            auto src = RandomBinary(w + 3, 9, seed, 10);
            auto got = testing::FilledImage(w + 1, 9, kPadByte);
            auto want = testing::FilledImage(w + 1, 9, kPadByte);
            BinMorphOperator op(static_cast<BinMorphOpCode>(code));
            const int iterations = 1 + code % 3;
            const auto border = static_cast<BMBORDER>(code % 2);
            swBinMorphAgent mine(src.get(), got.get(), Point{3, 1}, ROI(w, 7), border, &op, iterations);
            ASSERT_EQ(mine.Go(), 0);
            {
                testing::ScopedIsaCap reference(Isa::Scalar);
                swBinMorphAgent plain(src.get(), want.get(), Point{3, 1}, ROI(w, 7), border, &op, iterations);
                ASSERT_EQ(plain.Go(), 0);
                EXPECT_EQ(mine.SetPixelCount(), plain.SetPixelCount());
            }
            ASSERT_EQ(Pixels(*got), Pixels(*want)) << "width " << w << " code " << code;
            testing::ExpectPaddingIs(*got);
        }
    }
}

TEST_P(BinMorphAtLevel, EachVectorLevelHandlesTheWholeVectorsOfARow) {
    const binmorph::RowKernel* kernel = binmorph::kRowKernels.At(Level());
    if (Level() == Isa::Scalar || !binmorph::kRowKernels.HasOwnKernel(Level()))
        GTEST_SKIP() << "no vector kernel of its own at this level";
    const int n = 64 * 3 + 13, width = Level() == Isa::Avx2 ? 32 : 64;
    std::mt19937 rng(5);
    std::vector<uint8_t> row(n + 2), codes[3], centre(n);
    for (auto& v : row) v = static_cast<uint8_t>(rng() % 4);
    for (auto& v : centre) v = static_cast<uint8_t>(rng() % 4);
    // Triples: the vector level's codes equal the reference's over the vectors it took.
    std::vector<uint8_t> vecT(n, 0xEE), refT(n, 0xEE);
    binmorph::TripleJob triple{row.data() + 1, vecT.data()};
    const int tripleStop = binmorph::kTripleKernels.At(Level())(0, n, triple);
    EXPECT_EQ(tripleStop, n / width * width);
    triple.t = refT.data();
    binmorph::kTripleKernels.Scalar()(0, tripleStop, triple);
    EXPECT_EQ(vecT, refT);
    for (auto& c : codes) {
        c.resize(n);
        for (auto& v : c) v = static_cast<uint8_t>(rng() % 8);
    }
    BinMorphOperator op(TFP);
    uint8_t lutBytes[64] = {};
    for (int c = 0; c < 512; ++c)
        if (op.Bmo(c)) lutBytes[c / 8] |= static_cast<uint8_t>(1 << (c % 8));
    std::vector<uint8_t> vec(n, 0xEE), ref(n, 0xEE);
    uint64_t vecCount = 0, refCount = 0;
    binmorph::RowJob job{codes[0].data(), codes[1].data(), codes[2].data(), centre.data(),
                         vec.data(),      op.Lut(),        lutBytes,        &vecCount};
    const int stopped = kernel(0, n, job);
    EXPECT_EQ(stopped, n / width * width);
    job.d = ref.data(), job.count = &refCount;
    binmorph::kRowKernels.Scalar()(0, stopped, job);
    EXPECT_EQ(vec, ref);
    EXPECT_EQ(vecCount, refCount);
}

OMBREL_INSTANTIATE_ISA_LEVELS(BinMorphAtLevel);

}  // namespace
}  // namespace ombrel
