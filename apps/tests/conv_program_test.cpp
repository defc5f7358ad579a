// SPDX-License-Identifier: MIT
// `ombrel conv` run as a user runs it: its output image is checked against the library's agent run on the
// same pixels (presets and a kernel file, steps), its JSON against the run's figures, and bad kernels give
// one clear line and a non-zero status.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include <ombrel/corr/corr_template.h>
#include <ombrel/pixelops/conv.h>

#include "program_fixture.h"

namespace ombrel {
namespace {

class ConvCommand : public testing::ProgramTest {
  protected:
    void SetUp() override {
        ProgramTest::SetUp();
        cv::RNG rng(23);
        _image = cv::Mat(45, 71, CV_8UC1);
        rng.fill(_image, cv::RNG::UNIFORM, 0, 256);
        ASSERT_TRUE(cv::imwrite(P("img.png"), _image));
    }

    // The library's agent on the same pixels, the hot spot at the kernel's centre; the top-left nx x ny.
    cv::Mat Expected(int kw, int kh, const std::vector<int>& k, bool kSigned, int xs, int ys, int nx,
                     int ny) {
        Buffer src(_image.cols, _image.rows, EIGHT), dst(_image.cols, _image.rows, EIGHT), kb(kw, kh, EIGHT);
        for (int y = 0; y < _image.rows; ++y) std::copy_n(_image.ptr<uint8_t>(y), _image.cols, src.Row(y));
        for (int i = 0; i < kw * kh; ++i) kb.Row(i / kw)[i % kw] = static_cast<uint8_t>(k[i]);
        CorrTemplate tpl(&kb, 0);
        tpl.SetHotSpot(Point{kw / 2, kh / 2});
        swConvAgent agent(&src, &dst, &tpl, 0, kSigned, xs, ys);
        agent.Go();
        cv::Mat out(ny, nx, CV_8UC1);
        for (int y = 0; y < ny; ++y) std::copy_n(dst.Row(y), nx, out.ptr<uint8_t>(y));
        return out;
    }

    cv::Mat _image;
};

TEST_F(ConvCommand, PresetsAndKernelFilesGiveTheAgentsImage) {
    std::string err;
    // sobelx: signed, 3 x 3 on the whole 71 x 45 image, centre hot spot: samples 0..68 and 0..42.
    ASSERT_EQ(
        Ombrel("conv " + P("img.png") + " --kernel sobelx --out " + P("sx.png") + " --json " + P("sx.json"),
               &err),
        0)
        << err;
    cv::Mat written = cv::imread(P("sx.png"), cv::IMREAD_UNCHANGED);
    const cv::Mat sobel = Expected(3, 3, {-1, 0, 1, -2, 0, 2, -1, 0, 1}, true, 1, 1, 69, 43);
    ASSERT_EQ(written.size(), sobel.size());
    EXPECT_EQ(cv::norm(written, sobel, cv::NORM_INF), 0.0);
    const auto json = Json("sx.json");
    const std::string text = json.dump();
    EXPECT_NE(text.find("\"shift\":2"), std::string::npos) << text;  // sqrt(12) -> 3, two bits: shift 2
    EXPECT_NE(text.find("\"output_width\":69"), std::string::npos) << text;

    // A 2 x 3 kernel from a file with a comment, steps 2 and 3.
    std::ofstream(P("k.txt")) << "# two columns\n1 3\n0 2\n5 1\n";
    ASSERT_EQ(
        Ombrel("conv " + P("img.png") + " -k " + P("k.txt") + " --xstep 2 --ystep 3 --out " + P("k.png"),
               &err),
        0)
        << err;
    written = cv::imread(P("k.png"), cv::IMREAD_UNCHANGED);
    // hot spot (1, 1): x samples 0 .. 69 (70 = 71 + 1 - 2) step 2 -> 35; y 0 .. 42 step 3 -> 15.
    const cv::Mat fromFile = Expected(2, 3, {1, 3, 0, 2, 5, 1}, false, 2, 3, 35, 15);
    ASSERT_EQ(written.size(), fromFile.size());
    EXPECT_EQ(cv::norm(written, fromFile, cv::NORM_INF), 0.0);
}

TEST_F(ConvCommand, BadKernelsAndHotSpotsSayWhatIsWrongInOneLine) {
    std::ofstream(P("ragged.txt")) << "1 2 3\n4 5\n";
    std::ofstream(P("wide.txt")) << "-1 200\n";
    std::ofstream(P("word.txt")) << "1 x 3\n";
    const std::pair<std::string, std::string> cases[] = {
        {"--kernel nosuch", "nosuch: cannot be read"},
        {"--kernel " + P("ragged.txt"), "line 2 has 2 values, the first row 3"},
        {"--kernel " + P("wide.txt"), "with negative values takes -128..127 only"},
        {"--kernel " + P("word.txt"), "'x' is not an integer from -128 to 255"},
        {"--hot 1:2", "--hot 1:2: expected X,Y"}};
    for (const auto& [args, words] : cases) {
        std::string err;
        EXPECT_NE(Ombrel("conv " + P("img.png") + " " + args + " --out " + P("bad.png"), &err), 0) << args;
        EXPECT_NE(err.find("ombrel conv: "), std::string::npos) << err;
        EXPECT_NE(err.find(words), std::string::npos) << err;
        EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
    }
}

}  // namespace
}  // namespace ombrel
