// SPDX-License-Identifier: MIT
// Frame averaging: a running mean of the last N frames of a stream, which evens out flicker and noise.
// Each Go takes the source as it is now, as a grabber would refill it between frames.
#include <cstdio>

#include "example_image.h"

using namespace ombrel;

// Frame k of a flickering scene: every pixel alternates between 90 and 110 from frame to frame, and
// neighbouring pixels are out of step.
static void Grab(Buffer& frame, int k) {
    for (int y = 0; y < frame.Height(); ++y)
        for (int x = 0; x < frame.Width(); ++x) frame.Row(y)[x] = ((x + y + k) % 2) ? 110 : 90;
}

static void Range(const Buffer& image, int* lo, int* hi) {
    *lo = 255, *hi = 0;
    for (int y = 0; y < image.Height(); ++y)
        for (int x = 0; x < image.Width(); ++x) {
            const int v = image.Row(y)[x];
            *lo = v < *lo ? v : *lo;
            *hi = v > *hi ? v : *hi;
        }
}

int main() {
    const int window = 8;
    Buffer frame(64, 48, EIGHT), mean(64, 48, EIGHT);
    std::unique_ptr<FrameAverageAgent> agent(FrameAverageFact(&frame, &mean, window));
    if (!agent) return 1;

    int lo = 0, hi = 0;
    for (int k = 0; k < 20; ++k) {
        Grab(frame, k);
        if (agent->Go() != 0) return 1;
        if (k == 0 || k == window - 1 || k == 19) {
            Range(mean, &lo, &hi);
            std::printf("after frame %2d (%d in the window): mean image %d..%d\n", k + 1, agent->GetQLength(),
                        lo, hi);
        }
    }
    Range(frame, &lo, &hi);
    std::printf("one frame spans %d..%d; the mean of %d frames is flat at %d\n", lo, hi, window,
                mean.Row(0)[0]);
    return 0;
}
