// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "ombrel/pixelops/histogram.h"
#include "scenes/synthetic_scene.h"
#include "testing/recorders.h"

namespace ombrel {
namespace {

using testing::AssertRecorder;

// A one-row image of the given values.
std::unique_ptr<Buffer> RowOf(const std::vector<int>& values) {
    auto b = std::make_unique<Buffer>(static_cast<int>(values.size()), 1, EIGHT);
    for (size_t i = 0; i < values.size(); ++i) b->Row(0)[i] = static_cast<uint8_t>(values[i]);
    return b;
}

cv::Mat AsMat(const Buffer& b) {
    return cv::Mat(b.Height(), b.Width(), CV_8UC1, b.BaseAddr(), b.Pitch());
}

std::vector<int> CalcHist(const cv::Mat& image, int bins) {
    cv::Mat hist;
    const int channels[] = {0};
    const int sizes[] = {bins};
    const float range[] = {0.f, 256.f};
    const float* ranges[] = {range};
    cv::calcHist(&image, 1, channels, cv::Mat(), hist, 1, sizes, ranges);
    std::vector<int> out(bins);
    for (int i = 0; i < bins; ++i) out[i] = static_cast<int>(hist.at<float>(i));
    return out;
}

class HistogramAtLevel : public testing::IsaLevelTest {};

// Bins, count and sum against a pixel-by-pixel count, over widths around every lane and vector width, odd
// origins, masked regions and a padded source whose padding holds a value no pixel has.
TEST_P(HistogramAtLevel, CountsEveryRegionPixelOnceAndNothingElse) {
    std::mt19937 rng(5);
    for (int w : {1, 3, 15, 16, 17, 31, 32, 33, 63, 64, 65, 129, 300}) {
        const int h = 1 + w % 4;
        Buffer src(w + 7, h + 2, EIGHT);
        for (int y = 0; y < src.Height(); ++y) {
            for (int x = 0; x < src.Width(); ++x) src.Row(y)[x] = static_cast<uint8_t>(rng() % 200);
            std::fill(src.Row(y) + src.Width(), src.Row(y) + src.Pitch(), 0xEE);
        }
        Buffer mask(w, h, EIGHT);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) mask.Row(y)[x] = rng() % 4 != 0;
        const Point origin{static_cast<int>(rng() % 8), static_cast<int>(rng() % 3)};
        for (const ROI& roi : {ROI(w, h), ROI(&mask)}) {
            std::vector<int> bins;
            swHistogramAgent agent(&src, origin, roi, HISTRES_256, &bins);
            agent.SetBinOffset(3);
            ASSERT_EQ(agent.Go(), 0);
            std::vector<int> expected(256, 0);
            int count = 0, sum = 0;
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x) {
                    if (roi.IsMasked() && mask.Row(y)[x] == 0) continue;
                    const int v = src.Row(origin.y + y)[origin.x + x];
                    if (v + 3 < 256) ++expected[v + 3];
                    count += v != 0;
                    sum += v;
                }
            EXPECT_EQ(bins, expected) << "width " << w << " masked " << roi.IsMasked();
            EXPECT_EQ(agent.PixelCount(), count);
            EXPECT_EQ(agent.PixelSum(), sum);
        }
    }
}

OMBREL_INSTANTIATE_ISA_LEVELS(HistogramAtLevel);

TEST(Histogram, CountsMatchOpenCvOnGeneratedScenesAtFullAndCoarseResolution) {
    std::unique_ptr<Buffer> scenes[] = {scenes::MakeTexturedScene(333, 251, 1),
                                        scenes::MakePartsScene(320, 240, 4, 2),
                                        scenes::MakeNoiseScene(257, 63, 3)};
    for (const auto& scene : scenes) {
        for (HistRes res : {HISTRES_256, HISTRES_64, HISTRES_8}) {
            std::vector<int> bins;
            std::unique_ptr<HistogramAgent> whole(HistogramFact(scene.get(), res, &bins));
            ASSERT_NE(whole, nullptr);
            ASSERT_EQ(whole->Go(), 0);
            EXPECT_EQ(bins, CalcHist(AsMat(*scene), res)) << "resolution " << res;
        }
        std::vector<int> bins;
        std::unique_ptr<HistogramAgent> part(HistogramFact(scene.get(), HISTRES_256, 13, 7, 120, 50, &bins));
        ASSERT_EQ(part->Go(), 0);
        EXPECT_EQ(bins, CalcHist(AsMat(*scene)(cv::Rect(13, 7, 107, 43)), 256));
    }
}

// The statistics of one run over a row of values.
struct Figures {
    std::vector<int> bins;
    int count, sum;
    double mean, stdDev, median;
};
Figures RunOver(const std::vector<int>& values, HistRes res, bool isSigned = false) {
    auto image = RowOf(values);
    Figures f;
    swHistogramAgent agent(image.get(), res, &f.bins);
    agent.SetSigned(isSigned);
    EXPECT_EQ(agent.Go(), 0);
    f.count = agent.PixelCount(), f.sum = agent.PixelSum();
    f.mean = agent.Mean(), f.stdDev = agent.StdDev(), f.median = agent.Median();
    return f;
}

TEST(Histogram, StatisticsFollowTheCountMedianAndDivisorRules) {
    const Figures black = RunOver(std::vector<int>(15, 0), HISTRES_256);  // binned, not counted
    EXPECT_EQ(black.bins[0], 15);
    EXPECT_EQ(black.count + black.mean + black.stdDev + black.median, 0.0);

    // 64 bins of width 4, centres 1.5, 5.5, 9.5, ...: var = 1*(5.5-55)^2 + 2*(9.5-55)^2 + (201.5-55)^2.
    const Figures coarse = RunOver({5, 9, 9, 200}, HISTRES_64);
    EXPECT_EQ(coarse.bins.size(), 64u);
    EXPECT_EQ(coarse.bins[1] + coarse.bins[2] + coarse.bins[50], 4);
    EXPECT_EQ(coarse.mean, 55.0);  // 223 / 4 in integers
    EXPECT_EQ(coarse.median, 9.5);
    EXPECT_DOUBLE_EQ(coarse.stdDev, std::sqrt(28053.0 / 3));

    // The centre of the bin after the last one still below half: bins 10 and 20 reach half (2 of 4).
    EXPECT_EQ(RunOver({10, 20, 30, 40}, HISTRES_256).median, 20.0);

    // Zero pixels weigh in the running count (the first bin already reaches half: median 0) and in the
    // variance, which divides by count - 1.
    const Figures zeros = RunOver({0, 0, 0, 100, 100}, HISTRES_256);
    EXPECT_EQ(zeros.count, 2);
    EXPECT_EQ(zeros.median, 0.0);
    EXPECT_DOUBLE_EQ(zeros.stdDev, std::sqrt(3 * 100.0 * 100.0));

    // One counted pixel divides by zero: not finite, and not reported.
    AssertRecorder asserts;
    EXPECT_FALSE(std::isfinite(RunOver({10}, HISTRES_256).stdDev));
    EXPECT_FALSE(std::isfinite(RunOver({0, 10}, HISTRES_256).stdDev));
    EXPECT_EQ(asserts.Count(), 0u);

    // Signed mode: the index stays unsigned, the sum and centres are signed, the centres wrap by 128.
    const Figures sign = RunOver({200, 200, 200}, HISTRES_256, true);
    EXPECT_EQ(sign.bins[200], 3);
    EXPECT_EQ(sign.sum, -168);
    EXPECT_EQ(sign.mean, -56.0);
    EXPECT_EQ(sign.median, 72.0);  // 200 - 128; a wrap by 256 would give -56
    EXPECT_DOUBLE_EQ(sign.stdDev, std::sqrt(3 * 128.0 * 128.0 / 2));
}

TEST(Histogram, OffsetsAndShrunkVectorsNeverWriteOutsideTheVector) {
    auto image = RowOf({5, 250, 0});
    std::vector<int> bins;
    swHistogramAgent agent(image.get(), HISTRES_256, &bins);
    agent.SetBinOffset(10);
    agent.Go();
    EXPECT_EQ(bins[15] + bins[10], 2);
    EXPECT_EQ(std::accumulate(bins.begin(), bins.end(), 0), 2);  // 250 + 10 falls outside, skipped
    EXPECT_EQ(agent.PixelCount(), 2);
    for (auto [asked, clamped] : {std::pair{-1000, -256}, std::pair{1000, 255}}) {
        agent.SetBinOffset(asked);
        agent.Go();
        EXPECT_EQ(agent.BinOffset(), clamped);
        EXPECT_EQ(std::accumulate(bins.begin(), bins.end(), 0), clamped < 0 ? 0 : 1);  // only 0 + 255 fits
    }
    // Shrunk by the caller after construction: only its own elements are written; each run starts at zero.
    agent.SetBinOffset(0);
    bins.assign(8, 99);
    agent.Go();
    agent.Go();
    EXPECT_EQ(bins, (std::vector<int>{1, 0, 0, 0, 0, 1, 0, 0}));
}

TEST(Histogram, BadArgumentsReportInOrderAndOnlyTheInsidePartIsCounted) {
    Buffer src(10, 4, EIGHT), oneBit(64, 2, ONE);
    for (int y = 0; y < 4; ++y) std::fill(src.Row(y), src.Row(y) + 10, 1);
    std::vector<int> bins;
    AssertRecorder asserts;
    swHistogramAgent over(&src, Rect{-2, 1, 20, 9}, HISTRES_256, &bins);
    EXPECT_EQ(over.Go(), 0);
    EXPECT_TRUE(asserts.Has("histo", 102, "_sPt.x >= 0 && _sPt.x < _srcBuf->Width()"));
    EXPECT_TRUE(asserts.Has("histo", 106, "_sPt.x + _sRoi.Width() <= _srcBuf->Width()"));
    EXPECT_TRUE(asserts.Has("histo", 107, "_sPt.y + _sRoi.Height() <= _srcBuf->Height()"));
    EXPECT_EQ(over.PixelCount(), 30);  // rows 1..3, all ten columns

    asserts.Clear();
    swHistogramAgent nothing(nullptr, Point{0, 0}, ROI(0, 0), HistRes(0), nullptr);
    EXPECT_EQ(nothing.Go(), 0);
    std::vector<int> lines;
    for (const auto& report : asserts.Reports()) lines.push_back(report.line);
    EXPECT_EQ(lines, (std::vector<int>{101, 104, 105, 108, 109}));

    swHistogramAgent notBytes(&oneBit, HISTRES_256, &bins);  // a one-bit source is not read as bytes
    EXPECT_EQ(notBytes.Go(), 0);
    EXPECT_EQ(std::accumulate(bins.begin(), bins.end(), 0), 0);
}

TEST(HistogramFact, AcceptsOnlyAnOwnedHostSourceAndReportsMissingArguments) {
    Buffer src(8, 8, EIGHT);
    std::vector<uint8_t> lent(64);
    Buffer wrapped(lent.data(), 8, 8, 8, EIGHT);
    Buffer board(nullptr, MONSTER_ALLOC_DEFAULT, BANK_0, 8, 8, EIGHT);
    std::vector<int> bins{1, 2, 3};
    testing::TextRecorder text;
    AssertRecorder asserts;

    std::unique_ptr<HistogramAgent> agent(HistogramFact(&src, HISTRES_32, Point{1, 1}, ROI(4, 4), &bins));
    EXPECT_NE(dynamic_cast<swHistogramAgent*>(agent.get()), nullptr);
    EXPECT_EQ(bins.size(), 32u);
    EXPECT_EQ(HistogramFact(&wrapped, HISTRES_256, &bins), nullptr);
    EXPECT_EQ(HistogramFact(&board, HISTRES_256, Rect{0, 0, 4, 4}, &bins), nullptr);
    EXPECT_EQ(asserts.Count(), 0u);

    std::unique_ptr<HistogramAgent> noVector(HistogramFact(&src, HISTRES_256, 0, 0, 4, 4, nullptr));
    ASSERT_EQ(asserts.Count(), 1u);
    EXPECT_EQ(asserts.Reports()[0].module, "lfhisto");
    EXPECT_EQ(asserts.Reports()[0].expression, "aBuf && aHistogram");
    ASSERT_NE(noVector, nullptr);  // the factory goes on after its assertion
    EXPECT_EQ(noVector->Go(), 0);
    EXPECT_EQ(noVector->PixelCount(), 0);
}

}  // namespace
}  // namespace ombrel
