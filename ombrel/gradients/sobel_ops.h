// SPDX-License-Identifier: MIT
/// \file
/// The Sobel agent's output encodings and shifts, kept apart from the agent so that kernel files need no
/// agent header.
#pragma once
#include <cstdint>

namespace ombrel {

/// Output encoding of the Sobel agent (the value is what callers pass). _3M5A and _4GX4GY are the
/// three-bits-of-magnitude / five-bits-of-direction and the two-nibble encodings.
enum SobelOut : int32_t {
    DX = 0,
    DY = 1,
    MAG = 2,
    ANGLE = 3,
    QANGLE = 4,
    ABSDX = 5,
    ABSDY = 6,
    _3M5A = 7,
    _4GX4GY = 8,
    SUMABS = 9
};

/// Number of bits both raw Sobel sums are shifted right (arithmetically) before clamping.
enum SobelShift : int32_t {
    SOBEL_SHIFT_0 = 0,
    SOBEL_SHIFT_1 = 1,
    SOBEL_SHIFT_2 = 2,
    SOBEL_SHIFT_3 = 3,
    SOBEL_SHIFT_4 = 4,
    SOBEL_SHIFT_5 = 5,
    SOBEL_SHIFT_6 = 6,
    SOBEL_SHIFT_7 = 7
};

/// True for the ten encodings DX..SUMABS.
inline constexpr bool IsSobelOut(int32_t out) {
    return out >= DX && out <= SUMABS;
}

/// The byte of pixels that are not computed: the outer rows and columns and masked-out pixels.
inline constexpr uint8_t SobelFillValue(int32_t out) {
    return out == QANGLE ? 0x40 : 0x00;
}

/// Whether an encoding keeps the strong-pixel statistics (value, or magnitude for QANGLE, above threshold).
inline constexpr bool SobelKeepsStrongPixels(int32_t out) {
    return out == MAG || out == ABSDX || out == ABSDY || out == SUMABS || out == QANGLE;
}

}  // namespace ombrel
