// SPDX-License-Identifier: MIT
// A program built against an installed Ombrel: draws two squares, one with a hole, and runs blob analysis.
#include <cstdio>
#include <memory>

#include <ombrel/ombrel.h>

int main() {
    ombrel::Buffer image(320, 240, ombrel::EIGHT);
    for (int y = 0; y < 240; ++y)
        for (int x = 0; x < 320; ++x) {
            const bool first = x >= 20 && x < 60 && y >= 20 && y < 60;
            const bool second =
                x >= 100 && x < 180 && y >= 100 && y < 180 && !(x >= 130 && x < 150 && y >= 130 && y < 150);
            image.Row(y)[x] = (first || second) ? 200 : 10;
        }

    ombrel::BlobResult result;
    std::unique_ptr<ombrel::BlobAgent> agent(ombrel::BlobFact(&image, &result, 100, 255));
    if (!agent || agent->Go() != 0) return 1;
    int objects = 0, area = 0;
    for (ombrel::Blob* blob : result.Blobs())
        if (blob->Color() == 0) ++objects, area += blob->Area();
    std::printf("consumer: %d objects, %d object pixels\n", objects, area);
    return objects == 2 && area == 40 * 40 + 80 * 80 - 20 * 20 ? 0 : 1;
}
