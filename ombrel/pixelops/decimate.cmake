# SPDX-License-Identifier: MIT
# The decimation agent: agent at the baseline, the scalar reference and one kernel object per wider ISA.
# OpenCV cross-checks the filter against an independent implementation.
ombrel_add_operation(decimate
  SOURCES decimate.cpp
  KERNELS scalar decimate_kernels_scalar.cpp
          sse2 decimate_kernels_sse2.cpp
          avx2 decimate_kernels_avx2.cpp
          avx512 decimate_kernels_avx512.cpp
  TESTS decimate_test.cpp
  OPENCV
  PUBLIC_HEADERS decimate.h)
