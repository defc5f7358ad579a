// SPDX-License-Identifier: MIT
// Standard grey statistics and Otsu's threshold from the histogram agent's bins, against the pixels
// themselves and against OpenCV.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "ombrel/pixelops/grey_statistics.h"
#include "ombrel/pixelops/histogram.h"
#include "scenes/synthetic_scene.h"

namespace ombrel {
namespace {

cv::Mat1b AsMat(const Buffer& b) {
    return cv::Mat1b(b.Height(), b.Width(), b.BaseAddr(), b.Pitch());
}

// The agent's 256 bins over the whole image.
std::vector<int> Bins(Buffer& image) {
    std::vector<int> bins;
    std::unique_ptr<HistogramAgent> agent(HistogramFact(&image, HISTRES_256, &bins));
    EXPECT_EQ(agent->Go(), 0);
    return bins;
}

TEST(GreyStatistics, CheckerboardAndSinglePixelReadAsNumpyReadsThem) {
    Buffer board(16, 10, EIGHT);
    for (int y = 0; y < 10; ++y)
        for (int x = 0; x < 16; ++x) board.Row(y)[x] = (x + y) % 2 ? 255 : 0;
    const GreyStatistics s = StatisticsOfHistogram(Bins(board));
    EXPECT_FALSE(s.empty);
    EXPECT_EQ(s.count, 160);
    EXPECT_DOUBLE_EQ(s.mean, 127.5);
    EXPECT_DOUBLE_EQ(s.std, 127.5);
    EXPECT_DOUBLE_EQ(s.median, 127.5);
    EXPECT_EQ(s.min, 0);
    EXPECT_EQ(s.max, 255);

    // One non-zero pixel: the agent's deviation divides by zero, ours is the population deviation.
    Buffer one(5, 4, EIGHT);
    for (int y = 0; y < 4; ++y) std::fill(one.Row(y), one.Row(y) + 5, 0);
    one.Row(2)[3] = 100;
    const GreyStatistics t = StatisticsOfHistogram(Bins(one));
    EXPECT_EQ(t.count, 20);
    EXPECT_DOUBLE_EQ(t.mean, 5.0);
    EXPECT_DOUBLE_EQ(t.std, std::sqrt((19 * 25.0 + 95.0 * 95.0) / 20));
    EXPECT_DOUBLE_EQ(t.median, 0.0);
    EXPECT_EQ(t.max, 100);

    // Odd counts take the middle value; no pixels give zeros and `empty`.
    EXPECT_DOUBLE_EQ(StatisticsOfHistogram(std::vector<int>{0, 2, 0, 1}).median, 1.0);
    EXPECT_DOUBLE_EQ(StatisticsOfHistogram(std::vector<int>{0, 1, 0, 1}).median, 2.0);
    const GreyStatistics none = StatisticsOfHistogram(std::vector<int>(256, 0));
    EXPECT_TRUE(none.empty);
    EXPECT_EQ(none.count, 0);
    EXPECT_EQ(none.mean, 0.0);
    EXPECT_EQ(none.std, 0.0);
}

TEST(GreyStatistics, MatchesOpenCvMeanStdDevAndTheSortedPixels) {
    for (uint64_t seed : {1u, 2u, 3u}) {
        auto image =
            seed == 3 ? scenes::MakePartsScene(211, 97, 6, seed) : scenes::MakeTexturedScene(211, 97, seed);
        const GreyStatistics s = StatisticsOfHistogram(Bins(*image));
        cv::Scalar mean, dev;
        cv::meanStdDev(AsMat(*image), mean, dev);
        EXPECT_EQ(s.count, 211 * 97);
        EXPECT_NEAR(s.mean, mean[0], 1e-9);
        EXPECT_NEAR(s.std, dev[0], 1e-9);
        double lo = 0, hi = 0;
        cv::minMaxLoc(AsMat(*image), &lo, &hi);
        EXPECT_EQ(s.min, int(lo));
        EXPECT_EQ(s.max, int(hi));
        const cv::Mat1b view = AsMat(*image);
        std::vector<uint8_t> pixels(view.begin(), view.end());
        std::sort(pixels.begin(), pixels.end());
        const size_t n = pixels.size();
        EXPECT_DOUBLE_EQ(s.median, n % 2 ? pixels[n / 2] : (pixels[n / 2 - 1] + pixels[n / 2]) / 2.0);
    }
}

TEST(OtsuThreshold, MatchesOpenCvOtsuOnScenesAndSplitsTwoLevels) {
    for (uint64_t seed : {1u, 5u, 8u, 13u}) {
        for (bool parts : {true, false}) {
            auto image =
                parts ? scenes::MakePartsScene(320, 240, 7, seed) : scenes::MakeTexturedScene(320, 240, seed);
            cv::Mat1b out;
            const double cvT = cv::threshold(AsMat(*image), out, 0, 255, cv::THRESH_BINARY | cv::THRESH_OTSU);
            EXPECT_EQ(OtsuThreshold(Bins(*image)), int(cvT))
                << "seed " << seed << (parts ? " parts" : " texture");
        }
    }
    std::mt19937 rng(2);
    cv::Mat1b bimodal(100, 100);
    for (auto& p : bimodal) p = static_cast<uint8_t>(rng() % 3 ? 40 + rng() % 30 : 170 + rng() % 40);
    Buffer b(100, 100, EIGHT);
    for (int y = 0; y < 100; ++y) std::memcpy(b.Row(y), bimodal.ptr(y), 100);
    const int t = OtsuThreshold(Bins(b));
    EXPECT_GE(t, 69);
    EXPECT_LT(t, 170);
    cv::Mat1b out;
    EXPECT_EQ(t, int(cv::threshold(bimodal, out, 0, 255, cv::THRESH_BINARY | cv::THRESH_OTSU)));
    // Two grey levels: the lower one is the threshold (the first of the equal splits).
    std::vector<int> two(256, 0);
    two[40] = 30;
    two[200] = 10;
    EXPECT_EQ(OtsuThreshold(two), 40);
    std::vector<int> flat(256, 0);
    flat[77] = 5;
    EXPECT_EQ(OtsuThreshold(flat), 77);
    EXPECT_EQ(OtsuThreshold(std::vector<int>(256, 0)), 0);
}

}  // namespace
}  // namespace ombrel
