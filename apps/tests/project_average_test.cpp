// SPDX-License-Identifier: MIT
// ombrel project and ombrel average run as a user runs them, on generated frames, their results checked
// against the library's agents run in-process, and bad input giving one clear line and a non-zero status.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <random>

#include <ombrel/pixelops/frame_average.h>
#include <ombrel/pixelops/project.h>

#include "image_io.h"
#include "program_fixture.h"

namespace ombrel {
namespace {

using testing::Slurp;
namespace fs = std::filesystem;
using nlohmann::json;

class ProjectAverageProgram : public testing::ProgramTest {
  protected:
    // A random frame written as PNG; returned for in-process runs.
    std::unique_ptr<Buffer> Frame(const std::string& name, int w, int h, uint32_t seed) {
        auto frame = std::make_unique<Buffer>(w, h, EIGHT);
        std::mt19937 rng(seed);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) frame->Row(y)[x] = static_cast<uint8_t>(rng() % 200 + (x * 55) / w);
        EXPECT_EQ(cli::WritePng(P(name), *frame), "");
        return frame;
    }
};

TEST_F(ProjectAverageProgram, ProjectWritesTheAgentsProfilesAsJsonCsvAndPlots) {
    auto image = Frame("part.png", 90, 70, 1);
    ASSERT_EQ(Ombrel("project " + P("part.png") + " --type rows --roi 3,5,80,60 --zones 10,7 --values " +
                     P("v.json") + " --plot " + P("plot.svg") + " -q"),
              0)
        << _err;
    const json values = json::parse(Slurp(P("v.json")));
    // In-process: VERTICAL with zones writes row y's k-th zone to (k, y).
    Buffer dst(20, 60, EIGHT);
    std::unique_ptr<ProjectAgent> agent(ProjectFact(image.get(), &dst, Rect{3, 5, 83, 65}, VERTICAL));
    agent->SetZoneSizeSpace(10, 7);
    agent->Go();
    const auto& profiles = values["profiles"];
    // Starts 0, 7, ..., 70; 70 reaches the edge exactly and is not the last, so 77 moves back to 70.
    ASSERT_EQ(profiles.size(), 12u);
    for (size_t k = 0; k < profiles.size(); ++k)
        for (int y = 0; y < 60; ++y) ASSERT_EQ(profiles[k][y].get<int>(), dst.Row(y)[k]) << k << "," << y;
    EXPECT_EQ(values["shift"], 4);
    EXPECT_NE(Slurp(P("plot.svg")).find("<polyline"), std::string::npos);

    ASSERT_EQ(
        Ombrel("project " + P("part.png") + " --values " + P("v.csv") + " --plot " + P("plot.png") + " -q"),
        0)
        << _err;
    Buffer profile(90, 1, EIGHT);
    std::unique_ptr<ProjectAgent> columns(ProjectFact(image.get(), &profile, HORIZONTAL));
    columns->Go();
    std::ifstream csv(P("v.csv"));
    std::string line;
    std::getline(csv, line);
    EXPECT_EQ(line, "index,zone0");
    for (int x = 0; x < 90 && std::getline(csv, line); ++x)
        EXPECT_EQ(line, std::to_string(x) + "," + std::to_string(profile.Row(0)[x]));
    const cv::Mat plot = cv::imread(P("plot.png"), cv::IMREAD_GRAYSCALE);
    ASSERT_EQ(plot.cols, 90);
    ASSERT_EQ(plot.rows, 257);
    // Column 0's bar is as many pixels high as its value.
    EXPECT_EQ(cv::countNonZero(plot.col(0)), profile.Row(0)[0]);
}

TEST_F(ProjectAverageProgram, ProjectRefusesBadZonesAndRegionsInOneLine) {
    Frame("part.png", 30, 20, 2);
    EXPECT_EQ(Ombrel("project " + P("part.png") + " --zones 5,0"), 2);
    EXPECT_EQ(_err, "ombrel project: --zones 5,0: zone spacing must be 1..1048576\n");
    EXPECT_EQ(Ombrel("project " + P("part.png") + " --zones 4,10"), 2);
    EXPECT_NE(_err.find("zone size must be 5"), std::string::npos);
    EXPECT_EQ(Ombrel("project " + P("part.png") + " --roi 10,10,40,5"), 1);
    EXPECT_NE(_err.find("ombrel project: " + P("part.png") + ": region 10,10,40,5 lies outside"),
              std::string::npos);
}

TEST_F(ProjectAverageProgram, AverageWritesWhatTheAgentAveragesOverTheStream) {
    std::vector<std::unique_ptr<Buffer>> frames;
    std::string names;
    for (int k = 0; k < 5; ++k) {
        frames.push_back(Frame("f" + std::to_string(k) + ".png", 41, 23, 10 + k));
        names += " " + P("f" + std::to_string(k) + ".png");
    }
    ASSERT_EQ(Ombrel("average" + names + " --window 4 --roi 1,2,33,17 --out " + P("avg.png") + " --json " +
                     P("a.json") + " -q"),
              0)
        << _err;
    Buffer dst(33, 17, EIGHT);
    std::unique_ptr<FrameAverageAgent> agent(FrameAverageFact(frames[0].get(), &dst, 4, Rect{1, 2, 34, 19}));
    for (auto& f : frames) {
        agent->SetSrcBuf(f.get());
        agent->Go();
    }
    const cv::Mat written = cv::imread(P("avg.png"), cv::IMREAD_GRAYSCALE);
    ASSERT_EQ(written.cols, 33);
    ASSERT_EQ(written.rows, 17);
    for (int y = 0; y < 17; ++y)
        for (int x = 0; x < 33; ++x) ASSERT_EQ(written.at<uint8_t>(y, x), dst.Row(y)[x]) << x << "," << y;
    const json report = json::parse(Slurp(P("a.json")));
    EXPECT_EQ(report["frames"].size(), 5u);
    EXPECT_EQ(report["frames"][2]["queued"], 3);
    EXPECT_EQ(report["frames"][4]["queued"], 4);
}

TEST_F(ProjectAverageProgram, AverageRefusesFramesOfDifferentSizesAndEmptyWindows) {
    Frame("a.png", 20, 10, 1);
    Frame("b.png", 20, 11, 2);
    EXPECT_EQ(Ombrel("average " + P("a.png") + " " + P("b.png") + " --out " + P("o.png")), 1);
    EXPECT_EQ(_err, "ombrel average: " + P("b.png") +
                        ": is 20 x 11, the first frame 20 x 10: frames of one average must have one size\n");
    EXPECT_FALSE(fs::exists(P("o.png")));
    for (const char* n : {"0", "-2"}) {
        EXPECT_NE(Ombrel("average " + P("a.png") + " -n " + n + " --out " + P("o.png")), 0);
        EXPECT_NE(_err.find("--window"), std::string::npos) << _err;
    }
}

}  // namespace
}  // namespace ombrel
