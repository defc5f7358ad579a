// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "ombrel/blob/blob.h"
#include "ombrel/blob/blob_rle.h"
#include "ombrel/framework/angles.h"
#include "testing/images.h"
#include "testing/recorders.h"

namespace ombrel {
namespace {

using testing::AssertRecorder;
using testing::TextRecorder;

// '#' is an object pixel (200), anything else background (10); the agent's band is 100..255.
std::unique_ptr<Buffer> Art(const std::vector<std::string>& rows) {
    auto b = std::make_unique<Buffer>(static_cast<int>(rows[0].size()), static_cast<int>(rows.size()), EIGHT);
    for (size_t y = 0; y < rows.size(); ++y)
        for (size_t x = 0; x < rows[y].size(); ++x) b->Row(int(y))[x] = rows[y][x] == '#' ? 200 : 10;
    return b;
}

struct BlobRun {
    BlobResult result;
    std::unique_ptr<BlobAgent> agent;
    int status = 0;
    explicit BlobRun(Buffer* src, int options = BLOB_OPT_FIRST_MOMENTS | BLOB_OPT_SECOND_MOMENTS) {
        agent.reset(BlobFact(src, &result, 100, 255));
        agent->SetOptions(options);
    }
    int Go() { return status = agent->Go(); }
    std::vector<Blob*> Objects() const {
        std::vector<Blob*> v;
        for (Blob* b : result.Blobs())
            if (b->Color() == 0) v.push_back(b);
        return v;
    }
};

TEST(BlobSegmentation, ShapesGiveTheExpectedTree) {
    {  // every pixel in the band: one object, child of the root, the region's extent
        auto img = Art({"####", "####", "####"});
        BlobRun r(img.get());
        ASSERT_EQ(r.Go(), 0);
        ASSERT_EQ(r.result.NParts(), 1);
        Blob* b = r.result.First();
        EXPECT_EQ(b->Parent(), r.result.Root());
        EXPECT_EQ(b->GetFeat(BF_AREA), 12);
        Rect box;
        b->BoundingBox(box);
        EXPECT_EQ(box, (Rect{0, 0, 4, 3}));
    }
    {  // corners: objects join, background does not (the enclosed corner cell is a hole)
        auto img = Art({"#...", ".#..", "#.#.", ".#..", "...."});
        BlobRun r(img.get());
        ASSERT_EQ(r.Go(), 0);
        ASSERT_EQ(r.Objects().size(), 1u);
        EXPECT_EQ(r.Objects()[0]->GetFeat(BF_AREA), 5);
        EXPECT_EQ(r.Objects()[0]->GetFeat(BF_HOLES), 1);  // the cell at (1, 2)
        EXPECT_EQ(r.Objects()[0]->GetFeat(BF_FILLED_AREA), 6);
    }
    {  // a U joined lower down is one region; a ring has one hole of the background colour
        auto img = Art({"#...#.....", "#...#.###.", "#####.#.#.", "......###."});
        BlobRun r(img.get());
        ASSERT_EQ(r.Go(), 0);
        auto objects = r.Objects();
        ASSERT_EQ(objects.size(), 2u);
        EXPECT_EQ(objects[0]->GetFeat(BF_AREA), 9);
        EXPECT_EQ(objects[0]->GetFeat(BF_TOP_X), 0);  // the first run of the earlier arm
        EXPECT_EQ(objects[0]->GetFeat(BF_HOLES), 0);  // the U's inside is open to the top
        Blob* ring = objects[1];
        ASSERT_NE(ring->FirstChild(), nullptr);
        EXPECT_EQ(ring->FirstChild()->GetFeat(BF_COLOR), -1);
        EXPECT_EQ(ring->GetFeat(BF_FILLED_AREA), ring->GetFeat(BF_AREA) + 1);
        EXPECT_EQ(ring->GetFeat(BF_HOLE_AREA), 1);
        EXPECT_EQ(ring->FirstChild()->GetFeat(BF_PARENT_LABEL), ring->Label());
        EXPECT_EQ(ring->GetFeat(BF_PARENT_LABEL), 0);
        EXPECT_LT(objects[0]->Label(), ring->Label());  // raster order of the first pixel
    }
}

TEST(BlobSegmentation, ThresholdBandsAndSteps) {
    auto img = std::make_unique<Buffer>(40, 6, EIGHT);
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 40; ++x) img->Row(y)[x] = static_cast<uint8_t>((x / 8) % 2 ? 77 : 30 + x % 3);
    BlobResult result;
    std::unique_ptr<BlobAgent> agent(BlobFact(img.get(), &result, 77, 77));  // a single grey value
    ASSERT_EQ(agent->Go(), 0);
    ASSERT_EQ(result.NParts(), 2);
    EXPECT_EQ(result.First()->GetFeat(BF_LEFT), 8);
    EXPECT_EQ(result.First()->GetFeat(BF_RIGHT), 16);
    // Step 3 along rows: transitions are still exact; step 2 between rows: each row stands for two.
    agent->SetStep(3, 2);
    ASSERT_EQ(agent->Go(), 0);
    ASSERT_EQ(result.NParts(), 2);
    EXPECT_EQ(result.First()->GetFeat(BF_LEFT), 8);
    EXPECT_EQ(result.First()->GetFeat(BF_RIGHT), 16);
    EXPECT_EQ(result.First()->GetFeat(BF_AREA), 8 * 6);
    EXPECT_EQ(result.First()->GetFeat(BF_BOTTOM), 5);  // last scanned row 4, made exclusive by one
    // 0..255 selects everything.
    agent->SetThresholds(0, 255);
    agent->SetStep(1, 1);
    ASSERT_EQ(agent->Go(), 0);
    ASSERT_EQ(result.NParts(), 1);
    EXPECT_EQ(result.First()->GetFeat(BF_AREA), 240);
    // A span shorter than the step is skipped (and reported).
    AssertRecorder asserts;
    agent->SetStep(50, 1);
    ASSERT_EQ(agent->Go(), 0);
    EXPECT_EQ(result.NParts(), 0);
    ASSERT_EQ(asserts.Count(), 1u);
    EXPECT_EQ(asserts.Reports()[0].module, "swblob");
    EXPECT_EQ(asserts.Reports()[0].expression, "_sRoi.Width() > _StepX");
}

// Step-1 row coding and whole segmentations at every instruction-set level are those of the scalar code.
class BlobIsaLevels : public testing::IsaLevelTest {};

TEST_P(BlobIsaLevels, StepOneCodingIsIdenticalToTheReference) {
    uint32_t seed = 5;
    for (int width : testing::AwkwardWidths()) {
        auto row = testing::RandomImage(width, 1, seed++);
        std::vector<int16_t> a(width + 2), b(width + 2);
        const blobrle::Band band{100, 100};
        const int n = blobrle::CodeSpan(row->Row(0), width, 7, 1, band, a.data());
        const int m = blobrle::CodeSpanStep1(row->Row(0), width, 7, band, b.data(), Level());
        ASSERT_EQ(n, m) << "width " << width;
        for (int i = 0; i < n; ++i) EXPECT_EQ(a[i], b[i]) << "width " << width << " transition " << i;
    }
}

// Area, box and first run of every region, in label order.
std::vector<std::vector<double>> Regions(Buffer* img, const Rect& r) {
    BlobResult result;
    std::unique_ptr<BlobAgent> agent(BlobFact(img, r, &result, 0, 127));
    EXPECT_EQ(agent->Go(), 0);
    std::vector<std::vector<double>> out;
    for (Blob* b : result.Blobs())
        out.push_back({b->GetFeat(BF_COLOR), b->GetFeat(BF_AREA), b->GetFeat(BF_LEFT), b->GetFeat(BF_TOP),
                       b->GetFeat(BF_RIGHT), b->GetFeat(BF_BOTTOM), b->GetFeat(BF_TOP_X),
                       b->GetFeat(BF_PARENT_LABEL)});
    return out;
}

TEST_P(BlobIsaLevels, SegmentationIsIdenticalToTheScalarOneAndLeavesThePaddingAlone) {
    uint32_t seed = 40;
    for (int width : {1, 15, 16, 17, 33, 64, 67}) {
        auto img = testing::RandomImage(width + 3, 11, seed++);
        const Rect region{1, 2, width + 2, 11};  // an odd offset inside the image
        const auto atLevel = Regions(img.get(), region);
        std::vector<std::vector<double>> reference;
        {
            testing::ScopedIsaCap scalar(Isa::Scalar);
            reference = Regions(img.get(), region);
        }
        EXPECT_FALSE(atLevel.empty());
        EXPECT_EQ(atLevel, reference) << "width " << width;
        testing::ExpectPaddingIs(*img);
    }
}

OMBREL_INSTANTIATE_ISA_LEVELS(BlobIsaLevels);

TEST(BlobRecords, FiltersAndKeepFlag) {
    auto img = Art({"......................", ".####...........#####.", ".#.##...##......#...#.",
                    ".####...##......#####.", "......................"});
    BlobRun r(img.get());
    // A one-pixel hole below the minimum area is filled into its object (flag 1 clear: holes too).
    r.agent->SetAreaLimits(2, 2147483647);
    ASSERT_EQ(r.Go(), 0);
    auto objects = r.Objects();
    ASSERT_EQ(objects.size(), 3u);
    EXPECT_EQ(objects[0]->GetFeat(BF_AREA), 12);
    EXPECT_EQ(objects[0]->GetFeat(BF_HOLES), 0);
    // Keep-flag 0: only the largest top-level region survives.
    r.agent->SetAreaLimits(1, 2147483647);
    r.agent->SetKeepFlag(false);
    ASSERT_EQ(r.Go(), 0);
    objects = r.Objects();
    ASSERT_EQ(objects.size(), 1u);
    EXPECT_EQ(objects[0]->GetFeat(BF_AREA), 12);  // the later of the two 12-pixel regions wins the tie
    EXPECT_EQ(objects[0]->GetFeat(BF_LEFT), 16);
    // Border filter: a region touching the region's edge goes.
    auto edge = Art({"##...", "##...", ".....", "...#.", "....."});
    BlobRun e(edge.get());
    e.agent->SetFilterFlags(BLOB_FILTER_BORDER | BLOB_FILTER_BORDER_CHILDREN);
    ASSERT_EQ(e.Go(), 0);
    ASSERT_EQ(e.result.NParts(), 1);
    EXPECT_EQ(e.result.First()->GetFeat(BF_LEFT), 3);
}

TEST(BlobRecords, GreySumsAndTheMaximumAreaFilter) {
    // A 9 x 7 object of grey 149 + x with a 5 x 3 hole holding a one-pixel object (grey 200).
    auto img = std::make_unique<Buffer>(16, 9, EIGHT);
    for (int y = 1; y < 8; ++y)
        for (int x = 1; x < 10; ++x)
            img->Row(y)[x] = static_cast<uint8_t>(y >= 3 && y <= 5 && x >= 3 && x <= 7 ? 0 : 149 + x);
    img->Row(4)[5] = 200;
    img->Row(4)[13] = 120;  // a second, small top-level object
    BlobResult result;
    std::unique_ptr<BlobAgent> agent(BlobFact(img.get(), &result, 100, 255));
    agent->SetFilterFlags(BLOB_FILTER_GREY | BLOB_FILTER_BORDER_CHILDREN);
    ASSERT_EQ(agent->Go(), 0);
    ASSERT_EQ(result.NParts(), 4);
    Blob* outer = result.First();
    const double outerSum = 4 * (9 * 149 + 45) + 3 * (150 + 151 + 157 + 158);
    EXPECT_EQ(outer->GetFeat(BF_AREA), 48);
    EXPECT_EQ(outer->GetFeat(BF_GREY_SUM), outerSum);
    EXPECT_DOUBLE_EQ(outer->GetFeat(BF_MEAN_GREY), outerSum / 48);
    Blob* hole = outer->FirstChild();
    ASSERT_NE(hole, nullptr);
    EXPECT_EQ(hole->GetFeat(BF_GREY_SUM), 0);
    EXPECT_EQ(hole->FirstChild()->GetFeat(BF_MEAN_GREY), 200);
    // Without grey sums they stay 0.
    agent->SetFilterFlags(BLOB_FILTER_BORDER_CHILDREN);
    ASSERT_EQ(agent->Go(), 0);
    EXPECT_EQ(result.First()->GetFeat(BF_GREY_SUM), 0);
    // The maximum-area filter on top-level regions only: the large object goes with everything inside it.
    agent->SetAreaLimits(1, 10);
    agent->SetFilterFlags(BLOB_FILTER_MAX_TOP_ONLY | BLOB_FILTER_BORDER_CHILDREN);
    ASSERT_EQ(agent->Go(), 0);
    ASSERT_EQ(result.NParts(), 1);
    EXPECT_EQ(result.First()->GetFeat(BF_LEFT), 13);
    EXPECT_EQ(result.First()->Parent(), result.Root());
}

TEST(BlobRecords, FeaturesFollowTheirFormulas) {
    auto img = Art(
        {"..........", ".########.", ".########.", "..........", "....#.....", ".....#....", "......#..."});
    BlobRun r(img.get(), BLOB_OPT_FIRST_MOMENTS | BLOB_OPT_SECOND_MOMENTS | BLOB_OPT_BOUNDARY |
                             BLOB_OPT_RADII | BLOB_OPT_LENGTH_WIDTH);
    ASSERT_EQ(r.Go(), 0);
    auto objects = r.Objects();
    ASSERT_EQ(objects.size(), 2u);
    Blob* bar = objects[0];
    // Centroid of pixels x 1..8, y 1..2 in image coordinates: mean x - 0.5 and mean y.
    EXPECT_DOUBLE_EQ(bar->GetFeat(BF_CENTROID_X), 4.5 - 0.5);
    EXPECT_DOUBLE_EQ(bar->GetFeat(BF_CENTROID_Y), 1.5);
    // Second moments: mxx = ((xx/A)/3 - 4 cx^2)/pi with xx = sum over runs of ((x0+x1-1)^2*3 + L^2)*L.
    const double A = 16, m = 1 + 9 - 1, xx = 2 * ((m * m * 3 + 64) * 8), cx = 4.5;
    const double yy = ((3 * 8 * 3 * 3 + 1) + (5 * 8 * 5 * 3 + 1)), cy = 2.0;
    const double xy = 3 * 8 * m + 5 * 8 * m;
    const double mxx = ((xx / A) / 3 - 4 * cx * cx) / kPi, myy = ((yy / A) / 3 - 4 * cy * cy) / kPi;
    const double mxy = (xy / A - 4 * cx * cy) / kPi;
    const double d = std::sqrt((mxx - myy) * (mxx - myy) + 4 * mxy * mxy);
    const double s = std::sqrt(std::sqrt(std::fabs(mxx * myy - mxy * mxy)) / A);
    EXPECT_DOUBLE_EQ(bar->GetFeat(BF_MAJOR_AXIS), std::sqrt(2 * std::fabs(d + mxx + myy) / s));
    EXPECT_DOUBLE_EQ(bar->GetFeat(BF_MINOR_AXIS), std::sqrt(2 * std::fabs(mxx + myy - d) / s));
    EXPECT_DOUBLE_EQ(bar->GetFeat(BF_AXIS_ANGLE), 0.0);
    EXPECT_DOUBLE_EQ(bar->GetFeat(BF_AXIS_FRAME_02), -4.0);  // -(X cos a + Y sin a)
    // The boundary of a w x h rectangle of runs: sum|dx| = 2w, sum|dy| = 2(h-1), two points.
    EXPECT_EQ(bar->GetFeat(BF_SUM_DX), 16);
    EXPECT_EQ(bar->GetFeat(BF_SUM_DY), 2);
    const double sb = 18, rb = (2 - std::sqrt(2.0)) * 2 / sb;
    const double p = sb * (1 + rb * (0.7 * rb - 0.87));
    EXPECT_DOUBLE_EQ(bar->GetFeat(BF_PERIMETER), p);
    EXPECT_DOUBLE_EQ(bar->GetFeat(BF_COMPACTNESS), std::min(1.0, 4 * kPi / (p * p / 16)));
    EXPECT_DOUBLE_EQ(bar->GetFeat(BF_LENGTH), 8.0);  // run ends 1 and 9 projected on the x axis
    EXPECT_NEAR(bar->GetFeat(BF_WIDTH), 1.0, 1.0 / 16);
    EXPECT_LE(bar->GetFeat(BF_MIN_RADIUS), bar->GetFeat(BF_MAX_RADIUS));
    // A diagonal line down to the right (y grows downwards): axis angle +pi/4, minor axis smaller.
    Blob* line = objects[1];
    EXPECT_NEAR(line->GetFeat(BF_AXIS_ANGLE), kPi / 4, 1e-12);
    EXPECT_LT(line->GetFeat(BF_AXIS_RATIO), 1.0);
    // Root, number 22 and numbers outside 1..64 read 0.
    AssertRecorder asserts;
    EXPECT_EQ(bar->GetFeat(BF_NONE), 0.0);
    EXPECT_EQ(r.result.Root()->GetFeat(BF_AREA), 0.0);
    EXPECT_EQ(bar->GetFeat(0), 0.0);
    EXPECT_EQ(bar->GetFeat(65), 0.0);
    EXPECT_EQ(asserts.Count(), 2u);
    EXPECT_EQ(asserts.Reports()[0].expression, "featno > 0 && featno < NUMFEAT");
}

// Option 1 keeps the first sums, option 2 the second sums, each on its own; the axes need both.
TEST(BlobRecords, EachMomentOptionKeepsItsOwnSums) {
    auto img = Art({".......", "..###..", ".####..", ".####..", "......."});
    // Per pixel (x, y): xx/12 adds x^2 + 1/12, xy/4 adds x (y + 1/2); per run yy/12 adds (y + 1/2)^2 L +
    // 1/12.
    double xx = 0, xy = 0, yy = 0, sx = 0, sy = 0;
    const int rows[3][3] = {{1, 2, 5}, {2, 1, 5}, {3, 1, 5}};  // y, run start, run end
    for (const auto& r : rows) {
        for (int x = r[1]; x < r[2]; ++x) {
            xx += x * x + 1.0 / 12;
            xy += x * (r[0] + 0.5);
            sx += 2 * x;
            sy += 2 * (r[0] + 0.5);
        }
        yy += (r[0] + 0.5) * (r[0] + 0.5) * (r[2] - r[1]) + 1.0 / 12;
    }
    for (int options : {int{BLOB_OPT_FIRST_MOMENTS}, int{BLOB_OPT_SECOND_MOMENTS},
                        BLOB_OPT_FIRST_MOMENTS | BLOB_OPT_SECOND_MOMENTS}) {
        SCOPED_TRACE(options);
        const bool first = options & BLOB_OPT_FIRST_MOMENTS, second = options & BLOB_OPT_SECOND_MOMENTS;
        BlobRun r(img.get(), options);
        ASSERT_EQ(r.Go(), 0);
        Blob* b = r.Objects().at(0);
        EXPECT_DOUBLE_EQ(b->GetFeat(BF_SUM_X), first ? sx : 0.0);
        EXPECT_DOUBLE_EQ(b->GetFeat(BF_SUM_Y), first ? sy : 0.0);
        EXPECT_NEAR(b->GetFeat(BF_XX), second ? xx : 0.0, 1e-9);
        EXPECT_NEAR(b->GetFeat(BF_XY), second ? xy : 0.0, 1e-9);
        EXPECT_NEAR(b->GetFeat(BF_YY), second ? yy : 0.0, 1e-9);
        if (first && second) {
            EXPECT_GT(b->GetFeat(BF_MAJOR_AXIS), 0.0);
            EXPECT_LT(b->GetFeat(BF_AXIS_RATIO), 1.0);
        } else {  // no axes: the ratio is width / height
            EXPECT_EQ(b->GetFeat(BF_MAJOR_AXIS), 0.0);
            EXPECT_EQ(b->GetFeat(BF_AXIS_FRAME_00), 0.0);
            EXPECT_DOUBLE_EQ(b->GetFeat(BF_AXIS_RATIO), 4.0 / 3.0);
        }
    }
}

// The boundary of a shape with one run per row, as the walk visits it: run starts down the left side, run
// ends (one past the last pixel) up the right side, consecutive rows with the same x one point visited at
// both of its ends. Every boundary feature is recomputed from it and the shape's pixels.
struct BoundaryFigures {
    double cx = 0, cy = 0;  // region coordinates of the centroid: mean x, mean y + 1/2
    int points = 0;
    double minR2 = 0, maxR2 = 0, sumR = 0;
    double minX = 0, minY = 0, maxX = 0, maxY = 0;
    double minAngle = 0, maxAngle = 0, rawDiff = 0, diff = 0;
    double length = 0, width = 0, offAlong = 0, offAcross = 0;
};

BoundaryFigures FiguresOf(const Buffer& img, double axisAngle) {
    struct Run {
        int y, s, t;
    };
    std::vector<Run> runs;
    BoundaryFigures f;
    double n = 0;
    for (int y = 0; y < img.Height(); ++y) {
        int s = -1, t = -1;
        for (int x = 0; x < img.Width(); ++x)
            if (img.Row(y)[x] >= 100) {
                if (s < 0) s = x;
                t = x + 1;
                f.cx += x;
                f.cy += y + 0.5;
                ++n;
            }
        if (s >= 0) runs.push_back({y, s, t});
    }
    f.cx /= n;
    f.cy /= n;
    std::vector<std::pair<double, double>> ends;
    auto side = [&](auto begin, auto end, bool left) {
        for (auto it = begin; it != end;) {
            const int x = left ? it->s : it->t;
            auto last = it;
            while (std::next(last) != end && (left ? std::next(last)->s : std::next(last)->t) == x) ++last;
            ends.push_back({double(x), double(it->y)});
            if (last->y != it->y) ends.push_back({double(x), double(last->y)});
            ++f.points;
            it = std::next(last);
        }
    };
    side(runs.begin(), runs.end(), true);
    side(runs.rbegin(), runs.rend(), false);
    const double ca = std::cos(axisAngle), sa = std::sin(axisAngle);
    double px = 0, py = 0;
    int64_t uMin = 0, uMax = 0, vMin = 0, vMax = 0;
    for (size_t i = 0; i < ends.size(); ++i) {
        const auto [x, y] = ends[i];
        const double dx = i ? x - px : 0, dy = i ? y - py : 0;
        const double r2 = (x - f.cx) * (x - f.cx) + (y - f.cy) * (y - f.cy);
        if (i == 0 || r2 < f.minR2) f.minR2 = r2, f.minX = x, f.minY = y;
        if (i == 0 || r2 > f.maxR2) f.maxR2 = r2, f.maxX = x, f.maxY = y;
        f.sumR += r2 - ((dx * dx + dy * dy) * 0.1666667 + 0.5);
        const int64_t u = std::llround(((x - f.cx) * ca + (y - f.cy) * sa) * 16);
        const int64_t v = std::llround((-(x - f.cx) * sa + (y - f.cy) * ca) * 16);
        uMin = i ? std::min(uMin, u) : u, uMax = i ? std::max(uMax, u) : u;
        vMin = i ? std::min(vMin, v) : v, vMax = i ? std::max(vMax, v) : v;
        px = x, py = y;
    }
    f.minAngle = std::atan2(f.minY - f.cy, f.minX - f.cx);
    f.maxAngle = std::atan2(f.maxY - f.cy, f.maxX - f.cx);
    f.rawDiff = f.maxAngle - f.minAngle;
    f.diff = f.rawDiff > kPi ? f.rawDiff - kTwoPi : f.rawDiff <= -kPi ? f.rawDiff + kTwoPi : f.rawDiff;
    f.length = (uMax - uMin) / 16.0;
    f.width = (vMax - vMin) / 16.0;
    f.offAlong = (uMax + uMin) / 32.0;
    f.offAcross = (vMax + vMin) / 32.0;
    return f;
}

// A shape drawn by its pixel centres: inside(x + 0.5, y + 0.5) marks an object pixel.
template <class Inside>
std::unique_ptr<Buffer> Shape(int w, int h, Inside inside) {
    auto img = testing::FilledImage(w, h, 10);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            if (inside(x + 0.5, y + 0.5)) img->Row(y)[x] = 200;
    return img;
}

TEST(BlobRecords, BoundaryFeaturesOfADiscAndOfRectangles) {
    const double turn = 0.5;  // radians, for the rotated rectangle
    struct Case {
        const char* name;
        std::unique_ptr<Buffer> img;
        double expectLength, expectWidth;  // of the shape itself, to within a pixel or so
    };
    std::vector<Case> cases;
    cases.push_back(
        {"disc",
         Shape(40, 40, [](double x, double y) { return (x - 20) * (x - 20) + (y - 20) * (y - 20) <= 144; }),
         24, 24});
    cases.push_back({"rectangle",
                     Shape(30, 12, [](double x, double y) { return x > 3 && x < 25 && y > 3 && y < 9; }), 22,
                     5});
    cases.push_back({"rotated rectangle",
                     Shape(50, 40,
                           [&](double x, double y) {
                               const double u = (x - 25) * std::cos(turn) + (y - 20) * std::sin(turn);
                               const double v = -(x - 25) * std::sin(turn) + (y - 20) * std::cos(turn);
                               return std::fabs(u) <= 14 && std::fabs(v) <= 5;
                           }),
                     28, 10});
    bool wrapped = false;
    for (Case& c : cases) {
        SCOPED_TRACE(c.name);
        BlobRun r(c.img.get(), BLOB_OPT_FIRST_MOMENTS | BLOB_OPT_SECOND_MOMENTS | BLOB_OPT_BOUNDARY |
                                   BLOB_OPT_RADII | BLOB_OPT_LENGTH_WIDTH);
        ASSERT_EQ(r.Go(), 0);
        ASSERT_EQ(r.Objects().size(), 1u);
        Blob* b = r.Objects()[0];
        const BoundaryFigures f = FiguresOf(*c.img, b->GetFeat(BF_AXIS_ANGLE));
        EXPECT_DOUBLE_EQ(b->GetFeat(BF_CENTROID_X), f.cx - 0.5);
        EXPECT_DOUBLE_EQ(b->GetFeat(BF_CENTROID_Y), f.cy - 0.5);
        EXPECT_NEAR(b->GetFeat(BF_MIN_RADIUS), std::sqrt(f.minR2), 1e-9);
        EXPECT_NEAR(b->GetFeat(BF_MAX_RADIUS), std::sqrt(f.maxR2), 1e-9);
        EXPECT_NEAR(b->GetFeat(BF_MEAN_RADIUS), std::sqrt(f.sumR / f.points), 1e-9);
        EXPECT_NEAR(b->GetFeat(BF_RADIUS_RATIO), std::sqrt(f.minR2 / f.maxR2), 1e-9);
        EXPECT_NEAR(b->GetFeat(BF_MIN_RADIUS_DX), f.minX - f.cx, 1e-9);
        EXPECT_NEAR(b->GetFeat(BF_MIN_RADIUS_DY), f.minY - f.cy, 1e-9);
        EXPECT_NEAR(b->GetFeat(BF_MAX_RADIUS_DX), f.maxX - f.cx, 1e-9);
        EXPECT_NEAR(b->GetFeat(BF_MAX_RADIUS_DY), f.maxY - f.cy, 1e-9);
        EXPECT_NEAR(b->GetFeat(BF_MIN_RADIUS_ANGLE), f.minAngle, 1e-12);
        EXPECT_NEAR(b->GetFeat(BF_MAX_RADIUS_ANGLE), f.maxAngle, 1e-12);
        EXPECT_NEAR(b->GetFeat(BF_RADIAL_ANGLE_DIFF), f.diff, 1e-12);
        EXPECT_GT(b->GetFeat(BF_RADIAL_ANGLE_DIFF), -kPi);
        EXPECT_LE(b->GetFeat(BF_RADIAL_ANGLE_DIFF), kPi);
        wrapped = wrapped || f.diff != f.rawDiff;
        EXPECT_DOUBLE_EQ(b->GetFeat(BF_LENGTH), f.length);
        EXPECT_DOUBLE_EQ(b->GetFeat(BF_WIDTH), f.width);
        EXPECT_DOUBLE_EQ(b->GetFeat(BF_LENBOX_OFFSET_ALONG), f.offAlong);
        EXPECT_DOUBLE_EQ(b->GetFeat(BF_LENBOX_OFFSET_ACROSS), f.offAcross);
        // And the figures are those of the shape: its size, a box about centred on the centroid.
        const double along = std::max(b->GetFeat(BF_LENGTH), b->GetFeat(BF_WIDTH));
        const double across = std::min(b->GetFeat(BF_LENGTH), b->GetFeat(BF_WIDTH));
        EXPECT_NEAR(along, c.expectLength, 1.5);
        EXPECT_NEAR(across, c.expectWidth, 1.5);
        EXPECT_LT(std::fabs(b->GetFeat(BF_LENBOX_OFFSET_ALONG)), 1.0);
        EXPECT_LT(std::fabs(b->GetFeat(BF_LENBOX_OFFSET_ACROSS)), 1.0);
    }
    // The disc's radii are its radius, to within the pixel grid (the points are pixel edges, the centroid a
    // pixel index).
    BlobRun disc(cases[0].img.get(),
                 BLOB_OPT_FIRST_MOMENTS | BLOB_OPT_SECOND_MOMENTS | BLOB_OPT_BOUNDARY | BLOB_OPT_RADII);
    ASSERT_EQ(disc.Go(), 0);
    Blob* d = disc.Objects().at(0);
    EXPECT_NEAR(d->GetFeat(BF_MEAN_RADIUS), 12.0, 1.5);
    EXPECT_NEAR(d->GetFeat(BF_MIN_RADIUS), 12.0, 1.5);
    EXPECT_NEAR(d->GetFeat(BF_MAX_RADIUS), 12.0, 1.5);
    // The rotated rectangle's axis is its rotation.
    BlobRun rotated(cases[2].img.get());
    ASSERT_EQ(rotated.Go(), 0);
    EXPECT_NEAR(rotated.Objects().at(0)->GetFeat(BF_AXIS_ANGLE), turn, 0.02);
    EXPECT_TRUE(wrapped) << "no shape took the radial angle difference through its wrap";
}

TEST(BlobRecords, WithoutMomentsTheCentroidIsTheOriginNotAnEarlierRegions) {
    auto img = Art({"....", ".##.", ".##.", "...."});
    BlobResult result;
    std::unique_ptr<BlobAgent> agent(BlobFact(img.get(), &result, 100, 255));
    ASSERT_EQ(agent->Go(), 0);
    ASSERT_EQ(result.NParts(), 1);
    EXPECT_DOUBLE_EQ(result.First()->GetFeat(BF_CENTROID_X), 1.0);
    // The same result again without moments: its feature storage still holds the first run's values.
    agent->SetOptions(0);
    ASSERT_EQ(agent->Go(), 0);
    ASSERT_EQ(result.NParts(), 1);
    EXPECT_DOUBLE_EQ(result.First()->GetFeat(BF_CENTROID_X), -0.5);
    EXPECT_DOUBLE_EQ(result.First()->GetFeat(BF_CENTROID_Y), -0.5);
}

TEST(BlobRecords, SplitSumsCarryExactly) {
    SplitSum s;
    s.Add(2147483000);
    s.Add(1000);  // passes 2147483647: one carry
    EXPECT_EQ(s.count, 1);
    EXPECT_EQ(s.remainder, int64_t{2147483000} + 1000 - 2147483647);
    s.Add(int64_t{5} * 2147483647 + 3);
    EXPECT_DOUBLE_EQ(s.Value(), 2147483000.0 + 1000 + 5.0 * 2147483647 + 3);
    SplitSum t;
    t.AddSum(s);
    t.AddSum(s);
    EXPECT_DOUBLE_EQ(t.Value(), 2 * s.Value());
}

TEST(BlobPools, LimitsFailuresAndReuse) {
    const int saved = GetBlobMaxPoolSize();
    SetBlobMaxPoolSize(1);  // 3/32 = 0: unchanged
    EXPECT_EQ(GetBlobMaxPoolSize(), saved);
    SetBlobMaxPoolSize(5000);  // 468 chunks, below the floor
    EXPECT_EQ(GetBlobMaxPoolSize(), 512);
    SetBlobMaxPoolSize(100000);
    EXPECT_EQ(GetBlobMaxPoolSize(), 9375);
    SetBlobMaxPoolSize(512 * 32 / 3 + 1);
    EXPECT_EQ(GetBlobMaxPoolSize(), 512);

    // A checkerboard has a hole per background pixel: 200 x 200 needs more than 511 chunks of regions.
    auto board = std::make_unique<Buffer>(200, 200, EIGHT);
    for (int y = 0; y < 200; ++y)
        for (int x = 0; x < 200; ++x) board->Row(y)[x] = (x + y) % 2 ? 200 : 0;
    TextRecorder text;
    BlobResult result;
    std::unique_ptr<BlobAgent> agent(BlobFact(board.get(), &result, 100, 255));
    EXPECT_EQ(agent->Go(), BLOB_ERR_TOO_COMPLEX);
    EXPECT_EQ(result.Error(), BLOB_ERR_TOO_COMPLEX);
    ASSERT_FALSE(text.DebugWindow().empty());
    EXPECT_EQ(text.DebugWindow()[0].first, 0x10004u);
    EXPECT_EQ(text.DebugWindow()[0].second, "Image Too Complex -- Change Threshold");
    EXPECT_GT(result.NParts(), 10000);  // the holes closed before the failure stay
    for (Blob* b : result.Blobs()) ASSERT_EQ(b->GetFeat(BF_AREA), 1);

    // A pool of one chunk cannot even take the root.
    StoragePool<Blob> tiny(1);
    EXPECT_EQ(tiny.Alloc(), nullptr);
    EXPECT_EQ(tiny.Error(), BLOB_ERR_TOO_COMPLEX);

    // Runs after the first take no new chunks.
    auto img = Art({"#.#.#.#", ".......", "#.###.#"});
    BlobResult again;
    std::unique_ptr<BlobAgent> a2(BlobFact(img.get(), &again, 100, 255));
    a2->SetOptions(BLOB_OPT_FIRST_MOMENTS | BLOB_OPT_SECOND_MOMENTS | BLOB_OPT_BOUNDARY);
    ASSERT_EQ(a2->Go(), 0);
    const int chunks[3] = {again.BlobPool().Chunks(), again.SegmentPool().Chunks(),
                           again.BdryPool().Chunks()};
    for (int i = 0; i < 5; ++i) ASSERT_EQ(a2->Go(), 0);
    EXPECT_EQ(again.BlobPool().Chunks(), chunks[0]);
    EXPECT_EQ(again.SegmentPool().Chunks(), chunks[1]);
    EXPECT_EQ(again.BdryPool().Chunks(), chunks[2]);
    EXPECT_EQ(again.NParts(), 7);
}

// The joiner's entries are only counted; the count must behave as a pool of real elements would.
TEST(BlobPools, CountedEntriesBehaveAsAPoolOfElements) {
    struct Element {
        int value = 0;
    };
    StoragePool<Element> real(3);  // fails when a third chunk is asked for; free list of 24
    CountedPool counted(3);
    std::vector<Element*> taken;
    std::mt19937 rng(5);
    for (int step = 0; step < 4000; ++step) {
        if (step == 2500) {
            real.Reset();
            counted.Reset();
            taken.clear();
        }
        if (taken.empty() || rng() % 3 != 0) {
            Element* e = real.Alloc();
            ASSERT_EQ(counted.Take(), e != nullptr) << step;
            if (e != nullptr) taken.push_back(e);
        } else {
            const size_t at = rng() % taken.size();
            real.Free(taken[at]);
            counted.Give();
            taken.erase(taken.begin() + static_cast<std::ptrdiff_t>(at));
        }
        ASSERT_EQ(counted.Chunks(), real.Chunks()) << step;
        ASSERT_EQ(counted.Live(), real.Live()) << step;
        ASSERT_EQ(counted.FreeListSize(), real.FreeListSize()) << step;
        ASSERT_EQ(counted.Error(), real.Error()) << step;
    }
    EXPECT_EQ(counted.Error(), BLOB_ERR_TOO_COMPLEX);  // the sequence did reach the limit
}

TEST(BlobPools, TheEntryPoolCanBeTheOneThatFails) {
    const int saved = GetBlobMaxPoolSize();
    SetBlobMaxPoolSize(5000);  // the floor: 512 chunks of 32
    // One-pixel stripes: every row keeps twice as many runs open as there are stripes, more than 511
    // chunks of entries, while the regions (one per stripe) fit.
    auto stripes = std::make_unique<Buffer>(17000, 3, EIGHT);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 17000; ++x) stripes->Row(y)[x] = x % 2 ? 200 : 0;
    TextRecorder text;
    BlobResult result;
    std::unique_ptr<BlobAgent> agent(BlobFact(stripes.get(), &result, 100, 255));
    EXPECT_EQ(agent->Go(), BLOB_ERR_TOO_COMPLEX);
    EXPECT_EQ(result.SegmentPool().Error(), BLOB_ERR_TOO_COMPLEX);
    EXPECT_EQ(result.SegmentPool().Chunks(), result.ChunkLimit() - 1);
    EXPECT_EQ(result.BlobPool().Error(), BLOB_OK);
    EXPECT_EQ(text.DebugWindow().size(), 1u);
    SetBlobMaxPoolSize((saved * 32 + 2) / 3);
    EXPECT_EQ(GetBlobMaxPoolSize(), saved);
}

TEST(BlobAgentSafety, FactoryAndBadInputsReportAndStayInside) {
    auto img = Art({"#..#", ".##.", "#..#"});
    BlobResult result;
    {
        AssertRecorder asserts;
        std::unique_ptr<BlobAgent> reversed(BlobFact(img.get(), &result, 200, 100));
        ASSERT_NE(reversed, nullptr);  // reported, and the factory still chooses
        EXPECT_EQ(asserts.Reports().at(0).module, "lfblob");
        EXPECT_EQ(
            asserts.Reports().at(0).expression,
            "(src != NULL) && (res != NULL) && (highThr >= lowThr) && (lowThr >= 0) && (highThr <= 255)");
        EXPECT_EQ(reversed->Go(), 0);
        EXPECT_EQ(result.NParts(), 0);  // an empty band selects nothing
        EXPECT_EQ(BlobFact(nullptr, &result, 0, 10), nullptr);
        Buffer boardBuffer(nullptr, MONSTER_ALLOC_DEFAULT, BANK_0, 4, 3, EIGHT);
        EXPECT_EQ(BlobFact(&boardBuffer, &result, 0, 10), nullptr);
        std::unique_ptr<BlobAgent> noResult(BlobFact(img.get(), nullptr, 100, 255));
        ASSERT_NE(noResult, nullptr);
        EXPECT_EQ(noResult->Go(), BLOB_ERR_NO_RESULT);
        EXPECT_EQ(asserts.Reports().back().module, "swblob");
        EXPECT_EQ(asserts.Reports().back().expression, "_pres");
    }
    AssertRecorder quiet;  // the cases below report; they must not crash, hang or touch outside
    // A region hanging over the image: pixels outside count as background, so the gaps between the
    // corner pixels open to the outside and are no holes.
    std::unique_ptr<BlobAgent> over(BlobFact(img.get(), -2, -5, 9, 7, &result, 100, 255));
    ASSERT_EQ(over->Go(), 0);
    ASSERT_EQ(result.NParts(), 1);
    Rect box;
    result.First()->BoundingBox(box);
    EXPECT_EQ(box, (Rect{0, 0, 4, 3}));
    EXPECT_EQ(result.First()->GetFeat(BF_LEFT), 2);  // region coordinates
    // Steps of 0, negative and larger than the region.
    for (int step : {0, -3, 1000}) {
        over->SetStep(step, step);
        EXPECT_EQ(over->Go(), 0);
    }
    // 1 x 1 and 1 x N regions, and a region wholly outside.
    for (Rect r : {Rect{1, 1, 2, 2}, Rect{1, 0, 2, 3}, Rect{0, 2, 4, 3}, Rect{50, 50, 60, 60}}) {
        std::unique_ptr<BlobAgent> small(BlobFact(img.get(), r, &result, 100, 255));
        EXPECT_EQ(small->Go(), 0);
    }
    std::unique_ptr<BlobAgent> one(BlobFact(img.get(), Rect{1, 1, 2, 2}, &result, 100, 255));
    one->Go();
    ASSERT_EQ(result.NParts(), 1);
    EXPECT_EQ(result.First()->GetFeat(BF_AREA), 1);
}

TEST(BlobAgentMasked, MaskedRegionSegmentsOnlyUnderTheMask) {
    auto img = Art({"#####.##", "#####.##", "#####.##", "........"});
    // Mask: a 6 x 4 window whose middle column is cut, placed at (1, 0).
    Buffer mask(6, 4, EIGHT);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 6; ++x) mask.Row(y)[x] = x == 2 ? 0 : 1;
    ROI roi(&mask);
    BlobResult result;
    std::unique_ptr<BlobAgent> agent(BlobFact(img.get(), Point{1, 0}, roi, &result, 100, 255));
    ASSERT_EQ(agent->Go(), 0);
    auto objects = std::vector<Blob*>(result.Blobs().begin(), result.Blobs().end());
    ASSERT_EQ(objects.size(), 3u);  // columns 1-2, 4 and 6 of the image
    EXPECT_EQ(objects[0]->GetFeat(BF_AREA), 6);
    EXPECT_EQ(objects[1]->GetFeat(BF_AREA), 3);
    EXPECT_EQ(objects[2]->GetFeat(BF_AREA), 3);
    Rect box;
    objects[2]->BoundingBox(box);
    EXPECT_EQ(box, (Rect{6, 0, 7, 3}));
    EXPECT_EQ(agent->LowThreshold(), 100);  // restored after the run
    // A mask reaching past the image is clipped by the mask agent and the segmentation alike.
    Buffer wide(20, 9, EIGHT);
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 20; ++x) wide.Row(y)[x] = 1;
    ROI big(&wide);
    std::unique_ptr<BlobAgent> clipped(BlobFact(img.get(), Point{3, 1}, big, &result, 100, 255));
    ASSERT_EQ(clipped->Go(), 0);
    EXPECT_EQ(result.NParts(), 2);
}

// An 8-bit mask of w x h with the columns [from, to) set on every row.
std::unique_ptr<Buffer> ColumnMask(int w, int h, int from, int to) {
    auto m = std::make_unique<Buffer>(w, h, EIGHT);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) m->Row(y)[x] = x >= from && x < to ? 1 : 0;
    return m;
}

TEST(BlobAgentMasked, EachMaskSpanIsSampledFromItsOwnStartAndShortSpansAreSkipped) {
    auto img = testing::FilledImage(8, 3, 200);
    BlobResult result;
    {  // a three-pixel span with a step of 4 is skipped
        auto mask = ColumnMask(8, 3, 0, 3);
        ROI roi(mask.get());
        std::unique_ptr<BlobAgent> agent(BlobFact(img.get(), Point{0, 0}, roi, &result, 100, 255));
        agent->SetStep(4, 1);
        ASSERT_EQ(agent->Go(), 0);
        EXPECT_EQ(result.NParts(), 0);
    }
    {  // two spans in a row: the short one skipped, the one of four coded
        auto mask = ColumnMask(8, 3, 0, 3);
        for (int y = 0; y < 3; ++y)
            for (int x = 4; x < 8; ++x) mask->Row(y)[x] = 1;
        ROI roi(mask.get());
        std::unique_ptr<BlobAgent> agent(BlobFact(img.get(), Point{0, 0}, roi, &result, 100, 255));
        agent->SetStep(4, 1);
        ASSERT_EQ(agent->Go(), 0);
        ASSERT_EQ(result.NParts(), 1);
        EXPECT_EQ(result.First()->GetFeat(BF_LEFT), 4);
        EXPECT_EQ(result.First()->GetFeat(BF_AREA), 12);
    }
    {  // sampling starts at the span's start (column 1): column 5 is sampled and refined, 0 and 4 would miss
        // the object pixels 5..7 altogether
        auto spots = testing::FilledImage(8, 3, 10);
        for (int y = 0; y < 3; ++y)
            for (int x = 5; x < 8; ++x) spots->Row(y)[x] = 200;
        auto mask = ColumnMask(8, 3, 1, 8);
        ROI roi(mask.get());
        std::unique_ptr<BlobAgent> agent(BlobFact(spots.get(), Point{0, 0}, roi, &result, 100, 255));
        agent->SetStep(4, 1);
        ASSERT_EQ(agent->Go(), 0);
        ASSERT_EQ(result.NParts(), 1);
        EXPECT_EQ(result.First()->GetFeat(BF_LEFT), 5);
        EXPECT_EQ(result.First()->GetFeat(BF_RIGHT), 8);
        EXPECT_EQ(result.First()->GetFeat(BF_AREA), 9);
    }
}

// Lets a test attach a mask to the agent's own region without making its scan list.
class MaskProbe : public swBlobAgent {
  public:
    using swBlobAgent::swBlobAgent;
    void AttachMaskWithoutScans(Buffer* mask) { _sRoi.SetSwMask(mask, true); }
};

TEST(BlobAgentMasked, AMaskWithoutScanListStillMasks) {
    auto img = testing::FilledImage(8, 3, 200);
    Buffer bits(8, 3, ONE);
    for (int y = 0; y < 3; ++y) bits.Row(y)[0] = 0xE0;  // columns 0..2
    BlobResult result;
    MaskProbe agent(img.get(), Rect{0, 0, 8, 3}, &result, 100, 255);
    agent.AttachMaskWithoutScans(&bits);
    ASSERT_FALSE(agent.SrcROI().IsMasked());
    ASSERT_EQ(agent.Go(), 0);
    ASSERT_EQ(result.NParts(), 1);
    EXPECT_EQ(result.First()->GetFeat(BF_AREA), 9);  // not the whole 8 x 3 rectangle
    EXPECT_EQ(result.First()->GetFeat(BF_RIGHT), 3);
}

TEST(BlobAgentMasked, TheKeptMaskAgentFollowsTheAgentBetweenRuns) {
    // Grey 150 in columns 0..3, 220 in columns 4..7; the mask covers everything.
    auto img = testing::FilledImage(8, 4, 150);
    for (int y = 0; y < 4; ++y)
        for (int x = 4; x < 8; ++x) img->Row(y)[x] = 220;
    auto mask = ColumnMask(6, 4, 0, 6);
    ROI roi(mask.get());
    BlobResult result;
    std::unique_ptr<BlobAgent> agent(BlobFact(img.get(), Point{0, 0}, roi, &result, 100, 255));
    ASSERT_EQ(agent->Go(), 0);
    ASSERT_EQ(result.NParts(), 1);
    EXPECT_EQ(result.First()->GetFeat(BF_AREA), 24);
    // A new band reaches the mask agent; the agent's own band is what was set, during and after the run.
    agent->SetThresholds(200, 255);
    ASSERT_EQ(agent->Go(), 0);
    ASSERT_EQ(result.NParts(), 1);
    EXPECT_EQ(result.First()->GetFeat(BF_AREA), 8);
    EXPECT_EQ(agent->LowThreshold(), 200);
    EXPECT_EQ(agent->HighThreshold(), 255);
    // So does a new origin.
    agent->SetSrcPt(Point{2, 0});
    ASSERT_EQ(agent->Go(), 0);
    ASSERT_EQ(result.NParts(), 1);
    EXPECT_EQ(result.First()->GetFeat(BF_AREA), 16);
    EXPECT_EQ(result.First()->GetFeat(BF_LEFT), 2);  // region coordinates: image column 4
}

TEST(BlobResultText, DumpPrintsOneLinePerRegion) {
    auto img = Art({"#.#"});
    BlobResult result;
    std::unique_ptr<BlobAgent> agent(BlobFact(img.get(), &result, 100, 255));
    ASSERT_EQ(agent->Go(), 0);
    char buffer[256] = {};
    FILE* f = fmemopen(buffer, sizeof buffer, "w");
    result.Dump(f);
    std::fclose(f);
    const std::string text = buffer;
    char first[64], second[64];
    std::snprintf(first, sizeof first, "0  : blob: 0x%jx blob->_Next 0x%jx\n",
                  uintmax_t(reinterpret_cast<uintptr_t>(result.ByLabel(1))),
                  uintmax_t(reinterpret_cast<uintptr_t>(result.ByLabel(2))));
    std::snprintf(second, sizeof second, "1  : blob: 0x%jx\n",
                  uintmax_t(reinterpret_cast<uintptr_t>(result.ByLabel(2))));
    EXPECT_EQ(text, std::string(first) + second);
}

}  // namespace
}  // namespace ombrel
