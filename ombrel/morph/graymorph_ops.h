// SPDX-License-Identifier: MIT
/// \file
/// Grey morphology's operation codes and polarity, and the row operations its kernels perform, kept apart
/// from the agent so that kernel files need no agent header.
#pragma once
#include <cstdint>

namespace ombrel {

/// Grey morphology operations: erosion, dilation, opening, closing, gradient (dilation - erosion), top hat
/// (source - opening) and well (closing - source); the rules are in graymorph.h.
enum GRAYMORPHOP : int32_t {
    GRAYMORPH_ERODE = 0,
    GRAYMORPH_DILATE = 1,
    GRAYMORPH_OPEN = 2,
    GRAYMORPH_CLOSE = 3,
    GRAYMORPH_GRADIENT = 4,
    GRAYMORPH_TOPHAT = 5,
    GRAYMORPH_WELL = 6
};

/// Inverted polarity swaps minimum and maximum in every filter step (the operations then apply to dark
/// objects).
enum GMPOLARITY : int32_t { GM_POLARITY_NORMAL = 0, GM_POLARITY_INVERTED = 1 };

namespace graymorph {
/// d = op(a, b) per byte.
enum RowOp : uint32_t { kRowMin = 0, kRowMax = 1, kRowAbsDiff = 2 };
}  // namespace graymorph

}  // namespace ombrel
