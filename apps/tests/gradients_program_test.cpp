// SPDX-License-Identifier: MIT
// The gradient subcommands run as a user runs them, their images and JSON checked against the library's
// agents run in-process.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include <ombrel/gradients/sobel.h>
#include <scenes/synthetic_scene.h>

#include "program_fixture.h"

namespace ombrel {
namespace {

using testing::Slurp;
namespace fs = std::filesystem;
using nlohmann::json;

cv::Mat AsMat(const Buffer& b) {
    return cv::Mat(b.Height(), b.Width(), CV_8UC1, b.BaseAddr(), b.Pitch()).clone();
}

class GradientProgram : public testing::ProgramTest {};

TEST_F(GradientProgram, SobelWritesTheAgentsImageAndStatistics) {
    auto scene = scenes::MakeTexturedScene(160, 120, 21);
    ASSERT_TRUE(cv::imwrite(P("a.png"), AsMat(*scene)));
    ASSERT_EQ(Ombrel("sobel " + P("a.png") +
                     " --roi 10,20,120,80 --encoding qangle --shift 2 --threshold 15 "
                     "--threshold2 30 --sparseness 2 --out " +
                     P("q.png") + " --json " + P("q.json")),
              0);
    Buffer expected(60, 40, EIGHT);
    std::unique_ptr<SobelAgent> agent(
        SobelFact(scene.get(), &expected, Rect{10, 20, 130, 100}, QANGLE, SOBEL_SHIFT_2, 15, 2));
    agent->SetUseThreshold2(true);
    agent->SetThreshold2(30);
    ASSERT_EQ(agent->Go(), 0);
    const cv::Mat written = cv::imread(P("q.png"), cv::IMREAD_UNCHANGED);
    ASSERT_EQ(written.type(), CV_8UC1);
    EXPECT_EQ(cv::norm(written, AsMat(expected), cv::NORM_INF), 0.0);
    const json s = Json("q.json")["images"][0]["statistics"];
    EXPECT_EQ(s["strong_count"], agent->StrongCount());
    EXPECT_GT(agent->StrongCount(), 0);
    EXPECT_EQ(s["strong_gray_sum"], agent->StrongGraySum());
    EXPECT_EQ(s["output_sum"], agent->OutputSum());
    EXPECT_EQ(s["non_zero_count"], agent->NonZeroCount());
    EXPECT_EQ(s["excess_sum"], agent->ExcessSum());
    EXPECT_EQ(s["excess_count"], agent->ExcessCount());
}

TEST_F(GradientProgram, SobelMistakesGiveOneLineAndHelpHasAnExample) {
    auto scene = scenes::MakeTexturedScene(40, 30, 22);
    ASSERT_TRUE(cv::imwrite(P("a.png"), AsMat(*scene)));
    std::string err;
    EXPECT_NE(Ombrel("sobel " + P("a.png") + " --encoding slope --out " + P("x.png"), &err), 0);
    EXPECT_NE(err.find("--encoding"), std::string::npos) << err;
    EXPECT_NE(Ombrel("sobel " + P("a.png") + " --sparseness 0 --out " + P("x.png"), &err), 0);
    EXPECT_NE(Ombrel("sobel " + P("missing.png") + " --out " + P("x.png"), &err), 0);
    EXPECT_NE(err.find("ombrel sobel: " + P("missing.png") + ":"), std::string::npos) << err;
    EXPECT_EQ(Ombrel("sobel --help"), 0);
    EXPECT_NE(Slurp(P("stdout")).find("Example:\n  ombrel sobel"), std::string::npos);
}

}  // namespace
}  // namespace ombrel
