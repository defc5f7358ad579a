// SPDX-License-Identifier: MIT
// ombrel match run as a user runs it: a pattern pasted at known places in a textured image is found there,
// the best first, with sub-pixel centres and an overlay; bad options give one clear line.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <random>

#include "program_fixture.h"

namespace ombrel {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

using testing::Slurp;

class MatchProgram : public testing::ProgramTest {
  protected:
    void SetUp() override {
        ProgramTest::SetUp();
        std::mt19937 rng(8);
        _image = cv::Mat(120, 160, CV_8U);
        for (int y = 0; y < _image.rows; ++y)
            for (int x = 0; x < _image.cols; ++x)
                _image.at<uint8_t>(y, x) = static_cast<uint8_t>(
                    std::clamp<int>(128 + 60 * std::sin(x * 0.3 + y * 0.1) + int(rng() % 41) - 20, 0, 255));
        _pattern = cv::Mat(15, 21, CV_8U);
        for (int y = 0; y < _pattern.rows; ++y)
            for (int x = 0; x < _pattern.cols; ++x) _pattern.at<uint8_t>(y, x) = static_cast<uint8_t>(rng());
        _pattern.copyTo(_image(cv::Rect(30, 20, 21, 15)));
        _pattern.copyTo(_image(cv::Rect(110, 90, 21, 15)));
        cv::imwrite(P("in.png"), _image);
        cv::imwrite(P("t.pgm"), _pattern);
    }
    cv::Mat _image, _pattern;
};

TEST_F(MatchProgram, FindsBothCopiesAtTheirCentresWithOverlayAndJson) {
    ASSERT_EQ(Ombrel("match " + P("in.png") + " --template " + P("t.pgm") + " --top 2 --subpixel --json " +
                     P("m.json") + " --overlay " + P("o.png")),
              0)
        << _err;
    const json doc = json::parse(Slurp(P("m.json")));
    const json& matches = doc["images"][0]["matches"];
    ASSERT_EQ(matches.size(), 2u);
    std::vector<std::pair<int, int>> centres;
    for (const json& m : matches) {
        EXPECT_NEAR(m["pixel_abs_correlation"].get<double>(), 1.0, 1e-9);
        EXPECT_LE(m["abs_correlation"].get<double>(), 1.0);  // the peak's parabola, capped at 1
        centres.emplace_back(m["pixel"][0].get<int>(), m["pixel"][1].get<int>());
        EXPECT_NEAR(m["x"].get<double>(), m["pixel"][0].get<double>(), 0.5);
    }
    std::sort(centres.begin(), centres.end());
    EXPECT_EQ(centres[0], std::make_pair(30 + 10, 20 + 7));
    EXPECT_EQ(centres[1], std::make_pair(110 + 10, 90 + 7));
    EXPECT_EQ(doc["images"][0]["positions_scored"].get<int>(), (160 - 20) * (120 - 14));
    const cv::Mat overlay = cv::imread(P("o.png"), cv::IMREAD_COLOR);
    ASSERT_EQ(overlay.cols, 160);
    EXPECT_NE(_out.find("|r| 1.0000"), std::string::npos) << _out;

    // A rectangle of the image itself as the template, searched only near the second copy, every 2nd pixel.
    ASSERT_EQ(Ombrel("match " + P("in.png") +
                     " --template-rect 30,20,21,15 --roi 100,81,40,29 --step 2,2 --json " + P("r.json")),
              0)
        << _err;
    const json r = json::parse(Slurp(P("r.json")))["images"][0];
    EXPECT_EQ(r["matches"][0]["pixel"][0].get<int>(), 120);
    EXPECT_EQ(r["matches"][0]["pixel"][1].get<int>(), 97);
}

TEST_F(MatchProgram, RefusesMissingTemplatesAndOversizedOnes) {
    EXPECT_NE(Ombrel("match " + P("in.png") + " --template " + P("none.png")), 0);
    EXPECT_NE(_err.find("ombrel match: "), std::string::npos) << _err;
    EXPECT_EQ(Ombrel("match " + P("in.png")), 2);
    EXPECT_NE(_err.find("--template"), std::string::npos);
    cv::imwrite(P("big.pgm"), cv::Mat(200, 10, CV_8U, cv::Scalar(3)));
    EXPECT_NE(Ombrel("match " + P("in.png") + " --template " + P("big.pgm")), 0);
    EXPECT_NE(_err.find("larger than the image"), std::string::npos) << _err;
}

}  // namespace
}  // namespace ombrel
