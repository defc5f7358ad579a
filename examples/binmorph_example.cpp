// SPDX-License-Identifier: MIT
// Binary morphology: one erosion removes isolated noise pixels and peels one pixel off every object.
// Binary images hold one pixel per byte, bit value 1 set.
#include <cstdio>

#include "example_image.h"

using namespace ombrel;

static long SetPixels(const Buffer& image) {
    long n = 0;
    for (int y = 0; y < image.Height(); ++y)
        for (int x = 0; x < image.Width(); ++x) n += image.Row(y)[x] & 1;
    return n;
}

int main() {
    Buffer image(48, 32, EIGHT), eroded(48, 32, EIGHT);
    example::FillRect(image, 10, 10, 20, 20, 1);  // a 10 x 10 object
    image.Row(5)[40] = 1;                         // and three specks
    image.Row(25)[30] = 1;
    image.Row(26)[31] = 1;

    // ErodeFull keeps a pixel only when all nine pixels of its 3 x 3 neighbourhood are set.
    BinMorphOperator erode(ErodeFull);
    std::unique_ptr<BinMorphAgent> agent(BinMorphFact(&image, &eroded, BMBORDER_CLEAR, &erode, 1));
    if (!agent || agent->Go() != 0) return 1;

    std::printf("set pixels: %ld before, %ld after one erosion (the agent counted %d)\n", SetPixels(image),
                SetPixels(eroded), agent->SetPixelCount());
    return 0;
}
