// SPDX-License-Identifier: MIT
// Convolution: filters an image with a kernel of your own, held in a correlation template.
//   ombrel_example_conv [image]   (without an image: a grey field with one bright pixel)
#include <cstdio>

#include "example_image.h"

using namespace ombrel;

static std::unique_ptr<Buffer> DrawSpot() {
    auto image = std::make_unique<Buffer>(32, 24, EIGHT);
    example::FillRect(*image, 0, 0, 32, 24, 40);
    image->Row(12)[16] = 240;
    return image;
}

int main(int argc, char** argv) {
    auto image = example::LoadOrDraw(argc, argv, DrawSpot);
    if (!image) return 1;

    // A 3 x 3 box: nine weights of 1. The kernel is not mirrored (the filter is in correlation form), and
    // each sum is shifted right by the bit length of trunc(sqrt(sum of squared weights)): 3 -> 2 bits, so
    // the box gives (sum of 9 pixels) >> 2, and a result above 255 keeps its low 8 bits.
    Buffer weights(3, 3, EIGHT);
    example::FillRect(weights, 0, 0, 3, 3, 1);
    CorrTemplate kernel(&weights, 0);

    // The destination is the region's size. Samples are the kernel's top-left corners that keep it inside
    // the image, written from the destination's top-left: (width - 2) x (height - 2) of them, output (x, y)
    // centred on image pixel (x + 1, y + 1).
    Buffer out(image->Width(), image->Height(), EIGHT);
    std::unique_ptr<ConvAgent> agent(ConvFact(image.get(), &out, &kernel, 0, 0, 1, 1));
    if (!agent || agent->Go() != 0) return 1;

    std::printf("samples %d x %d, shift %d\n", agent->SxStop() - agent->SxStart(),
                agent->SyStop() - agent->SyStart(), agent->Shift());
    std::printf("flat field: 9 x 40 >> 2 = %d; on the bright pixel: (8 x 40 + 240) >> 2 = %d\n",
                out.Row(2)[2], out.Row(11)[15]);
    return 0;
}
