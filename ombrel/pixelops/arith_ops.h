// SPDX-License-Identifier: MIT
/// \file
/// The arithmetic agent's operation, sign and mask-operation codes (the values are what callers pass). Kept
/// apart from the agent so that kernel files, which are built with wider instruction sets, need no agent
/// header.
#pragma once
#include <cstdint>

namespace ombrel {

/// Operation codes of the arithmetic agent; the value rules are in arith.h.
enum ArithOp : int32_t {
    _ARITH_NOT = 0,
    _ARITH_NEGATE = 1,
    _ARITH_COPY = 2,
    _ARITH_BINARIZE = 3,
    _ARITH_MASKSHIFT = 4,
    _ARITH_ABS = 5,
    _ARITH_PASSRANGE = 6,
    _ARITH_ADD = 7,
    _ARITH_SUB = 8,
    _ARITH_DIFF = 9,
    _ARITH_AND = 10,
    _ARITH_OR = 11,
    _ARITH_XOR = 12,
    _ARITH_MIN = 13,
    _ARITH_MAX = 14,
    _ARITH_MULT = 15
};
/// Number of operation codes.
constexpr int kArithOpCount = 16;
/// Operations from this value on need source B.
constexpr ArithOp kFirstBinaryArithOp = _ARITH_ADD;

/// How a source is read or the destination written: 0 unsigned bytes, anything else signed bytes.
enum ArithSign : int32_t { _ARITH_UNSIGNED = 0, _ARITH_SIGNED = 1 };

/// The bitwise operation MASKSHIFT applies between the source byte and the mask before shifting.
enum ArithMaskOp : int32_t { _ARITH_MASK_AND = 0, _ARITH_MASK_OR = 1, _ARITH_MASK_XOR = 2 };

}  // namespace ombrel
