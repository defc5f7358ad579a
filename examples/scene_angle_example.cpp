// SPDX-License-Identifier: MIT
// Scene angle: the dominant edge direction of a scene, and how far a second view of it is rotated. The
// figures come from a histogram of Sobel directions, 2.8125 degrees a code, refined between codes.
#include <cmath>
#include <cstdio>

#include "example_image.h"

using namespace ombrel;

// A grating of smooth stripes whose edges run at `degrees` from the x axis.
static void DrawGrating(Buffer& image, double degrees) {
    const double a = degrees * kPi / 180.0, c = std::cos(a), s = std::sin(a);
    for (int y = 0; y < image.Height(); ++y)
        for (int x = 0; x < image.Width(); ++x) {
            const double across = -x * s + y * c;  // distance across the stripes
            image.Row(y)[x] = static_cast<uint8_t>(128 + 100 * std::sin(2 * kPi * across / 12));
        }
}

int main() {
    Buffer straight(128, 128, EIGHT), rotated(128, 128, EIGHT);
    DrawGrating(straight, 0);
    DrawGrating(rotated, 10);

    std::unique_ptr<SceneAngleAgent> first(SceneAngleFact(&straight));
    std::unique_ptr<SceneAngleAgent> second(SceneAngleFact(&rotated));
    if (!first || !second || first->Go() != 0 || second->Go() != 0) return 1;

    // Angles are in radians, folded to a quarter turn (edges a quarter turn apart count as one direction);
    // strength is per mille of the strong pixels in the peak, coverage the percentage of strong pixels.
    for (SceneAngleAgent* agent : {first.get(), second.get()})
        std::printf("angle %.2f degrees, strength %.0f per mille, coverage %.0f%%\n",
                    agent->Angle() * 180 / kPi, agent->Strength(), agent->Coverage());
    // The library counts angles counter-clockwise with y pointing up, so a view drawn turned clockwise on
    // screen reads as a negative turn; folded to a quarter turn, -8 and 82 degrees are the same answer.
    const double turn = std::fmod(second->AngleDiff(first.get()) * 180 / kPi + 45 + 90, 90.0) - 45;
    const double step = 360.0 / 128;  // one direction code
    std::printf("the second view is turned %.1f degrees clockwise (drawn: 10): %s\n", -turn,
                std::fabs(-turn - 10) <= step ? "within one direction code" : "off by more than a code");
    return 0;
}
