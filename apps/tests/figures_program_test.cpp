// SPDX-License-Identifier: MIT
// The figures the program shows: standard figures under standard names beside the agents' own, automatic
// bands from Otsu's threshold, and arithmetic that saturates as OpenCV does unless told otherwise.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <ombrel/blob/blob.h>

#include "program_fixture.h"
#include "scenes/synthetic_scene.h"

namespace ombrel {
namespace {

using json = nlohmann::json;

class Figures : public testing::ProgramTest {};

TEST_F(Figures, BlobWritesStandardFiguresBesideTheAgentsNumberedFeatures) {
    // A single dark pixel at (5, 5) and a dark disc of radius 30 on white.
    cv::Mat1b image(120, 160, uchar(255));
    image(5, 5) = 0;
    cv::circle(image, {100, 60}, 30, 0, -1);
    ASSERT_TRUE(cv::imwrite(P("dots.png"), image));
    ASSERT_EQ(Ombrel("blob " + P("dots.png") + " --band 0:10 --features all --json " + P("b.json")), 0)
        << _err;
    const json doc = Json("b.json");
    const json& regions = doc["images"][0]["blobs"]["regions"];
    ASSERT_EQ(regions.size(), 2u);
    const json& pixel = regions[0];
    EXPECT_EQ(pixel["centroid"], json::array({5.0, 5.0}));
    EXPECT_EQ(pixel["features"]["centroid_x"], 4.5);  // the agent's own convention, under its own name
    EXPECT_EQ(pixel["features"]["centroid_y"], 5.0);
    EXPECT_TRUE(pixel["area"].is_number_integer());
    EXPECT_TRUE(pixel["features"]["area"].is_number_integer());
    EXPECT_TRUE(pixel["features"]["grey_sum"].is_number_integer());
    EXPECT_TRUE(pixel["features"]["box_width"].is_number_integer());
    EXPECT_TRUE(pixel["features"]["mean_grey"].is_number_float());

    const json& disc = regions[1];
    const cv::Moments m = cv::moments(image < 11, true);
    EXPECT_EQ(disc["area"], static_cast<int>(m.m00) - 1);
    EXPECT_NEAR(disc["centroid"][0].get<double>(), 100.0, 1e-9);
    EXPECT_NEAR(disc["perimeter"].get<double>() / (2 * std::numbers::pi * 30), 1.0, 0.02);
    EXPECT_NEAR(disc["circularity"].get<double>(), 1.0, 0.05);
    EXPECT_EQ(disc["euler_number"], 1);
    EXPECT_NEAR(disc["solidity"].get<double>(), 1.0, 0.01);
    // The agent's perimeter is its own chain formula; it is written too, under "features".
    EXPECT_GT(disc["features"]["perimeter"].get<double>(), 0.0);

    // Every field is described; angles are in degrees everywhere.
    const json& fields = doc["field_descriptions"];
    for (const char* name : {"centroid", "perimeter", "circularity", "major_axis", "orientation", "solidity"})
        EXPECT_TRUE(fields.contains(name)) << name;
    EXPECT_NE(fields["features"]["axis_angle"].get<std::string>().find("degrees"), std::string::npos);
    ASSERT_EQ(Ombrel("blob --help"), 0);
    EXPECT_NE(_out.find("mean pixel column"), std::string::npos);
    EXPECT_NE(_out.find("axis_angle (21)"), std::string::npos);
}

TEST_F(Figures, BlobOrientationAndFeatureAnglesAreDegrees) {
    cv::Mat1b image(200, 200, uchar(0));
    cv::ellipse(image, {100, 100}, {60, 20}, 30, 0, 360, 255, -1);
    ASSERT_TRUE(cv::imwrite(P("e.png"), image));
    ASSERT_EQ(Ombrel("blob " + P("e.png") + " --band 200:255 --features axis_angle,major_axis --json " +
                     P("e.json")),
              0)
        << _err;
    const json doc = Json("e.json");
    const json& region = doc["images"][0]["blobs"]["regions"][0];
    EXPECT_NEAR(region["orientation"].get<double>(), 30.0, 0.5);
    EXPECT_NEAR(region["features"]["axis_angle"].get<double>(), 30.0, 0.5);
    EXPECT_NEAR(region["major_axis"].get<double>(), 121.0, 2.0);
    EXPECT_NEAR(region["minor_axis"].get<double>(), 41.0, 2.0);
}

TEST_F(Figures, AutomaticBandsUseOtsusThresholdAndSayWhichTheyChose) {
    auto scene = scenes::MakePartsScene(320, 240, 7, 3);
    const cv::Mat1b view(scene->Height(), scene->Width(), scene->BaseAddr(), scene->Pitch());
    ASSERT_TRUE(cv::imwrite(P("parts.png"), view));
    cv::Mat1b binary;
    const int t = static_cast<int>(cv::threshold(view, binary, 0, 255, cv::THRESH_BINARY | cv::THRESH_OTSU));

    ASSERT_EQ(Ombrel("blob " + P("parts.png") + " --band auto-dark --json " + P("auto.json")), 0) << _err;
    const json autoBlobs = Json("auto.json")["images"][0]["blobs"];
    EXPECT_EQ(autoBlobs["threshold"], t);
    EXPECT_EQ(autoBlobs["band"], json::array({0, t}));
    EXPECT_NE(_out.find("Otsu threshold " + std::to_string(t)), std::string::npos);
    ASSERT_EQ(
        Ombrel("blob " + P("parts.png") + " --band 0:" + std::to_string(t) + " --json " + P("fixed.json")),
        0);
    EXPECT_EQ(autoBlobs["regions"], Json("fixed.json")["images"][0]["blobs"]["regions"]);

    // auto picks the class with fewer pixels.
    ASSERT_EQ(Ombrel("blob " + P("parts.png") + " --band auto --json " + P("a.json")), 0) << _err;
    const int dark = cv::countNonZero(view <= t), light = cv::countNonZero(view > t);
    EXPECT_EQ(Json("a.json")["images"][0]["blobs"]["band"],
              dark <= light ? json::array({0, t}) : json::array({t + 1, 255}));

    ASSERT_EQ(Ombrel("mask " + P("parts.png") + " --op band --band auto-light --out " + P("light.png") +
                     " --json " + P("m.json")),
              0)
        << _err;
    EXPECT_EQ(Json("m.json")["images"][0]["threshold"], t);
    // Binary outputs are written 0/255.
    const cv::Mat1b written = cv::imread(P("light.png"), cv::IMREAD_UNCHANGED);
    EXPECT_EQ(cv::countNonZero(written != binary), 0);

    EXPECT_EQ(Ombrel("blob " + P("parts.png") + " --band automatic"), 2);
}

TEST_F(Figures, HistogramGivesNumpysFiguresBesideTheAgents) {
    cv::Mat1b board(10, 16);
    for (int y = 0; y < 10; ++y)
        for (int x = 0; x < 16; ++x) board(y, x) = (x + y) % 2 ? 255 : 0;
    cv::Mat1b one(4, 5, uchar(0));
    one(2, 3) = 100;
    ASSERT_TRUE(cv::imwrite(P("board.png"), board));
    ASSERT_TRUE(cv::imwrite(P("one.png"), one));
    ASSERT_EQ(Ombrel("hist " + P("board.png") + " " + P("one.png") + " --bins 64 --json " + P("h.json")), 0)
        << _err;
    const json doc = Json("h.json");
    const json& b = doc["images"][0]["histogram"];
    EXPECT_EQ(b["count"], 160);
    EXPECT_EQ(b["mean"], 127.5);
    EXPECT_EQ(b["std"], 127.5);
    EXPECT_EQ(b["median"], 127.5);
    EXPECT_EQ(b["min"], 0);
    EXPECT_EQ(b["max"], 255);
    EXPECT_EQ(b["agent"]["mean"], 255.0);  // zeros left out of the agent's count, by its rules
    EXPECT_EQ(b["agent"]["pixel_count"], 80);
    const json& o = doc["images"][1]["histogram"];
    EXPECT_EQ(o["count"], 20);
    EXPECT_EQ(o["mean"], 5.0);
    EXPECT_NEAR(o["std"].get<double>(), std::sqrt((19 * 25.0 + 95.0 * 95.0) / 20), 1e-9);
    EXPECT_TRUE(o["agent"]["std_dev"].is_null());  // the agent divides by pixel_count - 1 = 0
    EXPECT_TRUE(doc["field_descriptions"].contains("agent"));
    EXPECT_EQ(_out.find("inf"), std::string::npos);
    EXPECT_EQ(_out.find("nan"), std::string::npos);
}

TEST_F(Figures, ArithSubOfADarkerImageSaturatesAtZeroUnlessToldOtherwise) {
    cv::Mat1b a(30, 40), b(30, 40);
    for (int y = 0; y < 30; ++y)
        for (int x = 0; x < 40; ++x) {
            a(y, x) = static_cast<uchar>(5 * x + y);           // 0 .. 224
            b(y, x) = static_cast<uchar>(60 + 3 * x + 2 * y);  // brighter on the left, darker on the right
        }
    ASSERT_TRUE(cv::imwrite(P("a.png"), a));
    ASSERT_TRUE(cv::imwrite(P("b.png"), b));
    auto sub = [&](const std::string& flags) {
        EXPECT_EQ(Ombrel("arith sub " + P("a.png") + " " + P("b.png") + " --out " + P("d.png") + " " + flags +
                         " --json " + P("d.json")),
                  0)
            << _err;
        return cv::Mat1b(cv::imread(P("d.png"), cv::IMREAD_UNCHANGED));
    };
    cv::Mat1b expected;
    cv::subtract(a, b, expected);
    ASSERT_GT(cv::countNonZero(a < b), 100);
    EXPECT_EQ(cv::norm(sub(""), expected, cv::NORM_INF), 0.0);
    EXPECT_EQ(Json("d.json")["result"]["clamp"], true);
    EXPECT_NE(_out.find("clamped to 0..255"), std::string::npos);

    const cv::Mat1b white = sub("--overflow white"), wrap = sub("--overflow wrap"),
                    signedOut = sub("--signed-out");
    for (int y = 0; y < 30; ++y)
        for (int x = 0; x < 40; ++x) {
            const int d = a(y, x) - b(y, x);
            ASSERT_EQ(white(y, x), d < 0 ? 255 : d) << x << "," << y;
            ASSERT_EQ(wrap(y, x), d & 255) << x << "," << y;
            ASSERT_EQ(signedOut(y, x), std::clamp(d, -128, 127) & 255) << x << "," << y;
        }
    EXPECT_EQ(Ombrel("arith and " + P("a.png") + " " + P("b.png") + " --overflow wrap --out " + P("x.png")),
              2);
    EXPECT_NE(_err.find("fixed sign and clipping"), std::string::npos);
}

}  // namespace
}  // namespace ombrel
