// SPDX-License-Identifier: MIT
#include <cstdio>

#include <ombrel/ombrel.h>

int main() {
    ombrel::Buffer image(320, 240, ombrel::EIGHT);
    ombrel::ROI region(100, 50);
    int spans = 0;
    ombrel::ROIRowIter rows(&image, ombrel::Point{10, 20}, &region);
    for (ombrel::ROIRow* row = rows.FirstRow(); row != nullptr; row = rows.NextRow(1))
        for (ombrel::ROISeg* seg = row->FirstSeg(); seg != nullptr; seg = row->NextSeg()) ++spans;
    std::printf("consumer: %dx%d image, %d spans\n", image.Width(), image.Height(), spans);
    return spans == 50 ? 0 : 1;
}
