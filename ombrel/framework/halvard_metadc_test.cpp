// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cmath>

#include "ombrel/framework/halvard_metadc.h"

namespace ombrel {
namespace {

int CountValue(const Buffer& b, uint8_t v) {
    int n = 0;
    for (int y = 0; y < b.Height(); ++y)
        for (int x = 0; x < b.Width(); ++x) n += b.Row(y)[x] == v;
    return n;
}

TEST(HalvardMetaDC, RendersLinesCrossesAndTextInsideTheImage) {
    HalvardMetaDC dc;
    dc.SelectObject(0xFFFFFF);
    dc.MoveTo(1, 1);
    dc.LineTo(8, 1);      // 8 pixels
    dc.LineTo(8, 4);      // 3 more
    dc.CrossAt(3, 6, 1);  // 5 pixels
    dc.SelectObject(0x808080);
    dc.MoveTo(-1e12, 5);
    dc.LineTo(1e12, 5);  // far outside: clipped, and it ends
    Buffer img(12, 10, EIGHT);
    ASSERT_TRUE(dc.Render(img));
    EXPECT_EQ(CountValue(img, 255), 8 + 3 + 5 - 1);  // the cross's arm meets row 5's grey line
    EXPECT_EQ(img.Row(1)[1], 255);
    EXPECT_EQ(img.Row(4)[8], 255);
    EXPECT_EQ(img.Row(6)[3], 255);

    HalvardMetaDC text;
    text.SelectObject(MetaPen{0x00FF00, 1, 2});
    text.TextAt(0, 0, "1");
    Buffer label(8, 12, EIGHT);
    ASSERT_TRUE(text.Render(label));
    EXPECT_EQ(CountValue(label, (150 * 255) >> 8), 4 * (1 + 2 + 1 + 1 + 3));  // glyph "1" at scale 2

    std::vector<uint8_t> rgb(12 * 10 * 3);
    ASSERT_TRUE(dc.RenderRgb(rgb.data(), 12, 10, 36));
    EXPECT_EQ(rgb[(1 * 12 + 1) * 3], 255);
    EXPECT_FALSE(dc.RenderRgb(rgb.data(), 12, 10, 20));  // pitch shorter than a row
    Buffer bits(8, 8, ONE);
    EXPECT_FALSE(dc.Render(bits));

    const std::string svg = dc.ToSvg(12, 10);
    EXPECT_NE(svg.find("<svg"), std::string::npos);
    EXPECT_NE(svg.find("<line x1=\"1.50\" y1=\"1.50\" x2=\"8.50\" y2=\"1.50\" stroke=\"#ffffff\""),
              std::string::npos);
}

}  // namespace
}  // namespace ombrel
