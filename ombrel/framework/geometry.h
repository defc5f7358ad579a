// SPDX-License-Identifier: MIT
#pragma once
#include <cstdint>

namespace ombrel {

// Integer image position.
struct Point {
    int32_t x = 0;
    int32_t y = 0;
    friend bool operator==(const Point&, const Point&) = default;
};

// Sub-pixel position.
struct Fpoint {
    double x = 0.0;
    double y = 0.0;
    friend bool operator==(const Fpoint&, const Fpoint&) = default;
};

// Half-open rectangle: columns left..right-1, rows top..bottom-1. Width and height are plain differences,
// so a rectangle given the wrong way round reports a negative extent rather than hiding it.
struct Rect {
    int32_t left = 0;
    int32_t top = 0;
    int32_t right = 0;
    int32_t bottom = 0;
    int32_t Width() const { return right - left; }
    int32_t Height() const { return bottom - top; }
    bool IsEmpty() const { return right <= left || bottom <= top; }
    friend bool operator==(const Rect&, const Rect&) = default;
};

}  // namespace ombrel
