// SPDX-License-Identifier: MIT
/// \file
/// Binary morphology's operation codes and border modes, kept apart from the agent so that kernel files and
/// other subsystems (break detection) need no agent header.
#pragma once
#include <cstdint>

namespace ombrel {

/// The predefined 3x3 operations (the value is what callers pass). See binmorph.h for each rule.
enum BinMorphOpCode : int32_t {
    ErodeKeep6 = 0,
    ErodeFull = 1,
    DilateMin2 = 2,
    Copy = 3,
    ErodeKeep2 = 4,
    KeepSquareOrDiagonal = 5,
    DilateFull = 6,
    FillBridges = 7,
    ThinIfRightOrBelow = 8,
    ThinIfLeftOrAbove = 9,
    Up = 10,
    Down = 11,
    Left = 12,
    Right = 13,
    ETPTL = 14,
    ETPBR = 15,
    TFP = 16,
    FillPinholes = 17
};

/// What neighbours outside the processed rectangle read as.
enum BMBORDER : int32_t { BMBORDER_CLEAR = 0, BMBORDER_SET = 1 };

}  // namespace ombrel
