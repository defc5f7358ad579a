// SPDX-License-Identifier: MIT
// Mask agent: copies the pixels of an image that lie under a mask (here a ring) into a fresh image.
//   ombrel_example_mask [image]   (without an image: a horizontal ramp)
#include <cstdio>

#include "example_image.h"

using namespace ombrel;

static std::unique_ptr<Buffer> DrawRamp() {
    auto image = std::make_unique<Buffer>(64, 48, EIGHT);
    for (int y = 0; y < 48; ++y)
        for (int x = 0; x < 64; ++x) image->Row(y)[x] = static_cast<uint8_t>(40 + 2 * x);
    return image;
}

int main(int argc, char** argv) {
    auto image = example::LoadOrDraw(argc, argv, DrawRamp);
    if (!image) return 1;

    // A ring of outer radius 15 and inner radius 8 in a 32 x 32 mask: any non-zero byte selects a pixel.
    Buffer ringMask(32, 32, EIGHT);
    long ringPixels = 0;
    for (int y = 0; y < 32; ++y)
        for (int x = 0; x < 32; ++x) {
            const int d2 = (x - 16) * (x - 16) + (y - 16) * (y - 16);
            const bool in = d2 <= 15 * 15 && d2 >= 8 * 8;
            ringMask.Row(y)[x] = in ? 255 : 0;
            ringPixels += in;
        }
    const ROI ring(&ringMask);

    // The ring placed at (16, 8) on the image; the output starts at (0, 0) and is the ring's size.
    Buffer out(32, 32, EIGHT);
    std::unique_ptr<MaskAgent> agent(MaskFact(image.get(), &out, Point{16, 8}, ring, MASK_COPY));
    if (!agent || agent->Go() != 0) return 1;

    long copied = 0, sum = 0;
    for (int y = 0; y < out.Height(); ++y)
        for (int x = 0; x < out.Width(); ++x) {
            copied += out.Row(y)[x] != 0;
            sum += out.Row(y)[x];
        }
    std::printf("ring of %ld pixels: %ld copied, mean grey under the ring %.2f, everything else 0\n",
                ringPixels, copied, copied ? double(sum) / copied : 0.0);
    return 0;
}
