// SPDX-License-Identifier: MIT
// ombrel binmorph and ombrel graymorph run as a user runs them: their images checked against OpenCV and the
// library's agents run in-process, and bad elements and options giving one clear line.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <random>

#include <ombrel/morph/graymorph.h>

#include "program_fixture.h"

namespace ombrel {
namespace {

using testing::Slurp;
namespace fs = std::filesystem;
using nlohmann::json;

class MorphProgram : public testing::ProgramTest {
  protected:
    void SetUp() override {
        ProgramTest::SetUp();
        std::mt19937 rng(4);
        _image = cv::Mat(37, 53, CV_8U);
        for (int y = 0; y < _image.rows; ++y)
            for (int x = 0; x < _image.cols; ++x) _image.at<uint8_t>(y, x) = static_cast<uint8_t>(rng());
        cv::imwrite(P("in.pgm"), _image);
    }

    cv::Mat _image;
};

TEST_F(MorphProgram, BinmorphErodesAndDilatesAsOpenCvDoes) {
    const cv::Mat binary = _image >= 128;  // 0/255
    const cv::Mat square = cv::Mat::ones(3, 3, CV_8U);
    cv::Mat eroded, dilated;
    cv::erode(binary, eroded, square, {-1, -1}, 1, cv::BORDER_CONSTANT, cv::Scalar(255));
    cv::dilate(binary, dilated, square, {-1, -1}, 2, cv::BORDER_CONSTANT, cv::Scalar(0));
    ASSERT_EQ(Ombrel("binmorph " + P("in.pgm") + " --op erode --border set -o " + P("e.png") + " --json " +
                     P("e.json")),
              0)
        << _err;
    EXPECT_EQ(cv::norm(cv::imread(P("e.png"), cv::IMREAD_GRAYSCALE), eroded, cv::NORM_INF), 0);
    ASSERT_EQ(Ombrel("binmorph " + P("in.pgm") + " --op dilate --iterations 2 -o " + P("d.png")), 0) << _err;
    EXPECT_EQ(cv::norm(cv::imread(P("d.png"), cv::IMREAD_GRAYSCALE), dilated, cv::NORM_INF), 0);
    const json record = json::parse(Slurp(P("e.json")));
    EXPECT_EQ(
        record.dump().find("\"set_pixels\":" + std::to_string(cv::countNonZero(eroded))) != std::string::npos,
        true)
        << record.dump();

    // Until converged: repeated dilation fills the image and then stops.
    ASSERT_EQ(Ombrel("binmorph " + P("in.pgm") + " --op dilate --until-converged --roi 3,4,20,10 -o " +
                     P("c.png") + " --json " + P("c.json")),
              0)
        << _err;
    const cv::Mat filled = cv::imread(P("c.png"), cv::IMREAD_GRAYSCALE);
    EXPECT_EQ(filled.cols, 20);
    EXPECT_EQ(cv::countNonZero(filled), 200);
    const std::string converged = json::parse(Slurp(P("c.json"))).dump();
    EXPECT_NE(converged.find("\"converged\":true"), std::string::npos) << converged;
}

TEST_F(MorphProgram, GraymorphMatchesTheLibraryAndOpenCv) {
    ASSERT_EQ(Ombrel("graymorph " + P("in.pgm") + " --op erode --size 5x3 --hot 1,2 -o " + P("e.png")), 0)
        << _err;
    cv::Mat expected;
    cv::erode(_image, expected, cv::Mat::ones(3, 5, CV_8U), {1, 2}, 1, cv::BORDER_CONSTANT, cv::Scalar(255));
    EXPECT_EQ(cv::norm(cv::imread(P("e.png"), cv::IMREAD_GRAYSCALE), expected, cv::NORM_INF), 0);

    ASSERT_EQ(Ombrel("graymorph " + P("in.pgm") +
                     " --op tophat --size 3 --pattern 0,1,0,1,1,1,0,1,0 --polarity inverted "
                     "--iterations 2 --roi 2,3,40,30 -o " +
                     P("t.png")),
              0)
        << _err;
    Buffer source(_image.data, _image.cols, _image.rows, static_cast<int>(_image.step), EIGHT);
    Buffer result(_image.cols, _image.rows, EIGHT);
    GrayMorphElem cross(1, 1, 3, 3, "010111010");
    swGrayMorphAgent agent(&source, &result, Point{2, 3}, ROI(40, 30), GRAYMORPH_TOPHAT, GM_POLARITY_INVERTED,
                           2, &cross);
    ASSERT_EQ(agent.Go(), 0);
    const cv::Mat got = cv::imread(P("t.png"), cv::IMREAD_GRAYSCALE);
    ASSERT_EQ(got.cols, 40);
    for (int y = 0; y < 30; ++y)
        for (int x = 0; x < 40; ++x) ASSERT_EQ(got.at<uint8_t>(y, x), result.Row(y)[x]) << x << "," << y;
}

TEST_F(MorphProgram, BadElementsAndOptionsGiveOneClearLine) {
    EXPECT_EQ(Ombrel("graymorph " + P("in.pgm") + " --size 3 --pattern 1,1,x,1,1,1,1,1,1 -o " + P("o.png")),
              2);
    EXPECT_EQ(_err, "ombrel graymorph: --pattern: 'x' is not a cell (use 0 and 1)\n");
    EXPECT_EQ(Ombrel("graymorph " + P("in.pgm") + " --size 3 --pattern 1,1,1 -o " + P("o.png")), 2);
    EXPECT_NE(_err.find("3 cells for a 3x3 element, which needs 9"), std::string::npos) << _err;
    EXPECT_EQ(Ombrel("graymorph " + P("in.pgm") + " --size 3 --pattern 000000000 -o " + P("o.png")), 2);
    EXPECT_NE(_err.find("no member"), std::string::npos) << _err;
    EXPECT_EQ(Ombrel("graymorph " + P("in.pgm") + " --size 0x4 -o " + P("o.png")), 2);
    EXPECT_EQ(Ombrel("graymorph " + P("in.pgm") + " --size 3 --hot 3,0 -o " + P("o.png")), 2);
    EXPECT_NE(Ombrel("binmorph " + P("in.pgm") + " --op shrink -o " + P("o.png")), 0);
    EXPECT_NE(Ombrel("binmorph " + P("in.pgm") + " --iterations -1 -o " + P("o.png")), 0);
    EXPECT_NE(Ombrel("binmorph " + P("missing.pgm") + " -o " + P("o.png")), 0);
    EXPECT_NE(_err.find("ombrel binmorph: " + P("missing.pgm") + ": "), std::string::npos) << _err;

    ASSERT_EQ(Ombrel("binmorph --help"), 0);
    for (const char* text : {"--op", "--iterations", "--border", "--until-converged", "--roi", "Example"})
        EXPECT_NE(_out.find(text), std::string::npos) << text;
    ASSERT_EQ(Ombrel("graymorph --help"), 0);
    for (const char* text : {"--op", "--size", "--pattern", "--hot", "--polarity", "--iterations", "Example"})
        EXPECT_NE(_out.find(text), std::string::npos) << text;
}

TEST_F(MorphProgram, BreakFindsTheGapOfACutLine) {
    cv::Mat golden(12, 40, CV_8U, cv::Scalar(0)), trace;
    cv::line(golden, {4, 5}, {35, 5}, cv::Scalar(255));
    trace = golden.clone();
    trace(cv::Rect(18, 5, 5, 1)) = 0;
    cv::imwrite(P("golden.png"), golden);
    cv::imwrite(P("trace.png"), trace);
    ASSERT_EQ(Ombrel("break " + P("trace.png") + " " + P("golden.png") + " -t " + P("golden.png") + " -o " +
                     P("breaks/") + " --overlay " + P("marked/") + " --json " + P("b.json")),
              0)
        << _err;
    // The overlay shows the image in grey with the break in red.
    const cv::Mat marked = cv::imread(P("marked/trace-overlay.png"), cv::IMREAD_COLOR);
    ASSERT_EQ(marked.size(), golden.size());
    EXPECT_EQ(marked.at<cv::Vec3b>(5, 21), cv::Vec3b(0, 0, 255));  // BGR
    EXPECT_EQ(marked.at<cv::Vec3b>(5, 4), cv::Vec3b(255, 255, 255));
    EXPECT_EQ(marked.at<cv::Vec3b>(0, 0), cv::Vec3b(0, 0, 0));
    const json record = json::parse(Slurp(P("b.json")));
    const std::string text = record.dump();
    EXPECT_NE(text.find("\"break_pixels\":1"), std::string::npos) << text;
    EXPECT_NE(text.find("\"break_pixels\":0"), std::string::npos) << text;
    EXPECT_NE(text.find("{\"x\":21,\"y\":5}"), std::string::npos) << text;
    EXPECT_EQ(cv::countNonZero(cv::imread(P("breaks/trace-breaks.png"), cv::IMREAD_GRAYSCALE)), 1);

    EXPECT_NE(Ombrel("break " + P("trace.png") + " -t " + P("in.pgm") + " -o " + P("x.png")), 0);
    EXPECT_NE(
        _err.find("ombrel break: " + P("trace.png") + ": the image is 40 x 12 but the template 53 x 37"),
        std::string::npos)
        << _err;
    ASSERT_EQ(Ombrel("break --help"), 0);
    for (const char* option : {"--template", "--iterations", "--border", "--binarize-mask", "Example"})
        EXPECT_NE(_out.find(option), std::string::npos) << option;
}

}  // namespace
}  // namespace ombrel
