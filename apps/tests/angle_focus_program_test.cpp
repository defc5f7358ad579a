// SPDX-License-Identifier: MIT
// ombrel angle and ombrel focus run as a user runs them, their figures checked against the library's agents
// run in-process.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <ombrel/gradients/auto_focus.h>
#include <ombrel/gradients/scene_angle.h>
#include <scenes/synthetic_scene.h>

#include "program_fixture.h"

namespace ombrel {
namespace {

using testing::Slurp;
namespace fs = std::filesystem;
using nlohmann::json;

cv::Mat AsMat(const Buffer& b) {
    return cv::Mat(b.Height(), b.Width(), CV_8UC1, b.BaseAddr(), b.Pitch());
}

std::unique_ptr<Buffer> FromMat(const cv::Mat& m) {
    auto b = std::make_unique<Buffer>(m.cols, m.rows, EIGHT);
    m.copyTo(AsMat(*b));
    return b;
}

class AngleFocusProgram : public testing::ProgramTest {};

TEST_F(AngleFocusProgram, AngleGivesTheAgentsFiguresTheRotationAndAnOverlay) {
    auto scene = scenes::MakePartsScene(320, 240, 4, 11);
    const cv::Mat turnedMat = [&] {
        cv::Mat out;
        cv::warpAffine(AsMat(*scene), out, cv::getRotationMatrix2D(cv::Point2f(160, 120), 20, 1.0),
                       cv::Size(320, 240), cv::INTER_LINEAR, cv::BORDER_REPLICATE);
        return out;
    }();
    auto turned = FromMat(turnedMat);
    ASSERT_TRUE(cv::imwrite(P("a.png"), AsMat(*scene)));
    ASSERT_TRUE(cv::imwrite(P("b.png"), turnedMat));
    ASSERT_EQ(Ombrel("angle " + P("b.png") + " " + P("a.png") + " --roi 60,40,200,160 --overlay " +
                     P("o.png") + " --json " + P("a.json")),
              0);
    const Rect r{60, 40, 260, 200};
    std::unique_ptr<SceneAngleAgent> ref(SceneAngleFact(scene.get(), r));
    std::unique_ptr<SceneAngleAgent> rot(SceneAngleFact(turned.get(), r));
    ASSERT_EQ(ref->Go(), 0);
    ASSERT_EQ(rot->Go(), 0);
    const json j = Json("a.json");
    EXPECT_EQ(j["tool"], "ombrel angle");
    EXPECT_FLOAT_EQ(j["image"]["angle_rad"].get<float>(), rot->Angle());
    EXPECT_FLOAT_EQ(j["image"]["strength_per_mille"].get<float>(), rot->Strength());
    EXPECT_FLOAT_EQ(j["image"]["coverage_percent"].get<float>(), rot->Coverage());
    EXPECT_GT(rot->Coverage(), 0);
    EXPECT_FLOAT_EQ(j["reference"]["angle_rad"].get<float>(), ref->Angle());
    EXPECT_FLOAT_EQ(j["angle_diff_rad"].get<float>(), rot->AngleDiff(ref.get()));
    // OpenCV turns counter-clockwise on screen by 20 degrees; the rotation is known modulo a quarter turn.
    const double deg = j["angle_diff_deg"].get<double>();
    EXPECT_NEAR(std::fmod(deg + 3600.0 - 20.0 + 45.0, 90.0) - 45.0, 0.0, 1.5 * 2.8125) << deg;
    const cv::Mat overlay = cv::imread(P("o.png"), cv::IMREAD_UNCHANGED);
    ASSERT_EQ(overlay.type(), CV_8UC3);
    ASSERT_EQ(overlay.size(), cv::Size(320, 240));
    // Pure red and green lines are drawn through the region's centre; a grey image has neither.
    cv::Mat channels[3];
    cv::split(overlay, channels);  // B, G, R
    EXPECT_GT(cv::countNonZero(channels[2] - channels[1] > 100), 50);
    EXPECT_GT(cv::countNonZero(channels[1] - channels[2] > 100), 50);
}

TEST_F(AngleFocusProgram, FocusFindsTheSharpestFrameOfASweepAndPlotsIt) {
    auto scene = scenes::MakeTexturedScene(200, 150, 4);
    fs::create_directories(P("sweep"));
    const double sigmas[] = {3.0, 1.5, 0.0, 1.0, 2.5};  // frame 2 is sharp
    for (int i = 0; i < 5; ++i) {
        cv::Mat frame = AsMat(*scene).clone();
        if (sigmas[i] > 0) cv::GaussianBlur(frame, frame, cv::Size(0, 0), sigmas[i]);
        ASSERT_TRUE(cv::imwrite(P("sweep/f" + std::to_string(i) + ".png"), frame));
    }
    ASSERT_EQ(Ombrel("focus " + P("sweep") + " --roi 10,10,150,120 --step 2,1 --plot " + P("p.svg") +
                     " --json " + P("f.json")),
              0);
    const json j = Json("f.json");
    ASSERT_EQ(j["images"].size(), 5u);
    EXPECT_EQ(j["sharpest"]["frame"], 2);
    EXPECT_EQ(fs::path(j["sharpest"]["file"].get<std::string>()).filename(), "f2.png");
    std::unique_ptr<AutoFocusAgent> agent(AutoFocusFact(scene.get(), Rect{10, 10, 160, 130}));
    agent->SetSparseness(2, 1);
    ASSERT_EQ(agent->Go(), 0);
    const json& sharp = j["images"][2];
    EXPECT_DOUBLE_EQ(sharp["focus"].get<double>(), agent->Focus());
    EXPECT_DOUBLE_EQ(sharp["diff_sum"].get<double>(), agent->DiffSum());
    EXPECT_DOUBLE_EQ(sharp["pixel_sum"].get<double>(), agent->PixelSum());
    EXPECT_DOUBLE_EQ(sharp["histogram_spread"].get<double>(), agent->StdDev());
    for (int i : {0, 1, 3, 4}) EXPECT_LT(j["images"][i]["focus"], sharp["focus"]);
    EXPECT_LT(j["images"][0]["focus"], j["images"][1]["focus"]);
    EXPECT_NE(Slurp(P("p.svg")).find("<svg"), std::string::npos);
    // The PNG plot: a white page with something drawn on it.
    ASSERT_EQ(Ombrel("focus " + P("sweep") + " -q --plot " + P("p.png")), 0);
    const cv::Mat plot = cv::imread(P("p.png"), cv::IMREAD_GRAYSCALE);
    ASSERT_FALSE(plot.empty());
    EXPECT_GT(cv::countNonZero(plot < 200), 100);
}

TEST_F(AngleFocusProgram, BadInputsFailWithOneLineNamingTheFile) {
    std::string err;
    EXPECT_EQ(Ombrel("angle " + P("missing.png"), &err), 1);
    EXPECT_EQ(err.rfind("ombrel angle: " + P("missing.png") + ": ", 0), 0u) << err;
    auto flat = scenes::MakeTexturedScene(40, 30, 1);
    ASSERT_TRUE(cv::imwrite(P("small.png"), AsMat(*flat)));
    EXPECT_EQ(Ombrel("angle " + P("small.png") + " --roi 0,0,50,10", &err), 1);
    EXPECT_NE(err.find("ombrel angle: " + P("small.png") + ": "), std::string::npos) << err;
    // One frame missing: the others are measured, the missing one reported, the status is 1.
    EXPECT_EQ(Ombrel("focus " + P("small.png") + " " + P("missing.png") + " --json " + P("f.json"), &err), 1);
    EXPECT_NE(err.find("ombrel focus: " + P("missing.png") + ": "), std::string::npos) << err;
    const json j = Json("f.json");
    EXPECT_TRUE(j["images"][0].contains("focus"));
    EXPECT_TRUE(j["images"][1].contains("error"));
    EXPECT_EQ(j["sharpest"]["frame"], 0);
    // A region no wider than the step cannot be measured.
    EXPECT_EQ(Ombrel("focus " + P("small.png") + " --roi 39,0,1,10", &err), 1);
    EXPECT_NE(err.find("ombrel focus: " + P("small.png") + ": "), std::string::npos) << err;
}

}  // namespace
}  // namespace ombrel
