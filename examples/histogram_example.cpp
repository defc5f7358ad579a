// SPDX-License-Identifier: MIT
// Histogram: the grey-level counts of an image, the figures numpy would give for them, and the operation's
// own figures beside them under their own names.
//   ombrel_example_histogram [image]   (without an image: a 0/255 checkerboard)
#include <cmath>
#include <cstdio>
#include <vector>

#include "example_image.h"

using namespace ombrel;

static std::unique_ptr<Buffer> DrawCheckerboard() {
    auto image = std::make_unique<Buffer>(64, 64, EIGHT);
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x) image->Row(y)[x] = ((x / 8 + y / 8) % 2) ? 255 : 0;
    return image;
}

int main(int argc, char** argv) {
    auto image = example::LoadOrDraw(argc, argv, DrawCheckerboard);
    if (!image) return 1;

    std::vector<int> bins;  // the agent sizes it: one bin per grey level
    std::unique_ptr<HistogramAgent> agent(HistogramFact(image.get(), HISTRES_256, &bins));
    if (!agent || agent->Go() != 0) return 1;

    // Count, mean, deviation (over all pixels, as numpy.std), median, min and max from the counts.
    double n = 0, sum = 0, sumSq = 0;
    int lo = -1, hi = -1;
    for (int v = 0; v < 256; ++v) {
        if (bins[v] == 0) continue;
        if (lo < 0) lo = v;
        hi = v;
        n += bins[v], sum += double(bins[v]) * v, sumSq += double(bins[v]) * v * v;
    }
    if (n == 0) return 1;
    const double mean = sum / n, deviation = std::sqrt(sumSq / n - mean * mean);
    // numpy's median: the middle value, or the mean of the two middle ones for an even count.
    auto valueAt = [&](double rank) {
        double seen = 0;
        for (int v = 0; v < 256; ++v)
            if ((seen += bins[v]) > rank) return v;
        return 255;
    };
    const long count = static_cast<long>(n);
    const double median =
        count % 2 ? valueAt(count / 2) : (valueAt(count / 2 - 1) + valueAt(count / 2)) / 2.0;
    std::printf("pixels %ld, mean %.2f, std %.2f, median %.1f, min %d, max %d\n", count, mean, deviation,
                median, lo, hi);

    // The operation's figures follow its own rules: zeros are left out of the count and the mean, the mean
    // is an integer quotient, the median is a bin centre and the deviation divides by count - 1.
    std::printf(
        "operation's figures: non-zero pixels %d, integer mean %.0f, bin-centre median %.1f, "
        "deviation %.1f\n",
        agent->PixelCount(), agent->Mean(), agent->Median(), agent->StdDev());
    return 0;
}
