# SPDX-License-Identifier: MIT
# The frame-averaging agent: agent at the baseline, the scalar reference and one kernel object per wider ISA.
ombrel_add_operation(frame_average
  SOURCES frame_average.cpp
  KERNELS scalar frame_average_kernels_scalar.cpp
          sse2 frame_average_kernels_sse2.cpp
          avx2 frame_average_kernels_avx2.cpp
          avx512 frame_average_kernels_avx512.cpp
  TESTS frame_average_test.cpp
  PUBLIC_HEADERS frame_average.h)
