// SPDX-License-Identifier: MIT
// Standard shape measures of blob regions: centroid convention, perimeter accuracy on discs and squares at
// any angle, and cross-checks of the moment ellipse and the convex hull against OpenCV.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <numbers>
#include <random>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "ombrel/blob/blob.h"

namespace ombrel {
namespace {

using Inside = std::function<bool(double x, double y)>;

// An image with 255 where `inside` holds at the pixel centre, 0 elsewhere.
Buffer Draw(int w, int h, const Inside& inside) {
    Buffer b(w, h, EIGHT);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) b.Row(y)[x] = inside(x, y) ? 255 : 0;
    return b;
}

// Runs the agent over the whole image for the band 255:255.
std::unique_ptr<BlobAgent> Segment(Buffer& image, BlobResult* result, int minArea = 1) {
    std::unique_ptr<BlobAgent> agent(BlobFact(&image, result, 255, 255));
    agent->SetAreaLimits(minArea, 2147483647);
    EXPECT_EQ(agent->Go(), 0);
    return agent;
}

// The one object of `image`, measured.
ShapeMeasures MeasureOnly(Buffer& image) {
    BlobResult result;
    auto agent = Segment(image, &result);
    Blob* object = nullptr;
    for (Blob* b : result.Blobs())
        if (b->Color() == 0) object = b;
    EXPECT_NE(object, nullptr);
    RegionPixels pixels;
    EXPECT_TRUE(BlobPixels(*object, image, Point{}, &pixels));
    return MeasureShape(pixels);
}

Inside RotatedSquare(double cx, double cy, double side, double degrees) {
    const double a = degrees * std::numbers::pi / 180, c = std::cos(a), s = std::sin(a);
    return [=](double x, double y) {
        const double u = (x - cx) * c + (y - cy) * s, v = -(x - cx) * s + (y - cy) * c;
        return std::abs(u) <= side / 2 && std::abs(v) <= side / 2;
    };
}

TEST(BlobShape, CentroidIsTheMeanPixelIndexWhileFeature17KeepsItsHalfPixel) {
    Buffer image = Draw(12, 12, [](double x, double y) { return x == 5 && y == 5; });
    BlobResult result;
    auto agent = Segment(image, &result);
    ASSERT_EQ(result.NParts(), 1);
    Blob* blob = result.First();
    RegionPixels pixels;
    ASSERT_TRUE(BlobPixels(*blob, image, Point{}, &pixels));
    const ShapeMeasures m = MeasureShape(pixels);
    EXPECT_EQ(m.area, 1);
    EXPECT_DOUBLE_EQ(m.centroidX, 5.0);
    EXPECT_DOUBLE_EQ(m.centroidY, 5.0);
    EXPECT_DOUBLE_EQ(blob->GetFeat(BF_CENTROID_X), 4.5);  // the agent's convention, unchanged
    EXPECT_DOUBLE_EQ(blob->GetFeat(BF_CENTROID_Y), 5.0);
    EXPECT_EQ(m.eulerNumber, 1);
    EXPECT_DOUBLE_EQ(m.solidity, 1.0);

    // With a region of interest placed at (3, 2), positions stay in image coordinates.
    BlobResult placed;
    std::unique_ptr<BlobAgent> inRoi(BlobFact(&image, Point{3, 2}, ROI(8, 9), &placed, 255, 255));
    ASSERT_EQ(inRoi->Go(), 0);
    ASSERT_EQ(placed.NParts(), 1);
    Buffer window(8, 9, EIGHT);
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 8; ++x) window.Row(y)[x] = image.Row(y + 2)[x + 3];
    ASSERT_TRUE(BlobPixels(*placed.First(), window, Point{3, 2}, &pixels));
    EXPECT_DOUBLE_EQ(MeasureShape(pixels).centroidX, 5.0);
    EXPECT_DOUBLE_EQ(MeasureShape(pixels).centroidY, 5.0);
}

TEST(BlobShape, PerimeterIsWithinTwoPercentOnDiscsAndOnSquaresAtAnyAngle) {
    for (double r : {12.0, 25.0, 40.3, 90.0}) {
        const int size = static_cast<int>(2 * r) + 12;
        const double c = size / 2.0 + 0.3;
        Buffer disc = Draw(size, size, [&](double x, double y) {
            return (x - c) * (x - c) + (y - c + 0.1) * (y - c + 0.1) <= r * r;
        });
        const ShapeMeasures m = MeasureOnly(disc);
        const double truth = 2 * std::numbers::pi * r;
        EXPECT_NEAR(m.perimeter / truth, 1.0, 0.02) << "disc r=" << r << ": " << m.perimeter;
        EXPECT_NEAR(m.circularity, 1.0, 0.05) << "disc r=" << r;
    }
    for (double side : {40.0, 61.0, 120.0}) {
        for (double degrees : {0.0, 45.0, 30.0, 10.0, 22.5, 63.4, 80.0, 117.0}) {
            const int size = static_cast<int>(side * 1.5) + 10;
            Buffer square =
                Draw(size, size, RotatedSquare(size / 2.0 + 0.27, size / 2.0 + 0.41, side, degrees));
            const ShapeMeasures m = MeasureOnly(square);
            EXPECT_NEAR(m.perimeter / (4 * side), 1.0, 0.02)
                << "square " << side << " at " << degrees << " degrees: " << m.perimeter;
            EXPECT_NEAR(m.circularity, std::numbers::pi / 4, 0.05) << side << " at " << degrees;
            EXPECT_NEAR(m.solidity, 1.0, 0.02);
            EXPECT_LE(m.solidity, 1.0);
        }
    }
    // A 1-pixel-wide line: both sides count.
    Buffer line = Draw(40, 5, [](double x, double y) { return y == 2 && x >= 5 && x < 35; });
    EXPECT_NEAR(MeasureOnly(line).perimeter, 60.0, 1.5);
}

TEST(BlobShape, MomentEllipseMatchesOpenCvMoments) {
    std::mt19937 rng(3);
    for (int i = 0; i < 12; ++i) {
        cv::Mat1b m(160, 200, uchar(0));
        // One draw a statement: argument order is unspecified, and every compiler must draw the same shapes.
        const int cx = 60 + rng() % 80;
        const int cy = 50 + rng() % 60;
        const int ax = 5 + rng() % 40;
        const int ay = 3 + rng() % 30;
        const double turn = double(rng() % 180);
        const cv::Point centre(cx, cy);
        const cv::Size axes(ax, ay);
        cv::ellipse(m, centre, axes, turn, 0, 360, 255, -1);
        if (i % 3 == 0) cv::circle(m, centre, 2, 0, -1);  // a hole inside
        Buffer image(200, 160, EIGHT);
        for (int y = 0; y < 160; ++y) std::memcpy(image.Row(y), m.ptr(y), 200);
        const ShapeMeasures s = MeasureOnly(image);
        const cv::Moments cm = cv::moments(m, true);
        const double mx = cm.m10 / cm.m00, my = cm.m01 / cm.m00;
        const double a = cm.mu20 / cm.m00, b = cm.mu11 / cm.m00, c = cm.mu02 / cm.m00;
        const double root = std::sqrt((a - c) * (a - c) + 4 * b * b);
        EXPECT_EQ(s.area, static_cast<int64_t>(cm.m00));
        EXPECT_NEAR(s.centroidX, mx, 1e-9);
        EXPECT_NEAR(s.centroidY, my, 1e-9);
        EXPECT_NEAR(s.majorAxis, 4 * std::sqrt((a + c + root) / 2), 1e-6);
        EXPECT_NEAR(s.minorAxis, 4 * std::sqrt((a + c - root) / 2), 1e-6);
        // A region whose second moments are (nearly) isotropic has no orientation to compare.
        if (root > 1e-6 * (a + c)) EXPECT_NEAR(s.orientation, 0.5 * std::atan2(2 * b, a - c), 1e-9);
        EXPECT_EQ(s.eulerNumber, i % 3 == 0 ? 0 : 1);
        // A filled ellipse's moment axes are close to its drawn axes (2 x the semi-axes).
        if (i % 3 != 0 && axes.height >= 8) {
            EXPECT_NEAR(s.majorAxis / (2.0 * std::max(axes.width, axes.height) + 1), 1.0, 0.05);
        }
    }
}

TEST(BlobShape, ConvexAreaCountsThePixelsInOpenCvsHullOfThePixelCentres) {
    std::mt19937 rng(9);
    for (int i = 0; i < 10; ++i) {
        cv::Mat1b m(120, 120, uchar(0));
        std::vector<cv::Point> star;
        const int n = 5 + i % 4;
        for (int k = 0; k < 2 * n; ++k) {
            const double a = k * std::numbers::pi / n, r = (k % 2 ? 15 : 45) + rng() % 8;
            star.emplace_back(60 + int(r * std::cos(a)), 60 + int(r * std::sin(a)));
        }
        cv::fillPoly(m, std::vector<std::vector<cv::Point>>{star}, 255);
        Buffer image(120, 120, EIGHT);
        for (int y = 0; y < 120; ++y) std::memcpy(image.Row(y), m.ptr(y), 120);
        const ShapeMeasures s = MeasureOnly(image);
        std::vector<cv::Point> centres, hull;
        for (int y = 0; y < 120; ++y)
            for (int x = 0; x < 120; ++x)
                if (m(y, x)) centres.emplace_back(x, y);
        cv::convexHull(centres, hull);
        int inside = 0;
        for (int y = 0; y < 120; ++y)
            for (int x = 0; x < 120; ++x)
                inside += cv::pointPolygonTest(hull, cv::Point2f(float(x), float(y)), false) >= 0;
        EXPECT_EQ(s.convexArea, inside);
        EXPECT_DOUBLE_EQ(s.solidity, double(s.area) / inside);
        // OpenCV's polygon area of the same hull is the convex area less about half its perimeter.
        EXPECT_GT(s.convexArea, cv::contourArea(hull));
        EXPECT_LT(s.solidity, 0.9);  // a star is far from convex
    }
}

TEST(BlobShape, RebuiltRegionsHaveTheAgentsAreasHolesAndFilledHoles) {
    cv::Mat1b m(200, 240, uchar(0));
    std::mt19937 rng(4);
    for (int i = 0; i < 10; ++i) {
        const cv::Point c(20 + rng() % 200, 20 + rng() % 160);
        const int r = 6 + rng() % 20;
        cv::circle(m, c, r, 255, -1);
        cv::circle(m, c, r * 2 / 3, 0, -1);
        if (r > 9) cv::circle(m, c, r / 3, 255, -1);
        if (i % 2) cv::circle(m, {c.x + r / 2, c.y}, 1, 0, -1);  // tiny holes the area filter may delete
    }
    Buffer image(240, 200, EIGHT);
    for (int y = 0; y < 200; ++y) std::memcpy(image.Row(y), m.ptr(y), 240);
    for (int minArea : {1, 12}) {
        BlobResult result;
        auto agent = Segment(image, &result, minArea);
        ASSERT_GT(result.NParts(), 10);
        for (Blob* blob : result.Blobs()) {
            RegionPixels pixels;
            ASSERT_TRUE(BlobPixels(*blob, image, Point{}, &pixels)) << "label " << blob->Label();
            const ShapeMeasures s = MeasureShape(pixels);
            EXPECT_EQ(s.area, blob->Area());
            EXPECT_EQ(s.eulerNumber, 1 - blob->NumHoles()) << "label " << blob->Label();
            // The agent's own centroid sits half a pixel left of the mean column.
            if (blob->Color() == 0) {
                EXPECT_NEAR(s.centroidX, blob->GetFeat(BF_CENTROID_X) + 0.5, 1e-9);
            }
            EXPECT_NEAR(s.centroidY, blob->GetFeat(BF_CENTROID_Y), 1e-9);
        }
    }
    // Sampling with a step of 2 cannot be rebuilt pixel for pixel: refused, not guessed.
    BlobResult sampled;
    std::unique_ptr<BlobAgent> agent(BlobFact(&image, &sampled, 255, 255));
    agent->SetStep(1, 2);
    ASSERT_EQ(agent->Go(), 0);
    int refused = 0;
    for (Blob* blob : sampled.Blobs()) {
        RegionPixels pixels;
        refused += !BlobPixels(*blob, image, Point{}, &pixels);
    }
    EXPECT_GT(refused, 0);
}

TEST(BlobFeatureSet, EnablingFeaturesAddsTheirBitsToTheDefaults) {
    Buffer image =
        Draw(60, 50, [](double x, double y) { return (x - 30) * (x - 30) + (y - 25) * (y - 25) < 200; });
    for (int y = 0; y < 50; ++y)
        for (int x = 0; x < 60; ++x)
            if (image.Row(y)[x]) image.Row(y)[x] = static_cast<uint8_t>(200 + (x + y) % 7);
    BlobResult plain, enabled;
    std::unique_ptr<BlobAgent> a(BlobFact(&image, &plain, 200, 255));
    std::unique_ptr<BlobAgent> b(BlobFact(&image, &enabled, 200, 255));
    b->SetOptions(b->Options() | BLOB_OPT_EXTENT_ONLY_0);
    EnableBlobFeatures(*b, {BF_PERIMETER, BF_MEAN_GREY, BF_LENGTH, BF_MAX_RADIUS});
    EXPECT_EQ(b->FilterFlags(), BLOB_FILTER_BORDER_CHILDREN | BLOB_FILTER_GREY);
    EXPECT_EQ(b->Options(), BLOB_OPT_FIRST_MOMENTS | BLOB_OPT_SECOND_MOMENTS | BLOB_OPT_BOUNDARY |
                                BLOB_OPT_RADII | BLOB_OPT_LENGTH_WIDTH);
    ASSERT_EQ(a->Go(), 0);
    ASSERT_EQ(b->Go(), 0);
    Blob* without = plain.First();
    Blob* with = enabled.First();
    EXPECT_EQ(without->GetFeat(BF_PERIMETER), 0.0);  // the agent's rule without boundary lists
    EXPECT_EQ(without->GetFeat(BF_MEAN_GREY), 0.0);
    EXPECT_GT(with->GetFeat(BF_PERIMETER), 40.0);
    EXPECT_GT(with->GetFeat(BF_MEAN_GREY), 199.0);
    EXPECT_GT(with->GetFeat(BF_LENGTH), 10.0);
    EXPECT_GT(with->GetFeat(BF_MAX_RADIUS), 5.0);
    EXPECT_DOUBLE_EQ(with->GetFeat(BF_CENTROID_X), without->GetFeat(BF_CENTROID_X));

    // Every named feature is found by its name and its number, and only 22 has no entry.
    EXPECT_EQ(BlobFeatureTable().size(), 63u);
    for (const BlobFeatureInfo& f : BlobFeatureTable()) {
        EXPECT_EQ(FindBlobFeature(f.name), &f);
        EXPECT_EQ(FindBlobFeature(f.number), &f);
    }
    EXPECT_EQ(FindBlobFeature(BF_NONE), nullptr);
    EXPECT_EQ(FindBlobFeature("no_such_feature"), nullptr);
}

}  // namespace
}  // namespace ombrel
