// SPDX-License-Identifier: MIT
/// \file
/// The mask agent's operation codes, kept apart from the agent so that kernel files need no agent header.
#pragma once
#include <cstdint>

namespace ombrel {

/// Operation codes of the mask agent (the values are what callers pass).
enum MaskOp : uint32_t {
    MASK_ADD = 0,
    MASK_SUB = 1,
    MASK_ABSDIFF = 2,
    MASK_AND = 3,
    MASK_OR = 4,
    MASK_XOR = 5,
    MASK_COPY = 8,
    MASK_MIN = 9,
    MASK_MAX = 10,
    MASK_BAND = 11,
    MASK_COPY_ALT = 13
};

}  // namespace ombrel
