// SPDX-License-Identifier: MIT
// What the examples share: the image to work on (a file named on the command line, read with OpenCV when the
// examples are built with it, or a scene the example draws itself) and two drawing helpers for those scenes.
#pragma once
#include <cstdint>
#include <cstdio>
#include <memory>

#include <ombrel/ombrel.h>

#ifdef OMBREL_EXAMPLES_WITH_OPENCV
#include <opencv2/imgcodecs.hpp>
#endif

namespace example {

// Paints [x0, x1) x [y0, y1) with `value`, clipped to the image.
inline void FillRect(ombrel::Buffer& image, int x0, int y0, int x1, int y1, uint8_t value) {
    for (int y = y0 < 0 ? 0 : y0; y < y1 && y < image.Height(); ++y)
        for (int x = x0 < 0 ? 0 : x0; x < x1 && x < image.Width(); ++x) image.Row(y)[x] = value;
}

// Paints the pixels whose centre lies within `radius` of (cx, cy).
inline void FillDisc(ombrel::Buffer& image, int cx, int cy, int radius, uint8_t value) {
    for (int y = 0; y < image.Height(); ++y)
        for (int x = 0; x < image.Width(); ++x)
            if ((x - cx) * (x - cx) + (y - cy) * (y - cy) <= radius * radius) image.Row(y)[x] = value;
}

// The image named by argv[1] as 8-bit grey, or `draw()`'s scene when there is no argument; null (after a
// message) when the file cannot be read. The pixels end up in a buffer the library allocated: some
// factories accept only such sources (a wrapped buffer belongs to the caller, who may free it at any time).
template <class Draw>
std::unique_ptr<ombrel::Buffer> LoadOrDraw(int argc, char** argv, Draw draw) {
    if (argc < 2) return draw();
#ifdef OMBREL_EXAMPLES_WITH_OPENCV
    const cv::Mat grey = cv::imread(argv[1], cv::IMREAD_GRAYSCALE);
    if (grey.empty()) {
        std::fprintf(stderr, "cannot read %s\n", argv[1]);
        return nullptr;
    }
    // A cv::Mat's pixels can be handed to the library as they are; copying them keeps this sample simple.
    ombrel::Buffer wrapped(grey.data, grey.cols, grey.rows, static_cast<int>(grey.step), ombrel::EIGHT);
    auto image = std::make_unique<ombrel::Buffer>(grey.cols, grey.rows, ombrel::EIGHT);
    if (image->GetError() != 0 || image->CopyFrom(&wrapped) != 0) {
        std::fprintf(stderr, "%s: no memory for a %d x %d image\n", argv[1], grey.cols, grey.rows);
        return nullptr;
    }
    return image;
#else
    (void)argv;
    std::fprintf(stderr,
                 "these examples were built without OpenCV: run them without a file to use their scene\n");
    return nullptr;
#endif
}

}  // namespace example
