// SPDX-License-Identifier: MIT
// Drawing of blob regions through the drawing recorder.
#include <gtest/gtest.h>

#include <cmath>

#include "ombrel/blob/blob.h"
#include "ombrel/framework/halvard_metadc.h"

namespace ombrel {
namespace {

int CountValue(const Buffer& b, uint8_t v) {
    int n = 0;
    for (int y = 0; y < b.Height(); ++y)
        for (int x = 0; x < b.Width(); ++x) n += b.Row(y)[x] == v;
    return n;
}

TEST(BlobDrawing, HighlightTreeDrawsBoundariesAndCentroids) {
    Buffer img(10, 8, EIGHT);
    for (int y = 2; y < 6; ++y)
        for (int x = 3; x < 8; ++x) img.Row(y)[x] = 200;
    img.Row(3)[5] = 0;  // a hole
    BlobResult result;
    std::unique_ptr<BlobAgent> agent(BlobFact(&img, &result, 100, 255));
    agent->SetOptions(BLOB_OPT_FIRST_MOMENTS | BLOB_OPT_SECOND_MOMENTS | BLOB_OPT_BOUNDARY);
    ASSERT_EQ(agent->Go(), 0);
    HalvardMetaDC dc;
    result.HighlightTree(&dc, false, nullptr, 0xFF0000, 0x0000FF);
    Buffer canvas(10, 8, EIGHT);
    ASSERT_TRUE(dc.Render(canvas));
    const uint8_t red = (77 * 255) >> 8, blue = (29 * 255) >> 8;
    EXPECT_EQ(CountValue(canvas, red), 2 * 5 + 2 * 4 - 4);  // the object's outermost pixels, nothing else
    EXPECT_EQ(canvas.Row(2)[3], red);
    EXPECT_EQ(canvas.Row(5)[7], red);
    EXPECT_EQ(CountValue(canvas, blue), 1);  // the hole's own outline
    EXPECT_EQ(canvas.Row(3)[5], blue);
    // Centroids: a cross on the pixel holding the centroid.
    HalvardMetaDC crosses;
    result.First()->DrawCentroid(&crosses, nullptr, 1);
    Buffer marks(10, 8, EIGHT);
    ASSERT_TRUE(crosses.Render(marks));
    EXPECT_EQ(CountValue(marks, 255), 5);
    const double cy = result.First()->GetFeat(BF_CENTROID_Y);
    EXPECT_EQ(marks.Row(static_cast<int>(std::lround(cy + 0.5)))[5], 255);
}

}  // namespace
}  // namespace ombrel
