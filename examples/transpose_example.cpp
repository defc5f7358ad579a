// SPDX-License-Identifier: MIT
// Transposition: turns an image a quarter turn clockwise (a camera mounted on its side) and flips it.
#include <cstdio>

#include "example_image.h"

using namespace ombrel;

static void Print(const char* title, const Buffer& image) {
    std::printf("%s (%d x %d):\n", title, image.Width(), image.Height());
    for (int y = 0; y < image.Height(); ++y) {
        for (int x = 0; x < image.Width(); ++x) std::printf(" %2d", image.Row(y)[x]);
        std::printf("\n");
    }
}

int main() {
    // A 4 x 3 image whose pixels are numbered in reading order.
    Buffer image(4, 3, EIGHT);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 4; ++x) image.Row(y)[x] = static_cast<uint8_t>(1 + y * 4 + x);
    Print("image", image);

    Buffer turned(3, 4, EIGHT);
    std::unique_ptr<TransposeAgent> turn(TransposeFact(&image, &turned, TRANSPOSE_ROT90_CW));
    if (!turn || turn->Go() != 0) return 1;
    Print("a quarter turn clockwise", turned);

    Buffer flipped(4, 3, EIGHT);
    std::unique_ptr<TransposeAgent> flip(TransposeFact(&image, &flipped, TRANSPOSE_FLIP_LR));
    if (!flip || flip->Go() != 0) return 1;
    Print("mirrored left to right", flipped);
    return 0;
}
