// SPDX-License-Identifier: MIT
// Auto focus: a sharpness figure for each frame of a focus sweep; the sharpest frame scores highest.
#include <cstdio>

#include "example_image.h"

using namespace ombrel;

// A checkerboard of 8-pixel squares seen through a box blur of the given radius (0: in focus).
static void DrawFrame(Buffer& image, int blur) {
    auto sharp = [](int x, int y) { return ((x / 8 + y / 8) % 2) ? 200 : 40; };
    for (int y = 0; y < image.Height(); ++y)
        for (int x = 0; x < image.Width(); ++x) {
            int sum = 0, n = 0;
            for (int dy = -blur; dy <= blur; ++dy)
                for (int dx = -blur; dx <= blur; ++dx, ++n) sum += sharp(x + dx + 16, y + dy + 16);
            image.Row(y)[x] = static_cast<uint8_t>(sum / n);
        }
}

int main() {
    Buffer frame(96, 96, EIGHT);
    // The agent reads the source again at every Go: one agent serves the whole sweep.
    std::unique_ptr<AutoFocusAgent> agent(AutoFocusFact(&frame));
    if (!agent) return 1;

    int best = -1;
    double bestFocus = -1;
    for (int blur : {4, 2, 0, 1, 3}) {
        DrawFrame(frame, blur);
        if (agent->Go() != 0) return 1;
        // Focus: the sum of |pixel - its neighbour one down and one right| per mille of the grey sum.
        std::printf("blur radius %d: focus %.1f (mean grey %.1f)\n", blur, agent->Focus(), agent->Mean());
        if (agent->Focus() > bestFocus) bestFocus = agent->Focus(), best = blur;
    }
    std::printf("sharpest frame: blur radius %d\n", best);
    return 0;
}
