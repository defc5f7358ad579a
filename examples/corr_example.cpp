// SPDX-License-Identifier: MIT
// Correlation: trains a template on a patch of an image and finds it again, with the best few positions.
//   ombrel_example_corr [image]   (without an image: a field of grey dots)
#include <cstdio>
#include <vector>

#include "example_image.h"

using namespace ombrel;

static std::unique_ptr<Buffer> DrawDots() {
    auto image = std::make_unique<Buffer>(96, 72, EIGHT);
    example::FillRect(*image, 0, 0, 96, 72, 60);
    unsigned seed = 12345;
    for (int k = 0; k < 60; ++k) {
        seed = seed * 1103515245u + 12345u;
        const int x = (seed >> 8) % 96, y = (seed >> 18) % 72, r = 1 + (seed >> 4) % 4;
        example::FillDisc(*image, x, y, r, static_cast<uint8_t>(100 + (seed >> 12) % 150));
    }
    return image;
}

int main(int argc, char** argv) {
    auto image = example::LoadOrDraw(argc, argv, DrawDots);
    if (!image || image->Width() < 60 || image->Height() < 40) return 1;

    // Train on the 16 x 16 patch at (37, 21). The template copies the patch; its hot spot (the point a
    // match reports) is the patch's top-left corner unless set otherwise.
    ROI patch(16, 16);
    CorrTemplate pattern(image.get(), Point{37, 21}, &patch, 0);

    // List mode: every position scored (|r|, the normalised correlation), then sorted best first.
    CorrResult scores;
    std::unique_ptr<CorrMatchAgent> agent(CorrMatchFact(image.get(), &pattern, &scores, 0, 0, 1, 1));
    if (!agent || agent->Go() != 0) return 1;

    const std::vector<CorrPoint> best = CorrTopN(scores, 3, 8.0);
    for (const CorrPoint& p : best)
        std::printf("match at (%d, %d), score %.3f\n", p._pos.x, p._pos.y, p._score);
    if (best.empty()) return 1;
    std::printf("best match at (%d, %d) with score %.3f\n", best[0]._pos.x, best[0]._pos.y, best[0]._score);
    return 0;
}
