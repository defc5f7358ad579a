# SPDX-License-Identifier: MIT
# The mask agent: agent at the baseline, the scalar reference and one kernel object per wider ISA.
ombrel_add_operation(mask
  SOURCES mask.cpp
  KERNELS scalar mask_kernels_scalar.cpp
          sse2 mask_kernels_sse2.cpp
          avx2 mask_kernels_avx2.cpp
          avx512 mask_kernels_avx512.cpp
  TESTS mask_test.cpp
  PUBLIC_HEADERS mask.h mask_ops.h)
