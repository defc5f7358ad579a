// SPDX-License-Identifier: MIT
// Projection: the column profile of an image, used to find bright bars (traces, leads, printed lines).
//   ombrel_example_project [image]   (without an image: three bright vertical bars on black)
#include <cstdio>

#include "example_image.h"

using namespace ombrel;

static std::unique_ptr<Buffer> DrawBars() {
    auto image = std::make_unique<Buffer>(64, 32, EIGHT);
    for (int x0 : {10, 30, 50}) example::FillRect(*image, x0, 0, x0 + 4, 32, 255);
    return image;
}

int main(int argc, char** argv) {
    auto image = example::LoadOrDraw(argc, argv, DrawBars);
    if (!image) return 1;

    // One output byte per column: the column's sum shifted right by the bit length of the column height,
    // so every value fits in 8 bits (a full-white column of 32 rows reads 32 * 255 >> 6 = 127).
    Buffer profile(image->Width(), 1, EIGHT);
    std::unique_ptr<ProjectAgent> agent(ProjectFact(image.get(), &profile, HORIZONTAL));
    if (!agent || agent->Go() != 0) return 1;

    const uint8_t* p = profile.Row(0);
    int peak = 0;
    for (int x = 0; x < profile.Width(); ++x) peak = p[x] > peak ? p[x] : peak;
    // Bars: runs of columns above half the peak.
    int bars = 0;
    for (int x = 0; x < profile.Width(); ++x) {
        if (peak == 0 || 2 * p[x] <= peak) continue;
        int end = x;
        while (end + 1 < profile.Width() && 2 * p[end + 1] > peak) ++end;
        std::printf("bar %d: columns %d..%d\n", ++bars, x, end);
        x = end;
    }
    std::printf("%d bars, profile peak %d (shift %d)\n", bars, peak, agent->Shift());
    return 0;
}
