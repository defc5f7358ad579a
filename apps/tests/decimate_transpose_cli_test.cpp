// SPDX-License-Identifier: MIT
// `ombrel decimate` and `ombrel transpose` run as a user runs them, on generated images: their output
// images are decoded by OpenCV and checked against the library's agents (decimate) and cv::rotate/cv::flip
// (transpose); bad inputs give one clear line and a non-zero status.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include <ombrel/pixelops/decimate.h>

#include "program_fixture.h"

namespace ombrel {
namespace {

using testing::Slurp;
namespace fs = std::filesystem;

class GeometryCommands : public testing::ProgramTest {
  protected:
    void SetUp() override {
        ProgramTest::SetUp();
        cv::RNG rng(17);
        _image = cv::Mat(61, 83, CV_8UC1);
        rng.fill(_image, cv::RNG::UNIFORM, 0, 256);
        ASSERT_TRUE(cv::imwrite(P("img.png"), _image));
    }

    cv::Mat _image;
};

TEST_F(GeometryCommands, TransposeWritesWhatOpenCvRotatesAndFlips) {
    const cv::Rect roi(5, 7, 40, 30);
    const std::pair<std::string, std::function<void(const cv::Mat&, cv::Mat&)>> ops[] = {
        {"ccw", [](const cv::Mat& a, cv::Mat& b) { cv::rotate(a, b, cv::ROTATE_90_COUNTERCLOCKWISE); }},
        {"cw", [](const cv::Mat& a, cv::Mat& b) { cv::rotate(a, b, cv::ROTATE_90_CLOCKWISE); }},
        {"180", [](const cv::Mat& a, cv::Mat& b) { cv::rotate(a, b, cv::ROTATE_180); }},
        {"flip-tb", [](const cv::Mat& a, cv::Mat& b) { cv::flip(a, b, 0); }},
        {"flip-lr", [](const cv::Mat& a, cv::Mat& b) { cv::flip(a, b, 1); }}};
    for (const auto& [name, call] : ops) {
        std::string err;
        ASSERT_EQ(Ombrel("transpose " + P("img.png") + " --roi 5,7,40,30 --op " + name + " --out " +
                             P(name + ".png") + " --json " + P(name + ".json"),
                         &err),
                  0)
            << err;
        cv::Mat expected;
        call(_image(roi), expected);
        const cv::Mat written = cv::imread(P(name + ".png"), cv::IMREAD_UNCHANGED);
        ASSERT_EQ(written.size(), expected.size()) << name;
        EXPECT_EQ(cv::norm(written, expected, cv::NORM_INF), 0.0) << name;
        const auto json = nlohmann::json::parse(Slurp(P(name + ".json")));
        EXPECT_EQ(json.dump().find("\"operation\":\"" + name + "\"") != std::string::npos, true)
            << json.dump();
    }
}

TEST_F(GeometryCommands, DecimateWritesTheAgentsImageOfTheRegion) {
    Buffer src(83, 61, EIGHT);
    for (int y = 0; y < 61; ++y) std::copy_n(_image.ptr<uint8_t>(y), 83, src.Row(y));
    for (int step : {1, 2}) {
        const std::string out = P("d" + std::to_string(step) + ".png");
        std::string err;
        ASSERT_EQ(Ombrel("decimate " + P("img.png") + " --roi 3,4,51,33 --step " + std::to_string(step) +
                             " --out " + out,
                         &err),
                  0)
            << err;
        Buffer expected(51 / step, 33 / step, EIGHT);
        swDecimateAgent agent(&src, &expected, Rect{3, 4, 54, 37}, static_cast<PixelStep>(step));
        agent.Go();
        const cv::Mat written = cv::imread(out, cv::IMREAD_UNCHANGED);
        ASSERT_EQ(written.cols, 51 / step);
        ASSERT_EQ(written.rows, 33 / step);
        const cv::Mat agentImage(expected.Height(), expected.Width(), CV_8UC1, expected.BaseAddr(),
                                 static_cast<size_t>(expected.Pitch()));
        EXPECT_EQ(cv::norm(written, agentImage, cv::NORM_INF), 0.0) << "step " << step;
    }
}

TEST_F(GeometryCommands, BadInputsGiveOneClearLineAndAStatus) {
    cv::Mat one(1, 1, CV_8UC1, cv::Scalar(9));
    ASSERT_TRUE(cv::imwrite(P("one.png"), one));
    const struct {
        std::string args;
        int status;
        std::string message;
    } cases[] = {
        {"decimate " + P("missing.png") + " --out " + P("o.png"), 1,
         "ombrel decimate: " + P("missing.png") + ": No such file or directory\n"},
        {"decimate " + P("one.png") + " --out " + P("o.png"), 1,
         "ombrel decimate: " + P("one.png") + ": the region (1 x 1) is too small for step 2"},
        {"decimate " + P("img.png") + " --step 3 --out " + P("o.png"), 2, "--step"},
        {"decimate " + P("img.png") + " --roi 80,60,10,10 --out " + P("o.png"), 1,
         "lies outside the 83 x 61 image"},
        {"transpose " + P("img.png") + " --op 90 --out " + P("o.png"), 2, "--op"},
        {"transpose " + P("img.png") + " --roi 0,0,100,10 --out " + P("o.png"), 1,
         "lies outside the 83 x 61 image"},
        {"transpose " + P("img.png") + " --out " + P("o.jpg"), 2, "cannot write '.jpg' files"},
    };
    for (const auto& c : cases) {
        std::string err;
        EXPECT_EQ(Ombrel(c.args, &err), c.status) << c.args << "\n" << err;
        EXPECT_NE(err.find(c.message), std::string::npos) << c.args << "\n" << err;
        if (c.status == 1) {  // option errors are CLI11's, with its hint line
            EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << c.args << "\n" << err;
        }
    }
}

}  // namespace
}  // namespace ombrel
