// SPDX-License-Identifier: MIT
/// \file
/// Plain value types for positions and rectangles.
#pragma once
#include <cstdint>

namespace ombrel {

/// Integer image position.
struct Point {
    /// column
    int32_t x = 0;
    /// row
    int32_t y = 0;
    friend bool operator==(const Point&, const Point&) = default;
};

/// Sub-pixel position.
struct Fpoint {
    /// column, in pixels
    double x = 0.0;
    /// row, in pixels
    double y = 0.0;
    friend bool operator==(const Fpoint&, const Fpoint&) = default;
};

/// Half-open rectangle: columns left..right-1, rows top..bottom-1. Width and height are plain differences,
/// so a rectangle given the wrong way round reports a negative extent rather than hiding it.
struct Rect {
    /// first column
    int32_t left = 0;
    /// first row
    int32_t top = 0;
    /// one past the last column
    int32_t right = 0;
    /// one past the last row
    int32_t bottom = 0;
    /// right - left (negative for a rectangle given the wrong way round).
    int32_t Width() const { return right - left; }
    /// bottom - top (negative for a rectangle given the wrong way round).
    int32_t Height() const { return bottom - top; }
    /// True when the rectangle holds no pixel.
    bool IsEmpty() const { return right <= left || bottom <= top; }
    friend bool operator==(const Rect&, const Rect&) = default;
};

}  // namespace ombrel
