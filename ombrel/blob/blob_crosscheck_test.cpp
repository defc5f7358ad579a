// SPDX-License-Identifier: MIT
// Blob segmentation against OpenCV's connected components on generated scenes: every object region is one
// 8-connected component (same area, box and centroid), every hole one 4-connected background component that
// does not touch the border, and the tree says which object each hole (and each nested object) lies in.
#include <gtest/gtest.h>

#include <map>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <random>
#include <set>

#include "ombrel/blob/blob.h"
#include "ombrel/framework/region_clip.h"
#include "scenes/synthetic_scene.h"
#include "testing/recorders.h"

namespace ombrel {
namespace {

// Binary scene makers: 1 = object pixel.
using Scene = cv::Mat1b;

Scene Rings(int w, int h, uint32_t seed) {
    Scene m(h, w, uchar(0));
    std::mt19937 rng(seed);
    for (int i = 0; i < 12; ++i) {
        const cv::Point c(rng() % w, rng() % h);
        const int r = 4 + rng() % 20;
        cv::circle(m, c, r, 1, -1);
        cv::circle(m, c, r * 2 / 3, 0, -1);          // hole
        if (r > 9) cv::circle(m, c, r / 3, 1, -1);   // object inside the hole
        if (r > 15) cv::circle(m, c, r / 6, 0, -1);  // hole in that object
    }
    return m;
}

Scene CornersAndLines(int w, int h, uint32_t seed) {
    Scene m(h, w, uchar(0));
    std::mt19937 rng(seed);
    for (int i = 0; i < 40; ++i) {  // diagonal one-pixel lines, both directions
        const cv::Point a(rng() % w, rng() % h);
        const int len = 3 + rng() % 30;
        const int dir = rng() % 2 ? 1 : -1;
        cv::line(m, a, a + cv::Point(len, dir * len), 1, 1, cv::LINE_8);
    }
    for (int i = 0; i < 30; ++i) {  // squares touching only at corners, sometimes enclosing background
        const cv::Point a(rng() % w, rng() % h);
        const int s = 1 + rng() % 4;
        cv::rectangle(m, cv::Rect(a.x, a.y, s, s), 1, -1);
        cv::rectangle(m, cv::Rect(a.x + s, a.y + s, s, s), 1, -1);
    }
    return m;
}

Scene Noise(int w, int h, uint32_t seed, double density) {
    Scene m(h, w);
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> u(0, 1);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) m(y, x) = u(rng) < density ? 1 : 0;
    return m;
}

Scene Parts(int w, int h, uint32_t seed) {
    auto image = scenes::MakePartsScene(w, h, 9, seed);
    Scene m(h, w);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) m(y, x) = image->Row(y)[x] < 128 ? 1 : 0;
    return m;
}

// Grey image whose object pixels (value 90..120) are the scene's 1s; background varies outside the band.
std::unique_ptr<Buffer> ToGrey(const Scene& s, uint32_t seed) {
    auto b = std::make_unique<Buffer>(s.cols, s.rows, EIGHT);
    std::mt19937 rng(seed);
    for (int y = 0; y < s.rows; ++y)
        for (int x = 0; x < s.cols; ++x)
            b->Row(y)[x] =
                s(y, x) ? uint8_t(90 + rng() % 31) : uint8_t(rng() % 2 ? rng() % 90 : 121 + rng() % 135);
    return b;
}

struct Component {
    int area;
    cv::Rect box;
    cv::Point2d centroid;
};

void CheckScene(const Scene& scene, uint32_t seed) {
    SCOPED_TRACE("seed " + std::to_string(seed) + " size " + std::to_string(scene.cols) + "x" +
                 std::to_string(scene.rows));
    auto grey = ToGrey(scene, seed);
    BlobResult result;
    std::unique_ptr<BlobAgent> agent(BlobFact(grey.get(), &result, 90, 120));
    ASSERT_NE(agent, nullptr);
    ASSERT_EQ(agent->Go(), 0);

    cv::Mat labels, stats, centroids;
    const int nObj = cv::connectedComponentsWithStats(scene, labels, stats, centroids, 8, CV_32S);
    cv::Mat1b background = 1 - scene;
    cv::Mat bgLabels, bgStats, bgCentroids;
    const int nBg = cv::connectedComponentsWithStats(background, bgLabels, bgStats, bgCentroids, 4, CV_32S);

    // Holes: background components off the border; each lies in the object above its first pixel.
    std::map<int, int> holeOwner;  // background label -> object label
    for (int l = 1; l < nBg; ++l) {
        const cv::Rect box(bgStats.at<int>(l, cv::CC_STAT_LEFT), bgStats.at<int>(l, cv::CC_STAT_TOP),
                           bgStats.at<int>(l, cv::CC_STAT_WIDTH), bgStats.at<int>(l, cv::CC_STAT_HEIGHT));
        if (box.x == 0 || box.y == 0 || box.x + box.width == scene.cols || box.y + box.height == scene.rows)
            continue;
        int firstX = box.x;
        while (bgLabels.at<int>(box.y, firstX) != l) ++firstX;
        holeOwner[l] = labels.at<int>(box.y - 1, firstX);
    }

    int objects = 0, holes = 0;
    std::set<int> seenObj, seenBg;
    for (Blob* b : result.Blobs()) {
        Rect r;
        b->BoundingBox(r);
        const int top = r.top, firstX = static_cast<int>(b->GetFeat(BF_TOP_X));
        const int area = static_cast<int>(b->GetFeat(BF_AREA));
        if (b->GetFeat(BF_COLOR) == 0) {
            ++objects;
            const int l = labels.at<int>(top, firstX);
            ASSERT_GT(l, 0);
            EXPECT_TRUE(seenObj.insert(l).second) << "two regions for one component";
            EXPECT_EQ(area, stats.at<int>(l, cv::CC_STAT_AREA));
            EXPECT_EQ(r.left, stats.at<int>(l, cv::CC_STAT_LEFT));
            EXPECT_EQ(r.top, stats.at<int>(l, cv::CC_STAT_TOP));
            EXPECT_EQ(r.Width(), stats.at<int>(l, cv::CC_STAT_WIDTH));
            EXPECT_EQ(r.Height(), stats.at<int>(l, cv::CC_STAT_HEIGHT));
            EXPECT_NEAR(b->GetFeat(BF_CENTROID_X) + 0.5, centroids.at<double>(l, 0), 1e-9);
            EXPECT_NEAR(b->GetFeat(BF_CENTROID_Y), centroids.at<double>(l, 1), 1e-9);
            // Parent: the background component left of the first pixel (the root when it touches the border).
            const int leftBg = firstX > 0 ? bgLabels.at<int>(top, firstX - 1) : -1;
            if (holeOwner.count(leftBg)) {
                ASSERT_NE(b->Parent(), result.Root());
                EXPECT_EQ(b->Parent()->GetFeat(BF_TOP), bgStats.at<int>(leftBg, cv::CC_STAT_TOP));
                EXPECT_EQ(b->Parent()->GetFeat(BF_AREA), bgStats.at<int>(leftBg, cv::CC_STAT_AREA));
            } else {
                EXPECT_EQ(b->Parent(), result.Root());
            }
        } else {
            ++holes;
            EXPECT_EQ(b->GetFeat(BF_COLOR), -1);
            const int l = bgLabels.at<int>(top, firstX);
            ASSERT_TRUE(holeOwner.count(l)) << "a hole that touches the border";
            EXPECT_TRUE(seenBg.insert(l).second);
            EXPECT_EQ(area, bgStats.at<int>(l, cv::CC_STAT_AREA));
            EXPECT_EQ(r.left, bgStats.at<int>(l, cv::CC_STAT_LEFT));
            EXPECT_EQ(r.Width(), bgStats.at<int>(l, cv::CC_STAT_WIDTH));
            EXPECT_EQ(r.Height(), bgStats.at<int>(l, cv::CC_STAT_HEIGHT));
            // Its parent is the object holding it.
            const int owner = holeOwner[l];
            Rect pr;
            b->Parent()->BoundingBox(pr);
            EXPECT_EQ(b->Parent()->GetFeat(BF_AREA), stats.at<int>(owner, cv::CC_STAT_AREA));
            EXPECT_EQ(pr.left, stats.at<int>(owner, cv::CC_STAT_LEFT));
            EXPECT_EQ(pr.top, stats.at<int>(owner, cv::CC_STAT_TOP));
        }
        // Counts in the record agree with the tree.
        int children = 0;
        double filled = b->GetFeat(BF_AREA);
        for (Blob* c = b->FirstChild(); c != nullptr; c = c->NextSibling()) {
            ++children;
            filled += c->GetFeat(BF_FILLED_AREA);
            EXPECT_EQ(c->Parent(), b);
            EXPECT_LT(b->Label(), c->Label());
        }
        EXPECT_EQ(b->GetFeat(BF_HOLES), children);
        EXPECT_EQ(b->GetFeat(BF_FILLED_AREA), filled);
    }
    EXPECT_EQ(objects, nObj - 1);
    EXPECT_EQ(holes, static_cast<int>(holeOwner.size()));
    EXPECT_EQ(result.NParts(), objects + holes);
}

TEST(BlobCrossCheck, RegionsMatchConnectedComponentsOnGeneratedScenes) {
    for (uint32_t seed = 1; seed <= 6; ++seed) {
        CheckScene(Rings(97 + seed * 13, 80 + seed * 7, seed), seed);
        CheckScene(CornersAndLines(120, 90 + seed, seed), seed);
        CheckScene(Parts(160 + seed, 120, seed), seed);
    }
}

TEST(BlobCrossCheck, NoiseOfEveryDensityMatchesConnectedComponents) {
    uint32_t seed = 100;
    for (double density : {0.05, 0.3, 0.45, 0.5, 0.6, 0.8, 0.95}) {
        CheckScene(Noise(150, 110, seed, density), seed);
        ++seed;
    }
    testing::AssertRecorder
        asserts;  // a region one pixel wide is not wider than the step: reported, still exact
    CheckScene(Noise(1, 1, 7, 1.0), 7);
    CheckScene(Noise(1, 40, 8, 0.5), 8);
    CheckScene(Noise(40, 1, 9, 0.5), 9);
    EXPECT_EQ(asserts.Count(), 2u);
}

}  // namespace
}  // namespace ombrel
