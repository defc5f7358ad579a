// SPDX-License-Identifier: MIT
#include "ombrel/pixelops/arith.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <vector>

#ifdef OMBREL_TEST_WITH_OPENCV
#include <opencv2/core.hpp>
#endif

#include "ombrel/framework/kernel_family.h"
#include "ombrel/pixelops/arith_kernels.h"
#include "testing/images.h"
#include "testing/recorders.h"

namespace ombrel {
namespace {

using testing::AssertRecorder;
using testing::ScopedIsaCap;
using testing::TextRecorder;

std::unique_ptr<Buffer> Filled(int w, int h, uint8_t value) {
    auto b = std::make_unique<Buffer>(w, h, EIGHT);
    for (int y = 0; y < h; ++y) std::memset(b->Row(y), value, static_cast<size_t>(b->Pitch()));
    return b;
}

std::unique_ptr<Buffer> Random(int w, int h, uint32_t seed) {
    auto b = std::make_unique<Buffer>(w, h, EIGHT);
    std::mt19937 rng(seed);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) b->Row(y)[x] = static_cast<uint8_t>(rng());
    return b;
}

// Runs one operation on single pixels a (and b): the byte written.
uint8_t One(ArithOp op, uint8_t a, uint8_t b, double gain = 1.0, int offset = 0,
            void (*tune)(ArithAgent*) = nullptr) {
    auto A = Filled(1, 1, a), B = Filled(1, 1, b), D = Filled(1, 1, 0x5A);
    std::unique_ptr<ArithAgent> agent(
        ArithFact(A.get(), B.get(), op, static_cast<float>(gain), offset, D.get()));
    if (tune != nullptr) tune(agent.get());
    EXPECT_EQ(agent->Go(), 0);
    return D->Row(0)[0];
}

TEST(ArithNorm, GainBecomesMultiplierAndShiftAndOffsetSplitsAroundIt) {
    auto A = Filled(4, 4, 0), D = Filled(4, 4, 0);
    swArithAgent agent(A.get(), nullptr, _ARITH_COPY, 0.5, 0, D.get());
    EXPECT_EQ(agent.Multiplier(), 1);
    EXPECT_EQ(agent.Shift(), 1);
    agent.SetNorm(3.0, 0);
    EXPECT_EQ(agent.Multiplier(), 3);
    EXPECT_EQ(agent.Shift(), 0);
    agent.SetNorm(0.3, 0);  // 77/256 and 154/512 are equally near: the smaller shift wins
    EXPECT_EQ(agent.Multiplier(), 77);
    EXPECT_EQ(agent.Shift(), 8);
    agent.SetNorm(-256.0, 0);
    EXPECT_EQ(agent.Multiplier(), -256);
    agent.SetNorm(3.0, 1000);  // 1000 / 3 = 333 before the gain, 1000 - 999 = 1 after it
    EXPECT_EQ(agent.PreOffset(), 333);
    EXPECT_EQ(agent.PostOffset(), 1);
    agent.SetNorm(2.0, -255);
    EXPECT_EQ(agent.PreOffset(), 0);
    EXPECT_EQ(agent.PostOffset(), -255);

    AssertRecorder asserts;
    agent.SetNorm(255.5, 65792);
    EXPECT_TRUE(asserts.Has("arith", 313, "DBLT_N_256 <= mGain && mGain <= DBLT_255"));
    EXPECT_TRUE(asserts.Has("arith", 314, "-(256*255+256) <= mOffset && mOffset <= (256*256+255)"));
    agent.SetNorm(0.0, 70000);  // no division by a zero gain: the offset is added whole
    EXPECT_EQ(agent.Go(), 0);
    EXPECT_EQ(D->Row(0)[0], 255);
}

// A gain outside -256..255 is reported and then used as given: the search stops at shift 0 with the gain
// itself as multiplier, and the offset is split around that gain, not around a clamped one.
TEST(ArithNorm, OutOfRangeGainsAreReportedAndKeptAsGiven) {
    auto A = Filled(4, 4, 2), D = Filled(4, 4, 0);
    swArithAgent agent(A.get(), nullptr, _ARITH_COPY, 1.0, 0, D.get());
    AssertRecorder asserts;
    agent.SetNorm(300.0, 0);
    EXPECT_TRUE(asserts.Has("arith", 313, "DBLT_N_256 <= mGain && mGain <= DBLT_255"));
    EXPECT_EQ(agent.Gain(), 300.0);
    EXPECT_EQ(agent.Multiplier(), 300);
    EXPECT_EQ(agent.Shift(), 0);
    agent.SetNorm(-300.0, 1000);  // 1000 / -300 = -3 before the gain, 1000 - 900 = 100 after it
    EXPECT_EQ(agent.Multiplier(), -300);
    EXPECT_EQ(agent.Shift(), 0);
    EXPECT_EQ(agent.PreOffset(), -3);
    EXPECT_EQ(agent.PostOffset(), 100);
    // (2 - 3) x -300 + 100 = 400: white with clipping, 400 & 255 = 144 without.
    EXPECT_EQ(agent.Go(), 0);
    EXPECT_EQ(D->Row(1)[2], 255);
    agent.SetSignClip(_ARITH_UNSIGNED, _ARITH_UNSIGNED, _ARITH_UNSIGNED, false, false);
    EXPECT_EQ(agent.Go(), 0);
    EXPECT_EQ(D->Row(1)[2], 144);
    agent.SetNorm(255.5, 0);  // 256 already leaves the range at shift 0
    EXPECT_EQ(agent.Multiplier(), 256);
    EXPECT_EQ(agent.Shift(), 0);
    agent.SetNorm(-256.4, 0);
    EXPECT_EQ(agent.Multiplier(), -256);
    EXPECT_EQ(agent.Shift(), 0);
    EXPECT_EQ(asserts.Count(), 4u) << "every out-of-range gain is reported, in-range ones are not";

    // Gains no integer holds saturate; NaN multiplies by 0 and keeps the offset after it. None may fail.
    agent.SetNorm(1e12, 0);
    EXPECT_EQ(agent.Multiplier(), INT32_MAX);
    agent.SetNorm(-std::numeric_limits<double>::infinity(), 1000);
    EXPECT_EQ(agent.Multiplier(), INT32_MIN);
    EXPECT_EQ(agent.PreOffset(), 0);
    EXPECT_EQ(agent.PostOffset(), 1000);
    EXPECT_EQ(agent.Go(), 0);
    agent.SetNorm(std::numeric_limits<double>::quiet_NaN(), 7);
    EXPECT_EQ(agent.Multiplier(), 0);
    EXPECT_EQ(agent.PostOffset(), 7);
    EXPECT_EQ(agent.Go(), 0);
    EXPECT_EQ(D->Row(3)[3], 7);
}

TEST(ArithSetup, AssertionsReportAndTheAgentTouchesNothingItLacks) {
    AssertRecorder asserts;
    auto A = Filled(8, 8, 1), D = Filled(8, 8, 7);
    Buffer wide(8, 8, SIXTEEN);
    swArithAgent noDest(A.get(), nullptr, _ARITH_COPY, 1.0, 0, nullptr);
    EXPECT_TRUE(asserts.Has("arith", 226, "dest != NULL"));
    EXPECT_EQ(noDest.Go(), kArithNoImage);
    swArithAgent noA(nullptr, nullptr, _ARITH_COPY, 1.0, 0, D.get());
    EXPECT_TRUE(asserts.Has("arith", 224, "srcA != NULL"));
    EXPECT_EQ(noA.Go(), kArithNoImage);
    swArithAgent depth(A.get(), nullptr, _ARITH_COPY, 1.0, 0, &wide);
    EXPECT_TRUE(asserts.Has("arith", 227, "srcA->BitsPerPixel() == dest->BitsPerPixel()"));
    EXPECT_EQ(depth.Go(), kArithNoImage);
    swArithAgent noB(A.get(), nullptr, _ARITH_ADD, 1.0, 0, D.get());
    EXPECT_TRUE(asserts.Has("arith", 229, "srcB != NULL"));
    asserts.Clear();
    EXPECT_EQ(noB.Go(), kArithNoImage);
    ASSERT_EQ(asserts.Count(), 1u);
    EXPECT_EQ(asserts.Reports()[0].module, "arith");
    EXPECT_EQ(asserts.Reports()[0].expression, "mSrcB != NULL");
    swArithAgent depthB(A.get(), &wide, _ARITH_MULT, 1.0, 0, D.get());
    EXPECT_TRUE(asserts.Has("arith", 230, "srcA->BitsPerPixel() == srcB->BitsPerPixel()"));
    EXPECT_EQ(depthB.Go(), kArithNoImage);
    EXPECT_EQ(D->Row(3)[3], 7);

    std::unique_ptr<ArithAgent> fact(ArithFact(nullptr, nullptr, _ARITH_NOT, 1.0f, 0, nullptr));
    EXPECT_TRUE(asserts.Has("lfarith", 34, "srcA && dest"));
    asserts.Clear();
    noB.SetSrcB(nullptr);
    EXPECT_EQ(asserts.Count(), 1u);
    EXPECT_EQ(asserts.Reports()[0].expression, "srcB->Type() == _srcBuf->Type()");
}

TEST(ArithFactory, ChoosesSoftwareForEitherHostTypeAndNothingForBoardOrMix) {
    std::vector<uint8_t> pixels(64, 3);
    Buffer wrapped(pixels.data(), 8, 8, 8, EIGHT);
    auto A = Filled(8, 8, 4), D = Filled(8, 8, 0);
    TextRecorder text;
    Buffer board(nullptr, MONSTER_ALLOC_DEFAULT, BANK_0, 8, 8, EIGHT);
    std::unique_ptr<ArithAgent> all(ArithFact(A.get(), 0, 0, 8, 8, &wrapped, _ARITH_ADD, 1.0f, 0, &wrapped));
    ASSERT_NE(all, nullptr);
    EXPECT_NE(dynamic_cast<swArithAgent*>(all.get()), nullptr);
    EXPECT_EQ(all->Go(), 0);
    EXPECT_EQ(pixels[9], 7);
    EXPECT_EQ(ArithFact(A.get(), Rect{0, 0, 8, 8}, &board, _ARITH_ADD, 1.0f, 0, D.get()), nullptr);
    EXPECT_EQ(ArithFact(&board, nullptr, _ARITH_NOT, 1.0f, 0, &board), nullptr);
}

TEST(ArithSignClip, FixedOperationsRefuseAndSignedDestinationsNeverClip) {
    auto A = Filled(2, 2, 0), B = Filled(2, 2, 0), D = Filled(2, 2, 0);
    AssertRecorder asserts;
    TextRecorder text;
    swArithAgent andAgent(A.get(), B.get(), _ARITH_AND, 1.0, 0, D.get());
    andAgent.SetSignClip(_ARITH_SIGNED, _ARITH_SIGNED, _ARITH_SIGNED, true, true);
    EXPECT_TRUE(
        asserts.Has("arith", 387,
                    "!(mOpCode == _ARITH_NOT || mOpCode == _ARITH_NEGATE || mOpCode == _ARITH_BINARIZE || "
                    "mOpCode == _ARITH_MASKSHIFT || mOpCode == _ARITH_PASSRANGE || mOpCode == _ARITH_AND || "
                    "mOpCode == _ARITH_OR || mOpCode == _ARITH_XOR || mOpCode == _ARITH_MIN || "
                    "mOpCode == _ARITH_MAX)"));
    EXPECT_EQ(text.Text(), "\nNOTE:  Sing and clipping can't be changed for this operation!\n");
    EXPECT_EQ(andAgent.SignA(), _ARITH_UNSIGNED);
    EXPECT_FALSE(andAgent.Clip() || andAgent.SecondFlag());

    text.Clear();
    swArithAgent copy(A.get(), nullptr, _ARITH_COPY, 1.0, 0, D.get());
    EXPECT_TRUE(copy.Clip());
    copy.SetSignClip(_ARITH_UNSIGNED, _ARITH_UNSIGNED, _ARITH_SIGNED, true, true);
    EXPECT_FALSE(copy.Clip());
    EXPECT_TRUE(copy.SecondFlag());
    EXPECT_EQ(
        text.Text(),
        "\nNOTE: Cliping overflow has to be DISABLED for signed dest buffer!\n      I have set it for you.");

    swArithAgent sub(A.get(), B.get(), _ARITH_SUB, 1.0, 0, D.get());
    sub.SetSignClip(_ARITH_UNSIGNED, _ARITH_UNSIGNED, _ARITH_UNSIGNED, true, true);
    EXPECT_FALSE(sub.Clip());
    EXPECT_TRUE(sub.SecondFlag());
    swArithAgent diff(A.get(), B.get(), _ARITH_DIFF, 1.0, 0, D.get());
    diff.SetSignClip(_ARITH_UNSIGNED, _ARITH_UNSIGNED, _ARITH_UNSIGNED, true, true);
    EXPECT_TRUE(diff.Clip());
    EXPECT_FALSE(diff.SecondFlag());
}

TEST(ArithCornerB, ChecksAlignmentAndExtentButStoresTheCorner) {
    auto A = Filled(8, 4, 0), B = Filled(16, 4, 0), D = Filled(8, 4, 0);
    AssertRecorder asserts;
    swArithAgent agent(A.get(), B.get(), _ARITH_ADD, 1.0, 0, D.get());
    agent.SetCornerB(6, 0);
    EXPECT_TRUE(asserts.Has("arith", 280, "(x & 3) == 0"));
    EXPECT_EQ(asserts.Count(), 1u);
    EXPECT_EQ(agent.CornerB(), (Point{6, 0}));
    agent.SetCornerB(Point{12, 1});
    EXPECT_EQ(asserts.Count(), 2u);
    EXPECT_EQ(asserts.Reports()[1].expression,
              "cornerB.x + _sRoi.Width() <= mSrcB->Width() && cornerB.y + _sRoi.Height() <= mSrcB->Height()");
    agent.SetMaskShift(_ARITH_MASK_AND, 0xFF, -8);
    EXPECT_TRUE(asserts.Has("arith", 268, "abs(shift) <= 7"));
    swArithAgent unary(A.get(), nullptr, _ARITH_NOT, 1.0, 0, D.get());
    unary.SetCornerB(0, 0);  // no source B: reported, not dereferenced
    EXPECT_TRUE(asserts.Has("arith", 282));
}

// The ADD routine at gain 1.0 keeps its 10-bit window; any other gain saturates the true value.
TEST(ArithAdd, NoGainWindowQuirksAndTheGainRoutineDiffer) {
    EXPECT_EQ(One(_ARITH_ADD, 200, 100), 255);               // overflow, clip flag on
    EXPECT_EQ(One(_ARITH_ADD, 10, 0, 1.0, -20), 255);        // the clip flag alone: -10 -> 255
    EXPECT_EQ(One(_ARITH_ADD, 2, 3, 1.0, 1024), 5);          // 1029 wraps in 10 bits
    EXPECT_EQ(One(_ARITH_ADD, 2, 3, 1.0000001, 1024), 255);  // the gain routine saturates
    auto signedFlag = [](ArithAgent* a) {
        a->SetSignClip(_ARITH_SIGNED, _ARITH_SIGNED, _ARITH_SIGNED, 0, 1);
    };
    EXPECT_EQ(One(_ARITH_ADD, 0xF6, 0, 1.0, 0, signedFlag), 0);           // -10: the second flag wins
    EXPECT_EQ(One(_ARITH_ADD, 100, 100, 1.0, 0, signedFlag), 200);        // the window ignores the sign
    EXPECT_EQ(One(_ARITH_ADD, 100, 100, 1.0000001, 0, signedFlag), 127);  // signed clamp elsewhere
    auto noClip = [](ArithAgent* a) {
        a->SetSignClip(_ARITH_UNSIGNED, _ARITH_UNSIGNED, _ARITH_UNSIGNED, 0, 0);
    };
    EXPECT_EQ(One(_ARITH_ADD, 200, 100, 1.0, 0, noClip), 44);
}

TEST(ArithOps, EachOperationWritesItsFormula) {
    EXPECT_EQ(One(_ARITH_NOT, 0x0F, 0), 0xF0);
    EXPECT_EQ(One(_ARITH_NEGATE, 1, 0), 255);
    EXPECT_EQ(One(_ARITH_COPY, 201, 0, 0.5, 10), 110);  // floor(201 / 2) + 10
    EXPECT_EQ(One(_ARITH_COPY, 0, 0, -1.0, 0), 0);
    EXPECT_EQ(One(_ARITH_COPY, 5, 0, -1.0, 0), 255);  // negative with the clip flag alone: 255
    auto signedA = [](ArithAgent* a) {
        a->SetSignClip(_ARITH_SIGNED, _ARITH_UNSIGNED, _ARITH_UNSIGNED, 0, 0);
    };
    EXPECT_EQ(One(_ARITH_ABS, 0x80, 0, 1.0, 0, signedA), 128);
    EXPECT_EQ(One(_ARITH_SUB, 10, 30), 255);  // clip flag on after set-up: a negative -> 255
    auto plain = [](ArithAgent* a) {
        a->SetSignClip(_ARITH_UNSIGNED, _ARITH_UNSIGNED, _ARITH_UNSIGNED, 1, 0);
    };
    EXPECT_EQ(One(_ARITH_SUB, 10, 30, 1.0, 0, plain), 236);  // SetSignClip turns the clip flag off: wraps
    auto flag = [](ArithAgent* a) {
        a->SetSignClip(_ARITH_UNSIGNED, _ARITH_UNSIGNED, _ARITH_UNSIGNED, 0, 1);
    };
    EXPECT_EQ(One(_ARITH_SUB, 10, 30, 1.0, 0, flag), 0);
    EXPECT_EQ(One(_ARITH_SUB, 10, 30, 3.0, 0, flag), 0);
    EXPECT_EQ(One(_ARITH_SUB, 130, 30, 3.0, 0, flag), 255);
    EXPECT_EQ(One(_ARITH_DIFF, 10, 30, 2.0, 1), 41);
    EXPECT_EQ(One(_ARITH_AND, 1, 3, 3.0), 3);  // a set pixel of a binary image becomes frozen (3)
    EXPECT_EQ(One(_ARITH_AND, 2, 1, 3.0), 0);
    EXPECT_EQ(One(_ARITH_OR, 0x30, 0x03), 0x33);
    EXPECT_EQ(One(_ARITH_XOR, 0x33, 0x0F), 0x3C);
    EXPECT_EQ(One(_ARITH_MIN, 9, 200), 9);
    EXPECT_EQ(One(_ARITH_MAX, 9, 200), 200);
    EXPECT_EQ(One(_ARITH_MULT, 20, 20), 255);
    EXPECT_EQ(One(_ARITH_MULT, 20, 20, 0.5), 200);
    EXPECT_EQ(One(_ARITH_MULT, 20, 20, 0.25, 3), 103);  // the full routine: 400 / 4 + 3
    auto mask = [](ArithAgent* a) { a->SetMaskShift(_ARITH_MASK_AND, 0xF0, -4); };
    EXPECT_EQ(One(_ARITH_MASKSHIFT, 0xAB, 0, 1.0, 0, mask), 0x0A);
    auto maskOr = [](ArithAgent* a) { a->SetMaskShift(_ARITH_MASK_OR, 0x01, 1); };
    EXPECT_EQ(One(_ARITH_MASKSHIFT, 0x80, 0, 1.0, 0, maskOr), 0x02);  // 0x102 cut to 8 bits
}

TEST(ArithBand, BinarizeAndPassRangeKeepTheInsideOfTheBand) {
    auto A = std::make_unique<Buffer>(4, 1, EIGHT), D = Filled(4, 1, 9);
    const uint8_t in[4] = {0, 1, 2, 255};
    std::memcpy(A->Row(0), in, 4);
    swArithAgent bin(A.get(), nullptr, _ARITH_BINARIZE, 1.0, 0, D.get());
    EXPECT_EQ(bin.BandLow(), 0);
    EXPECT_EQ(bin.BandHigh(), 255);
    bin.SetBand(0, 0);
    bin.Go();
    EXPECT_EQ(std::vector<uint8_t>(D->Row(0), D->Row(0) + 4), (std::vector<uint8_t>{1, 0, 0, 0}));
    bin.SetBand(1, 1);
    bin.Go();
    EXPECT_EQ(std::vector<uint8_t>(D->Row(0), D->Row(0) + 4), (std::vector<uint8_t>{0, 1, 0, 0}));
    swArithAgent pass(A.get(), nullptr, _ARITH_PASSRANGE, 1.0, 0, D.get());
    pass.SetBand(1, 2);
    pass.Go();
    EXPECT_EQ(std::vector<uint8_t>(D->Row(0), D->Row(0) + 4), (std::vector<uint8_t>{0, 1, 2, 0}));
    ArithResults r;
    pass.GetResults(&r);
    EXPECT_EQ(r.word[0], 3);
    EXPECT_EQ(r.word[1], 2);
}

// A masked region writes only its spans; the results count only bytes written; MULT ignores corner B.
TEST(ArithRegion, MaskedSpansCornerBAndResults) {
    auto A = Filled(8, 3, 10), B = Filled(12, 3, 1), D = Filled(8, 3, 0xEE);
    B->Row(0)[4] = 5;
    Buffer mask(6, 2, ONE);
    mask.Row(0)[0] = 0xC4;  // columns 0, 1, 5
    mask.Row(1)[0] = 0x20;  // column 2
    ROI roi(&mask);
    std::unique_ptr<ArithAgent> agent(
        ArithFact(A.get(), Point{1, 1}, roi, B.get(), _ARITH_ADD, 1.0f, 0, D.get()));
    agent->SetCornerB(4, 0);
    EXPECT_EQ(agent->Go(), 0);
    EXPECT_EQ(D->Row(0)[0], 15);
    EXPECT_EQ(D->Row(0)[1], 11);
    EXPECT_EQ(D->Row(0)[2], 0xEE);
    EXPECT_EQ(D->Row(1)[2], 11);
    EXPECT_EQ(D->Row(2)[0], 0xEE);
    ArithResults r;
    agent->GetResults(&r);
    EXPECT_EQ(r.word[0], 15 + 11 + 11 + 11);
    EXPECT_EQ(r.word[1], 4);

    std::unique_ptr<ArithAgent> mult(ArithFact(A.get(), 0, 0, 2, 1, B.get(), _ARITH_MULT, 1.0f, 0, D.get()));
    mult->SetCornerB(4, 0);
    mult->Go();
    EXPECT_EQ(D->Row(0)[0], 10);  // B read from (0, 0), not from corner B
}

// Regions hanging over any buffer are cut to the buffers; padding and neighbours stay as they were.
TEST(ArithSafety, RegionsOutsideTheBuffersAreClipped) {
    std::vector<uint8_t> store(40 * 12, 0xC3);
    Buffer D(store.data() + 40 * 2 + 4, 20, 6, 40, EIGHT);  // guard bytes around it in `store`
    auto A = Random(30, 9, 1), B = Random(9, 9, 2);
    AssertRecorder asserts;
    for (ArithOp op : {_ARITH_ADD, _ARITH_MULT, _ARITH_COPY}) {
        std::unique_ptr<ArithAgent> agent(ArithFact(A.get(), Rect{-3, 2, 40, 30}, B.get(), op, 0.7f, 5, &D));
        agent->SetCornerB(4, 5);
        EXPECT_EQ(agent->Go(), 0);
    }
    for (size_t i = 0; i < store.size(); ++i) {
        const size_t y = i / 40, x = i % 40;
        if (y < 2 || y >= 8 || x < 4 || x >= 24) {
            ASSERT_EQ(store[i], 0xC3) << i;
        }
    }
}

#ifdef OMBREL_TEST_WITH_OPENCV
// Where OpenCV computes the same thing, the bytes must agree.
TEST(ArithCrossCheck, DefaultOperationsMatchOpenCv) {
    auto A = Random(333, 77, 3), B = Random(333, 77, 4), D = Filled(333, 77, 0);
    const cv::Mat a(77, 333, CV_8U, A->BaseAddr(), A->Pitch()), b(77, 333, CV_8U, B->BaseAddr(), B->Pitch());
    const cv::Mat d(77, 333, CV_8U, D->BaseAddr(), D->Pitch());
    auto run = [&](ArithOp op, bool flag) {
        std::unique_ptr<ArithAgent> agent(ArithFact(A.get(), B.get(), op, 1.0f, 0, D.get()));
        if (flag) agent->SetSignClip(_ARITH_UNSIGNED, _ARITH_UNSIGNED, _ARITH_UNSIGNED, false, true);
        agent->Go();
        return d.clone();
    };
    cv::Mat expected;
    auto same = [](const cv::Mat& x, const cv::Mat& y) { return cv::countNonZero(x != y) == 0; };
    cv::add(a, b, expected);
    EXPECT_TRUE(same(run(_ARITH_ADD, false), expected));
    cv::subtract(a, b, expected);
    EXPECT_TRUE(same(run(_ARITH_SUB, true), expected));
    cv::absdiff(a, b, expected);
    EXPECT_TRUE(same(run(_ARITH_DIFF, false), expected));
    cv::bitwise_and(a, b, expected);
    EXPECT_TRUE(same(run(_ARITH_AND, false), expected));
    cv::bitwise_or(a, b, expected);
    EXPECT_TRUE(same(run(_ARITH_OR, false), expected));
    cv::bitwise_xor(a, b, expected);
    EXPECT_TRUE(same(run(_ARITH_XOR, false), expected));
    cv::min(a, b, expected);
    EXPECT_TRUE(same(run(_ARITH_MIN, false), expected));
    cv::max(a, b, expected);
    EXPECT_TRUE(same(run(_ARITH_MAX, false), expected));
    cv::multiply(a, b, expected);
    EXPECT_TRUE(same(run(_ARITH_MULT, false), expected));
}
#endif

// ---- Every path gives the scalar path's bytes -------------------------------------------------------------

struct Config {
    ArithOp op;
    float gain;
    int offset;
    int signs;  // bit 0: A, bit 1: B, bit 2: destination
    bool clip, flag;
};

struct Output {
    std::vector<uint8_t> bytes;
    ArithResults results;
};

// Every (a, b) pair, once: region pixel k holds a = k & 255 and b = k >> 8, over a region of odd width
// placed at an odd origin of A, in a destination whose padding is checked untouched.
class PairImages {
  public:
    static constexpr int kW = 257, kH = 256;
    PairImages() : A(kW + 5, kH + 1, EIGHT), B(kW + 8, kH + 1, EIGHT) {
        for (int k = 0; k < kW * kH; ++k) {
            A.Row(1 + k / kW)[3 + k % kW] = static_cast<uint8_t>(k & 255);
            B.Row(1 + k / kW)[8 + k % kW] = static_cast<uint8_t>((k >> 8) & 255);
        }
    }
    Output Run(const Config& c, bool packed) {
        Buffer D(kW, kH, EIGHT);
        for (int y = 0; y < kH; ++y) std::memset(D.Row(y), 0xA5, static_cast<size_t>(D.Pitch()));
        TextRecorder quiet;
        std::unique_ptr<ArithAgent> agent(
            ArithFact(&A, Rect{3, 1, 3 + kW, 1 + kH}, &B, c.op, c.gain, c.offset, &D));
        agent->SetCornerB(8, 1);
        agent->SetSignClip(ArithSign(c.signs & 1), ArithSign((c.signs >> 1) & 1),
                           ArithSign((c.signs >> 2) & 1), c.clip, c.flag);
        agent->SetBand(40, 200);
        agent->SetMaskShift(ArithMaskOp(c.offset & 3 ? 1 : 0), 0x3C, c.signs - 3);
        agent->SetVectorInstructions(packed);
        EXPECT_EQ(agent->Go(), 0);
        Output out;
        for (int y = 0; y < kH; ++y) out.bytes.insert(out.bytes.end(), D.Row(y), D.Row(y) + D.Pitch());
        agent->GetResults(&out.results);
        return out;
    }
    Buffer A, B;
};

class ArithIsa : public testing::IsaLevelTest {};

TEST_P(ArithIsa, EveryPathWritesTheScalarBytesForEveryPair) {
    AssertRecorder quiet;
    PairImages images;
    int compared = 0;
    for (int op = 0; op < kArithOpCount; ++op)
        for (float gain : {1.0f, 0.5f, 3.0f, -1.0f, 0.3f, 200.0f})
            for (int offset : {0, 17, -20, 300, -3000})
                for (int signs : {0, 3, 4, 5})
                    for (int cf = 0; cf < 4; ++cf) {
                        // Signs and flags cannot be set on the fixed operations; MASKSHIFT takes its shift
                        // from `signs`.
                        const bool fixed = op != _ARITH_COPY && op != _ARITH_ABS && op < _ARITH_ADD;
                        const bool fixedBinary = op >= _ARITH_AND && op <= _ARITH_MAX;
                        if ((fixed || fixedBinary) && (cf != 0 || (signs != 0 && op != _ARITH_MASKSHIFT)))
                            continue;
                        const Config c{ArithOp(op), gain, offset, signs, (cf & 1) != 0, (cf & 2) != 0};
                        Output reference, fast, packed;
                        {
                            ScopedIsaCap cap(Isa::Scalar);
                            reference = images.Run(c, false);
                        }
                        ScopedIsaCap cap(Level());
                        fast = images.Run(c, false);
                        packed = images.Run(c, true);
                        ASSERT_EQ(fast.bytes, reference.bytes)
                            << op << " " << gain << " " << offset << " " << signs << cf;
                        ASSERT_EQ(packed.bytes, reference.bytes)
                            << op << " " << gain << " " << offset << " " << signs << cf;
                        for (const Output* out : {&fast, &packed}) {
                            ASSERT_EQ(out->results.word[0], reference.results.word[0]);
                            ASSERT_EQ(out->results.word[1], reference.results.word[1]);
                        }
                        ++compared;
                    }
    EXPECT_EQ(compared, (6 * 16 + 4 + 9) * 6 * 5);
}

// Widths around the vector widths, 1 x 1, odd origins, and a region inside a padded destination.
TEST_P(ArithIsa, SmallAndOddRegionsMatchScalarAndLeavePaddingAlone) {
    auto A = Random(80, 5, 7), B = Random(84, 5, 8);
    for (int width : {1, 15, 16, 17, 31, 32, 33, 63, 64, 65, 71})
        for (ArithOp op : {_ARITH_ADD, _ARITH_SUB, _ARITH_COPY, _ARITH_MULT, _ARITH_BINARIZE})
            for (float gain : {1.0f, 0.75f, 7.0f}) {
                std::vector<uint8_t> results[2];
                for (int pass = 0; pass < 2; ++pass) {
                    ScopedIsaCap cap(pass == 0 ? Isa::Scalar : Level());
                    auto D = Filled(width + 9, 4, 0x77);
                    std::unique_ptr<ArithAgent> agent(
                        ArithFact(A.get(), Rect{5, 1, 5 + width, 4}, B.get(), op, gain, 3, D.get()));
                    agent->SetCornerB(12, 2);
                    agent->Go();
                    for (int y = 0; y < 4; ++y)
                        results[pass].insert(results[pass].end(), D->Row(y), D->Row(y) + D->Pitch());
                    for (int x = width; x < D->Pitch(); ++x) ASSERT_EQ(D->Row(0)[x], 0x77);
                    for (int x = 0; x < D->Pitch(); ++x) ASSERT_EQ(D->Row(3)[x], 0x77);
                }
                ASSERT_EQ(results[0], results[1]) << width << " " << op << " " << gain;
            }
}

// Buffers whose rows follow each other without a gap are run as one long span; the bytes and words agree.
TEST_P(ArithIsa, GaplessBuffersMatchScalar) {
    auto A = Random(64, 7, 11), B = Random(64, 7, 12);
    for (ArithOp op : {_ARITH_ADD, _ARITH_MULT, _ARITH_NOT, _ARITH_PASSRANGE}) {
        std::vector<uint8_t> bytes[2];
        ArithResults results[2];
        for (int pass = 0; pass < 2; ++pass) {
            ScopedIsaCap cap(pass == 0 ? Isa::Scalar : Level());
            auto D = Filled(64, 7, 0);
            ASSERT_EQ(D->Pitch(), 64);
            std::unique_ptr<ArithAgent> agent(ArithFact(A.get(), B.get(), op, 1.0f, 0, D.get()));
            agent->Go();
            agent->GetResults(&results[pass]);
            bytes[pass].assign(D->BaseAddr(), D->BaseAddr() + 64 * 7);
        }
        ASSERT_EQ(bytes[0], bytes[1]) << op;
        EXPECT_EQ(results[0].word[0], results[1].word[0]);
        EXPECT_EQ(results[0].word[1], results[1].word[1]);
    }
}

// Each vector level does the whole vectors itself: a level that declined everything would pass the
// comparisons above by running the scalar reference.
TEST_P(ArithIsa, EachVectorLevelHandlesTheWholeVectorsOfASpan) {
    if (!arith::kSpanKernels.HasOwnKernel(Level())) GTEST_SKIP() << "no kernel of its own at this level";
    auto A = Random(200, 1, 21), B = Random(200, 1, 22);
    std::vector<uint8_t> d(200, 0);
    for (ArithOp op : {_ARITH_ADD, _ARITH_MIN, _ARITH_NOT, _ARITH_BINARIZE}) {
        arith::Params p;
        p.op = op;
        p.low = 10, p.high = 200;
        const arith::VectorPlan plan = arith::PlanVector(p, false);
        uint64_t sum = 0, nonZero = 0;
        arith::SpanJob job;
        job.a = A->Row(0), job.b = B->Row(0), job.d = d.data();
        job.params = &p, job.plan = &plan, job.sum = &sum, job.nonZero = &nonZero;
        const int handled = arith::kSpanKernels.At(Level())(0, 200, job);
        EXPECT_GT(handled, 200 - 64) << op;
        EXPECT_LE(handled, 200) << op;
        uint64_t expected = 0;
        for (int i = 0; i < handled; ++i) expected += d[i];
        EXPECT_EQ(sum, expected) << op;
    }
}

OMBREL_INSTANTIATE_ISA_LEVELS(ArithIsa);

// Gains far outside -256..255 give multipliers that no 16-bit lane holds; the kernels must notice and stay
// exact. Every (a, b) pair at every level, packed or not, against the scalar level.
class ArithBigGain : public testing::IsaLevelTest {};

TEST_P(ArithBigGain, EveryPathWritesTheScalarBytesForEveryPair) {
    AssertRecorder quiet;
    PairImages images;
    int compared = 0;
    for (int op = 0; op < kArithOpCount; ++op)
        for (float gain : {300.0f, -300.0f, 255.5f, 1000.0f, -4097.0f, 40000.0f, 3e9f})
            for (int offset : {0, 1000, -65536})
                for (int cf : {0, 1, 3}) {
                    const bool fixed = (op != _ARITH_COPY && op != _ARITH_ABS && op < _ARITH_ADD) ||
                                       (op >= _ARITH_AND && op <= _ARITH_MAX);
                    if (fixed && cf != 0) continue;
                    const int signs = cf == 3 ? 5 : 0;  // signed A and destination with both flags
                    const Config c{ArithOp(op), gain, offset, signs, (cf & 1) != 0, (cf & 2) != 0};
                    Output reference;
                    {
                        ScopedIsaCap cap(Isa::Scalar);
                        reference = images.Run(c, false);
                    }
                    for (bool packed : {false, true}) {
                        const Output out = images.Run(c, packed);
                        ASSERT_EQ(out.bytes, reference.bytes)
                            << op << " " << gain << " " << offset << " " << cf << " " << packed;
                        ASSERT_EQ(out.results.word[0], reference.results.word[0]);
                        ASSERT_EQ(out.results.word[1], reference.results.word[1]);
                    }
                    ++compared;
                }
    EXPECT_EQ(compared, (10 + 6 * 3) * 7 * 3);
}

// MULT walks each buffer by its own pitch: a region narrower than the rows (and placed inside source A)
// writes only its own rectangle of the destination, from the destination's (0, 0), and no padding.
TEST_P(ArithBigGain, MultiplyNarrowRegionsByEachBuffersPitch) {
    AssertRecorder quiet;
    auto A = testing::RandomImage(45, 9, 21), B = testing::RandomImage(37, 8, 22);
    const std::vector<uint8_t> a = testing::Pixels(*A), b = testing::Pixels(*B);
    const int left = 5, top = 1, w = 29, h = 6;
    struct Case {
        float gain;
        int offset;
        bool clip;
    };
    for (const Case& c : {Case{1.0f, 0, true}, Case{1.0f, 0, false}, Case{0.25f, 0, false},
                          Case{3.0f, -700, true}, Case{-300.0f, 1000, false}, Case{300.0f, 0, true}}) {
        auto D = testing::RandomImage(41, 7, 23);
        const std::vector<uint8_t> before = testing::Pixels(*D);
        std::unique_ptr<ArithAgent> agent(ArithFact(A.get(), Rect{left, top, left + w, top + h}, B.get(),
                                                    _ARITH_MULT, c.gain, c.offset, D.get()));
        ASSERT_NE(agent, nullptr);
        agent->SetSignClip(_ARITH_UNSIGNED, _ARITH_UNSIGNED, _ARITH_UNSIGNED, c.clip, false);
        ASSERT_EQ(agent->Go(), 0);
        const std::vector<uint8_t> out = testing::Pixels(*D);
        const int pre = agent->PreOffset(), mult = agent->Multiplier(), shift = agent->Shift();
        const int post = agent->PostOffset();
        for (int y = 0; y < D->Height(); ++y)
            for (int x = 0; x < D->Width(); ++x) {
                const size_t k = static_cast<size_t>(y) * D->Width() + x;
                if (x >= w || y >= h) {
                    ASSERT_EQ(out[k], before[k]) << "outside the region at " << x << "," << y;
                    continue;
                }
                const int64_t product = int64_t{a[static_cast<size_t>(top + y) * A->Width() + left + x]} *
                                        b[static_cast<size_t>(y) * B->Width() + x];
                const int64_t r = (((product + pre) * mult) >> shift) + post;
                const uint8_t expected = r > 255 ? (c.clip ? 255 : r & 255)
                                         : r < 0 ? (c.clip ? 255 : r & 255)
                                                 : static_cast<uint8_t>(r);
                ASSERT_EQ(out[k], expected) << c.gain << " at " << x << "," << y;
            }
        testing::ExpectPaddingIs(*D);
        testing::ExpectPaddingIs(*A);
        testing::ExpectPaddingIs(*B);
    }
}

OMBREL_INSTANTIATE_ISA_LEVELS(ArithBigGain);

}  // namespace
}  // namespace ombrel
