// SPDX-License-Identifier: MIT
// Sobel gradients: the edge strength of every pixel, and the count of strong edge pixels.
//   ombrel_example_sobel [image]   (without an image: a dark left half and a bright right half)
#include <cstdio>

#include "example_image.h"

using namespace ombrel;

static std::unique_ptr<Buffer> DrawStep() {
    auto image = std::make_unique<Buffer>(64, 48, EIGHT);
    example::FillRect(*image, 0, 0, 32, 48, 50);
    example::FillRect(*image, 32, 0, 64, 48, 150);
    return image;
}

int main(int argc, char** argv) {
    auto image = example::LoadOrDraw(argc, argv, DrawStep);
    if (!image) return 1;

    // MAG: the rounded length of (gx, gy), each Sobel sum shifted right by 2 and clamped to -127..127.
    // Across the step: gx = (4 x 150 - 4 x 50) >> 2 = 100. Pixels whose magnitude exceeds the threshold are
    // counted as strong. The outermost rows and columns are not computed (written 0).
    const int threshold = 50;
    Buffer magnitude(image->Width(), image->Height(), EIGHT);
    std::unique_ptr<SobelAgent> agent(SobelFact(image.get(), &magnitude, MAG, SOBEL_SHIFT_2, threshold, 1));
    if (!agent || agent->Go() != 0) return 1;

    int peak = 0;
    for (int y = 0; y < magnitude.Height(); ++y)
        for (int x = 0; x < magnitude.Width(); ++x)
            peak = magnitude.Row(y)[x] > peak ? magnitude.Row(y)[x] : peak;
    std::printf("strong edge pixels (magnitude > %d): %d, largest magnitude %d\n", threshold,
                agent->StrongCount(), peak);
    return 0;
}
