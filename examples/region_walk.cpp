// SPDX-License-Identifier: MIT
// Creates an image and a ring-shaped mask, turns the mask into a region and walks it span by span.
#include <cstdio>

#include <ombrel/ombrel.h>

using namespace ombrel;

int main() {
    Buffer image(64, 48, EIGHT);
    for (int y = 0; y < image.Height(); ++y)
        for (int x = 0; x < image.Width(); ++x) image.Row(y)[x] = static_cast<uint8_t>(x * 4);

    // An 8-bit mask: any non-zero byte selects the pixel. The region copies it into a one-bit mask.
    Buffer mask(32, 32, EIGHT);
    for (int y = 0; y < 32; ++y)
        for (int x = 0; x < 32; ++x) {
            const int d2 = (x - 16) * (x - 16) + (y - 16) * (y - 16);
            mask.Row(y)[x] = (d2 <= 15 * 15 && d2 >= 8 * 8) ? 255 : 0;
        }
    ROI ring(&mask);
    const Point origin{16, 8};

    long pixels = 0, sum = 0, spans = 0;
    ROIRowIter rows(&image, origin, &ring);
    for (ROIRow* row = rows.FirstRow(); row != nullptr; row = rows.NextRow(1)) {
        for (ROISeg* seg = row->FirstSeg(); seg != nullptr; seg = row->NextSeg()) {
            ++spans;
            for (int i = 0; i < seg->len; ++i) sum += seg->ptr[i];
            pixels += seg->len;
        }
    }
    std::printf("Ring region %dx%d at (%d, %d): %ld spans, %ld pixels, mean grey %.2f\n", ring.Width(),
                ring.Height(), origin.x, origin.y, spans, pixels, pixels ? double(sum) / pixels : 0.0);
    return 0;
}
