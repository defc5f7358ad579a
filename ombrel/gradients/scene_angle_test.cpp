// SPDX-License-Identifier: MIT
#include "ombrel/gradients/scene_angle.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <memory>
#include <new>

#include "ombrel/framework/angles.h"
#include "testing/allocation_counter.h"
#include "testing/images.h"
#include "testing/recorders.h"

namespace ombrel {
namespace {

using testing::AssertRecorder;
using testing::FilledImage;

constexpr double kCode = kTwoPi / 128.0;  // one 7-bit direction code, in radians

// Exposes the fits for their coefficients.
struct Fits : swSceneAngleAgent {
    Fits() : swSceneAngleAgent(nullptr) {}
    static float Three(float a, float b, float c) { return AngleDiffFit3(a, b, c); }
    static float Five(float a, float b, float c, float d, float e) { return AngleDiffFit5(a, b, c, d, e); }
};

std::unique_ptr<swSceneAngleAgent> WithHist(const int32_t (&h)[128], bool weights = true) {
    auto agent = std::make_unique<swSceneAngleAgent>(nullptr, Rect{0, 0, 10, 10});
    agent->SetUseWeights(weights);
    agent->SetHist(h);
    return agent;
}

TEST(SceneAngle, SinglePeakGivesItsBinTheWeightedStrengthAndCoverage) {
    int32_t h[128] = {};
    h[5] = 100;
    auto a = WithHist(h);
    EXPECT_FLOAT_EQ(a->Folded()[5], 100 * SceneAngleWeights()[5]);
    EXPECT_FLOAT_EQ(a->Angle(), float(-kCode * 5));
    EXPECT_FLOAT_EQ(a->Strength(), 100 * SceneAngleWeights()[5] * 1000 / 100);
    EXPECT_FLOAT_EQ(a->Coverage(), 100.0f);  // 100 pixels in a 10 x 10 region
    // A parabola through 1, 3, 2 (bins 4, 5, 6) puts the peak a little right of bin 5.
    h[4] = 50, h[6] = 100 * 2 / 3;
    auto b = WithHist(h, false);
    const float L1 = 50, P = 100, R1 = 66;
    EXPECT_FLOAT_EQ(b->Angle(), float(-kTwoPi * (7 + ((L1 - R1) / (2 * (R1 + L1 - 2 * P)) - 2)) / 128.0));
}

TEST(SceneAngle, FoldsQuarterTurnsTogetherButCountsOnlyTheFirstQuarter) {
    int32_t h[128] = {};
    h[40] = 70;  // second quarter: folded into bin 8
    auto a = WithHist(h, false);
    EXPECT_EQ(a->Folded()[8], 70.0f);
    EXPECT_EQ(a->Strength(), 0.0f);
    EXPECT_EQ(a->Coverage(), 0.0f);
    EXPECT_FLOAT_EQ(a->Angle(), float(-kCode * 8));
    a->SetFoldMode(1);
    a->SetHist(h);
    EXPECT_EQ(a->NBins(), 64);
    EXPECT_EQ(a->Folded()[40], 70.0f);
    EXPECT_FLOAT_EQ(a->Angle(), float(-kCode * 40));
}

TEST(SceneAngle, FirstOfEqualPeaksWins) {
    int32_t h[128] = {};
    h[3] = 50, h[20] = 50;
    EXPECT_FLOAT_EQ(WithHist(h, false)->Angle(), float(-kCode * 3));
}

TEST(SceneAngle, FlatImageReportsTheDeadEndAndGivesZeros) {
    auto flat = FilledImage(40, 30, 77);
    AssertRecorder rec;
    std::unique_ptr<SceneAngleAgent> a(SceneAngleFact(flat.get()));
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->Go(), 0);
    EXPECT_EQ(a->Strength(), 0.0f);
    EXPECT_EQ(a->Coverage(), 0.0f);
    EXPECT_EQ(a->Angle(), 0.0f);
    ASSERT_EQ(rec.Count(), 1u);
    EXPECT_TRUE(rec.Has("sceneangle", 295, "0"));
    std::unique_ptr<SceneAngleAgent> b(SceneAngleFact(flat.get(), 0, 0, 40, 30));
    EXPECT_EQ(b->Go(), 0);
    EXPECT_EQ(a->AngleDiff(b.get()), 0.0f);  // both spreads are 0
}

TEST(SceneAngle, FitsUseTheirRoundedCoefficients) {
    EXPECT_FLOAT_EQ(Fits::Three(1, 2, 3), 0.5f);  // divides by the centre value
    EXPECT_EQ(Fits::Five(1, 2, 3, 2, 1), 0.0f);
    const float a = float(0.143 * 0 - 0.071 * 1 - 0.143 * 3 - 0.071 * 2 + 0.143 * 0);
    EXPECT_FLOAT_EQ(Fits::Five(0, 1, 3, 2, 0), float(-0.1 / (2 * double(a))));
    EXPECT_EQ(Fits::Five(0, 0, 0, 0, 0), 0.0f);
}

// A bright rectangle on a dark ground, turned by `degrees` (counter-clockwise as seen on screen) about the
// image centre, 4 x 4 supersampled so that its edges carry their true direction.
std::unique_ptr<Buffer> Part(double degrees) {
    auto img = FilledImage(320, 320, 30);
    const double t = degrees * kPi / 180.0, c = std::cos(t), s = std::sin(t);
    for (int y = 0; y < 320; ++y)
        for (int x = 0; x < 320; ++x) {
            int inside = 0;
            for (int sy = 0; sy < 4; ++sy)
                for (int sx = 0; sx < 4; ++sx) {
                    const double px = x + (sx + 0.5) / 4 - 160, py = 160 - (y + (sy + 0.5) / 4);  // y up
                    const double u = c * px + s * py, v = -s * px + c * py;
                    inside += std::abs(u) < 110 && std::abs(v) < 60;
                }
            img->Row(y)[x] = static_cast<uint8_t>(30 + inside * 180 / 16);
        }
    return img;
}

// The weights are not rotation invariant, so the correlation of weighted histograms is biased: a 61-degree
// turn of this part comes out 3.2 degrees short, a little more than one folded bin (2.8125 degrees); every
// other turn here lands within one bin. The bound is one and a half bins.
TEST(SceneAngle, RotatedPartGivesItsRotationWithinABinAndAHalf) {
    // The reference is turned a little too: edges exactly along the axes sit on direction-code boundaries.
    constexpr double kReference = 5.0;
    auto reference = Part(kReference);
    std::unique_ptr<SceneAngleAgent> ref(SceneAngleFact(reference.get()));
    ASSERT_EQ(ref->Go(), 0);
    for (double degrees : {5.0, 8.0, 14.0, 21.5, 30.0, 44.0, 66.0, 85.0}) {
        auto turned = Part(degrees);
        std::unique_ptr<SceneAngleAgent> agent(SceneAngleFact(turned.get()));
        ASSERT_EQ(agent->Go(), 0);
        const double diff = agent->AngleDiff(ref.get()) * 180.0 / kPi;
        const double quarter = std::fmod(diff - (degrees - kReference) + 3600.0 + 45.0, 90.0) -
                               45.0;  // fold: 90-degree ambiguity
        EXPECT_LE(std::abs(quarter), 1.5 * 2.8125) << degrees << " gave " << diff;
    }
    // The same image twice: exactly no rotation, and a prepared agent gives the same result again.
    std::unique_ptr<SceneAngleAgent> again(SceneAngleFact(reference.get()));
    ASSERT_EQ(again->PreGo(true), 0);
    ASSERT_EQ(again->Go(), 0);
    EXPECT_EQ(again->AngleDiff(ref.get()), 0.0f);
    const float angle = again->Angle();
    ASSERT_EQ(again->Go(), 0);
    EXPECT_EQ(again->Angle(), angle);
}

TEST(SceneAngle, PreparedAgentAllocatesNothingPerGo) {
    auto img = Part(17);
    {  // the process-wide gradient tables are built on the first use of any gradient agent, once
        std::unique_ptr<SceneAngleAgent> first(SceneAngleFact(img.get(), Rect{0, 0, 8, 8}));
        ASSERT_EQ(first->Go(), 0);
    }
    std::unique_ptr<SceneAngleAgent> a(SceneAngleFact(img.get(), Rect{20, 30, 300, 290}));
    ASSERT_EQ(a->PreGo(true), 0);
    const long before = ombrel::testing::AllocationCount();
    for (int i = 0; i < 4; ++i) ASSERT_EQ(a->Go(), 0);
    EXPECT_EQ(ombrel::testing::AllocationCount() - before, 0);
    EXPECT_GT(a->Strength(), 0);
    // Re-aimed at another region, it builds its image once (the counter does see it), then runs free again.
    a->SetSrcPt(Point{0, 0});
    const long reaimed = ombrel::testing::AllocationCount();
    ASSERT_EQ(a->Go(), 0);
    EXPECT_GT(ombrel::testing::AllocationCount() - reaimed, 0);
    const long after = ombrel::testing::AllocationCount();
    ASSERT_EQ(a->Go(), 0);
    EXPECT_EQ(ombrel::testing::AllocationCount() - after, 0);
}

TEST(SceneAngle, RegionsOutsideTheImageStaySafe) {
    auto img = Part(20);
    for (Rect r : {Rect{-50, -50, 60, 60}, Rect{150, 150, 400, 400}, Rect{500, 500, 510, 510},
                   Rect{0, 0, 2, 2}, Rect{10, 10, 10, 10}}) {
        std::unique_ptr<SceneAngleAgent> a(SceneAngleFact(img.get(), r));
        AssertRecorder quiet;
        const int status = a->Go();
        EXPECT_TRUE(status == 0 || status == kSceneAngleNoMemory);
    }
    Buffer board(nullptr, MONSTER_ALLOC_DEFAULT, BANK_0, 8, 8, EIGHT);
    testing::TextRecorder text;
    EXPECT_EQ(SceneAngleFact(&board), nullptr);
}

}  // namespace
}  // namespace ombrel
