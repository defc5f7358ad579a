# SPDX-License-Identifier: MIT
# The histogram agent: agent and scalar reference at the baseline, unrolled counting kernels per ISA.
# OpenCV checks our counts against an independent implementation.
ombrel_add_operation(histogram
  SOURCES histogram.cpp
  KERNELS scalar histogram_kernels_scalar.cpp
          sse2 histogram_kernels_sse2.cpp
          avx2 histogram_kernels_avx2.cpp
  TESTS histogram_test.cpp
  TEST_LIBS OmbrelScenes
  OPENCV
  PUBLIC_HEADERS histogram.h)
