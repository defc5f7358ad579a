// SPDX-License-Identifier: MIT
// Grey morphology: an opening with a 3 x 3 element removes bright specks smaller than the element and
// keeps larger bright shapes as they are.
//   ombrel_example_graymorph [image]   (without an image: a bright square and bright specks on grey)
#include <cstdio>

#include "example_image.h"

using namespace ombrel;

static std::unique_ptr<Buffer> DrawSpecks() {
    auto image = std::make_unique<Buffer>(64, 48, EIGHT);
    example::FillRect(*image, 0, 0, 64, 48, 50);
    example::FillRect(*image, 20, 15, 29, 24, 200);  // a 9 x 9 square
    for (int k = 0; k < 5; ++k) image->Row(5 + 8 * k)[45 + 3 * k] = 230;
    return image;
}

static long Bright(const Buffer& image) {
    long n = 0;
    for (int y = 0; y < image.Height(); ++y)
        for (int x = 0; x < image.Width(); ++x) n += image.Row(y)[x] > 100;
    return n;
}

int main(int argc, char** argv) {
    auto image = example::LoadOrDraw(argc, argv, DrawSpecks);
    if (!image) return 1;

    GrayMorphElem square;  // 3 x 3, hot spot in the middle, every cell a member
    Buffer opened(image->Width(), image->Height(), EIGHT);
    std::unique_ptr<GrayMorphAgent> agent(
        GrayMorphFact(image.get(), &opened, GRAYMORPH_OPEN, GM_POLARITY_NORMAL, 1, &square));
    if (!agent || agent->Go() != 0) return 1;

    std::printf("pixels brighter than 100: %ld before the opening, %ld after\n", Bright(*image),
                Bright(opened));
    return 0;
}
