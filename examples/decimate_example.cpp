// SPDX-License-Identifier: MIT
// Decimation: halves an image in both directions after a 3 x 3 binomial smoothing (a cheap pyramid level).
//   ombrel_example_decimate [image]   (without an image: a dark and a bright half)
#include <cstdio>

#include "example_image.h"

using namespace ombrel;

static std::unique_ptr<Buffer> DrawHalves() {
    auto image = std::make_unique<Buffer>(64, 48, EIGHT);
    example::FillRect(*image, 0, 0, 32, 48, 60);
    example::FillRect(*image, 32, 0, 64, 48, 200);
    return image;
}

int main(int argc, char** argv) {
    auto image = example::LoadOrDraw(argc, argv, DrawHalves);
    if (!image) return 1;

    Buffer half(image->Width() / 2, image->Height() / 2, EIGHT);
    std::unique_ptr<DecimateAgent> agent(DecimateFact(image.get(), &half, PIXEL_STEP_2));
    if (!agent || agent->Go() != 0) return 1;

    // Output pixel (i, j) is the smoothed source pixel (2i + 1, 2j + 1): flat areas keep their grey level,
    // the step between the halves is softened over one output column.
    std::printf("%d x %d -> %d x %d\n", image->Width(), image->Height(), half.Width(), half.Height());
    std::printf("middle row:");
    for (int i = 12; i < 20; ++i) std::printf(" %d", half.Row(half.Height() / 2)[i]);
    std::printf("\n");
    return 0;
}
