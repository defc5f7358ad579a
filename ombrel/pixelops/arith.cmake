# SPDX-License-Identifier: MIT
# The arithmetic agent: the agent and its planner at the baseline, the kernels once per instruction set.
# OpenCV cross-checks the bytes where it computes the same ones.
ombrel_add_operation(arith
  SOURCES arith.cpp arith_kernels.cpp
  KERNELS scalar arith_kernels_scalar.cpp
          sse2 arith_kernels_sse2.cpp
          avx2 arith_kernels_avx2.cpp
          avx512 arith_kernels_avx512.cpp
  TESTS arith_test.cpp
  OPENCV
  PUBLIC_HEADERS arith.h arith_ops.h)
