# SPDX-License-Identifier: MIT
# The transposition agent: agent at the baseline, the scalar reference and one kernel object per wider
# ISA. OpenCV cross-checks turns and mirrors.
ombrel_add_operation(transpose
  SOURCES transpose.cpp
  KERNELS scalar transpose_kernels_scalar.cpp
          sse2 transpose_kernels_sse2.cpp
          avx2 transpose_kernels_avx2.cpp
          avx512 transpose_kernels_avx512.cpp
  TESTS transpose_test.cpp
  OPENCV
  PUBLIC_HEADERS transpose.h)
