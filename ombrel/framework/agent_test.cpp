// SPDX-License-Identifier: MIT
#include "ombrel/framework/agent.h"

#include <gtest/gtest.h>

#include "ombrel/framework/factory.h"
#include "ombrel/framework/hal.h"
#include "testing/recorders.h"

namespace ombrel {
namespace {

// The smallest agent: counts Go calls and records what the integer SetExtent received.
class ProbeAgent : public Agent {
  public:
    using Agent::Agent;
    int Go() override { return ++runs; }
    void SetExtent(int w, int h) override {
        lastW = w;
        lastH = h;
        Agent::SetExtent(w, h);
    }
    using Agent::SetExtent;
    int32_t Setting() const { return _agentSetting; }
    int runs = 0, lastW = -1, lastH = -1;
};

void Callback() {}

TEST(Agent, ConstructorsSetTheRegionAndResetTheCommonWords) {
    Buffer image(40, 30, EIGHT);
    ProbeAgent whole(&image);
    EXPECT_EQ(whole.SrcROI().Width(), 40);
    EXPECT_EQ(whole.SrcROI().Height(), 30);
    EXPECT_EQ(whole.Setting(), 9);
    EXPECT_FALSE(whole.VectorInstructions());

    ProbeAgent bottomUp(&image, Rect{5, 20, 15, 4});  // given bottom-up: height is made positive
    EXPECT_EQ(bottomUp.SrcROI().Width(), 10);
    EXPECT_EQ(bottomUp.SrcROI().Height(), 16);
    EXPECT_EQ(bottomUp.SrcPt(), (Point{5, 20}));
    ProbeAgent leftwards(&image, Rect{15, 0, 5, 10});
    EXPECT_EQ(leftwards.SrcROI().Width(), -10) << "the width is not made absolute";

    ROI region(7, 8);
    ProbeAgent placed(&image, Point{3, 4}, region);
    EXPECT_EQ(placed.SrcPt(), (Point{3, 4}));
    EXPECT_EQ(placed.SrcROI().Width(), 7);
}

TEST(Agent, OnlyTheBufferOnlyConstructorClearsTheRefreshCallback) {
    Buffer image(4, 4, EIGHT);
    Agent::RegisterRefreshCallback(&Callback);
    ProbeAgent a(&image, Rect{0, 0, 2, 2});
    ProbeAgent b(&image, Point{0, 0}, ROI(2, 2));
    EXPECT_EQ(Agent::GetRefreshCallback(), &Callback);
    ProbeAgent c(&image);
    EXPECT_EQ(Agent::GetRefreshCallback(), nullptr);
}

TEST(Agent, DoubleExtentIsRoundedAtSixteenFractionBitsAndReachesTheOverride) {
    ProbeAgent agent;
    agent.SetExtent(10.5, 2.49);
    EXPECT_EQ(agent.lastW, 11);
    EXPECT_EQ(agent.lastH, 2);
    agent.SetExtent(-3.5, 1e12);
    EXPECT_EQ(agent.lastW, -4);
    EXPECT_EQ(agent.lastH, INT32_MAX);
}

TEST(Agent, TimesOutOnlyWithBothATimeoutAndAStartTime) {
    ProbeAgent agent;
    EXPECT_FALSE(agent.HaveWeTimedOut());
    double now = 0;
    HalGetClock(&now);
    agent.SetTimeout(0.0, now - 100);
    EXPECT_FALSE(agent.HaveWeTimedOut());
    agent.SetTimeout(10.0, 0.0);
    EXPECT_FALSE(agent.HaveWeTimedOut());
    agent.SetTimeout(10.0, now - 1.0);
    EXPECT_TRUE(agent.HaveWeTimedOut());
    agent.SetTimeout(60000.0, now);
    EXPECT_FALSE(agent.HaveWeTimedOut());
}

TEST(Factory, HostBuffersGiveSoftwareBoardGivesNullOnceNotedAndMixesGiveNull) {
    Buffer host(8, 8, EIGHT);
    std::vector<uint8_t> pixels(64);
    Buffer wrapped(pixels.data(), 8, 8, 8, EIGHT);
    Buffer board(nullptr, MONSTER_ALLOC_DEFAULT, BANK_0, 8, 8, EIGHT);
    EXPECT_EQ(ChooseImplementation({{&host}, {&wrapped}}), Implementation::Software);
    EXPECT_EQ(ChooseImplementation({{&host}, {&wrapped, HostTypes::OwnedOnly}}), Implementation::None);
    // A missing buffer is no host buffer: only one the family declares optional may be left out.
    EXPECT_EQ(ChooseImplementation({{&host}, {nullptr}}), Implementation::None);
    EXPECT_EQ(ChooseImplementation({{nullptr}}), Implementation::None);
    EXPECT_EQ(ChooseImplementation({{&host}, {nullptr, HostTypes::Any, Presence::Optional}}),
              Implementation::Software);
    EXPECT_EQ(ChooseImplementation({{&board}, {nullptr, HostTypes::Any, Presence::Optional}}),
              Implementation::Board);
    EXPECT_EQ(ChooseImplementation({{&board}, {&board}}), Implementation::Board);
    EXPECT_EQ(ChooseImplementation({{&host}, {&board}}), Implementation::None);

    std::unique_ptr<ProbeAgent> sw(MakeAgent<ProbeAgent>({{&host}}, &host));
    ASSERT_NE(sw, nullptr);
    EXPECT_EQ(sw->Go(), 1);
    EXPECT_EQ(MakeAgent<ProbeAgent>({{&host}, {&board}}, &host), nullptr);

    testing::TextRecorder text;
    EXPECT_EQ(MakeAgent<ProbeAgent>({{&board}}, &board), nullptr);
    EXPECT_EQ(MakeAgent<ProbeAgent>({{&board}}, &board), nullptr);
    // Said once per process, and this is the only test that hands a factory board buffers.
    const std::string notes = text.Text();
    const size_t first = notes.find("no board back end");
    ASSERT_NE(first, std::string::npos);
    EXPECT_EQ(notes.find("no board back end", first + 1), std::string::npos);
}

}  // namespace
}  // namespace ombrel
